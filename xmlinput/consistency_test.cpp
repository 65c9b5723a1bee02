#include "xmlinput/consistency.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/file_kind.h"
#include "support/tracked_memory.h"
#include "tests/support/files.h"
#include "tests/support/logged_test.h"
#include "tests/support/tree_builder.h"
#include "text/wide_string.h"
#include "xmlinput/file_reader.h"

namespace qk {
namespace {

using unit::AddArea;

class ConsistencyTest : public unit::LoggedTest {
  protected:
    void SetUp() override {
        unit::LoggedTest::SetUp();
        ResetFileReader();
        ResetConsistency();
        SetFileKind(kSystemFile);
        root_ = CreateCustomisations();
    }
    void TearDown() override {
        ResetConsistency();
        ResetFileReader();
        unit::LoggedTest::TearDown();
    }
    Customisations* root_ = nullptr;
};

struct PairCase {
    const char* name;
    std::vector<std::wstring> first;
    std::vector<std::wstring> second;
    int result;
    const char* message;
};

class DriverPairTest : public ConsistencyTest, public ::testing::WithParamInterface<PairCase> {};

TEST_P(DriverPairTest, ComparesThePair) {
    const PairCase& c = GetParam();
    AddArea(root_, L"Lumen", {L"Alpha"});
    AddArea(root_, L"HYDynamic", c.first);
    AddArea(root_, L"NOMM-HYDynamic", c.second);
    EXPECT_EQ(checkXML(), c.result) << c.name;
    EXPECT_TRUE(Logged(c.message)) << c.name << "\n" << Log();
    if (c.result == 0) {
        EXPECT_TRUE(g_propertyNames_1.empty());
        EXPECT_TRUE(g_propertyNames_2.empty());
    }
}

std::vector<std::wstring> Many(int count, const wchar_t* prefix) {
    std::vector<std::wstring> names;
    for (int i = 0; i < count; ++i) {
        names.push_back(prefix + std::to_wstring(i));
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, DriverPairTest,
    ::testing::Values(
        PairCase{"same order",
                 {L"Alpha", L"Beta", L"Gamma"},
                 {L"Alpha", L"Beta", L"Gamma"},
                 0,
                 "SUCCESS -  Drivers: HYDynamic and NOMM-HYDynamic match.\n"},
        PairCase{"any order",
                 {L"Alpha", L"Beta", L"Gamma"},
                 {L"Gamma", L"Alpha", L"Beta"},
                 0,
                 "SUCCESS -  Drivers: HYDynamic and NOMM-HYDynamic match.\n"},
        PairCase{"count mismatch",
                 {L"Alpha", L"Beta", L"Gamma"},
                 {L"Alpha", L"Beta", L"Gamma", L"Delta"},
                 1,
                 "ERROR -  Drivers: HYDynamic and NOMM-HYDynamic have no matches.\n"},
        PairCase{"last name differs",
                 {L"Alpha", L"Beta", L"Gamma"},
                 {L"Alpha", L"Beta", L"Delta"},
                 1,
                 "ERROR -  Drivers: HYDynamic and NOMM-HYDynamic have same number of properties, "
                 "but different property names.\n"},
        PairCase{"first name differs",
                 {L"Delta", L"Beta", L"Gamma"},
                 {L"Alpha", L"Beta", L"Gamma"},
                 1,
                 "but different property names.\n"},
        PairCase{"no properties", {}, {}, 0, "Total number of properties for NOMM-HYDynamic: 0\n"},
        PairCase{"over a hundred, equal", Many(150, L"P"), Many(150, L"P"), 0,
                 "Total number of properties for HYDynamic: 150\n"},
        PairCase{"over a hundred, last differs", Many(150, L"P"),
                 [] {
                     auto names = Many(150, L"P");
                     names.back() = L"Other";
                     return names;
                 }(),
                 1, "but different property names.\n"}));

TEST_F(ConsistencyTest, SkipsWhenAMemberIsMissingOrOnlyDiffersInCase) {
    EXPECT_EQ(checkXML(), 0);
    EXPECT_TRUE(Logged("SUCCESS - Skipped matching drivers: HYDynamic and NOMM-HYDynamic.\n"));
    AddArea(root_, L"HYDynamic", {L"Alpha"});
    AddArea(root_, L"nomm-hydynamic", {L"Beta", L"Gamma"});
    EXPECT_EQ(checkXML(), 0);
    EXPECT_FALSE(Logged("Added to nomm-hydynamic"));
}

TEST_F(ConsistencyTest, RemovesApplicationsWithoutUse) {
    EXPECT_EQ(RemoveInvalidApplications(nullptr), -1);
    Application* apps[4];
    for (Application*& app : apps) {
        app = AllocateRecord<Application>();
        app->strTitle = TrackedCopy(L"t");
    }
    for (int i = 0; i < 3; ++i) {
        apps[i]->lpNext = apps[i + 1];
    }
    root_->lpApplications = apps[0];
    apps[1]->lpUses = AllocateRecord<Use>();
    apps[3]->lpUses = AllocateRecord<Use>();
    EXPECT_EQ(RemoveInvalidApplications(root_), 0);
    EXPECT_EQ(root_->lpApplications, apps[1]);
    EXPECT_EQ(apps[1]->lpNext, apps[3]);
    EXPECT_EQ(apps[0]->strTitle, nullptr);
    EXPECT_EQ(apps[2]->strTitle, nullptr);
    apps[1]->lpUses = nullptr;
    apps[3]->lpUses = nullptr;
    EXPECT_EQ(RemoveInvalidApplications(root_), 0);
    EXPECT_EQ(root_->lpApplications, nullptr);
}

TEST_F(ConsistencyTest, RemovesAreasThatNothingRefersTo) {
    EXPECT_EQ(RemoveUnusedDriverArea(nullptr), -1);
    Area* byProfile = AddArea(root_, L"A", {L"X"});
    Area* unused = AddArea(root_, L"B", {L"Y"});
    unused->lpProperties->strSet = TrackedCopy(L"s");
    Area* byUse = AddArea(root_, L"C", {});
    // Same name as a used area but another record: identity counts, not the name.
    Area* namesake = AddArea(root_, L"A", {});
    root_->lpProfiles = AllocateRecord<Profile>();
    root_->lpProfiles->lpDriver = byProfile->lpDriver;
    root_->lpApplications = AllocateRecord<Application>();
    root_->lpApplications->lpUses = AllocateRecord<Use>();
    root_->lpApplications->lpUses->lpDriver = byUse->lpDriver;
    Driver* unusedDriver = unused->lpDriver;
    EXPECT_EQ(RemoveUnusedDriverArea(root_), 0);
    EXPECT_EQ(root_->lpAreas, byProfile);
    EXPECT_EQ(byProfile->lpNext, byUse);
    EXPECT_EQ(byUse->lpNext, nullptr);
    EXPECT_EQ(unused->lpDriver, nullptr);
    EXPECT_EQ(unusedDriver->strName, nullptr);
    EXPECT_EQ(unused->lpProperties->strName, nullptr);
    EXPECT_EQ(unused->lpProperties->strSet, nullptr);
    EXPECT_EQ(namesake->lpDriver, nullptr);
    FreeArea(nullptr);
    FreeApplication(nullptr);
}

TEST_F(ConsistencyTest, UserRunPrunesUnreferencedAreasAfterEachFileSystemRunKeepsThem) {
    const std::string xml =
        "<?xml version=\"1.0\"?>\n<customisations Format=\"1\">\n<properties>\n"
        "<area Name=\"Lumen\">\n<property Type=\"Dword\">Depth</property>\n</area>\n"
        "</properties>\n</customisations>\n";
    test::WriteFile("system.xml", xml);
    ASSERT_EQ(ReadOneFile("system.xml"), 0);
    EXPECT_NE(root_->lpAreas, nullptr);
    // The same tree finished by a user-file read loses the area.
    SetFileKind(kUserFile);
    ASSERT_EQ(ReadOneFile("system.xml"), 0);
    EXPECT_EQ(root_->lpAreas, nullptr);
    SetFileKind(kSystemFile);
}

}  // namespace
}  // namespace qk
