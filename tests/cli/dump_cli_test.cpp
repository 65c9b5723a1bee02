// -o without input: the -b file is read back and its tables dumped to the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "blob/blob_format.h"
#include "tests/cli/cli_harness.h"
#include "tests/support/image_writer.h"

namespace qk::cli {
namespace {

using ::testing::HasSubstr;

constexpr const char kBegin[] =
    "----------------------BEGIN PRINT COMPACT-------------------------\n";
constexpr const char kDone[] =
    "----------------------PRINT COMPACT DONE-------------------------\n";

// A blob of one driver: words "" and "panel", then the Driver table.
std::string OneDriverBlob() {
    test::ImageWriter w;
    w.Text(L"");
    const StringRef name = w.Text(L"panel");
    w.Table(w.header.posWordsStart, w.header.nWordsUnits, 0);
    w.Put(DriverRecord{name, 1, 0});
    w.Table(w.header.posDriverStart, w.header.nDriverUnits, 4);
    w.EmptyTablesHere();
    return w.File();
}

TEST(DumpCli, DumpsTheBlobFileWhenNothingWasBuilt) {
    ScratchDir dir;
    WriteFile(dir / "x.blb", OneDriverBlob());
    const RunResult run = RunQuillard(dir.path(), {"-o", "-b", "x.blb", "-l", "log.txt"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_THAT(ReadFile(dir / "log.txt"),
                HasSubstr(std::string(kBegin) +
                          "Words Table: ---\n"
                          "...String #0:is ----- \n"
                          "...String #1:is ----- panel\n"
                          "Driver Table: ---\n"
                          "...Driver=[0] Name=[panel] Privacy=[Defined]\n"
                          "Property Table: ---\n"
                          "Area Table: start=6, end=6---\n"
                          "Profile Table: ---\n"
                          "Use Table:\n"
                          "Application Table:\n" +
                          kDone));
}

TEST(DumpCli, AMissingBlobFileDumpsAZeroImage) {
    ScratchDir dir;
    const RunResult run = RunQuillard(dir.path(), {"-o", "-b", "absent.blb", "-l", "log.txt"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    const std::string log = ReadFile(dir / "log.txt");
    EXPECT_THAT(log, HasSubstr(std::string(kBegin) +
                               "Words Table: ---\n"
                               "Driver Table: ---\n"
                               "Property Table: ---\n"
                               "Area Table: start=0, end=0---\n"
                               "Profile Table: ---\n"
                               "Use Table:\n"
                               "Application Table:\n" +
                               kDone));
}

}  // namespace
}  // namespace qk::cli
