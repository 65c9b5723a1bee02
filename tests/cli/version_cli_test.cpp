// -v as users meet it: the version line of quillard.blb on standard output.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

using ::testing::HasSubstr;

// A blob holding only its Words table: the empty text and the release text.
std::string BlobWithRelease(const std::u32string& release) {
    const std::uint32_t releaseUnits = static_cast<std::uint32_t>(release.size() / 2 + 1);
    std::uint32_t header[23] = {};
    header[0] = 0x454A5742;
    header[1] = 1;
    header[7] = 1;  // refRelease position
    header[8] = static_cast<std::uint32_t>(4 * release.size() + 4);
    header[10] = 1 + releaseUnits;  // nWordsUnits; every other table is empty after it
    for (int table = 11; table < 23; table += 2) {
        header[table] = header[10];
    }
    std::string bytes(reinterpret_cast<const char*>(header), sizeof header);
    bytes += std::string(8, '\0');
    std::string text(8 * releaseUnits, '\0');
    std::memcpy(text.data(), release.data(), 4 * release.size());
    return bytes + text;
}

TEST(VersionCli, PrintsTheReleaseOfTheDefaultBlobAsUtf8) {
    ScratchDir dir;
    WriteFile(dir / "quillard.blb", BlobWithRelease(U"9.9_r\u00e9l_20090303_1405_"));
    WriteFile(dir / "other.blb", BlobWithRelease(U"never_read_"));
    const RunResult result = RunQuillard(dir.path(), {"-v", "-b", "other.blb"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Version string from BIN file:- 9.9_r\xc3\xa9l_20090303_1405_\n");
}

TEST(VersionCli, MissingOrOversizedBlobGivesAnEmptyVersion) {
    ScratchDir dir;
    RunResult result = RunQuillard(dir.path(), {"-v"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Version string from BIN file:- \n");

    WriteFile(dir / "quillard.blb", BlobWithRelease(U"big_") + std::string(0xFFFFF, 'x'));
    result = RunQuillard(dir.path(), {"-l", "run.log", "-v"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Version string from BIN file:- \n");
    EXPECT_THAT(ReadFile(dir / "quillard.log"), HasSubstr("ERROR, blob file \"quillard.blb\""));
}

}  // namespace
}  // namespace qk::cli
