#include "xmlinput/file_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "blob/version_string.h"
#include "model/customisation.h"
#include "model/file_kind.h"
#include "tests/support/case_name.h"
#include "tests/support/files.h"
#include "tests/support/logged_test.h"
#include "xmlinput/consistency.h"

namespace qk {
namespace {

const char* const kHead = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// A small system set: one area with a property of every type.
const std::string kAreas =
    "<properties>\n"
    "  <area Name=\"Lumen\" Privacy=\"ApplicationsOnly\">\n"
    "    <property Type=\"Binary\" Set=\"raw\">Gamma</property>\n"
    "    <property Type=\"Dword\">Depth</property>\n"
    "    <property Type=\"Qword\">Span</property>\n"
    "    <property Type=\"Boolean\">Vsync</property>\n"
    "    <property Type=\"String\">Label</property>\n"
    "  </area>\n"
    "</properties>\n";

std::string Document(const std::string& body,
                     const std::string& header = "Format=\"1\" Content=\"Orchard set\"") {
    return std::string(kHead) + "<customisations " + header + ">\n" + body + "</customisations>\n";
}

// A profile of the Lumen area holding values.
std::string ProfileBody(const std::string& values, const std::string& usage = "P") {
    return "<profiles><profile Area=\"Lumen\" Usage=\"" + usage + "\">\n" + values +
           "</profile></profiles>\n";
}

std::wstring Text(const wchar_t* text) {
    return text != nullptr ? std::wstring(text) : std::wstring(L"<null>");
}

template <typename T>
int Count(const T* head) {
    int count = 0;
    for (; head != nullptr; head = head->lpNext) {
        ++count;
    }
    return count;
}

std::vector<std::uint32_t> Words(const Value* value) {
    const auto* data = static_cast<const std::uint32_t*>(value->lpData);
    return std::vector<std::uint32_t>(data, data + value->iDataLength);
}

class FileReaderTest : public unit::LoggedTest {
  protected:
    void SetUp() override {
        unit::LoggedTest::SetUp();
        ResetFileReader();
        ResetConsistency();
        SetFileKind(kSystemFile);
        root_ = CreateCustomisations();
    }
    void TearDown() override {
        SetFileKind(kSystemFile);
        ResetFileReader();
        unit::LoggedTest::TearDown();
    }
    int Read(const std::string& xml, const char* name = "input.xml") {
        test::WriteFile(name, xml);
        return ReadOneFile(name);
    }

    Customisations* root_ = nullptr;
};

TEST_F(FileReaderTest, SystemFileBuildsTheTree) {
    const std::string body = kAreas +
                             "<profiles>\n"
                             "  <profile Area=\"Lumen\" Usage=\"Crisp\" Notes=\"sharp\">\n"
                             "    <value Property=\"Gamma\">0x01,0x7F,0xff</value>\n"
                             "    <value Property=\"Depth\">0x20</value>\n"
                             "    <value Property=\"Span\">0x100000002</value>\n"
                             "    <value Property=\"Vsync\">On</value>\n"
                             "    <value Property=\"Label\">  two \n\t words  </value>\n"
                             "  </profile>\n"
                             "</profiles>\n"
                             "<applications>\n"
                             "  <application Title=\"Kite\" File=\"kite.bin\" Path=\"/opt/kite\" "
                             "Version=\"3\">\n"
                             "    <use Area=\"Lumen\">Crisp</use>\n"
                             "  </application>\n"
                             "</applications>\n";
    ASSERT_EQ(Read(Document(body, "Format=\"7\" Content=\"Orchard set\" Release=\"9.9\"")), 0);

    EXPECT_EQ(Text(root_->strFormat), L"1");
    EXPECT_EQ(Text(root_->strContent), L"Orchard set");
    EXPECT_EQ(Text(root_->strRelease), Text(g_strVersion));
    EXPECT_EQ(g_bFirstFile, 0);

    ASSERT_EQ(Count(root_->lpAreas), 1);
    const Area* area = root_->lpAreas;
    EXPECT_EQ(Text(area->lpDriver->strName), L"Lumen");
    EXPECT_EQ(area->lpDriver->iPrivacy, kPrivacyApplicationsOnly);
    ASSERT_EQ(Count(area->lpProperties), 5);
    EXPECT_EQ(area->lpProperties->iType, kTypeBinary);
    EXPECT_EQ(Text(area->lpProperties->strSet), L"raw");

    ASSERT_EQ(Count(root_->lpProfiles), 1);
    const Profile* profile = root_->lpProfiles;
    EXPECT_EQ(profile->lpDriver, area->lpDriver);
    EXPECT_EQ(Text(profile->strNotes), L"sharp");
    ASSERT_EQ(Count(profile->lpValues), 5);
    const Value* value = profile->lpValues;
    EXPECT_EQ(Words(value), (std::vector<std::uint32_t>{0x01, 0x7F, 0xFF}));
    value = value->lpNext;
    EXPECT_EQ(Words(value), (std::vector<std::uint32_t>{0x20}));
    value = value->lpNext;
    EXPECT_EQ(Words(value), (std::vector<std::uint32_t>{0x2, 0x1}));  // low word first
    value = value->lpNext;
    EXPECT_EQ(Words(value), (std::vector<std::uint32_t>{1}));
    value = value->lpNext;
    EXPECT_EQ(value->iDataLength, 0u);
    EXPECT_EQ(Text(static_cast<const wchar_t*>(value->lpData)), L"two words");

    ASSERT_EQ(Count(root_->lpApplications), 1);
    const Application* application = root_->lpApplications;
    EXPECT_EQ(Text(application->strPath), L"/opt/kite");
    ASSERT_EQ(Count(application->lpUses), 1);
    EXPECT_EQ(Text(application->lpUses->strProfile), L"Crisp");
    EXPECT_EQ(application->lpUses->lpDriver, area->lpDriver);
}

// Two uses, and a use of an unknown profile, with and without white space after
// the `use`: white space settles the open use and takes it away, and the
// application is then pruned.
struct UseCase {
    const char* name;
    std::string applications;
    std::wstring titles;
    const char* message;
};

class FileReaderUseTest : public FileReaderTest, public ::testing::WithParamInterface<UseCase> {};

TEST_P(FileReaderUseTest, SettlesTheApplication) {
    const UseCase& c = GetParam();
    const std::string body = kAreas +
                             ProfileBody("<value Property=\"Depth\">1</value>\n", "Crisp") +
                             "<applications>" + c.applications +
                             "<application Title=\"Wren\"><use Area=\"Lumen\">Crisp</use>\n"
                             "</application></applications>\n";
    ASSERT_EQ(Read(Document(body)), 0);
    std::wstring titles;
    for (const Application* app = root_->lpApplications; app != nullptr; app = app->lpNext) {
        titles += Text(app->strTitle) + L";";
        EXPECT_EQ(Count(app->lpUses), 1) << c.name;
    }
    EXPECT_EQ(titles, c.titles) << c.name;
    EXPECT_TRUE(Logged(c.message)) << c.name << "\n" << Log();
}

INSTANTIATE_TEST_SUITE_P(
    Uses, FileReaderUseTest,
    ::testing::Values(
        UseCase{"two uses, no white space",
                "<application Title=\"Kite\"><use Area=\"Lumen\">Crisp</use>"
                "<use Area=\"Lumen\">Other</use></application>",
                L"Kite;Wren;", "ERROR: - usage of USE already assigned.\n"},
        UseCase{"two uses, white space",
                "<application Title=\"Kite\">\n<use Area=\"Lumen\">Crisp</use>\n"
                "<use Area=\"Lumen\">Other</use>\n</application>\n",
                L"Wren;", "ERROR: Use profile name is empty.\nApplication Use is ignored.\n"},
        UseCase{"unknown profile, no white space",
                "<application Title=\"Kite\"><use Area=\"Lumen\">Nowhere</use></application>",
                L"Wren;", "ERROR: - Unable to find Use profile: - Nowhere\n"},
        UseCase{"unknown profile, white space",
                "<application Title=\"Kite\">\n<use Area=\"Lumen\">Nowhere</use>\n"
                "</application>\n",
                L"Wren;", "ERROR: Use profile name is empty.\nApplication Use is ignored.\n"}));

TEST_F(FileReaderTest, ProfileWithoutValuesIsWrittenOver) {
    const std::string body = kAreas +
                             "<profiles>\n"
                             "<profile Area=\"Lumen\" Usage=\"Empty\" Notes=\"gone\"/>\n"
                             "<profile Area=\"Lumen\" Usage=\"Full\">\n"
                             "<value Property=\"Depth\">3</value>\n</profile>\n"
                             "</profiles>\n";
    ASSERT_EQ(Read(Document(body)), 0);
    ASSERT_EQ(Count(root_->lpProfiles), 1);
    EXPECT_EQ(Text(root_->lpProfiles->strUsage), L"Full");
    EXPECT_EQ(Text(root_->lpProfiles->strNotes), L"gone");
    EXPECT_EQ(Count(root_->lpProfiles->lpValues), 1);
}

struct PropertyNameCase {
    const char* name;
    std::string element;
    int result;
    const char* message;
};

class FileReaderPropertyNameTest : public FileReaderTest,
                                   public ::testing::WithParamInterface<PropertyNameCase> {};

TEST_P(FileReaderPropertyNameTest, ChecksTheName) {
    const PropertyNameCase& c = GetParam();
    const std::string body =
        "<properties>\n<area Name=\"Lumen\">\n" + c.element + "\n</area>\n</properties>\n";
    EXPECT_EQ(Read(Document(body)), c.result) << c.name;
    if (c.message[0] != '\0') {
        EXPECT_TRUE(Logged(c.message)) << c.name << "\n" << Log();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Names, FileReaderPropertyNameTest,
    ::testing::Values(PropertyNameCase{"fifteen units",
                                       "<property Type=\"Dword\">ABCDEFGHIJKLMNO</property>", 0,
                                       ""},
                      PropertyNameCase{"sixteen units",
                                       "<property Type=\"Dword\">ABCDEFGHIJKLMNOP</property>", -2,
                                       "ERROR: - Property name is too long: - ABCDEFGHIJKLMNOP\n"},
                      PropertyNameCase{"sixteen units over two words",
                                       "<property Type=\"Dword\">ABCDEFG HIJKLMNO</property>", -2,
                                       "ERROR: - Property name is too long: - ABCDEFG HIJKLMNO\n"},
                      PropertyNameCase{"empty", "<property Type=\"Dword\">\n</property>", -2,
                                       "ERROR: Property name is empty.\n"},
                      PropertyNameCase{"self-closed", "<property Type=\"Dword\"/>", -2,
                                       "ERROR: Property name is empty.\n"}));

TEST_F(FileReaderTest, PropertyOutsideAnyAreaFailsTheFile) {
    EXPECT_EQ(Read(Document("<properties><property Type=\"Dword\">X</property></properties>\n")),
              -1);
}

TEST_F(FileReaderTest, PrivacyBeforeNameEndsDefined) {
    const std::string body =
        "<properties>\n<area Privacy=\"ProfilesOnly\" Name=\"Lumen\">\n"
        "<property Type=\"Dword\">Depth</property>\n</area>\n"
        "<area Name=\"Fern\" Privacy=\"Secret\">\n<property Type=\"Dword\">Depth</property>\n"
        "</area>\n</properties>\n";
    ASSERT_EQ(Read(Document(body)), 0);
    ASSERT_EQ(Count(root_->lpAreas), 2);
    EXPECT_EQ(root_->lpAreas->lpDriver->iPrivacy, kPrivacyDefined);
    EXPECT_EQ(root_->lpAreas->lpNext->lpDriver->iPrivacy, kPrivacyDefined);
    EXPECT_TRUE(Logged("ERROR: - type not defined: - Secret\n"));
    EXPECT_TRUE(Logged("Driver already allocated: - input.xml\n"));
}

// Values and uses that have nothing to attach to are dropped, the tree stays whole.
struct DroppedCase {
    const char* name;
    std::string body;
    const char* message;
};

class FileReaderDroppedTest : public FileReaderTest,
                              public ::testing::WithParamInterface<DroppedCase> {};

TEST_P(FileReaderDroppedTest, DropsTheItem) {
    const DroppedCase& c = GetParam();
    ASSERT_EQ(Read(Document(kAreas + c.body)), 0) << c.name;
    EXPECT_TRUE(Logged(c.message)) << c.name << "\n" << Log();
    for (const Profile* profile = root_->lpProfiles; profile != nullptr;
         profile = profile->lpNext) {
        for (const Value* value = profile->lpValues; value != nullptr; value = value->lpNext) {
            EXPECT_NE(value->lpProperty, nullptr) << c.name;
            EXPECT_NE(value->lpData, nullptr) << c.name;
        }
    }
    EXPECT_EQ(root_->lpApplications, nullptr) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Dropped, FileReaderDroppedTest,
    ::testing::Values(
        DroppedCase{"value before any profile",
                    "<profiles><value Property=\"Depth\">1</value>\n</profiles>\n",
                    "ERROR: Propery of value is invalid. Value is ignored. \n"},
        DroppedCase{"value of an unknown area",
                    "<profiles><profile Area=\"Nowhere\" Usage=\"P\">\n"
                    "<value Property=\"Depth\">1</value>\n</profile></profiles>\n",
                    "ERROR: Propery of value is invalid. Value is ignored. \n"},
        DroppedCase{"Property not the first attribute",
                    ProfileBody("<value Extra=\"x\" Property=\"Depth\">1</value>\n"),
                    "ERROR: Propery of value is invalid. Value is ignored. \n"},
        DroppedCase{"bad Dword", ProfileBody("<value Property=\"Depth\">0xZZ</value>\n"),
                    "ERROR, Dword conversion error.\n"},
        DroppedCase{"short Binary", ProfileBody("<value Property=\"Gamma\">1</value>\n"),
                    "ERROR, Zero length binary data.\n"},
        DroppedCase{"bad Boolean", ProfileBody("<value Property=\"Vsync\">Maybe</value>\n"),
                    "ERROR, Invalid Boolean value returned.\n"},
        DroppedCase{"Dword without text", ProfileBody("<value Property=\"Depth\"/>\n"),
                    "ERROR: Dword conversion error.\nProfile value is ignored.\n"},
        DroppedCase{"value text never comes",
                    "<profiles><profile Area=\"Lumen\" Usage=\"P\">"
                    "<value Property=\"Depth\"/></profile></profiles><applications/>",
                    "ERROR: Value of property Depth has no data. Value is ignored.\n"},
        DroppedCase{"use before any application",
                    "<applications><use Area=\"Lumen\">P</use>\n</applications>\n",
                    "ERROR: - use Area/Lumen found before any application, it is ignored.\n"}),
    test::CaseName());

TEST_F(FileReaderTest, FailedValueLeavesTheEarlierOnesLinked) {
    const std::string body = kAreas + ProfileBody(
                                          "<value Property=\"Depth\">1</value>\n"
                                          "<value Property=\"Depth\">0xZZ</value>\n"
                                          "<value Property=\"Label\"></value>\n");
    ASSERT_EQ(Read(Document(body)), 0);
    ASSERT_EQ(Count(root_->lpProfiles->lpValues), 2);
    const Value* text = root_->lpProfiles->lpValues->lpNext;
    EXPECT_EQ(Text(static_cast<const wchar_t*>(text->lpData)), L"");
}

TEST_F(FileReaderTest, WidensNonAsciiTextAsUtf8) {
    const std::string body =
        kAreas + ProfileBody("<value Property=\"Label\">caf\xC3\xA9 \xE2\x82\xAC</value>\n");
    ASSERT_EQ(Read(Document(body)), 0);
    EXPECT_EQ(Text(static_cast<const wchar_t*>(root_->lpProfiles->lpValues->lpData)),
              L"caf\u00E9 \u20AC");
}

TEST_F(FileReaderTest, OverlongAttributeIsSkippedWithAnError) {
    const std::string body = "<properties><area Name=\"Lumen\" Privacy=\"" +
                             std::string(9000, 'x') +
                             "\">\n<property Type=\"Dword\">D</property>\n</area></properties>\n";
    ASSERT_EQ(Read(Document(body)), 0);
    EXPECT_TRUE(Logged("attribute #1 of element area is not valid UTF-8 or too long"));
    EXPECT_EQ(root_->lpAreas->lpDriver->iPrivacy, kPrivacyDefined);
}

TEST_F(FileReaderTest, BrokenAndMissingFiles) {
    EXPECT_EQ(ReadOneFile("absent.xml"), -2);
    EXPECT_FALSE(Logged("Invalid XML detected"));
    const std::string whole = Document(kAreas);
    EXPECT_EQ(Read(whole.substr(0, whole.rfind('>')), "cut.xml"), -2);
    EXPECT_TRUE(Logged("Invalid XML detected: cut.xml\n"));
    EXPECT_EQ(root_->lpAreas, nullptr);
}

TEST_F(FileReaderTest, FileWithoutDeclarationKeepsNoHeader) {
    ASSERT_EQ(Read("<customisations Format=\"1\" Content=\"C\">" + kAreas + "</customisations>"),
              0);
    EXPECT_EQ(root_->strContent, nullptr);
    EXPECT_EQ(root_->strFormat, nullptr);
    EXPECT_EQ(Count(root_->lpAreas), 1);
}

TEST_F(FileReaderTest, LaterFileIsComparedAndAppended) {
    const std::string first =
        kAreas + ProfileBody("<value Property=\"Depth\">1</value>\n", "Crisp");
    ASSERT_EQ(Read(Document(first), "a.xml"), 0);
    const std::string second =
        "<properties><area Name=\"Fern\">\n<property Type=\"Dword\">Depth</property>\n"
        "</area></properties>\n"
        "<profiles><profile Area=\"Fern\" Usage=\"Soft\">\n"
        "<value Property=\"Depth\">2</value>\n</profile></profiles>\n"
        "<applications><application Title=\"Kite\"><use Area=\"Lumen\">Crisp</use>\n"
        "</application></applications>\n";
    ASSERT_EQ(Read(Document(second, "Format=\"1\" Content=\"Orchard set\""), "b.xml"), 0);
    EXPECT_FALSE(Logged("WARNING: Customisation header mismatches"));
    ASSERT_EQ(Read(Document("", "Content=\"Other\" Release=\"x\" Format=\"1\""), "c.xml"), 0);
    // Content and Release differ.
    EXPECT_EQ(TimesLogged("WARNING: Customisation header mismatches: - c.xml\n"), 2u);
    EXPECT_EQ(Text(root_->strContent), L"Orchard set");

    ASSERT_EQ(Count(root_->lpAreas), 2);
    ASSERT_EQ(Count(root_->lpProfiles), 2);
    EXPECT_EQ(root_->lpProfiles->lpNext->lpDriver, root_->lpAreas->lpNext->lpDriver);
    EXPECT_EQ(Count(root_->lpProfiles->lpValues), 1);
    ASSERT_EQ(Count(root_->lpApplications), 1);
    EXPECT_EQ(root_->lpApplications->lpUses->lpDriver, root_->lpAreas->lpDriver);
}

TEST_F(FileReaderTest, FirstFileWithoutPropertiesLetsTheNextContinueItsProfile) {
    ASSERT_EQ(Read(Document(kAreas), "a.xml"), 0);
    ResetFileReader();  // as if no properties group had been read yet
    const std::string profiles = ProfileBody("<value Property=\"Depth\">1</value>\n", "First");
    ASSERT_EQ(Read(Document(profiles), "b.xml"), 0);
    const std::string again =
        "<profiles><profile Notes=\"more\">\n"
        "<value Property=\"Depth\">2</value>\n</profile></profiles>\n";
    ASSERT_EQ(Read(Document(again, "Format=\"1\" Content=\"Again\""), "c.xml"), 0);
    ASSERT_EQ(Count(root_->lpProfiles), 1);
    EXPECT_EQ(Text(root_->lpProfiles->strNotes), L"more");
    EXPECT_EQ(Text(root_->strContent), L"Again");
}

TEST_F(FileReaderTest, UserFileWithoutTheLibraryRefusesAreasOfTheSystemSet) {
    SetFileKind(kUserFile);
    const std::string body = kAreas +
                             ProfileBody("<value Property=\"Depth\">1</value>\n", "Crisp") +
                             "<applications><application Title=\"Kite\" File=\"kite.bin\">\n"
                             "<use Area=\"Lumen\">Crisp</use>\n</application></applications>\n";
    ASSERT_EQ(Read(Document(body)), 0);
    EXPECT_EQ(root_->lpAreas, nullptr);
    EXPECT_EQ(root_->lpProfiles, nullptr);
    EXPECT_EQ(root_->lpApplications, nullptr);
    EXPECT_TRUE(Logged("ERROR, Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed\n"));
    EXPECT_TRUE(Logged("ERROR: Propery of value is invalid. Value is ignored. \n"));
    // The property texts arrive with no context to take them.
    EXPECT_TRUE(Logged("ERROR: - Invalid text found: - Gamma\n"));
}

TEST_F(FileReaderTest, OemFileReportsItsPropertiesGroup) {
    SetFileKind(kOemFile);
    ASSERT_EQ(Read(Document(kAreas)), 0);
    EXPECT_TRUE(
        Logged("ERROR, in OEM xml file, 'properties' element is found and this is not "
               "allowed, it will be ignored\n"));
    EXPECT_EQ(root_->lpAreas, nullptr);
}

}  // namespace
}  // namespace qk
