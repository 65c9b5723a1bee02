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

}  // namespace

void OutputHelp() {
    std::fputs(kHelpText, stdout);
    std::fflush(stdout);
}

}  // namespace qk
