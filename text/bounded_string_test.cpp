#include "text/bounded_string.h"
#include "support/utf8_encode.h"

#include <gtest/gtest.h>

#include <cwchar>

namespace qk {
namespace {

TEST(BoundedStringTest, CopiesRefuseWhatDoesNotFitAndLeaveTheDestination) {
    wchar_t wide[4] = {L'x', 0, 0, L'!'};
    EXPECT_EQ(wcscpy_s(wide, 4, L"abcd"), nullptr);
    EXPECT_EQ(wide[0], L'x');
    EXPECT_EQ(wide[3], L'!');
    EXPECT_EQ(wcscpy_s(wide, 4, L"abc"), wide);
    EXPECT_STREQ(wide, L"abc");
    EXPECT_EQ(wcscat_s(wide, 4, L"d"), nullptr);
    EXPECT_STREQ(wide, L"abc");

    char narrow[4] = "xy";
    EXPECT_EQ(apStrCpy(narrow, "abcd", sizeof narrow), nullptr);
    EXPECT_STREQ(narrow, "xy");
    EXPECT_EQ(apStrCpy(narrow, "abc", sizeof narrow), narrow);
    EXPECT_STREQ(narrow, "abc");
}

TEST(BoundedStringTest, CountedCopyPadsShortSourcesWithZeros) {
    wchar_t buffer[6] = {L'q', L'q', L'q', L'q', L'q', L'q'};
    wcsncpy_s(buffer, 6, L"ab", 5);
    EXPECT_EQ(std::wmemcmp(buffer, L"ab\0\0\0q", 6), 0);
    wcsncpy_s(buffer, 6, L"abcdefgh", 3);  // no terminator when the source is longer
    EXPECT_EQ(std::wmemcmp(buffer, L"abc\0\0q", 6), 0);
    EXPECT_EQ(wcsncpy_s(buffer, 6, L"ab", 7), nullptr);
}

TEST(BoundedStringTest, FormattingStopsAtTheCapacity) {
    wchar_t buffer[8];
    EXPECT_EQ(_snwprintf_s(buffer, 8, static_cast<std::size_t>(-1), L"%d-%ls", 42, L"ab"), 5);
    EXPECT_STREQ(buffer, L"42-ab");
    EXPECT_EQ(_snwprintf_s(buffer, 8, static_cast<std::size_t>(-1), L"%ls", L"0123456789"), -1);
    EXPECT_EQ(std::wcslen(buffer), 7u);
}

TEST(BoundedStringTest, NarrowTextIsDecodedAsUtf8) {
    UseUtf8CharacterType();  // as every run does at its start
    wchar_t buffer[16];
    EXPECT_EQ(_snwprintf_s(buffer, 16, static_cast<std::size_t>(-1), L"%%%5s|%c", "h\xc3\xa9", 'x'),
              8);
    EXPECT_STREQ(buffer, L"%   h\u00e9|x");
}

TEST(BoundedStringTest, PrintableUnitsOnly) {
    EXPECT_EQ(Towchar_t(31), L' ');
    EXPECT_EQ(Towchar_t(127), L' ');
    EXPECT_EQ(Towchar_t(65), L'A');
    EXPECT_EQ(apStrCmp("a", "a"), 0);
    EXPECT_LT(apStrCmp("-u", "-user"), 0);
}

}  // namespace
}  // namespace qk
