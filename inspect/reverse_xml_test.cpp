#include "inspect/reverse_xml.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "bridge/display_control.h"
#include "model/customisation.h"
#include "tests/support/files.h"
#include "tests/support/installed_system_test.h"
#include "tests/support/utf16_bytes.h"

namespace qk {
namespace {

using namespace std::string_literals;

std::string Utf8OfUtf16(const std::string& bytes) {
    std::string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
        text.push_back(bytes[i]);
    return text;
}

TEST(ReverseXmlTest, NullTextsAndLinksAreWrittenEmptyAndUnknownCodesHaveNoName) {
    Driver driver{nullptr, 9, {}, 0};
    Property property{42, nullptr, nullptr, nullptr, {}, {}, 0};
    Area area{&driver, &property, nullptr, 0};
    std::uint32_t word = 0;  // no property: read as text, which ends at once
    Value value{&word, 4, nullptr, nullptr, {}};
    Profile profile{nullptr, nullptr, nullptr, &value, nullptr, {}, {}, 0};
    Use use{nullptr, nullptr, nullptr, {}, 0};
    Application application{nullptr, nullptr, nullptr, nullptr, &use, nullptr, {}, {}, {}, {}, 0};
    Customisations root{&area, &profile, &application, nullptr, nullptr, nullptr, {}, {}, {}};
    EXPECT_EQ(Utf8OfUtf16(ReverseXmlBytes(root, 0)),
              "<?xml version=\"1.0\" encoding=\"utf-16\"?>\n"
              "<customisations Format=\"\" Release=\"\">\n"
              "\t<properties>\n\t\t<area Name=\"\" Privacy=\"\">\n"
              "\t\t\t<property Type=\"Unknown\"></property>\n\t\t</area>\n\t</properties>\n"
              "\t<profiles>\n\t\t<profile Area=\"\" Usage=\"\">\n"
              "\t\t\t<value Property=\"\"></value>\n\t\t</profile>\n\t</profiles>\n"
              "\t<applications>\n\t\t<application>\n\t\t\t<use Area=\"\"></use>\n"
              "\t\t</application>\n\t</applications>\n</customisations>\n");
}

TEST(ReverseXmlTest, ValueTextsByType) {
    struct Case {
        std::int32_t type;
        std::vector<std::uint8_t> data;
        std::string text;
    };
    const Case cases[] = {
        {kTypeBinary, {1, 255, 16}, "0x01,0xFF,0x10,"},
        {kTypeBinary, {}, ""},
        {kTypeQword, {2, 0, 0, 0, 1, 0, 0, 0}, "0x0000000100000002"},
        {kTypeDword, {255, 0, 0, 0}, "0x000000FF"},
        {kTypeBoolean, {1, 0, 0, 0}, "True"},
        {kTypeBoolean, {0, 0, 0, 0}, "False"},
        {kTypeBoolean, {2, 0, 0, 0}, ""},
        // No data comes as a null block and reads as zero.
        {kTypeQword, {}, "0x0000000000000000"},
        {kTypeDword, {}, "0x00000000"},
        {kTypeBoolean, {}, "False"},
        {kTypeDword, {0x34, 0x12}, "0x00001234"},  // a short word is not read past its end
        {kTypeString, {'H', 0, 0, 0, 'i', 0, 0, 0}, "Hi"},
        // Texts end at their first zero unit or their last byte.
        {kTypeEnumerated, {}, ""},
        // A partial last unit still makes a character.
        {kTypeEnumerated, {'A', 0, 0, 0, 'B'}, "AB"},
        {kTypeEnumerated, {'A', 0, 0, 0, 0, 0, 0, 0, 'B', 0, 0, 0}, "A"},
        {kTypeEnumerated,
         {'<', 0, 0, 0, '>', 0, 0, 0, '&', 0, 0, 0, '"', 0, 0, 0},
         "&lt;&gt;&amp;&quot;"},
    };
    for (const auto& c : cases) {
        wchar_t name[] = L"P";
        Property property{c.type, name, nullptr, nullptr, {}, {}, 0};
        std::vector<std::uint8_t> data = c.data;
        Value value{data.empty() ? nullptr : data.data(),
                    static_cast<std::uint32_t>(data.size()),
                    &property,
                    nullptr,
                    {}};
        Profile profile{nullptr, nullptr, nullptr, &value, nullptr, {}, {}, 0};
        Customisations root{nullptr, &profile, nullptr, nullptr, nullptr, nullptr, {}, {}, {}};
        const std::string xml = Utf8OfUtf16(ReverseXmlBytes(root, 0));
        EXPECT_NE(xml.find("<value Property=\"P\">" + c.text + "</value>"), std::string::npos)
            << c.text << "\n"
            << xml;
    }
}

// A whole tree with the shapes that placeholders and optional attributes change.
struct SampleTree {
    wchar_t format[2] = L"1";
    wchar_t release[4] = L"r&1";
    wchar_t lonely[7] = L"Lonely";
    wchar_t busy[5] = L"Busy";
    wchar_t prop[5] = L"Prop";
    wchar_t empty[1] = L"";
    wchar_t setText[4] = L"a\"b";
    wchar_t usage[5] = L"Fast";
    wchar_t idle[5] = L"Idle";
    wchar_t file[6] = L"x.exe";
    wchar_t version[4] = L"1.0";
    wchar_t bare[9] = L"bare.exe";
    std::uint32_t dword = 0xABCDEF01;

    Driver lonelyDriver{lonely, 2, {}, 0};
    Driver busyDriver{busy, 8, {}, 0};
    Property emptySet{kTypeDword, prop, empty, nullptr, {}, {}, 0};
    Property withSet{7, prop, setText, &emptySet, {}, {}, 0};
    Area busyArea{&busyDriver, &withSet, nullptr, 0};
    Area lonelyArea{&lonelyDriver, nullptr, &busyArea, 0};
    Value value{&dword, 4, &emptySet, nullptr, {}};
    Profile idleProfile{&busyDriver, idle, empty, nullptr, nullptr, {}, {}, 0};
    Profile fastProfile{&busyDriver, usage, nullptr, &value, &idleProfile, {}, {}, 0};
    Use use{usage, &busyDriver, nullptr, {}, 0};
    Application bareApp{empty, bare, nullptr, nullptr, nullptr, nullptr, {}, {}, {}, {}, 0};
    Application app{nullptr, file, empty, version, &use, &bareApp, {}, {}, {}, {}, 0};
    Customisations root{&lonelyArea, &fastProfile, &app, nullptr, release, format, {}, {}, {}};
};

TEST(ReverseXmlTest, PlaceholdersAddEmptyAreasAndProfilesOnly) {
    const std::string head =
        "<?xml version=\"1.0\" encoding=\"utf-16\"?>\n"
        "<customisations Format=\"1\" Release=\"r&amp;1\">\n\t<properties>\n";
    const std::string lonely = "\t\t<area Name=\"Lonely\" Privacy=\"\">\n\t\t</area>\n";
    const std::string busy =
        "\t\t<area Name=\"Busy\" Privacy=\"\">\n"
        "\t\t\t<property Type=\"Unknown\" Set=\"a&quot;b\">Prop</property>\n"
        "\t\t\t<property Type=\"Dword\">Prop</property>\n\t\t</area>\n"
        "\t</properties>\n\t<profiles>\n"
        "\t\t<profile Area=\"Busy\" Usage=\"Fast\">\n"
        "\t\t\t<value Property=\"Prop\">0xABCDEF01</value>\n\t\t</profile>\n";
    const std::string idle = "\t\t<profile Area=\"Busy\" Usage=\"Idle\">\n\t\t</profile>\n";
    const std::string tail =
        "\t</profiles>\n\t<applications>\n"
        "\t\t<application File=\"x.exe\" Version=\"1.0\">\n"
        "\t\t\t<use Area=\"Busy\">Fast</use>\n\t\t</application>\n"
        "\t\t<application File=\"bare.exe\">\n\t\t</application>\n"
        "\t</applications>\n</customisations>\n";
    SampleTree tree;
    EXPECT_EQ(Utf8OfUtf16(ReverseXmlBytes(tree.root, 0)), head + busy + tail);
    EXPECT_EQ(Utf8OfUtf16(ReverseXmlBytes(tree.root, 1)), head + lonely + busy + idle + tail);
    // Only the value 1 turns placeholders on.
    EXPECT_EQ(Utf8OfUtf16(ReverseXmlBytes(tree.root, 2)), head + busy + tail);
}

TEST(ReverseXmlTest, WideTextBecomesUtf16LittleEndian) {
    struct Case {
        std::wstring text;
        std::string bytes;
    };
    const Case cases[] = {
        {L"A", "A\0"s},
        {L"\u00E9", "\xE9\x00"s},
        {L"\u20AC", "\xAC\x20"s},
        {std::wstring(1, static_cast<wchar_t>(0x1F600)), "\x3D\xD8\x00\xDE"s},
        // Units that are already surrogates pass as they are.
        {std::wstring{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)},
         "\x3D\xD8\x00\xDE"s},
        {std::wstring(1, static_cast<wchar_t>(0x110000)), "\xFD\xFF"s},
    };
    for (const auto& c : cases) {
        std::wstring format = c.text;
        Customisations root{nullptr, nullptr, nullptr, nullptr, nullptr, format.data(), {}, {}, {}};
        const std::string bytes = ReverseXmlBytes(root, 0);
        const std::string before = test::Utf16Bytes("<customisations Format=\"");
        const std::size_t at = bytes.find(before);
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(bytes.substr(at + before.size(), c.bytes.size() + 2), c.bytes + "\"\0"s)
            << static_cast<unsigned>(c.text[0]);
    }
}

// The conversion run against the stand-in library, loaded by path.
class ReverseToXmlTest : public unit::InstalledSystemTest {
  protected:
    void SetUp() override {
        InstalledSystemTest::SetUp();
        SetDisplayControlLibrary(library_.c_str());
    }
    std::string library_ = std::string(SIMULATOR_DIR) + "/libvexzelxx.so";
};

TEST_F(ReverseToXmlTest, WritesTheFetchedDatabase) {
    ASSERT_EQ(ReverseToXml(0, 0, "system.xml"), 0);
    EXPECT_EQ(test::ReadFile("system.xml"),
              test::Utf16WithMark("<?xml version=\"1.0\" encoding=\"utf-16\"?>\n"
                                  "<customisations Format=\"1\" Release=\"\">\n"
                                  "\t<properties>\n\t\t<area Name=\"D\" Privacy=\"Defined\">\n"
                                  "\t\t\t<property Type=\"Dword\">P</property>\n"
                                  "\t\t</area>\n\t</properties>\n</customisations>\n"));
    ASSERT_EQ(ReverseToXml(1, 1, "user.xml"), 0);
    EXPECT_EQ(test::ReadFile("user.xml"),
              test::Utf16WithMark("<?xml version=\"1.0\" encoding=\"utf-16\"?>\n"
                                  "<customisations Format=\"1\" Release=\"\">\n"
                                  "</customisations>\n"));
    EXPECT_EQ(Log(), "");
}

TEST_F(ReverseToXmlTest, AFailedFetchLeavesTheFileAlone) {
    struct Case {
        int database;
        std::string library;
        std::string fail;
        int result;
    };
    const Case cases[] = {
        {3, library_, "", -1},
        {-1, library_, "", -1},
        {0, "/nonexistent/libvexzelxx.so", "", -1},
        {0, library_, "ZEL_ApplicationProfiles_GetCustomization", -1},
        {0, library_, "ZEL_Main_Control_Create", -1},
    };
    for (const auto& c : cases) {
        test::WriteFile("kept.xml", "earlier");
        SetDisplayControlLibrary(c.library.c_str());
        setenv("VEXZEL_SIM_FAIL", c.fail.c_str(), 1);
        testing::internal::CaptureStdout();
        EXPECT_EQ(ReverseToXml(c.database, 0, "kept.xml"), c.result) << c.library << c.fail;
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(test::ReadFile("kept.xml"), "earlier") << c.library << c.fail;
    }
    SetDisplayControlLibrary(library_.c_str());
}

TEST_F(ReverseToXmlTest, AnUnwritableFileIsReported) {
    EXPECT_EQ(ReverseToXml(0, 0, "no-such-dir/out.xml"), -1);
    EXPECT_NE(Log().find("ERROR, Unable to write XML file: - no-such-dir/out.xml\n"),
              std::string::npos)
        << Log();
}

}  // namespace
}  // namespace qk
