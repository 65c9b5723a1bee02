#include "xmlinput/name_lookup.h"

#include <gtest/gtest.h>

#include <string>

#include "model/file_kind.h"
#include "support/fatal_exit.h"
#include "support/tracked_memory.h"
#include "tests/support/logged_test.h"
#include "tests/support/tree_builder.h"
#include "text/wide_string.h"
#include "xmlinput/consistency.h"
#include "xmlinput/file_reader.h"

namespace qk {
namespace {

using unit::AddArea;
using unit::AddProfile;

struct ClassCase {
    const char* text;
    int letters;
    int numbers;
    int integer;
    int name;
};

TEST(NameCheckTest, CharacterClasses) {
    const ClassCase cases[] = {
        {"", -1, -1, -1, -1},         {"Orchard", 0, -1, -1, 0}, {"8.1.0", -1, 0, -1, 0},
        {".", -1, 0, -1, 0},          {"1,2", -1, -1, -1, 0},    {"-1", -1, -1, -1, 0},
        {"+1", -1, -1, -1, 0},        {"12 ", -1, -1, -1, 0},    {"120", -1, 0, 0, 0},
        {"two words", -1, -1, -1, 0}, {" lead", -1, -1, -1, -1}, {"caf\xC3\xA9", -1, -1, -1, 0},
    };
    for (const ClassCase& c : cases) {
        EXPECT_EQ(isLetters(c.text), c.letters) << '"' << c.text << '"';
        EXPECT_EQ(isNumbers(c.text), c.numbers) << '"' << c.text << '"';
        EXPECT_EQ(isInteger(c.text), c.integer) << '"' << c.text << '"';
        EXPECT_EQ(isValidNameString(c.text), c.name) << '"' << c.text << '"';
    }
    EXPECT_EQ(isLetters(nullptr), -1);
    EXPECT_EQ(isValidNameString(nullptr), -1);
}

class NameLookupTest : public unit::LoggedTest {
  protected:
    void SetUp() override {
        unit::LoggedTest::SetUp();
        ResetFileReader();
        SetFileKind(kSystemFile);
        root_ = CreateCustomisations();
    }
    void TearDown() override {
        SetFileKind(kSystemFile);
        ResetNameLookup();
        unit::LoggedTest::TearDown();
    }
    Customisations* root_ = nullptr;
};

TEST_F(NameLookupTest, FirstOfTwoAreasOfOneNameWins) {
    // Look up once so the indexes exist and must follow the additions.
    EXPECT_EQ(FindArea(L"Lumen"), nullptr);
    Area* first = AddArea(root_, L"Lumen", {L"Depth"});
    Area* second = AddArea(root_, L"Lumen", {L"Depth", L"Span"});
    EXPECT_EQ(FindDriver(L"Lumen"), first->lpDriver);
    EXPECT_EQ(FindArea(L"Lumen"), first);
    EXPECT_EQ(FindProperty(L"Lumen", L"Depth"), first->lpProperties);
    // The first area lacks Span, so the second supplies it.
    EXPECT_EQ(FindProperty(L"Lumen", L"Span"), second->lpProperties->lpNext);
    EXPECT_EQ(FindDriver(L"lumen"), nullptr);
}

TEST_F(NameLookupTest, OnlyMissesAreWarnedAbout) {
    AddArea(root_, L"Lumen");
    EXPECT_NE(FindArea(L"Lumen"), nullptr);
    EXPECT_FALSE(Logged("WARNING"));
    EXPECT_EQ(FindArea(L"Fern"), nullptr);
    EXPECT_EQ(FindDriver(L"Moss"), nullptr);
    EXPECT_TRUE(Logged("WARNING: Unknown Driver: - Fern\n"));
    EXPECT_TRUE(Logged("WARNING: Unknown Driver: - Moss\n"));
}

TEST_F(NameLookupTest, UnknownPairEndsASystemRunOnlyWithStatusZero) {
    AddArea(root_, L"Lumen", {L"Depth"});
    try {
        FindProperty(L"Lumen", L"Span");
        FAIL() << "no exit";
    } catch (const FatalExit& exit) {
        EXPECT_EQ(exit.status, 0);
    }
    EXPECT_TRUE(Logged("ERROR: - Unknown Driver/PropertyID pair: - Lumen/Span."));
    SetFileKind(kUserFile);
    EXPECT_EQ(FindProperty(L"Lumen", L"Span"), nullptr);
    EXPECT_EQ(FindProperty(L"Fern", L"Depth"), nullptr);
}

TEST_F(NameLookupTest, PrunedAreasAreNoLongerFoundButLaterNamesakesAre) {
    Area* first = AddArea(root_, L"Lumen", {L"Depth"});
    Area* second = AddArea(root_, L"Lumen", {L"Depth"});
    ASSERT_EQ(FindArea(L"Lumen"), first);
    ASSERT_EQ(FindProperty(L"Lumen", L"Depth"), first->lpProperties);
    SetFileKind(kUserFile);
    // A profile that uses the second area only: the first is pruned.
    AllocateRecord<Profile>();
    Profile* profile = AddProfile(root_, L"P");
    profile->lpDriver = second->lpDriver;
    ASSERT_EQ(RemoveUnusedDriverArea(root_), 0);
    EXPECT_EQ(root_->lpAreas, second);
    EXPECT_EQ(FindArea(L"Lumen"), second);
    EXPECT_EQ(FindProperty(L"Lumen", L"Depth"), second->lpProperties);
}

TEST_F(NameLookupTest, RenamedRecordsAreFoundUnderTheirNewNames) {
    Area* area = AddArea(root_, L"Lumen", {L"Dep"});
    ASSERT_EQ(FindProperty(L"Lumen", L"Dep"), area->lpProperties);
    const wchar_t* old = area->lpProperties->strName;
    area->lpProperties->strName = TrackedCopy(L"Dep th");
    NotePropertyNamed(area, area->lpProperties, old);
    SetFileKind(kUserFile);
    EXPECT_EQ(FindProperty(L"Lumen", L"Dep"), nullptr);
    EXPECT_EQ(FindProperty(L"Lumen", L"Dep th"), area->lpProperties);

    Profile* profile = AddProfile(root_, L"Early");
    AddProfile(root_, L"Twin");
    EXPECT_EQ(FindUseName(L"Early"), 1);
    const wchar_t* before = profile->strUsage;
    profile->strUsage = TrackedCopy(L"Twin");
    NoteProfileNamed(before, profile->strUsage);
    EXPECT_EQ(FindUseName(L"Early"), 0);
    EXPECT_EQ(FindUseName(L"Twin"), 1);
    EXPECT_EQ(FindUseName(nullptr), 0);
}

TEST_F(NameLookupTest, ListTails) {
    EXPECT_EQ(GetLastValidArea(), nullptr);
    EXPECT_EQ(GetLastValidProfile(), nullptr);
    EXPECT_EQ(GetLastValidApplication(), nullptr);
    EXPECT_EQ(GetLastValidProperty(nullptr), nullptr);
    EXPECT_EQ(GetLastValidDriver(nullptr), nullptr);
    EXPECT_EQ(GetLastValidUse(nullptr), nullptr);
    AddArea(root_, L"A");
    Area* last = AddArea(root_, L"B", {L"X", L"Y"});
    EXPECT_EQ(GetLastValidArea(), last);
    EXPECT_EQ(GetLastValidDriver(last), last->lpDriver);
    EXPECT_EQ(GetLastValidProperty(last), last->lpProperties->lpNext);
    Profile* profile = AddProfile(root_, L"P");
    EXPECT_EQ(GetLastValidValue(profile), nullptr);
    profile->lpValues = AllocateRecord<Value>();
    EXPECT_EQ(GetLastValidValue(profile), profile->lpValues);
    g_lpCustomisations = nullptr;
    EXPECT_EQ(GetLastValidArea(), nullptr);
    EXPECT_EQ(FindUseName(L"P"), 0);
    g_lpCustomisations = root_;
}

}  // namespace
}  // namespace qk
