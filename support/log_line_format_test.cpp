#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cwchar>
#include <string>
#include <vector>

#include "support/log_line_format.h"
#include "support/utf8_encode.h"

namespace qk {
namespace {

struct Formatted {
    bool quick = false;
    std::wstring quickText;
    std::wstring reference;
};

// Both formatters on the same arguments and bound; the reference is what the
// log held before (vswprintf, cut at the bound when it fails).
Formatted Both(std::size_t bound, const wchar_t* format, ...) {
    Formatted result;
    std::vector<wchar_t> quick(bound + 8, L'#');
    std::vector<wchar_t> reference(bound + 8, L'#');
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    result.quick = FormatLogLine(quick.data(), bound, format, arguments);
    UseUtf8CharacterType();
    if (std::vswprintf(reference.data(), bound, format, again) < 0) {
        reference[bound - 1] = L'\0';
    }
    va_end(again);
    va_end(arguments);
    if (result.quick) {
        result.quickText = quick.data();
    }
    result.reference = reference.data();
    return result;
}

void ExpectSame(const Formatted& formatted) {
    ASSERT_TRUE(formatted.quick);
    EXPECT_EQ(formatted.quickText, formatted.reference);
}

TEST(LogFormatTest, NumbersMatchTheLibraryForEveryWidthAndSize) {
    ExpectSame(Both(4096, L"g_iMalloced = %d\n", 39188));
    ExpectSame(Both(4096, L"%d %d %d", 0, -1, INT_MIN));
    ExpectSame(Both(4096, L"%d", INT_MAX));
    ExpectSame(Both(4096, L"[%3d] [%3d] [%3d] [%3d]", 7, -7, 1234, -12));
    ExpectSame(Both(4096, L"%u %u", 0U, UINT_MAX));
    ExpectSame(Both(4096, L"%8X|%8X|%X|%x", 0xABCU, 0xFFFFFFFFU, 0U, 0xbeefU));
    ExpectSame(Both(4096, L"%ld %ld", LONG_MIN, 1234567890123L));
    ExpectSame(Both(4096, L"%llu", ULLONG_MAX));
    ExpectSame(Both(4096, L"100%% of %d%%", 3));
}

TEST(LogFormatTest, TextsMatchTheLibrary) {
    ExpectSame(Both(4096, L"attribute #%d: - %ls/%ls\n", 2, L"Path", L"programs/a b/bin"));
    ExpectSame(Both(4096, L"[%ls][%ls]", L"", L"\x00e9\xd83d\xde00"));
    ExpectSame(Both(4096, L"XML node Text, 1: - %s\n", "application"));
    ExpectSame(Both(4096, L"%s|%s", "", "tab\there"));
    ExpectSame(
        Both(4096, L"ASCII --- %lc%lc", static_cast<wint_t>(L'Q'), static_cast<wint_t>(0x263A)));
    ExpectSame(Both(4096, L"no conversion at all\n"));
    ExpectSame(Both(4096, L"[%s] [%12s]", "caf\xc3\xa9", "\xe2\x82\xac\xf0\x9f\x98\x80"));
}

// Where the library gives up on narrow text that is not UTF-8 (a file name in
// another encoding), each byte that does not decode stands as U+FFFD.
TEST(LogFormatTest, NarrowTextThatIsNotUtf8KeepsItsLine) {
    struct Case {
        const char* text;
        const wchar_t* line;
    };
    for (const Case& c : {
             Case{"\xff", L"ERROR, read error: - \xfffd\n"},
             Case{"a\xc3(b", L"ERROR, read error: - a\xfffd(b\n"},
             Case{"cut \xe2\x82", L"ERROR, read error: - cut \xfffd\xfffd\n"},
         }) {
        const Formatted formatted = Both(4096, L"ERROR, read error: - %s\n", c.text);
        ASSERT_TRUE(formatted.quick) << c.text;
        EXPECT_EQ(formatted.quickText, c.line) << c.text;
    }
}

TEST(LogFormatTest, ATextLongerThanTheBoundIsCutLikeTheLibrary) {
    const std::wstring longText(5000, L'w');
    ExpectSame(Both(4096, L"Text node found: - %ls\n", longText.c_str()));
    ExpectSame(Both(8, L"%d%d", 12345, 67890));
    ExpectSame(Both(8, L"%8X", 0x1U));
    ExpectSame(Both(8, L"1234567"));
    ExpectSame(Both(8, L"12345678"));
    ExpectSame(Both(1, L"%ls", L"x"));
}

TEST(LogFormatTest, AnythingElseIsLeftToTheLibrary) {
    wchar_t out[64];
    const auto quick = [&out](const wchar_t* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const bool taken = FormatLogLine(out, 64, format, arguments);
        va_end(arguments);
        return taken;
    };
    EXPECT_FALSE(quick(L"%ls", static_cast<const wchar_t*>(nullptr)));
    EXPECT_FALSE(quick(L"%s", static_cast<const char*>(nullptr)));
    EXPECT_FALSE(quick(L"%1c", 'a'));
    EXPECT_FALSE(quick(L"%-3d", 1));
    EXPECT_FALSE(quick(L"%08X", 1U));
    EXPECT_FALSE(quick(L"%.2f", 1.0));
    EXPECT_FALSE(quick(L"%p", static_cast<void*>(out)));
}

}  // namespace
}  // namespace qk
