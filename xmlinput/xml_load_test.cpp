#include "xmlinput/xml_load.h"
#include "xmlinput/walk_and_delete.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/case_name.h"
#include "tests/support/files.h"
#include "tests/support/logged_test.h"
#include "tests/support/utf16_bytes.h"

namespace qk {
namespace {

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
const std::string kWhole = kDeclaration +
                           "<customisations Format=\"1\">\n"
                           "  <profiles>\n    <profile Area=\"Lumen\" Usage=\"Quiet\"/>\n"
                           "  </profiles>\n</customisations>\n";

struct LoadCase {
    const char* name;
    std::string bytes;
    XmlLoadError expected;
};

class XmlLoadTest : public unit::LoggedTest, public ::testing::WithParamInterface<LoadCase> {};

TEST_P(XmlLoadTest, RefusesWhatMiniXmlWouldKeepBroken) {
    const LoadCase& c = GetParam();
    test::WriteFile("input.xml", c.bytes);
    XmlLoadError why = XmlLoadError::kCannotOpen;
    ::testing::internal::CaptureStderr();
    LoadedXml loaded;
    const bool good = LoadXmlDocument("input.xml", loaded, &why);
    const std::string stderrText = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(why, c.expected) << c.name << " stderr: " << stderrText;
    EXPECT_EQ(good, c.expected == XmlLoadError::kNone) << c.name;
    EXPECT_EQ(static_cast<bool>(loaded.document), good) << c.name;
    // A refusal says where, as FILE:LINE:COL.
    EXPECT_EQ(stderrText.find("quillard: input.xml:") == 0, !good) << c.name << stderrText;
}

INSTANTIATE_TEST_SUITE_P(
    Files, XmlLoadTest,
    ::testing::Values(
        LoadCase{"whole", kWhole, XmlLoadError::kNone},
        LoadCase{"no declaration", "<customisations Format=\"1\"><profiles/></customisations>",
                 XmlLoadError::kNone},
        LoadCase{"self-closing root", kDeclaration + "<customisations Format=\"1\"/>\n",
                 XmlLoadError::kNone},
        LoadCase{"space inside end tag", kDeclaration + "<a><b/></a >\n\n\t", XmlLoadError::kNone},
        LoadCase{"comment after root", kDeclaration + "<a><b/></a>\n<!-- done -->\n",
                 XmlLoadError::kNone},
        LoadCase{"utf-8 byte-order mark", "\xEF\xBB\xBF" + kWhole, XmlLoadError::kNone},
        LoadCase{"utf-16 without a byte-order mark", test::Utf16WithMark(kWhole, true).substr(2),
                 XmlLoadError::kNotWellFormed},
        LoadCase{"utf-16 lone high surrogate",
                 test::Utf16WithMark(kDeclaration + "<a/>", true) + std::string("\x00\xD8", 2),
                 XmlLoadError::kNotWellFormed},
        LoadCase{"cut before last >", kWhole.substr(0, kWhole.rfind('>')),
                 XmlLoadError::kNotWellFormed},
        LoadCase{"empty file", "", XmlLoadError::kNotWellFormed},
        LoadCase{"utf-16le whole", test::Utf16WithMark(kWhole, true), XmlLoadError::kNone},
        LoadCase{"utf-16be whole", test::Utf16WithMark(kWhole, false), XmlLoadError::kNone},
        LoadCase{"utf-16 odd byte count", test::Utf16WithMark(kWhole, true) + "<",
                 XmlLoadError::kNotWellFormed},
        LoadCase{"utf-16 last unit cut",
                 test::Utf16WithMark(kWhole, true)
                     .substr(0, test::Utf16WithMark(kWhole, true).size() - 1),
                 XmlLoadError::kNotWellFormed},
        LoadCase{"utf-16 cut before last >",
                 test::Utf16WithMark(kWhole.substr(0, kWhole.rfind('>')), true),
                 XmlLoadError::kNotWellFormed}),
    test::CaseName());

using XmlLoadPlainTest = unit::LoggedTest;

TEST_F(XmlLoadPlainTest, MissingFileSaysWhy) {
    XmlLoadError why = XmlLoadError::kNone;
    LoadedXml loaded;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(LoadXmlDocument("absent.xml", loaded, &why));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "quillard: absent.xml: error: cannot read the file: No such file or directory\n");
    EXPECT_EQ(why, XmlLoadError::kCannotOpen);
}

// Every node that Mini-XML makes is paired with the place its markup starts.
TEST_F(XmlLoadPlainTest, NodeOffsetsFollowDocumentOrder) {
    const std::string text = kDeclaration + "<a x='1'><!-- c --><b/>t<?p i?><![CDATA[d]]></a>";
    test::WriteFile("nodes.xml", text);
    LoadedXml loaded;
    ASSERT_TRUE(LoadXmlDocument("nodes.xml", loaded, nullptr));
    std::vector<std::string> starts;
    for (std::uint32_t offset : loaded.nodeOffsets) {
        starts.push_back(text.substr(offset, 3));
    }
    EXPECT_EQ(starts, (std::vector<std::string>{"<?x", "<a ", "<!-", "<b/", "<?p", "<!["}));
}

// The walk that frees as it goes must see exactly what a plain walk sees, in the
// same order, and leave a document that can still be deleted whole when it stops.
TEST(WalkAndDeleteTest, VisitsInDocumentOrderAndFreesWhatItPassed) {
    const char* kNested =
        "<?xml version=\"1.0\"?><a><b>one two<c/></b><d><e><f>three</f></e></d>four<g/></a>";
    const auto describe = [](mxml_node_t* node) {
        const char* name = mxmlGetElement(node);
        return std::string(name != nullptr ? name : mxmlGetText(node, nullptr));
    };
    XmlDocument reference(mxmlLoadString(nullptr, kNested, MXML_NO_CALLBACK));
    std::vector<std::string> expected;
    for (mxml_node_t* node = mxmlWalkNext(reference.get(), reference.get(), MXML_DESCEND);
         node != nullptr; node = mxmlWalkNext(node, reference.get(), MXML_DESCEND)) {
        expected.push_back(describe(node));
    }

    XmlDocument whole(mxmlLoadString(nullptr, kNested, MXML_NO_CALLBACK));
    std::vector<std::string> visited;
    EXPECT_EQ(WalkAndDelete(whole.get(),
                            [&](mxml_node_t* node) {
                                visited.push_back(describe(node));
                                return 0;
                            }),
              0);
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(mxmlGetFirstChild(whole.get()), nullptr);

    // Stopping at "three": what was not finished stays, and nothing is visited twice.
    XmlDocument stopped(mxmlLoadString(nullptr, kNested, MXML_NO_CALLBACK));
    visited.clear();
    EXPECT_EQ(WalkAndDelete(stopped.get(),
                            [&](mxml_node_t* node) {
                                visited.push_back(describe(node));
                                return visited.back() == "three" ? 7 : 0;
                            }),
              7);
    EXPECT_EQ(visited.back(), "three");
    mxml_node_t* a = mxmlGetFirstChild(stopped.get());
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(describe(mxmlGetFirstChild(a)), "d");
    EXPECT_NE(mxmlFindElement(a, a, "g", nullptr, nullptr, MXML_DESCEND), nullptr);
}

}  // namespace
}  // namespace qk
