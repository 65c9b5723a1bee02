#include "app/help_text.h"

#include <cstdio>

namespace qk {

namespace {

constexpr const char kHelpText[] =
    "quilard [-k] [-s filename] [-p pathname] [-v version number] [-r] -b filename\n"
    "-k    To sign or resign the VXN binary file\n"
    "\t- Optionally use -o to specify binary name\n"
    "-s    filename of the XML content\n"
    "\t- Can be used with -p -k and -o\n"
    "\t- Use this parameter multiple times to merge XML Files.\n"
    "\t- Use this parameter exactly once if -r is specified.\n"
    "-b    filename of the file to contain the Binary content.\n"
    "\t- Required in all cases except system/oem binary to xml conversion.\n"
    "-l    filename of the progress log.\n"
    "-p    to include all .XML files in the specified directory\n"
    "\t- may be used with \"-s\"\n"
    "-r    to reverse the conversion, Binary to XML, instead of the default, XML to Binary.\n"
    "-sys  used with -r option, convert system database to XML.\n"
    "-oem  used with -r option, convert oem database to XML.\n"
    "-user used with -r option, convert user database to XML.\n"
    "-ph   used with -r option, print placeholder entries.\n"
    "-v    to print version string from the binary file\n"
    "-u    to specify this is a user XML file\n"
    "-o    to dump blob content to log file, need to specify blob file name with \"-b\"\n"
    "-c    specify Version string to use for blob file.  Used with string following option: - "
    "\"-c 8.77\"\n"
    "\n"
    "Usage:\n"
    "    \n"
    "To convert User XML File(s) into a User Binary File, use: -\n"
    "\tquillard -u -s file1 [-s file2 ...] -b fileX\n"
    "To convert VXN XML File(s) into an Unsigned VXN Binary File, use: -\n"
    "\tquillard -s file1 [-s file2 ...] -b fileX\n"
    "To convert VXN XML File(s) into a Signed VXN Binary File, use: -\n"
    "\tquillard -k -s file1 [-s file2 ...] -b fileX\n"
    "To Sign or Re-Sign an VXN Binary File, use: -\n"
    "\tquillard -k -b fileX\n"
    "To convert a Binary File to an XML File, use: -\n"
    "\tquillard -r -sys -s file1\n"
    "To convert all files in the current directory, use: -\n"
    "\tquillard -p filepath -b fileX\n";

// --help: what a user of today's tool needs, every option included.
constexpr const char kUsageText[] =
    "Usage: quillard [OPTION]...\n"
    "Compiles display-driver application profiles (customisation XML) into a blob,\n"
    "dumps a blob's tables, prints its version string, and turns installed databases\n"
    "back into XML.\n"
    "\n"
    "  quillard -s system.xml [-s more.xml]... [-p DIR]... [-b out.blb] [-l run.log]\n"
    "  quillard -u|-oem -s user.xml -b user.blb [--against system.blb]\n"
    "  quillard -r [-sys|-user|-oem] [-ph] -s out.xml [--from system.blb]\n"
    "  quillard -o -b in.blb -l dump.log\n"
    "  quillard --diff a.blb b.blb\n"
    "\n"
    "Input and output:\n"
    "  -s FILE       read an XML file; repeat to merge files in order (with -r: the\n"
    "                XML file to write)\n"
    "  -p DIR        read every .xml file below DIR, in name order\n"
    "  -b FILE       the blob to write, or to dump with -o (default quillard.blb)\n"
    "  -u            the XML input is a user file\n"
    "  -oem          the XML input is an OEM file (with -r: the OEM database)\n"
    "  -c TEXT       release text that starts the blob's version string (63 at most)\n"
    "  -k            asks for work and does nothing else\n"
    "Inspection and reverse conversion:\n"
    "  -o            dump the blob's tables to the progress log\n"
    "  -v            print the version string of ./quillard.blb\n"
    "  -r            write the installed database as XML to the -s file\n"
    "  -sys, -user   with -r: the system (default) or user database\n"
    "  -ph           with -r: also write areas without properties and profiles\n"
    "                without values\n"
    "  -reload       ask the display-control library to reload its profiles\n"
    "Progress log:\n"
    "  -l FILE       write the progress log, quillard.log in the working directory,\n"
    "                and copy it to FILE at the end\n"
    "  -nl           no progress log (-l wins)\n"
    "  -utf8         accepted, no effect\n"
    "Without the driver:\n"
    "  --from FILE     with -r: convert the blob file FILE instead of the library's\n"
    "                  database\n"
    "  --against FILE  with -u or -oem: check against the system blob FILE instead\n"
    "                  of the library\n"
    "  --diff A B      print the differences between two blob files\n"
    "Pipelines:\n"
    "  --strict      any error fails the run (status 255) and no blob is written\n"
    "  --diagnostics-format=sarif\n"
    "                write the diagnostics as one SARIF 2.1.0 log on standard error\n"
    "Every problem is reported on standard error as FILE:LINE:COL: error: MESSAGE,\n"
    "with the source line, a caret, notes and a \"did you mean\" hint.\n"
    "  --help        print this text\n"
    "  --version     print the version of quillard\n"
    "  -hiddenhelp   print the original short help\n"
    "\n"
    "SOURCE_DATE_EPOCH, when set to a whole number of seconds, fixes the time in the\n"
    "version string (UTC), so that the same input gives the same blob.\n"
    "\n"
    "Exit status: 0 done (also help, -v, -reload, nothing to do, memory exhausted,\n"
    "and, without --strict, an unknown driver/property pair in a system file); 1 the\n"
    "dynamic-switching drivers do not match; 255 an error (see standard error, or\n"
    "use --strict). --diff: 0 equal, 1 different, 2 a file is not a readable blob.\n";

}  // namespace

void OutputUsage() {
    std::fwrite(kUsageText, 1, sizeof kUsageText - 1, stdout);
}

void OutputVersion() {
    std::printf("quillard %s\n", QUILLKIT_VERSION);
}

void OutputHelp() {
    std::fputs(kHelpText, stdout);
    std::fflush(stdout);
}

}  // namespace qk
