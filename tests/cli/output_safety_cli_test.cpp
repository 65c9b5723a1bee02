// The files the tool writes (the blob, the XML of -r, the copy of the log) and
// its standard output: the kernel decides where it may write, exactly as it
// does for a shell's "echo x > FILE"; a path that changes under the tool sends
// the bytes nowhere; no output ever replaces an input or another output; and a
// write that fails at the very end is still reported and still counts.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/cli/cli_harness.h"
#include "tests/support/case_name.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr const char kOld[] = "old content\n";

// The example set and its blob in dir, as in.xml and good.blb.
void WriteInputs(const fs::path& dir) {
    WriteFile(dir / "in.xml", ReadFile(Example("system.xml")));
    WriteFile(dir / "good.blb", ExampleBlob());
}

enum class Output { kBlob, kReverse, kLogCopy };

// The arguments that have the run write output to path.
std::vector<std::string> Writing(Output output, const std::string& path) {
    switch (output) {
        case Output::kBlob:
            return {"-s", "in.xml", "-b", path};
        case Output::kReverse:
            return {"-r", "--from", "good.blb", "-s", path};
        case Output::kLogCopy:
            break;
    }
    return {"-s", "in.xml", "-b", "out.blb", "-l", path};
}

const char* OutputName(Output output) {
    static const char* const kNames[] = {"Blob", "Reverse", "LogCopy"};
    return kNames[static_cast<int>(output)];
}

bool ProcFlag(const char* name) {
    const std::string value = ReadFile(std::string("/proc/sys/fs/") + name);
    return !value.empty() && value != "0\n";
}

// ---------------------------------------------------------------------------
// The kernel's verdict: a file planted in a shared directory is written by the
// tool exactly when a shell's "echo x > FILE" may write it.

enum class Planted { kNothing, kRegular, kFifo };

struct Sharing {
    const char* name;
    mode_t directoryMode;
    uid_t directoryOwner;
    Planted planted;
    uid_t fileOwner;
};

const Sharing kSharings[] = {
    {"OtherUsersFileInStickyDirectory", 01777, 0, Planted::kRegular, kNobody},
    {"OtherUsersFifoInStickyDirectory", 01777, 0, Planted::kFifo, kNobody},
    {"OwnFifoInStickyDirectory", 01777, 0, Planted::kFifo, 0},
    {"OwnFileInStickyDirectory", 01777, 0, Planted::kRegular, 0},
    {"DirectoryOwnersFileInStickyDirectory", 01777, kNobody, Planted::kRegular, kNobody},
    {"OtherUsersFileInOpenDirectory", 0777, 0, Planted::kRegular, kNobody},
    {"NewFileInStickyDirectory", 01777, 0, Planted::kNothing, 0},
};

struct VerdictCase {
    Sharing sharing;
    Output output;
};

std::vector<VerdictCase> VerdictCases() {
    std::vector<VerdictCase> cases;
    for (const Sharing& sharing : kSharings) {
        for (Output output : {Output::kBlob, Output::kReverse, Output::kLogCopy}) {
            cases.push_back({sharing, output});
        }
    }
    return cases;
}

void Plant(const fs::path& file, const Sharing& sharing) {
    if (sharing.planted == Planted::kNothing) {
        return;
    }
    if (sharing.planted == Planted::kFifo) {
        ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
    } else {
        WriteFile(file, kOld);
    }
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(chown(file.c_str(), sharing.fileOwner, sharing.fileOwner), 0);
}

// Whether anything arrived at file: new content, or bytes in the pipe.
bool Written(const fs::path& file, const Sharing& sharing, int reader) {
    if (sharing.planted == Planted::kFifo) {
        char byte = 0;
        return read(reader, &byte, 1) == 1;
    }
    if (sharing.planted == Planted::kNothing) {
        return fs::exists(file);
    }
    return ReadFile(file) != kOld;
}

void PrintTo(const VerdictCase& c, std::ostream* out) {
    *out << c.sharing.name << OutputName(c.output);
}

class KernelVerdict : public ::testing::TestWithParam<VerdictCase> {};

TEST_P(KernelVerdict, ToolWritesExactlyWhereTheShellMay) {
    const auto& [sharing, output] = GetParam();
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    if (!ProcFlag("protected_regular") ||
        (sharing.planted == Planted::kFifo && !ProcFlag("protected_fifos"))) {
        GTEST_SKIP() << "needs fs.protected_regular=1 and fs.protected_fifos=1";
    }
    ScratchDir dir;
    WriteInputs(dir.path());
    const fs::path shared = dir / "shared";
    fs::create_directory(shared);
    ASSERT_EQ(chown(shared.c_str(), sharing.directoryOwner, sharing.directoryOwner), 0);
    ASSERT_EQ(chmod(shared.c_str(), sharing.directoryMode), 0);
    Plant(shared / "oracle", sharing);
    Plant(shared / "target", sharing);
    // A reader on each pipe, so that a permitted write does not wait for one.
    const int oracleReader = open((shared / "oracle").c_str(), O_RDONLY | O_NONBLOCK);
    const int targetReader = open((shared / "target").c_str(), O_RDONLY | O_NONBLOCK);

    const std::string shell = "cd '" + dir.path().string() + "' && echo x > shared/oracle";
    const int verdict = std::system((shell + " 2>/dev/null").c_str());
    const bool allowed = WIFEXITED(verdict) && WEXITSTATUS(verdict) == 0;
    ASSERT_EQ(allowed, Written(shared / "oracle", sharing, oracleReader));

    const RunResult run = RunQuillard(dir.path(), Writing(output, "shared/target"));
    EXPECT_EQ(Written(shared / "target", sharing, targetReader), allowed) << run.err;
    if (!allowed) {
        EXPECT_THAT(run.err, HasSubstr("shared/target"));
        struct stat info {};
        ASSERT_EQ(lstat((shared / "target").c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, sharing.fileOwner);
        EXPECT_EQ(info.st_mode & 07777, 0666u);
    }
    for (int reader : {oracleReader, targetReader}) {
        if (reader >= 0) {
            close(reader);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, KernelVerdict, ::testing::ValuesIn(VerdictCases()),
                         [](const ::testing::TestParamInfo<VerdictCase>& param) {
                             return std::string(param.param.sharing.name) +
                                    OutputName(param.param.output);
                         });

// Only temporary files of the user running the tool are cleared away.
TEST(TemporaryFiles, OnlyTheRunningUsersAreRemoved) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    ScratchDir dir;
    WriteInputs(dir.path());
    fs::create_directory(dir / "shared");
    ASSERT_EQ(chmod((dir / "shared").c_str(), 01777), 0);
    const fs::path others = dir / "shared/.quillard-k3x9q2.tmp";
    const fs::path own = dir / "shared/.quillard-m1n3q7.tmp";
    WriteFile(others, "being written by another user");
    WriteFile(own, "left by a run that was killed");
    ASSERT_EQ(chown(others.c_str(), kNobody, kNobody), 0);

    const RunResult run = RunQuillard(dir.path(), Writing(Output::kBlob, "shared/out.blb"));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(ReadFile(others), "being written by another user");
    EXPECT_FALSE(fs::exists(own));
}

// ---------------------------------------------------------------------------
// A path that becomes a link to another file while the tool writes it (right
// after the tool opened it, or once the new file exists beside it): the output
// is refused, and neither the file the link names nor the file that was opened
// receives a byte.

struct SwapCase {
    Output output;
    const char* when;  // the moment of the swap (tests/support/output_swap.cpp)
};

class SwappedPath : public ::testing::TestWithParam<SwapCase> {};

TEST_P(SwappedPath, IsAnErrorAndNothingIsWritten) {
    const auto& [output, when] = GetParam();
    ScratchDir dir;
    WriteInputs(dir.path());
    WriteFile(dir / "target.out", kOld);
    WriteFile(dir / "victim.out", "not to be touched\n");
    std::vector<std::string> args = Writing(output, "target.out");
    args.push_back("--strict");
    if (output != Output::kLogCopy) {
        args.insert(args.end(), {"-l", "run.log"});
    }
    const RunResult run = RunQuillard(dir.path(), args,
                                      {{"LD_PRELOAD", OUTPUT_SWAP_LIBRARY},
                                       {"QUILLKIT_SWAP_PATH", "target.out"},
                                       {"QUILLKIT_SWAP_TARGET", "victim.out"},
                                       {"QUILLKIT_SWAP_WHEN", when},
                                       {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    EXPECT_EQ(run.status, 255) << run.err;
    EXPECT_THAT(run.err, HasSubstr("target.out"));
    EXPECT_EQ(ReadFile(dir / "victim.out"), "not to be touched\n");
    EXPECT_EQ(ReadFile(dir / "target.out.moved"), kOld) << "the opened file was written";
    EXPECT_TRUE(fs::is_symlink(dir / "target.out"));
    if (output != Output::kLogCopy) {
        EXPECT_THAT(ReadFile(dir / "quillard.log"), HasSubstr("ERROR"));
    }
    for (const auto& entry : fs::directory_iterator(dir.path())) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
}

std::vector<SwapCase> SwapCases() {
    std::vector<SwapCase> cases;
    for (const char* when : {"open", "tmpfile"}) {
        for (Output output : {Output::kBlob, Output::kReverse, Output::kLogCopy}) {
            cases.push_back({output, when});
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Cli, SwappedPath, ::testing::ValuesIn(SwapCases()),
                         [](const ::testing::TestParamInfo<SwapCase>& param) {
                             return std::string(OutputName(param.param.output)) + "At" +
                                    (std::string_view(param.param.when) == "open" ? "Open"
                                                                                  : "NewFile");
                         });

// A file system without unnamed files: the outputs are made under a name of
// their own beside the target instead, byte for byte the same, with nothing left over.
TEST(WithoutUnnamedFiles, EveryOutputTakesTheNamedWay) {
    for (Output output : {Output::kBlob, Output::kReverse, Output::kLogCopy}) {
        SCOPED_TRACE(OutputName(output));
        ScratchDir usual;
        ScratchDir named;
        for (const ScratchDir* dir : {&usual, &named}) {
            WriteInputs(dir->path());
            WriteFile(*dir / "target.out", kOld);
        }
        const RunResult expected = RunQuillard(usual.path(), Writing(output, "target.out"),
                                               {{"SOURCE_DATE_EPOCH", "1700000000"}});
        const RunResult run = RunQuillard(named.path(), Writing(output, "target.out"),
                                          {{"LD_PRELOAD", OUTPUT_SWAP_LIBRARY},
                                           {"QUILLKIT_NO_TMPFILE", "1"},
                                           {"SOURCE_DATE_EPOCH", "1700000000"},
                                           {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.status, expected.status);
        EXPECT_NE(ReadFile(named / "target.out"), kOld);
        if (output != Output::kLogCopy) {  // the log names the time it took
            EXPECT_EQ(ReadFile(named / "target.out"), ReadFile(usual / "target.out"));
        }
        for (const auto& entry : fs::directory_iterator(named.path())) {
            EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
        }
    }
}

// ---------------------------------------------------------------------------
// An output that is an input or another output, by any name: refused before
// anything is written, with an ERROR naming both.

struct SameFileCase {
    const char* name;
    std::function<void(const fs::path& dir)> make;
    std::vector<std::string> args;
    const char* output;  // the two names the ERROR gives
    const char* other;
};

std::vector<SameFileCase> SameFileCases() {
    const auto nothing = [](const fs::path&) {};
    const auto hardLink = [](const char* from, const char* to) {
        return [from, to](const fs::path& dir) { fs::create_hard_link(dir / from, dir / to); };
    };
    return {
        {"LogOverTheXml", nothing, {"-s", "in.xml", "-l", "in.xml"}, "in.xml", "in.xml"},
        {"LogOverABrokenXml",
         [](const fs::path& dir) { WriteFile(dir / "broken.xml", "<customisations>"); },
         {"-s", "broken.xml", "-l", "broken.xml"},
         "broken.xml",
         "broken.xml"},
        {"BlobOverTheXml", nothing, {"-s", "in.xml", "-b", "./in.xml"}, "./in.xml", "in.xml"},
        {"BlobOverAHardLinkOfTheXml",
         hardLink("in.xml", "same.blb"),
         {"-s", "in.xml", "-b", "same.blb"},
         "same.blb",
         "in.xml"},
        {"BlobOverAFileOfTheDirectory",
         [](const fs::path& dir) { WriteFile(dir / "tree/a.xml", ReadFile(dir / "in.xml")); },
         {"-p", "tree", "-b", "tree/../tree/a.xml"},
         "tree/../tree/a.xml",
         "tree/a.xml"},
        {"LogOverAHardLinkOfAFileOfTheDirectory",
         [](const fs::path& dir) {
             WriteFile(dir / "tree/a.xml", ReadFile(dir / "in.xml"));
             fs::create_hard_link(dir / "tree/a.xml", dir / "a.log");
         },
         {"-p", "tree", "-l", "a.log"},
         "a.log",
         "tree/a.xml"},
        {"LogOverTheBlob",
         nothing,
         {"-s", "in.xml", "-b", "good.blb", "-l", "good.blb"},
         "good.blb",
         "good.blb"},
        {"LogOverANewBlob",
         nothing,
         {"-s", "in.xml", "-b", "new.blb", "-l", "./new.blb"},
         "new.blb",
         "new.blb"},
        {"LogOverTheDumpedBlob",
         nothing,
         {"-o", "-b", "good.blb", "-l", "good.blb"},
         "good.blb",
         "good.blb"},
        {"XmlOverTheBlobItComesFrom",
         nothing,
         {"-r", "--from", "good.blb", "-s", "good.blb"},
         "good.blb",
         "good.blb"},
        {"LogOverTheXmlOfReverse",
         nothing,
         {"-r", "--from", "good.blb", "-s", "back.xml", "-l", "back.xml"},
         "back.xml",
         "back.xml"},
        {"BlobOverTheBlobChecked",
         [](const fs::path& dir) { WriteFile(dir / "user.xml", ReadFile(Example("update.xml"))); },
         {"-u", "-s", "user.xml", "--against", "good.blb", "-b", "good.blb"},
         "good.blb",
         "good.blb"},
        {"LogOverABlobCompared",
         [](const fs::path& dir) { WriteFile(dir / "other.blb", ExampleBlob()); },
         {"--diff", "good.blb", "other.blb", "-l", "other.blb"},
         "other.blb",
         "other.blb"},
    };
}

// Every file below dir with a digest of its content (links by their target),
// but the log.
std::map<std::string, std::size_t> Snapshot(const fs::path& dir) {
    std::map<std::string, std::size_t> files;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        const std::string name = fs::relative(entry.path(), dir).string();
        if (name == "quillard.log") {
            continue;
        }
        files[name] = std::hash<std::string>()(entry.is_symlink()
                                                   ? "-> " + fs::read_symlink(entry.path()).string()
                                               : entry.is_regular_file() ? ReadFile(entry.path())
                                                                         : "directory");
    }
    return files;
}

void PrintTo(const SameFileCase& c, std::ostream* out) {
    *out << c.name;
}

class SameFile : public ::testing::TestWithParam<SameFileCase> {};

TEST_P(SameFile, IsRefusedBeforeAnythingIsWritten) {
    const SameFileCase& c = GetParam();
    ScratchDir dir;
    WriteInputs(dir.path());
    c.make(dir.path());
    const auto before = Snapshot(dir.path());
    std::vector<std::string> args = c.args;
    if (std::find(args.begin(), args.end(), "-l") == args.end()) {
        args.insert(args.end(), {"-l", "run.log"});
    }
    const RunResult run = RunQuillard(dir.path(), args);
    EXPECT_EQ(run.status, 255) << run.err;
    auto after = Snapshot(dir.path());
    after.erase("run.log");  // nothing is copied: see below
    EXPECT_FALSE(fs::exists(dir / "run.log"));
    EXPECT_EQ(after, before) << "a file was written";
    const std::string both = std::string(c.output) + "\" is the same file as";
    EXPECT_THAT(run.err, HasSubstr(both));
    EXPECT_THAT(run.err, HasSubstr(std::string("\"") + c.other + "\""));
    const std::string log = ReadFile(dir / "quillard.log");
    EXPECT_THAT(log, HasSubstr("ERROR, "));
    EXPECT_THAT(log, HasSubstr(both));
}

INSTANTIATE_TEST_SUITE_P(Cli, SameFile, ::testing::ValuesIn(SameFileCases()), test::CaseName());

// quillard.log is an output of every run with -l: it is started anew only when
// the run does not read it, and nothing else is written over it.
struct LogFileCase {
    const char* name;
    std::vector<std::string> args;
    bool logIsInput;  // else the log is written, but no other output over it
};

const LogFileCase kLogFileCases[] = {
    {"XmlReadFromTheLogFile", {"-s", "quillard.log", "-b", "out.blb", "-l", "copy.log"}, true},
    {"BlobComparedFromTheLogFile", {"--diff", "quillard.log", "good.blb", "-l", "copy.log"}, true},
    {"BlobOverTheLogFile", {"-s", "in.xml", "-b", "quillard.log", "-l", "copy.log"}, false},
    {"XmlOfReverseOverTheLogFile",
     {"-r", "--from", "good.blb", "-s", "quillard.log", "-l", "copy.log"},
     false},
};

void PrintTo(const LogFileCase& c, std::ostream* out) {
    *out << c.name;
}

class LogFile : public ::testing::TestWithParam<LogFileCase> {};

TEST_P(LogFile, IsNeitherReadNorOverwritten) {
    const LogFileCase& c = GetParam();
    ScratchDir dir;
    WriteInputs(dir.path());
    const std::string before = ReadFile(dir / (c.logIsInput ? "in.xml" : "good.blb"));
    WriteFile(dir / "quillard.log", before);
    const RunResult run = RunQuillard(dir.path(), c.args);
    EXPECT_EQ(run.status, 255) << run.err;
    EXPECT_THAT(run.err, HasSubstr("\"quillard.log\" is the same file as"));
    EXPECT_FALSE(fs::exists(dir / "copy.log"));
    EXPECT_FALSE(fs::exists(dir / "out.blb"));
    if (c.logIsInput) {
        EXPECT_EQ(ReadFile(dir / "quillard.log"), before);
    } else {
        EXPECT_THAT(ReadFile(dir / "quillard.log"), HasSubstr("ERROR, output"));
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, LogFile, ::testing::ValuesIn(kLogFileCases), test::CaseName());

// ---------------------------------------------------------------------------
// The last step's failures: standard output that cannot be written, a log cut
// by a file-size limit. Each is reported on standard error and decides the
// status where the run has one for failure.

struct LastStepCase {
    const char* name;
    std::vector<std::string> args;
    ChildSetup setup;
    int status;
    const char* reported;  // on standard error
};

const ChildSetup kFullDisk = {"/dev/full"};
constexpr const char kOutputLost[] = "standard output could not be written";
constexpr const char kLogCut[] = "quillard.log could not be written in this run";
constexpr const char kLogNotCopied[] = "the progress log could not be copied";

const LastStepCase kLastSteps[] = {
    {"HelpIntoAFullDevice", {"--help"}, kFullDisk, 255, kOutputLost},
    {"VersionIntoAFullDevice", {"--version"}, kFullDisk, 255, kOutputLost},
    {"DiffIntoAFullDevice", {"--diff", "good.blb", "other.blb"}, kFullDisk, 2, kOutputLost},
    {"VersionStringIntoAFullDevice", {"-v"}, kFullDisk, 0, kOutputLost},
    {"VersionStringIntoAFullDeviceStrict", {"--strict", "-v"}, kFullDisk, 255, kOutputLost},
    {"HiddenHelpIntoAFullDeviceStrict", {"--strict", "-hiddenhelp"}, kFullDisk, 255, kOutputLost},
    {"DiffWithALogCopyThatFails",
     {"--diff", "good.blb", "other.blb", "-l", "missing/copy.log"},
     {},
     1,
     kLogNotCopied},
    {"DiffWithALogCopyThatFailsStrict",
     {"--strict", "--diff", "good.blb", "good.blb", "-l", "missing/copy.log"},
     {},
     2,
     kLogNotCopied},
    {"LogCutBySizeLimit",
     {"-s", "in.xml", "-b", "out.blb", "-l", "quillard.log"},
     {"", 4096},
     0,
     kLogCut},
    {"LogCutBySizeLimitStrict",
     {"--strict", "-s", "in.xml", "-b", "out.blb", "-l", "quillard.log"},
     {"", 4096},
     255,
     kLogCut},
};

void PrintTo(const LastStepCase& c, std::ostream* out) {
    *out << c.name;
}

class LastStep : public ::testing::TestWithParam<LastStepCase> {};

TEST_P(LastStep, FailureIsReportedAndCounts) {
    const LastStepCase& c = GetParam();
    ScratchDir dir;
    WriteInputs(dir.path());
    WriteFile(dir / "quillard.blb", ExampleBlob());
    // A second blob that differs: one application fewer.
    std::string set = ReadFile(dir / "in.xml");
    set.replace(set.find("Pocket Notes"), 12, "Pocket Diary");
    WriteFile(dir / "other.xml", set);
    ASSERT_EQ(RunQuillard(dir.path(), {"-s", "other.xml", "-b", "other.blb"}).status, 0);

    const RunResult run = RunQuillardWith(dir.path(), c.args, {}, c.setup);
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_THAT(run.err, HasSubstr(c.reported));
}

INSTANTIATE_TEST_SUITE_P(Cli, LastStep, ::testing::ValuesIn(kLastSteps), test::CaseName());

}  // namespace
}  // namespace qk::cli
