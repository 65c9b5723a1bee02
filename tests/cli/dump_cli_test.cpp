// -o without input: the -b file is read back and its tables dumped to the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "blob/blob_format.h"
#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char kBegin[] =
    "----------------------BEGIN PRINT COMPACT-------------------------\n";
constexpr const char kDone[] =
    "----------------------PRINT COMPACT DONE-------------------------\n";

// A blob of one driver: words "" and "panel", then the Driver table.
std::string OneDriverBlob() {
    std::vector<std::uint8_t> bytes(PositionToByte(6), 0);
    const wchar_t name[] = L"panel";
    std::memcpy(bytes.data() + PositionToByte(1), name, sizeof name);
    const DriverRecord driver{{1, sizeof name}, 1, 0};
    std::memcpy(bytes.data() + PositionToByte(4), &driver, sizeof driver);
    BlobHeader header{};
    header.dwMagic = kBlobMagic;
    header.dwFormat = 1;
    header.nWordsUnits = 4;
    header.posDriverStart = 4;
    header.nDriverUnits = 2;
    for (std::uint32_t* start :
         {&header.posPropertyStart, &header.posAreaStart, &header.posProfileStart,
          &header.posUseStart, &header.posApplicationStart}) {
        *start = 6;
    }
    std::memcpy(bytes.data(), &header, sizeof header);
    return std::string(bytes.begin(), bytes.end());
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

TEST(DumpCli, RefusesABlobFileLargerThanAnImage) {
    ScratchDir dir;
    std::string big = OneDriverBlob();
    big.resize(kMaxImageBytes + 1, '\0');
    WriteFile(dir / "x.blb", big);
    const RunResult run = RunQuillard(dir.path(), {"-o", "-b", "x.blb", "-l", "log.txt"});
    EXPECT_EQ(run.status, 255);
    const std::string log = ReadFile(dir / "log.txt");
    EXPECT_THAT(log, HasSubstr("ERROR"));
    EXPECT_THAT(log, Not(HasSubstr(kBegin)));
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
