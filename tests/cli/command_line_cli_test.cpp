// The command line as users meet it: options, early exits, exit statuses and
// the progress log with its copy.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

using ::testing::HasSubstr;

constexpr const char kHelp[] =
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

bool Exists(const std::filesystem::path& file) {
    return std::filesystem::exists(file);
}

TEST(CommandLineCli, NoArgumentsEndsAtOnceWithoutOutput) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_FALSE(Exists(dir / "quillard.log"));
}

TEST(CommandLineCli, HelpIsPrintedByteForByteAndBeatsEveryOtherOption) {
    const std::vector<std::vector<std::string>> commands = {
        {"-hiddenhelp"},
        {"/hiddenhelp"},
        {"-s", "missing.xml", "-l", "run.log", "-reload", "-hiddenhelp"},
    };
    for (const auto& args : commands) {
        ScratchDir dir;
        RunResult run = RunQuillard(dir.path(), args);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, kHelp);
        EXPECT_FALSE(Exists(dir / "quillard.log"));
        EXPECT_FALSE(Exists(dir / "run.log"));
    }
}

TEST(CommandLineCli, ReloadEndsTheRunBeforeAnyInput) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-reload", "-s", "missing.xml", "-l", "run.log"},
                                {{"LD_LIBRARY_PATH", "/nonexistent"}});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_FALSE(Exists(dir / "quillard.log"));
}

TEST(CommandLineCli, MissingOptionValuesTakeTheErrorExit) {
    struct Case {
        std::vector<std::string> args;
        std::string logged;  // empty: logging was not on yet
    };
    const Case cases[] = {
        {{"-k", "-l"}, ""},
        {{"-l", "run.log", "-b"},
         "ERROR, binary file name not specified.ExitFree Called on ERROR."},
        {{"-l", "run.log", "-s"},
         "ERROR, single file name not specified.ExitFree Called on ERROR."},
        {{"-l", "run.log", "-p"}, "ERROR, Path not specified.ExitFree Called on ERROR."},
    };
    for (const auto& c : cases) {
        ScratchDir dir;
        RunResult run = RunQuillard(dir.path(), c.args);
        EXPECT_EQ(run.status, 255) << c.args.back();
        if (c.logged.empty()) {
            EXPECT_FALSE(Exists(dir / "quillard.log"));
        } else {
            EXPECT_THAT(ReadFile(dir / "run.log"), HasSubstr(c.logged));
            EXPECT_THAT(ReadFile(dir / "run.log"), HasSubstr("Exiting Quillkit...\n"));
        }
    }
}

TEST(CommandLineCli, NoWorkAskedForEndsWithoutCopyButTheLogIsStillStartedAnew) {
    ScratchDir dir;
    WriteFile(dir / "quillard.log", "stale lines of an earlier run\n");
    RunResult run = RunQuillard(dir.path(), {"-b", "x.blb", "-l", "log.txt"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(ReadFile(dir / "quillard.log"), "Launching Quillkit, Log progress selected...\n");
    EXPECT_FALSE(Exists(dir / "log.txt"));
    EXPECT_FALSE(Exists(dir / "x.blb"));
}

TEST(CommandLineCli, SigningAloneRunsTheTeardownOnly) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-k", "-b", "x.blb", "-l", "log.txt"});
    EXPECT_EQ(run.status, 0);
    const std::string log = ReadFile(dir / "log.txt");
    const std::regex teardown(
        "Launching Quillkit, Log progress selected\\.\\.\\.\n"
        "(g_iMalloced = ([0-9]+)\n){4}DONE, FreeAll\\(\\)\ng_iMalloced = [0-9]+\n"
        "Exiting Quillkit\\.\\.\\.\n");
    EXPECT_TRUE(std::regex_match(log, teardown)) << log;
    EXPECT_EQ(log, ReadFile(dir / "quillard.log"));
    EXPECT_FALSE(Exists(dir / "x.blb"));
}

TEST(CommandLineCli, LogBeatsNoLog) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-l", "log.txt", "-nl", "-k"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(ReadFile(dir / "log.txt"), HasSubstr("Exiting Quillkit...\n"));
}

TEST(CommandLineCli, AMissingReleaseValueIsLoggedAndTheRunGoesOn) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-k", "-l", "log.txt", "-c"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(ReadFile(dir / "log.txt"),
                HasSubstr("ERROR, release string not specified.g_iMalloced"));
}

TEST(CommandLineCli, ACopyThatFailsLeavesTheStatusAlone) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-k", "-l", "no/such/dir/log.txt"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, HasSubstr("ERROR, the progress log could not be copied"));
    EXPECT_TRUE(Exists(dir / "quillard.log"));
}

TEST(CommandLineCli, ValuesThatDoNotFitAreRefused) {
    struct Case {
        std::vector<std::string> args;
        std::string option;
    };
    const std::string long256(256, 'n');
    const Case cases[] = {
        {{"-l", "log.txt", "-s", long256}, "-s"},
        {{"-l", "log.txt", "-p", long256}, "-p"},
        {{"-l", "log.txt", "-b", long256}, "-b"},
        {{"-l", "log.txt", "-c", std::string(64, '9')}, "-c"},
        {{"-l", "log.txt", "-c", "bad\xC3"}, "-c"},
    };
    for (const auto& c : cases) {
        ScratchDir dir;
        RunResult run = RunQuillard(dir.path(), c.args);
        EXPECT_EQ(run.status, 255) << c.option;
        EXPECT_THAT(ReadFile(dir / "log.txt"),
                    HasSubstr("ERROR, invalid value for option " + c.option + "\n"));
    }
    // A release text of 63 characters still fits.
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-k", "-l", "log.txt", "-c", std::string(63, '9')});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(ReadFile(dir / "log.txt"),
                HasSubstr("Release string specified: - " + std::string(63, '9') + "\n"));
}

TEST(CommandLineCli, ALogNameThatIsNotUtf8IsRefusedBeforeLoggingStarts) {
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-k", "-l", "bad\xFF.log"});
    EXPECT_EQ(run.status, 255);
    EXPECT_FALSE(Exists(dir / "quillard.log"));
}

TEST(CommandLineCli, AnOptionValueThatNamesAnotherOptionCountsForBoth) {
    // "-l -o" names the log file "-o" and also asks for the dump, which re-reads
    // the (missing) blob file.
    ScratchDir dir;
    RunResult run = RunQuillard(dir.path(), {"-l", "-o"});
    EXPECT_EQ(run.status, 0);
    const std::string log = ReadFile(dir / "-o");
    EXPECT_THAT(log, HasSubstr("BEGIN PRINT COMPACT"));
    EXPECT_THAT(log, HasSubstr("Exiting Quillkit...\n"));
}

}  // namespace
}  // namespace qk::cli
