#include "blob/compact_builder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fatal_exit.h"
#include "tests/support/blob_test.h"

namespace qk::unit {
namespace {

using Bytes = std::vector<std::uint8_t>;

class CompactBuilderTest : public BlobTest {
  protected:
    void SetUp() override {
        BlobTest::SetUp();
        SetHeader(L"8.1_20090303_1405_");
    }

    // Runs the build expecting the error exit, and returns the log.
    std::string BuildFails() {
        try {
            CreateCompact();
        } catch (const FatalExit& exit) {
            EXPECT_EQ(exit.status, 255);
            return Log();
        }
        ADD_FAILURE() << "the build should end through the error exit";
        return Log();
    }
};

TEST_F(CompactBuilderTest, EmptySetHasHeaderAndWordsOnly) {
    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    const BlobHeader& h = blob.header;
    EXPECT_EQ(h.dwMagic, kBlobMagic);
    EXPECT_EQ(h.dwFormat, 1u);
    for (std::uint32_t reserved : h.dwReserved) {
        EXPECT_EQ(reserved, 0u);
    }
    EXPECT_EQ(blob.release, L"8.1_20090303_1405_");
    EXPECT_EQ(h.posWordsStart, 0u);
    for (std::uint32_t start : {h.posDriverStart, h.posPropertyStart, h.posAreaStart,
                                h.posProfileStart, h.posUseStart, h.posApplicationStart}) {
        EXPECT_EQ(start, h.nWordsUnits);
    }
    EXPECT_EQ(h.nDriverUnits + h.nPropertyUnits + h.nAreaUnits + h.nProfileUnits + h.nUseUnits +
                  h.nApplicationUnits,
              0u);
    EXPECT_EQ(blob.endByte, 92 + 8u * h.nWordsUnits);
    // "", "1", "8.1_..._", "System"
    ASSERT_EQ(blob.words.size(), 4u);
    EXPECT_EQ(blob.words[1].text, L"1");
    const std::string log = Log();
    EXPECT_EQ(log.rfind("Creating Compact, done.\n"), log.size() - 24);
}

TEST_F(CompactBuilderTest, TablesFollowTreeOrderAndChainsRunBackwards) {
    Area* first = AddArea(L"Render", kPrivacyApplicationsOnly);
    Property* p1 = AddProperty(first, kTypeDword, L"P1");
    AddProperty(first, kTypeBoolean, L"P2", L"0,1");
    AddProperty(first, kTypeString, L"P3");
    Area* second = AddArea(L"Audio");
    AddProperty(second, kTypeQword, L"Q");

    Application* app = AddApplication(L"Viewer");
    AddProfile(first, L"fast");
    AddProfile(second, L"loud");
    AddUse(app, L"fast", first);
    AddUse(app, L"loud", second);
    AddUse(app, L"fast", first);

    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    const BlobHeader& h = blob.header;
    EXPECT_EQ(h.nDriverUnits, 4u);
    EXPECT_EQ(h.nPropertyUnits, 12u);
    EXPECT_EQ(h.nAreaUnits, 2u);
    EXPECT_EQ(h.nProfileUnits, 8u);
    EXPECT_EQ(h.nUseUnits, 3u);
    EXPECT_EQ(h.nApplicationUnits, 5u);

    ASSERT_EQ(blob.drivers.size(), 2u);
    EXPECT_EQ(blob.drivers[0].name, L"Render");
    EXPECT_EQ(blob.drivers[0].privacy, 5u);
    EXPECT_EQ(blob.drivers[1].name, L"Audio");

    std::vector<std::wstring> tableOrder;
    for (const auto& property : blob.properties) {
        tableOrder.push_back(property.name);
    }
    EXPECT_EQ(tableOrder, (std::vector<std::wstring>{L"P1", L"P2", L"P3", L"Q"}));
    EXPECT_EQ(blob.properties[1].set, L"0,1");
    EXPECT_EQ(blob.properties[1].type, 4u);
    EXPECT_EQ(blob.properties[0].set, L"");

    ASSERT_EQ(blob.areas.size(), 2u);
    EXPECT_EQ(blob.areas[0].driverName, L"Render");
    std::vector<std::wstring> chain;
    for (const auto& property : blob.areas[0].chain) {
        chain.push_back(property.name);
    }
    EXPECT_EQ(chain, (std::vector<std::wstring>{L"P3", L"P2", L"P1"}));
    EXPECT_EQ(blob.properties[0].posNext, kNoRecord);
    ASSERT_EQ(blob.areas[1].chain.size(), 1u);
    EXPECT_EQ(blob.areas[1].chain[0].posNext, kNoRecord);

    ASSERT_EQ(blob.applications.size(), 1u);
    const auto& uses = blob.applications[0].chain;
    ASSERT_EQ(uses.size(), 3u);
    EXPECT_EQ(uses[0].position, blob.uses[2].position);
    EXPECT_EQ(uses[2].position, blob.uses[0].position);
    EXPECT_EQ(uses[2].posNext, kNoRecord);
    EXPECT_EQ(uses[1].profileName, L"loud");
    EXPECT_EQ(uses[1].profileDriver, L"Audio");

    // Positions are handed back into the tree.
    EXPECT_EQ(p1->iBlobPos, blob.properties[0].position);
    EXPECT_EQ(Root().lpAreas->iBlobPos, blob.areas[0].position);
    EXPECT_EQ(app->iBlobPos, blob.applications[0].position);
    EXPECT_EQ(app->lpUses->iBlobPos, blob.uses[0].position);
    EXPECT_EQ(Root().lpProfiles->lpNext->iBlobPos, blob.profiles[1].position);
}

TEST_F(CompactBuilderTest, ValueRecordsSizesAndPadding) {
    Area* area = AddArea(L"Render");
    Property* binary = AddProperty(area, kTypeBinary, L"Bin");
    Property* qword = AddProperty(area, kTypeQword, L"Qw");
    Property* dword = AddProperty(area, kTypeDword, L"Dw");
    Property* boolean = AddProperty(area, kTypeBoolean, L"Flag");
    Property* enumerated = AddProperty(area, kTypeEnumerated, L"Mode", L"on off");
    Property* string = AddProperty(area, kTypeString, L"Str");
    Profile* profile = AddProfile(area, L"all");
    AddWords(profile, binary, {1, 2, 300});
    AddWords(profile, binary, {9, 8, 7, 6, 5});
    AddWords(profile, qword, {0x89ABCDEF, 0x01234567});
    AddWords(profile, dword, {0xDEADBEEF});
    AddWords(profile, boolean, {1});
    AddText(profile, enumerated, L"off");
    AddText(profile, string, L"");

    const struct {
        const char* name;
        Bytes datum;
        std::uint32_t units;
    } expected[] = {
        {"Bin", {0x01, 0x02, 0x2C}, 3},
        {"Bin", {9, 8, 7, 6, 5}, 4},
        {"Qw", {0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01}, 4},
        {"Dw", {0xEF, 0xBE, 0xAD, 0xDE}, 3},
        {"Flag", {1, 0, 0, 0}, 3},
        {"Mode", {'o', 0, 0, 0, 'f', 0, 0, 0, 'f', 0, 0, 0}, 4},
        {"Str", {}, 3},
    };
    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    ASSERT_EQ(blob.profiles.size(), 1u);
    const DecodedProfile& decoded = blob.profiles[0];
    ASSERT_EQ(decoded.values.size(), std::size(expected));
    std::uint32_t units = 0;
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        const DecodedValue& value = decoded.values[i];
        SCOPED_TRACE(i);
        EXPECT_EQ(value.propertyName, expected[i].name);
        EXPECT_EQ(value.datum, expected[i].datum);
        EXPECT_EQ(value.units, expected[i].units);
        EXPECT_EQ(value.padding, Bytes(value.padding.size(), 0));
        EXPECT_EQ(value.nameField, [&] {
            Bytes field(16, 0);
            std::copy_n(expected[i].name, std::strlen(expected[i].name), field.begin());
            return field;
        }());
        units += value.units;
    }
    EXPECT_EQ(decoded.aggregatedSize, 8 * units);
    EXPECT_EQ(decoded.firstPair, kNoRecord);
    EXPECT_EQ(blob.header.nProfileUnits, 4 + units);
    EXPECT_EQ(decoded.values[3].Word(0), 0xDEADBEEFu);
    EXPECT_EQ(decoded.values[2].Qword(), 0x0123456789ABCDEFull);
    // Text data gets its StringRef in the string pass.
    EXPECT_EQ(profile->lpValues->lpNext->lpNext->lpNext->lpNext->lpNext->refData.pos,
              FindStrings(L"off").pos);
}

TEST_F(CompactBuilderTest, ProfilesWithoutValuesOrDriver) {
    Area* area = AddArea(L"Render");
    Property* dword = AddProperty(area, kTypeDword, L"Dw");
    Profile* empty = AddProfile(area, L"empty", L"nothing here");
    Profile* orphan = AddProfile(nullptr, L"orphan");
    AddWords(orphan, dword, {1});
    Profile* next = AddProfile(area, L"next");
    Application* app = AddApplication(L"Viewer");
    AddUse(app, L"orphan", area);

    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    ASSERT_EQ(blob.profiles.size(), 2u);
    EXPECT_EQ(blob.profiles[0].notes, L"nothing here");
    EXPECT_EQ(blob.profiles[0].aggregatedSize, 0u);
    EXPECT_TRUE(blob.profiles[0].values.empty());
    EXPECT_EQ(blob.profiles[1].position, blob.profiles[0].position + 4);
    EXPECT_EQ(empty->iBlobPos, blob.profiles[0].position);
    EXPECT_EQ(next->iBlobPos, blob.profiles[1].position);
    EXPECT_EQ(orphan->iBlobPos, 0u);
    EXPECT_EQ(blob.header.nProfileUnits, 8u);
    EXPECT_EQ(blob.uses[0].posProfile, 1u);
    EXPECT_NE(Log().find("ERROR, Profile NULL, not adding Profile, OK for USER file"),
              std::string::npos);
}

TEST_F(CompactBuilderTest, UseProfilePositions) {
    Area* render = AddArea(L"Render");
    Area* audio = AddArea(L"Audio");
    AddProperty(render, kTypeDword, L"Dw");
    AddProperty(audio, kTypeDword, L"Dw");
    AddProfile(render, L"shared");
    AddProfile(audio, L"shared");
    AddProfile(render, L"shared");  // a second of the same name and driver

    Application* app = AddApplication(L"Viewer");
    Use* byAudio = AddUse(app, L"shared", audio);
    Use* byRender = AddUse(app, L"shared", render);
    AddUse(app, L"missing", render);
    AddUse(app, L"shared", nullptr);
    AddUse(app, nullptr, render);
    AddUse(app, L"Shared", render);  // names compare exactly

    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    EXPECT_EQ(byAudio->iBlobPos, blob.uses[0].position);
    EXPECT_EQ(blob.uses[0].posProfile, blob.profiles[1].position);
    EXPECT_EQ(blob.uses[1].posProfile, blob.profiles[0].position);
    EXPECT_EQ(blob.uses[2].posProfile, 1u);
    EXPECT_EQ(blob.uses[3].posProfile, 0u);
    EXPECT_EQ(blob.uses[4].posProfile, 0u);
    EXPECT_EQ(blob.uses[5].posProfile, 1u);
    EXPECT_EQ(byRender->refProfile.pos, FindStrings(L"shared").pos);
    const std::string log = Log();
    const std::string line = "ERROR, ProfileName or DriverName is empty.\n";
    const std::size_t once = log.find(line);
    ASSERT_NE(once, std::string::npos);
    EXPECT_NE(log.find(line, once + 1), std::string::npos);
}

TEST_F(CompactBuilderTest, ApplicationWithoutUsesHasNoRecord) {
    Area* area = AddArea(L"Render");
    AddProperty(area, kTypeDword, L"Dw");
    AddProfile(area, L"p");
    Application* lonely = AddApplication(L"Lonely");
    Application* used = AddApplication(L"Used");
    AddUse(used, L"p", area);
    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    ASSERT_EQ(blob.applications.size(), 1u);
    EXPECT_EQ(blob.applications[0].title, L"Used");
    EXPECT_EQ(blob.applications[0].file, L"app.bin");
    EXPECT_EQ(blob.applications[0].path, L"/opt/app");
    EXPECT_EQ(blob.applications[0].version, L"1.0");
    EXPECT_EQ(lonely->iBlobPos, 0u);
    EXPECT_NE(Log().find("XML ERROR, APPLICATION has no valid USE.\n"), std::string::npos);
}

TEST_F(CompactBuilderTest, AreaWithoutPropertiesDependsOnFileKind) {
    AddArea(L"Bare");
    SetFileKind(kUserFile);
    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    ASSERT_EQ(blob.areas.size(), 1u);
    EXPECT_TRUE(blob.areas[0].chain.empty());
    EXPECT_EQ(reinterpret_cast<const AreaRecord*>(g_lpBlob + PositionToByte(blob.areas[0].position))
                  ->posFirstProperty,
              kNoRecord);

    SetFileKind(kSystemFile);
    EXPECT_NE(BuildFails().find("ERROR, Should never have undefined Property on non-USER file"),
              std::string::npos);
}

TEST_F(CompactBuilderTest, RefusedTreesEndTheRun) {
    const struct {
        const char* what;
        std::int32_t type;
        const wchar_t* propertyName;
        std::size_t valueCount;
        std::size_t binaryBytes;
        const char* message;
    } cases[] = {
        {"unknown type 0", kTypeUnknown, L"Dw", 1, 0,
         "ERROR, CreateCompact, Un-recongnized data type."},
        {"unknown type 7", 7, L"Dw", 1, 0, "ERROR, CreateCompact, Un-recongnized data type."},
        {"16-character name", kTypeDword, L"ABCDEFGHIJKLMNOP", 1, 0,
         "ERROR, CreateCompact, property name \"ABCDEFGHIJKLMNOP\" is longer than 15 narrow "
         "characters (profile \"victim\")"},
        {"1025 values", kTypeDword, L"Dw", 1025, 0,
         "ERROR, CreateCompact, profile \"victim\" has more than 1024 values (at property "
         "\"Dw\")"},
        {"binary of 4097 bytes", kTypeBinary, L"Bin", 1, 4097,
         "ERROR, CreateCompact, Binary value of property \"Bin\" in profile \"victim\" has "
         "4097 bytes, more than 4096"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TearDown();
        SetUp();
        Area* area = AddArea(L"Render");
        Property* property = AddProperty(area, c.type, c.propertyName);
        Profile* profile = AddProfile(area, L"victim");
        for (std::size_t i = 0; i < c.valueCount; ++i) {
            Value* value = AddWords(profile, property, {1});
            if (c.binaryBytes != 0) {
                value->lpData = Allocate(static_cast<std::uint32_t>(4 * c.binaryBytes));
                value->iDataLength = static_cast<std::uint32_t>(c.binaryBytes);
            }
        }
        EXPECT_NE(BuildFails().find(c.message), std::string::npos);
    }
}

TEST_F(CompactBuilderTest, LimitsThemselvesAreAccepted) {
    Area* area = AddArea(L"Render");
    Property* dword = AddProperty(area, kTypeDword, L"Dw");
    Property* binary = AddProperty(area, kTypeBinary, L"Bin");
    Profile* many = AddProfile(area, L"many");
    for (int i = 0; i < 1024; ++i) {
        AddWords(many, dword, {static_cast<std::uint32_t>(i)});
    }
    Profile* big = AddProfile(area, L"big");
    Value* value = AddWords(big, binary, {0});
    value->lpData = Allocate(4 * 4096);
    value->iDataLength = 4096;
    // A name of 15 characters fills the field up to its terminator.
    AddWords(big, AddProperty(area, kTypeDword, L"ABCDEFGHIJKLMNO"), {7});
    DecodedBlob blob = Build();
    ASSERT_TRUE(blob.ok()) << blob.errors.front();
    EXPECT_EQ(blob.profiles[0].values.size(), 1024u);
    EXPECT_EQ(blob.profiles[0].values[1023].Word(0), 1023u);
    EXPECT_EQ(blob.profiles[1].values[0].datum.size(), 4096u);
    const DecodedValue& longName = blob.profiles[1].values[1];
    EXPECT_EQ(longName.propertyName, "ABCDEFGHIJKLMNO");
    EXPECT_EQ(longName.nameField[15], 0);
}

TEST_F(CompactBuilderTest, ImageThatWouldOutgrowItsBufferStopsBeforeWriting) {
    Area* area = AddArea(L"Render");
    Property* string = AddProperty(area, kTypeString, L"Str");
    const std::wstring text(4000, L'x');
    // Each value takes 16020 bytes: 70 of them are more than 0xFFFFF.
    for (int i = 0; i < 70; ++i) {
        Profile* profile = AddProfile(area, (L"p" + std::to_wstring(i)).c_str());
        AddText(profile, string, text.c_str());
    }
    const std::string log = BuildFails();
    EXPECT_NE(log.find("ERROR, CreateCompact, the blob would outgrow its limit of 0xFFFFF bytes "
                       "at the value of property \"Str\"; no blob is written.\n"),
              std::string::npos);
    EXPECT_EQ(log.find("Creating Compact, done."), std::string::npos);
}

}  // namespace
}  // namespace qk::unit
