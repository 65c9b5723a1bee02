// Working without the driver: a blob file answers what the display-control
// library would (--from, --against), exactly as the library answers when it
// serves that blob; --diff compares two blobs by content.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;

// The version string's minute is the only thing two runs may not share.
std::string WithoutTime(const std::string& text) {
    return std::regex_replace(text, std::regex("_[0-9]{8}_[0-9]{4}_"), "_TIME_");
}

struct SystemSet {
    std::vector<std::string> files;  // merged in order into the installed system blob
    std::string userFile;            // checked against it
};

class Offline : public ::testing::TestWithParam<SystemSet> {
  protected:
    void SetUp() override {
        std::vector<std::string> args = {"-b", "installed/system.blb"};
        for (const std::string& file : GetParam().files) {
            args.insert(args.end(), {"-s", file});
        }
        fs::create_directories(dir_ / "installed");
        ASSERT_EQ(RunQuillard(dir_.path(), args).status, 0);
    }
    RunResult WithLibrary(const std::vector<std::string>& args) {
        return RunQuillard(dir_.path(), args, SimulatorEnv(dir_.path()));
    }
    ScratchDir dir_;
};

TEST_P(Offline, FromWritesWhatTheLibraryServes) {
    for (const bool placeholders : {false, true}) {
        std::vector<std::string> fromArgs = {"-r", "-s", "from.xml", "--from",
                                             "installed/system.blb"};
        std::vector<std::string> libraryArgs = {"-r", "-sys", "-s", "library.xml"};
        if (placeholders) {
            fromArgs.push_back("-ph");
            libraryArgs.push_back("-ph");
        }
        ASSERT_EQ(RunQuillard(dir_.path(), fromArgs).status, 0);
        ASSERT_EQ(WithLibrary(libraryArgs).status, 0);
        EXPECT_EQ(ReadFile(dir_ / "from.xml"), ReadFile(dir_ / "library.xml"));
    }
}

// Blobs compiled in one minute are equal to the byte; across a minute only the
// version string differs.
void ExpectSameBlobs(const fs::path& dir, const std::string& a, const std::string& b) {
    const RunResult diff = RunQuillard(dir, {"--diff", a, b});
    EXPECT_TRUE(diff.status == 0 || (diff.status == 1 && diff.out.starts_with("~ version:") &&
                                     diff.out.find('\n') + 1 == diff.out.size()))
        << diff.out;
}

TEST_P(Offline, AgainstChecksAsTheLibraryDoes) {
    for (const std::string kind : {"-u", "-oem"}) {
        const std::vector<std::string> args = {kind, "-s", GetParam().userFile, "-l", "out.log"};
        std::vector<std::string> against = args;
        against.insert(against.end(), {"-b", "against.blb", "--against", "installed/system.blb"});
        std::vector<std::string> library = args;
        library.insert(library.end(), {"-b", "against.blb"});
        const RunResult offline = RunQuillard(dir_.path(), against);
        const std::string log = ReadFile(dir_ / "out.log");
        fs::rename(dir_ / "against.blb", dir_ / "offline.blb");
        const RunResult served = WithLibrary(library);
        EXPECT_EQ(offline.status, served.status) << kind;
        EXPECT_EQ(WithoutTime(log), WithoutTime(ReadFile(dir_ / "out.log"))) << kind;
        ExpectSameBlobs(dir_.path(), "offline.blb", "against.blb");
    }
}

TEST_P(Offline, DiffOfABlobWithItselfIsEmpty) {
    const RunResult run =
        RunQuillard(dir_.path(), {"--diff", "installed/system.blb", "installed/system.blb"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Cli, Offline,
    ::testing::Values(SystemSet{{Example("system.xml").string()}, Example("update.xml").string()},
                      SystemSet{{Example("system.xml").string(), Example("update.xml").string()},
                                TestData("bridge/user_privacy.xml").string()},
                      SystemSet{{TestData("bridge/escaping.xml").string()},
                                TestData("bridge/user_queries.xml").string()}));

TEST(OfflineDiff, ShowsWhatChangedByName) {
    ScratchDir dir;
    WriteFile(dir / "a.xml", ReadFile(Example("system.xml")));
    std::string changed = ReadFile(Example("system.xml"));
    changed.replace(changed.find("Favours frame rate"), 18, "Favours smoothness");
    changed.replace(changed.find(">0x2<"), 5, ">0x4<");
    WriteFile(dir / "b.xml", changed);
    ASSERT_EQ(RunQuillard(dir.path(), {"-s", "a.xml", "-b", "a.blb", "-c", "1"}).status, 0);
    ASSERT_EQ(RunQuillard(dir.path(), {"-s", "b.xml", "-b", "b.blb", "-c", "2"}).status, 0);
    const RunResult run = RunQuillard(dir.path(), {"--diff", "a.blb", "b.blb"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(WithoutTime(run.out),
              "~ version: \"1_TIME_\" -> \"2_TIME_\"\n"
              "~ profile Lumen3D/FastFrames notes: \"Favours frame rate\" -> \"Favours "
              "smoothness\"\n"
              "~ value Lumen3D/FastFrames/AnisoLevel: \"0x00000002\" -> \"0x00000004\"\n");
}

}  // namespace
}  // namespace qk::cli
