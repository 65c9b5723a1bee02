#include "inspect/blob_dump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "blob/blob_file.h"
#include "blob/blob_format.h"
#include "blob/compact_builder.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "tests/support/files.h"
#include "tests/support/image_writer.h"
#include "tests/support/logged_test.h"

namespace qk {
namespace {

const std::string kBegin = "----------------------BEGIN PRINT COMPACT-------------------------\n";
const std::string kDone = "----------------------PRINT COMPACT DONE-------------------------\n";

// Two areas with a property chain, values of five kinds, uses that select a
// profile, no profile (1) and a missing name (0). Positions: words 0-31,
// drivers 32 and 34, properties 36 and 39, areas 42-43, profiles 44 (values
// 48, 51, 55, 59, 62) and 66, uses 70-73, applications 74, 79 and 84.
std::vector<std::uint8_t> Reference() {
    test::ImageWriter w;
    BlobHeader& h = w.header;
    const StringRef empty = w.Text(L"");
    StringRef t[9];
    const wchar_t* texts[] = {L"drvA",   L"drvB", L"Gain", L"Mode",    L"low high",
                              L"Bright", L"Dim",  L"Game", L"game.bin"};
    for (int i = 0; i < 9; ++i) {
        t[i] = w.Text(texts[i]);
    }
    w.Table(h.posWordsStart, h.nWordsUnits, 0);
    w.Put(DriverRecord{t[0], 3, 0});
    w.Put(DriverRecord{t[1], 9, 0});
    w.Table(h.posDriverStart, h.nDriverUnits, 32);
    w.Put(PropertyRecord{3, t[2], empty, kNoRecord});
    w.Put(PropertyRecord{5, t[3], t[4], 36});
    w.Table(h.posPropertyStart, h.nPropertyUnits, 36);
    w.Put(AreaRecord{32, 39});
    w.Put(AreaRecord{34, kNoRecord});
    w.Table(h.posAreaStart, h.nAreaUnits, 42);
    w.Put(ProfileRecord{32, t[5], empty, kNoRecord, 144, 5});
    const std::uint8_t dword[] = {1, 2, 3, 4};
    w.Value("Gain", dword, 4);
    const std::uint64_t qword = 0x1122334455667788;
    w.Value("Q", &qword, 8);
    const std::uint8_t binary[] = {0x5A, 0, 0, 0, 0xE9};
    w.Value("B\x01n\xFF", binary, 5);
    w.Value("E", nullptr, 0);
    w.Value("Str", L"abc", 12);
    w.Put(ProfileRecord{34, t[6], empty, kNoRecord, 0, 0});
    w.Table(h.posProfileStart, h.nProfileUnits, 44);
    w.Put(UseRecord{44, kNoRecord});
    w.Put(UseRecord{66, 70});
    w.Put(UseRecord{1, kNoRecord});
    w.Put(UseRecord{0, kNoRecord});
    w.Table(h.posUseStart, h.nUseUnits, 70);
    w.Put(ApplicationRecord{t[7], t[8], empty, empty, 71, 0});
    w.Put(ApplicationRecord{empty, empty, empty, empty, 72, 0});
    w.Put(ApplicationRecord{t[7], empty, empty, empty, 73, 0});
    w.Table(h.posApplicationStart, h.nApplicationUnits, 74);
    return w.Bytes();
}

const std::string kReferenceDump =
    kBegin +
    "Words Table: ---\n...String #0:is ----- \n...String #1:is ----- drvA\n"
    "...String #2:is ----- drvB\n...String #3:is ----- Gain\n...String #4:is ----- Mode\n"
    "...String #5:is ----- low high\n...String #6:is ----- Bright\n"
    "...String #7:is ----- Dim\n...String #8:is ----- Game\n...String #9:is ----- game.bin\n"
    "Driver Table: ---\n"
    "...Driver=[0] Name=[drvA] Privacy=[ProfilesOnly]\n"
    "...Driver=[1] Name=[drvB] Privacy=[Error in code]\n"
    "Property Table: ---\n"
    "...Property=[0] Name=[Gain] DataType=[Dword] Tokens=[] Next=[---] at=[---]\n"
    "...Property=[1] Name=[Mode] DataType=[Enumerated] Tokens=[low high] Next=[Gain] at=[0]\n"
    "Area Table: start=42, end=44---\n"
    "...Area=[0] Driver=[drvA] First=[Mode] DriverIndex=[32] DriverOffset=[1]\n"
    "...Area=[1] Driver=[drvB] First=[(null)] DriverIndex=[34] DriverOffset=[4]\n"
    "Profile Table: ---\n"
    "...Profile#[0] Values=[5] AggregatedSize(byte)=[144] Driver=[drvA] Name=[Bright] Notes=[] "
    "1stPairIdx=[FFFFFFFF]\n"
    // The Dword's second column runs into the next record's name "Q".
    "......propertyName=[Gain] Datum size=[4]\n"
    "\n.........Location[  0]  4030201   510403, ASCII --- ..\n"
    "......propertyName=[Q] Datum size=[8]\n"
    "\n.........Location[  0] 55667788 33445566 11223344     1122, ASCII --- .fD\"\n"
    "......propertyName=[B.n.] Datum size=[5]\n"
    "\n.........Location[  0]       5A   E90000       E9, ASCII --- Z.\xC3\xA9\n"
    "......propertyName=[E] Datum size=[0]\n\n"
    "......propertyName=[Str] Datum size=[12]\n"
    "\n.........Location[  0]       61   620000       62        0, ASCII --- a.b."
    // The last chunk reads the next profile's posDriver, 34 = 0x22.
    "\n.........Location[  1]       63   220000, ASCII --- c.\n"
    "...Profile#[1] Values=[0] AggregatedSize(byte)=[0] Driver=[drvB] Name=[Dim] Notes=[] "
    "1stPairIdx=[FFFFFFFF]\n"
    "Use Table:\n"
    "...Use#[  0] Profile=[Bright] Driver=[drvA] Next=[---]\n"
    "...Use#[  1] Profile=[Dim] Driver=[drvB] Next=[  0\n]\n"
    "...Use#[  2] Profile=[(null)] Driver=[(null)] Next=[---]\n"
    "...Use#[  3] Profile=[(null)] Driver=[(null)] Next=[---]\n"
    "Application Table:\n"
    "...Application#[  0] Title=[Game] File=[game.bin] Path=[] Version=[] FirstUseIndex=[ 71]\n"
    "...Application#[  1] Title=[] File=[] Path=[] Version=[] FirstUseIndex=[ 72]\n"
    "...Application#[  2] Title=[Game] File=[] Path=[] Version=[] FirstUseIndex=[ 73]\n" +
    kDone;

class BlobDumpTest : public unit::LoggedTest {
  protected:
    void SetUp() override {
        unit::LoggedTest::SetUp();
        ResetCompactBuilder();
    }
    void TearDown() override {
        ResetCompactBuilder();
        unit::LoggedTest::TearDown();
    }
    // The log of a dump of bytes alone, zero-filled to the image size.
    std::string Dump(const std::vector<std::uint8_t>& bytes) {
        ResetCompactBuilder();
        FreeAll();
        ProgressLog(L"", 1);
        auto* image = static_cast<std::uint8_t*>(Allocate(kMaxImageBytes));
        std::copy_n(bytes.begin(), std::min(bytes.size(), kMaxImageBytes), image);
        SetCurrentImage(image);
        PrintCompact();
        return Log();
    }
};

TEST_F(BlobDumpTest, DumpsEveryTableLineByLine) {
    EXPECT_EQ(Dump(Reference()), kReferenceDump);
}

TEST_F(BlobDumpTest, EmptyTablesLogOnlyTheirHeadings) {
    test::ImageWriter w;
    w.Text(L"");
    w.Text(L"1.0");
    w.Table(w.header.posWordsStart, w.header.nWordsUnits, 0);
    w.EmptyTablesHere();
    EXPECT_EQ(Dump(w.Bytes()), kBegin +
                                   "Words Table: ---\n...String #0:is ----- \n"
                                   "...String #1:is ----- 1.0\nDriver Table: ---\n"
                                   "Property Table: ---\nArea Table: start=3, end=3---\n"
                                   "Profile Table: ---\nUse Table:\nApplication Table:\n" +
                                   kDone);
}

TEST_F(BlobDumpTest, NoImageIsAnError) {
    PrintCompact();
    EXPECT_EQ(Log(), kBegin + "ERROR, there is no blob image to print\n" + kDone);
}

TEST_F(BlobDumpTest, WideColumnsShowOnlyPrintableCharacters) {
    const std::pair<std::uint32_t, const char*> cases[] = {
        {0x41, "A"},     {0x0, "."},       {0x1F, "."},
        {0x7F, "."},     {0x9F, "."},      {0xA0, "\xC2\xA0"},
        {0xD800, "."},   {0xDFFF, "."},    {0x10FFFF, "\xF4\x8F\xBF\xBF"},
        {0x110000, "."}, {0xFFFFFFFF, "."}};
    for (const auto& [datum, shown] : cases) {
        SCOPED_TRACE(datum);
        std::vector<std::uint8_t> bytes = Reference();
        // Gain's datum becomes 2 bytes followed by the rest of the word.
        std::memcpy(&bytes[PositionToByte(48) + 16], "\2\0\0\0", 4);
        std::memcpy(&bytes[PositionToByte(48) + 20], &datum, 4);
        char line[128];
        std::snprintf(line, sizeof line,
                      "Datum size=[2]\n\n.........Location[  0] %8X, ASCII --- %s\n", datum, shown);
        EXPECT_NE(Dump(bytes).find(line), std::string::npos) << Log();
    }
}

// Each case overwrites one word of the reference blob (at a byte offset of the
// file) and names text the dump must then show; the dump still reaches its end.
TEST_F(BlobDumpTest, DamagedBlobsGiveErrorLinesAndTheRestOfTheDump) {
    constexpr auto at = [](std::uint32_t position, std::size_t offset) {
        return static_cast<std::size_t>(PositionToByte(position)) + offset;
    };
    struct Case {
        std::size_t byte;
        std::uint32_t value;
        const char* shown;
    };
    const Case cases[] = {
        {offsetof(BlobHeader, posDriverStart), 0x7FFFFFFF,
         "Driver Table: ---\nERROR, Driver table start=2147483647 units=4 leaves the image\n"
         "Property Table: ---\n"},
        {offsetof(BlobHeader, nUseUnits), 0xFFFFFFFF,
         "Use Table:\nERROR, Use table start=70 units=4294967295 leaves the image\n"},
        {offsetof(BlobHeader, nWordsUnits), 200000,
         "ERROR, Words table start=0 units=200000 leaves the image\nDriver Table"},
        {offsetof(BlobHeader, nPropertyUnits), 5,
         "ERROR, Property table units=5 is not a whole number of 3-unit records\nArea Table"},
        // The last word's terminator falls outside the table.
        {offsetof(BlobHeader, nWordsUnits), 31,
         "...String #8:is ----- Game\nERROR, String #9 at position 27 runs past the end of the "
         "Words table\nDriver Table"},
        {at(32, 0), 0x40000, "...Driver=[0] Name=[(null)] Privacy=[ProfilesOnly]\n"},
        {at(32, 0), 34, "...Driver=[0] Name=[(null)] Privacy=[ProfilesOnly]\n"},
        {at(36, 20), 39, "Tokens=[] Next=[Mode] at=[1]\n"},
        {at(36, 20), 39, "DriverOffset=[1]\nERROR, Area=[0] property chain loops; cut\n"},
        {at(39, 20), 37, "Next=[(null)] at=[(null)]\n"},
        {at(42, 0), 0xFFFFFFFF,
         "...Area=[0] Driver=[(null)] First=[Mode] DriverIndex=[-1] DriverOffset=[-1]\n"},
        {at(42, 4), 3,
         "First=[(null)] DriverIndex=[32] DriverOffset=[1]\n"
         "ERROR, Area=[0] property chain leaves its table\n"},
        {at(70, 4), 999, "...Use#[  0] Profile=[Bright] Driver=[drvA] Next=[(null)]\n"},
        {at(70, 4), 71, "ERROR, Application=[0] use chain loops; cut\n"},
        {at(70, 0), 48, "...Use#[  0] Profile=[(null)] Driver=[(null)] Next=[---]\n"},
        // Huge counts: no values, the walk steps by the aggregated size.
        {at(44, 28), 0xFFFFFFFF,
         "ERROR, Profile#[0] Name=[Bright] claims 4294967295 values, more than 1024; printed "
         "without values\n...Profile#[0] Values=[-1] AggregatedSize(byte)=[144] Driver=[drvA] "
         "Name=[Bright] Notes=[] 1stPairIdx=[FFFFFFFF]\n...Profile#[1]"},
        {at(44, 28), 1025, "claims 1025 values, more than 1024; printed without values\n"},
        {at(66, 24), 0xFFFFFFF8,
         "1stPairIdx=[FFFFFFFF]\nERROR, Profile#[1] AggregatedSize(byte)=[4294967288] runs past "
         "the end of the Profile table\nUse Table:\n"},
        {at(44, 24), 136, "ERROR, Profile#[0] values take 144 bytes, AggregatedSize(byte)=[136]\n"},
        {at(66, 28), 3, "ERROR, value #0 at position 70 leaves the Profile table\n"},
        {at(48, 16), 0xFFFFFFF0, "ERROR, value #0 at position 48 leaves the Profile table\n"},
        {at(66, 4), 0x3FFFF,
         "ERROR, Driver name, Profile name or notes has invalid pointerUse Table:\n"},
        {offsetof(BlobHeader, nProfileUnits), 24,
         "ERROR, Profile#[1] at position 66 does not fit in the Profile table\nUse Table:\n"
         "...Use#[  0] Profile=[Bright]"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.shown);
        std::vector<std::uint8_t> bytes = Reference();
        std::memcpy(&bytes[c.byte], &c.value, sizeof c.value);
        const std::string log = Dump(bytes);
        EXPECT_NE(log.find(c.shown), std::string::npos) << log;
        EXPECT_TRUE(log.ends_with(kDone));
    }
}

// A blob file cut at every length and loaded the way -o loads it still dumps
// to its end; the whole file dumps exactly as the image in memory does.
TEST_F(BlobDumpTest, TruncatedFilesDumpToTheirEnd) {
    const std::vector<std::uint8_t> bytes = Reference();
    for (std::size_t length = bytes.size() + 1; length-- > 0;) {
        SCOPED_TRACE(length);
        test::WriteFile("cut.blb", std::string(bytes.begin(), bytes.begin() + length));
        ResetCompactBuilder();
        FreeAll();
        ProgressLog(L"", 1);
        ASSERT_EQ(LoadBlobImage("cut.blb"), static_cast<long>(length));
        PrintCompact();
        const std::string log = Log();
        EXPECT_TRUE(length != bytes.size() || log == kReferenceDump) << log;
        EXPECT_TRUE(log.ends_with(kDone));
    }
}

}  // namespace
}  // namespace qk
