// -v as users meet it: the version line of quillard.blb on standard output.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/cli/cli_harness.h"
#include "tests/support/image_writer.h"

namespace qk::cli {
namespace {

using ::testing::HasSubstr;

// A blob holding only its Words table: the empty text and the release text.
std::string BlobWithRelease(const std::wstring& release) {
    test::ImageWriter w;
    w.Text(L"");
    w.header.refRelease = w.Text(release);
    w.Table(w.header.posWordsStart, w.header.nWordsUnits, 0);
    w.EmptyTablesHere();
    return w.File();
}

TEST(VersionCli, PrintsTheReleaseOfTheDefaultBlobAsUtf8) {
    ScratchDir dir;
    WriteFile(dir / "quillard.blb", BlobWithRelease(L"9.9_r\u00e9l_20090303_1405_"));
    WriteFile(dir / "other.blb", BlobWithRelease(L"never_read_"));
    const RunResult result = RunQuillard(dir.path(), {"-v", "-b", "other.blb"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Version string from BIN file:- 9.9_r\xc3\xa9l_20090303_1405_\n");
}

TEST(VersionCli, MissingOrOversizedBlobGivesAnEmptyVersion) {
    ScratchDir dir;
    RunResult result = RunQuillard(dir.path(), {"-v"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Version string from BIN file:- \n");

    WriteFile(dir / "quillard.blb", BlobWithRelease(L"big_") + std::string(0xFFFFF, 'x'));
    result = RunQuillard(dir.path(), {"-l", "run.log", "-v"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Version string from BIN file:- \n");
    EXPECT_THAT(ReadFile(dir / "quillard.log"), HasSubstr("ERROR, blob file \"quillard.blb\""));
}

}  // namespace
}  // namespace qk::cli
