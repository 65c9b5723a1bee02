#include "inspect/reverse_xml.h"

#include <gtest/gtest.h>

#include <string>

#include "xmlinput/customisation.h"

namespace qk {
namespace {

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
        {kTypeString, {'H', 0, 0, 0, 'i', 0, 0, 0}, "Hi"},
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

TEST(ReverseXmlTest, AnUnknownDatabaseWritesNothing) {
    EXPECT_EQ(ReverseToXml(3, 0, "never-written.xml"), -1);
    EXPECT_EQ(ReverseToXml(-1, 0, "never-written.xml"), -1);
}

}  // namespace
}  // namespace qk
