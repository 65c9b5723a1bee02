#include "text/wide_string.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/logged_test.h"

namespace qk {
namespace {

class WideStringTest : public unit::LoggedTest {};

TEST_F(WideStringTest, WidensUtf8OneUnitPerUtf16Unit) {
    struct Case {
        const char* narrow;
        std::wstring wide;
    };
    const Case cases[] = {
        {"", L""},
        {"Cafe", L"Cafe"},
        {"\xC3\xA9", std::wstring(1, wchar_t(0xE9))},
        // Beyond U+FFFF: the two surrogates, as UTF-16 holds them.
        {"\xF0\x9F\x98\x80", std::wstring{wchar_t(0xD83D), wchar_t(0xDE00)}},
        {"a\xE2\x82\xAC"
         "b",
         std::wstring{L'a', wchar_t(0x20AC), L'b'}},
    };
    for (const auto& c : cases) {
        const wchar_t* wide = chartowc(c.narrow);
        ASSERT_NE(wide, nullptr) << c.narrow;
        EXPECT_EQ(std::wstring(wide), c.wide) << c.narrow;
    }
}

TEST_F(WideStringTest, RefusesWhatIsNotUtf8) {
    const char* bad[] = {
        "\xC3",              // cut sequence
        "\xFF",              // never a lead byte
        "\xC0\xAF",          // overlong
        "\xED\xA0\x80",      // a surrogate encoded on its own
        "\xF4\x90\x80\x80",  // beyond U+10FFFF
        "ok\x80",            // stray continuation byte
    };
    for (const char* text : bad) {
        EXPECT_EQ(chartowc(text), nullptr) << ::testing::PrintToString(text);
    }
    EXPECT_EQ(chartowc(nullptr), nullptr);
    EXPECT_EQ(MakeWc(nullptr), nullptr);
}

TEST_F(WideStringTest, RefusesMoreThan8192Utf16Units) {
    EXPECT_NE(chartowc(std::string(8192, 'x').c_str()), nullptr);
    EXPECT_EQ(chartowc(std::string(8193, 'x').c_str()), nullptr);
    // 4096 characters beyond U+FFFF are exactly 8192 units.
    std::string pairs;
    for (int i = 0; i < 4096; ++i)
        pairs += "\xF0\x9F\x98\x80";
    EXPECT_NE(chartowc(pairs.c_str()), nullptr);
    EXPECT_EQ(chartowc((pairs + "x").c_str()), nullptr);
}

TEST_F(WideStringTest, NarrowingDropsWhatIsNotSevenBitAndLogsIt) {
    const wchar_t text[] = {0x43, 0x61, 0x66, 0xE9, 0};
    EXPECT_STREQ(wctochar(text), "Caf");
    EXPECT_EQ(Log(), "ERROR, wctochar:- unable to convert to regular char - \xC3\xA9\n");
    EXPECT_EQ(wctochar(nullptr), nullptr);
}

TEST_F(WideStringTest, EveryConversionIsOneTrackedBlock) {
    const int before = g_iMalloced;
    chartowc("abc");
    wctochar(L"abc");
    TrackedCopy(L"abc");
    EXPECT_EQ(g_iMalloced, before + 3);
    EXPECT_EQ(TrackedCopy(nullptr), nullptr);
}

}  // namespace
}  // namespace qk
