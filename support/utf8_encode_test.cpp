#include "support/utf8_encode.h"

#include <gtest/gtest.h>

#include <string>

namespace qk {
namespace {

TEST(Utf8Test, EncodesEveryLengthAndReplacesWhatIsNoCharacter) {
    const struct {
        std::wstring text;
        std::string utf8;
    } cases[] = {
        {L"", ""},
        {L"plain ASCII", "plain ASCII"},
        {L"caf\u00e9", "caf\xC3\xA9"},
        {L"\u20ac5",
         "\xE2\x82\xAC"
         "5"},
        {{0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},  // a surrogate pair is one character
        {{0x1F600}, "\xF0\x9F\x98\x80"},         // as is the character in one unit
        {{L'a', 0xD83D, L'b'},
         "a\xEF\xBF\xBD"
         "b"},                       // lone high surrogate
        {{0xDE00}, "\xEF\xBF\xBD"},  // lone low surrogate
        {{0x110000}, "\xEF\xBF\xBD"},
        {{static_cast<wchar_t>(-1)}, "\xEF\xBF\xBD"},
        {std::wstring(3000, L'\u00e9'),
         [] {
             std::string out;
             for (int i = 0; i < 3000; ++i) {
                 out += "\xC3\xA9";
             }
             return out;
         }()},
    };
    std::string reused = "left over from an earlier line";
    for (const auto& c : cases) {
        EXPECT_EQ(EncodeUtf8(c.text.c_str()), c.utf8);
        EncodeUtf8(c.text.c_str(), reused);
        EXPECT_EQ(reused, c.utf8);
    }
    EXPECT_EQ(EncodeUtf8(nullptr), "");
}

TEST(Utf8Test, AppendAddsOneCharacter) {
    std::string out = "x";
    AppendUtf8(out, 0xE9);
    AppendUtf8(out, 0x1F600);
    AppendUtf8(out, 0xD800);
    EXPECT_EQ(out, "x\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD");
}

}  // namespace
}  // namespace qk
