#include "text/utf8_decode.h"

#include <gtest/gtest.h>

#include <string>

namespace qk {
namespace {

// Each sequence decodes to its code point and moves past itself, or is refused
// (-1) with the position left where it was.
TEST(Utf8Decode, TakesOnlyStrictSequences) {
    struct Case {
        std::string bytes;
        long point;
        std::size_t length;
    };
    for (const Case& c : {
             Case{"A", 0x41, 1},
             Case{"\x7F", 0x7F, 1},
             Case{"\xC2\x80", 0x80, 2},
             Case{"\xDF\xBF", 0x7FF, 2},
             Case{"\xE0\xA0\x80", 0x800, 3},
             Case{"\xEF\xBF\xBD", 0xFFFD, 3},
             Case{"\xF0\x90\x80\x80", 0x10000, 4},
             Case{"\xF4\x8F\xBF\xBF", 0x10FFFF, 4},
             Case{"\x80", -1, 0},  // a continuation byte cannot lead
             Case{"\xBF", -1, 0},
             Case{"\xF8\x88\x80\x80\x80", -1, 0},  // five-byte forms are gone
             Case{"\xFF", -1, 0},
             Case{"\xC0\x80", -1, 0},  // overlong
             Case{"\xE0\x9F\xBF", -1, 0},
             Case{"\xF0\x8F\xBF\xBF", -1, 0},
             Case{"\xED\xA0\x80", -1, 0},      // a surrogate
             Case{"\xF4\x90\x80\x80", -1, 0},  // beyond U+10FFFF
             Case{"\xC3", -1, 0},              // cut by the end
             Case{"\xE2\x82", -1, 0},
             Case{"\xC3(", -1, 0},  // a continuation byte missing
         }) {
        std::size_t at = 0;
        EXPECT_EQ(DecodeUtf8(c.bytes, at), c.point) << testing::PrintToString(c.bytes);
        EXPECT_EQ(at, c.length) << testing::PrintToString(c.bytes);
    }
}

TEST(Utf8Decode, WidensForTheLogWithReplacements) {
    EXPECT_EQ(WidenForLog("caf\xC3\xA9"), L"caf\xE9");
    EXPECT_EQ(WidenForLog("a\xFF"
                          "b\xE2\x82"),
              L"a\xFFFD"
              L"b\xFFFD\xFFFD");
    EXPECT_EQ(WidenForLog(nullptr), L"");
    EXPECT_EQ(WidenForLog("abcdef", 3), L"abc");
}

}  // namespace
}  // namespace qk
