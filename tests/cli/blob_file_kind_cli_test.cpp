// A blob path that names something other than a regular file: a FIFO without a
// writer, a directory, a device. Every mode that reads a blob refuses it at
// once; none waits for a writer that never comes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

enum class Kind { kFifo, kDirectory, kDevice };

struct FileKindCase {
    const char* name;
    std::vector<std::string> args;  // "bad.blb" is the odd file
    int status;
    const char* stderrLine;
};

const FileKindCase kCases[] = {
    {"From",
     {"-r", "-s", "back.xml", "--from", "bad.blb"},
     255,
     "bad.blb: error: --from: the blob file is not a regular file"},
    {"Against",
     {"-u", "-s", "user.xml", "-b", "back.xml", "--against", "bad.blb"},
     255,
     "bad.blb: error: --against: the blob file is not a regular file"},
    {"DiffFirst",
     {"--diff", "bad.blb", "good.blb"},
     2,
     "bad.blb: error: --diff: the blob file is not a regular file"},
    {"DiffSecond",
     {"--diff", "good.blb", "bad.blb"},
     2,
     "bad.blb: error: --diff: the blob file is not a regular file"},
    {"Dump", {"-o", "-b", "bad.blb"}, 255, "bad.blb: error: the blob file is not a regular file"},
};

void PrintTo(const FileKindCase& c, std::ostream* out) {
    *out << c.name;
}

class BlobFileKind : public ::testing::TestWithParam<std::tuple<FileKindCase, Kind>> {};

TEST_P(BlobFileKind, IsRefusedAtOnce) {
    const auto& [c, kind] = GetParam();
    ScratchDir dir;
    WriteFile(dir / "user.xml", ReadFile(Example("update.xml")));
    ASSERT_EQ(
        RunQuillard(dir.path(), {"-s", Example("system.xml").string(), "-b", "good.blb"}).status,
        0);
    const fs::path bad = dir / "bad.blb";
    switch (kind) {
        case Kind::kFifo:
            ASSERT_EQ(mkfifo(bad.c_str(), 0600), 0);
            break;
        case Kind::kDirectory:
            fs::create_directory(bad);
            break;
        case Kind::kDevice:
            fs::create_symlink("/dev/zero", bad);
            break;
    }
    // A run that waits on the FIFO is killed, and its status is then -1.
    const bool valgrind = std::getenv("QUILLKIT_CLI_VALGRIND") != nullptr;
    const RunResult run = RunQuillardWithin(valgrind ? 60 : 5, dir.path(), c.args);
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_THAT(run.err, HasSubstr(c.stderrLine));
    EXPECT_FALSE(fs::exists(dir / "back.xml")) << "an answer was written from no blob";
}

std::string CaseName(const ::testing::TestParamInfo<std::tuple<FileKindCase, Kind>>& info) {
    static const char* const kKinds[] = {"Fifo", "Directory", "Device"};
    return std::string(std::get<0>(info.param).name) +
           kKinds[static_cast<int>(std::get<1>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(Cli, BlobFileKind,
                         ::testing::Combine(::testing::ValuesIn(kCases),
                                            ::testing::Values(Kind::kFifo, Kind::kDirectory,
                                                              Kind::kDevice)),
                         CaseName);

}  // namespace
}  // namespace qk::cli
