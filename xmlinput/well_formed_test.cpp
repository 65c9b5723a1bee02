#include "xmlinput/well_formed.h"

#include <gtest/gtest.h>

#include <string>

namespace qk {
namespace {

struct SyntaxCase {
    const char* text;
    std::size_t offset;    // where the error is reported; kGood for a good text
    const char* fragment;  // a part of its message
};

constexpr std::size_t kGood = static_cast<std::size_t>(-1);

// An element with count attributes, a0="v" a1="v" ...
std::string WithAttributes(int count) {
    std::string text = "<e";
    for (int i = 0; i < count; ++i) {
        text += " a" + std::to_string(i) + "=\"v\"";
    }
    return text + "/>";
}

// Each broken text names the place where it goes wrong (not where a parser
// would give up), and each good one passes.
TEST(WellFormed, FindsThePlaceWhereTheTextGoesWrong) {
    const std::string most = WithAttributes(64);
    const std::string tooMany = WithAttributes(65);
    for (const SyntaxCase& c : {
             SyntaxCase{"<a b='1' c=\"&lt;&#x41;&#65;\"><![CDATA[<]]><!-- - --><?p x?></a>", kGood,
                        ""},
             SyntaxCase{"<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\"?><a/>", kGood,
                        ""},
             SyntaxCase{"<a>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</a>", kGood, ""},
             SyntaxCase{"", 0, "no root element"},
             SyntaxCase{"<?xml version=\"1.0\"?>", 21, "no root element"},
             SyntaxCase{"<a></a><b/>", 7, "second root"},
             SyntaxCase{"<a b=\"<\"/>", 6, "'<' is not allowed"},
             SyntaxCase{"<a b=1/>", 5, "quotes"},
             SyntaxCase{"<a b='1'c='2'/>", 8, "expected '>'"},
             SyntaxCase{"<a b='1' b='2'/>", 9, "given twice"},
             SyntaxCase{"<a><?xml version='1.0'?></a>", 3, "XML declaration"},
             SyntaxCase{"<1bad/>", 0, "'<' must start a tag"},
             SyntaxCase{"<a>x ]]> y</a>", 5, "']]>'"},
             SyntaxCase{"<a><!-- a -- b --></a>", 10, "'--'"},
             SyntaxCase{"<a>&nbsp;</a>", 3, "unknown entity"},
             SyntaxCase{"<a>&#0;</a>", 3, "character reference"},
             SyntaxCase{"<a>AT&T</a>", 5, "'&'"},
             SyntaxCase{"<a><b></a>", 6, "does not match <b>"},
             SyntaxCase{"<a>\n<b x='1'\n<c/></b></a>", 12, "missing '>'"},
             SyntaxCase{"<a>1 < 2</a>", 5, "'<' must start a tag"},
             SyntaxCase{"<!DOCTYPE a><a/>", 0, "document type"},
             SyntaxCase{"<a>\x01</a>", 3, "U+0001"},
             SyntaxCase{"<a\xC3/>", 2, "cut short"},
             SyntaxCase{"<a>\xC0\xAF</a>", 3, "more bytes"},
             SyntaxCase{"<a>\xED\xA0\x80</a>", 3, "U+D800"},
             SyntaxCase{"<a><!-- \xFF --></a>", 8, "does not start"},
             SyntaxCase{"<a>", 0, "not closed"},
             SyntaxCase{"<?xml version=\"2.0\"?><a/>", 15, "version is not valid"},
             SyntaxCase{"<?xml version=1.0?><a/>", 14, "must be quoted"},
             SyntaxCase{"<?xml encoding=\"UTF-8\"?><a/>", 6, "must begin with its version"},
             SyntaxCase{most.c_str(), kGood, ""},
             SyntaxCase{tooMany.c_str(), most.size() - 1, "more than 64 attributes"},
         }) {
        std::vector<std::uint32_t> nodes;
        XmlSyntaxError error;
        const bool good = CheckWellFormed(c.text, nodes, error);
        EXPECT_EQ(good, c.offset == kGood) << c.text << ": " << error.message;
        if (!good && c.offset != kGood) {
            EXPECT_EQ(error.offset, c.offset) << c.text << ": " << error.message;
            EXPECT_NE(error.message.find(c.fragment), std::string::npos)
                << c.text << ": " << error.message;
        }
    }
}

}  // namespace
}  // namespace qk
