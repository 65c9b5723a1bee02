#include "text/value_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/logged_test.h"

namespace qk {
namespace {

class ValueTextTest : public unit::LoggedTest {};

TEST_F(ValueTextTest, DwordText) {
    struct Case {
        const wchar_t* text;
        int result;
        std::uint32_t value;
        std::string log;
    };
    const Case cases[] = {
        {L"", 0, 0, ""},
        {L"0x1F", 0, 0x1F, ""},
        {L"0xb2d05e00", 0, 0xB2D05E00, ""},
        {L"0X1F", 0, 0, ""},  // upper-case X is not hex: decimal without digits
        {L"0x123456789", 0, 0x23456789, ""},
        {L"0xFFFFFFFFFF", 0, 0xFFFFFFFF, ""},
        {L"-1", 0, 0xFFFFFFFF, ""},
        {L"3000000000", 0, 2147483647, ""},
        {L"4294967296", 0, 2147483647, ""},
        {L"-3000000000", 0, 0x80000000, ""},
        {L"12abc", 0, 12, ""},
        {L"  42", 0, 42, ""},
        {L"0x", -1, 7, "ERROR, Invalid Hex string, too short.\n"},
        {L"0x12G4", -1, 7, "StringToDword ERROR: Invalid character for Hex string.\n"},
        {L"0x0000000000000000000000000000001", 0, 1, ""},  // 31 digits
        {L"0x00000000000000000000000000000001", -1, 7,
         "ERROR, Hex string longer than 31 digits.\n"},
    };
    for (const auto& c : cases) {
        ResetProgressLog();
        SetCreateLog(1);
        ProgressLog(L"", 1);
        std::uint32_t value = 7;
        EXPECT_EQ(StringToDword(c.text, &value), c.result) << ::testing::PrintToString(c.text);
        EXPECT_EQ(value, c.value) << ::testing::PrintToString(c.text);
        EXPECT_EQ(Log(), c.log) << ::testing::PrintToString(c.text);
    }
}

TEST_F(ValueTextTest, QwordText) {
    struct Case {
        const wchar_t* text;
        int result;
        std::uint64_t value;
    };
    const Case cases[] = {
        {L"0x0000000100000002", 0, 0x0000000100000002ull},
        {L"0x1234567890ABCDEF12", 0, 0x567890ABCDEF12ull | (0x34ull << 56)},
        {L"-1", 0, ~0ull},
        {L"99999999999999999999", 0, 9223372036854775807ull},
        {L"-99999999999999999999", 0, 0x8000000000000000ull},
        {L"4294967296", 0, 4294967296ull},
        {L"0x", -1, 5},
        {L"0xZ", -1, 5},
    };
    for (const auto& c : cases) {
        std::uint64_t value = 5;
        EXPECT_EQ(StringToQword(c.text, &value), c.result) << ::testing::PrintToString(c.text);
        EXPECT_EQ(value, c.value) << ::testing::PrintToString(c.text);
    }
}

TEST_F(ValueTextTest, EmptyTextFailsSilentlyOnlyForTheBinaryEntryPoints) {
    std::uint32_t dword = 9;
    std::uint64_t qword = 9;
    EXPECT_EQ(DwordToBinary(L"", &dword), -1);
    EXPECT_EQ(QwordToBinary(L"", &qword), -1);
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(DwordToBinary(L"0x10", &dword), 0);
    EXPECT_EQ(dword, 0x10u);
    EXPECT_EQ(QwordToBinary(L"0x10", &qword), 0);
    EXPECT_EQ(qword, 0x10u);
}

TEST_F(ValueTextTest, BinaryText) {
    struct Case {
        const wchar_t* text;
        int result;
        std::vector<std::uint32_t> words;  // those converted before any failure
        std::string log;
    };
    const Case cases[] = {
        {L"0x1,0x2", 2, {1, 2}, ""},
        {L"0x01,0xFF,0x7f", 3, {1, 255, 127}, ""},
        {L"0x01,,0x02,", 2, {1, 2}, ""},
        {L"0x", 0, {}, ""},
        {L"0x01, 0x02",
         -1,
         {1},
         "ERROR, Improperly formed Hex string.\nTextToBinary: string conversion failed.\n"},
        {L"0x01,0x",
         -1,
         {1},
         "ERROR, Invalid Hex string, too short.\nTextToBinary: string conversion failed.\n"},
        {L"0x123",
         -1,
         {},
         "Hex string too long, not supported\nTextToBinary: string conversion failed.\n"},
        {L"0xG1",
         -1,
         {},
         "invalid character, not supported\nTextToBinary: string conversion failed.\n"},
    };
    for (const auto& c : cases) {
        ResetProgressLog();
        SetCreateLog(1);
        ProgressLog(L"", 1);
        std::uint32_t* words = nullptr;
        EXPECT_EQ(TextToBinary(c.text, &words), c.result) << ::testing::PrintToString(c.text);
        for (std::size_t i = 0; i < c.words.size(); ++i) {
            ASSERT_NE(words, nullptr);
            EXPECT_EQ(words[i], c.words[i]) << ::testing::PrintToString(c.text) << " word " << i;
        }
        EXPECT_EQ(Log(), c.log) << ::testing::PrintToString(c.text);
    }
}

TEST_F(ValueTextTest, BinaryTextLongerThanTheWorkingCopyIsRefused) {
    std::wstring text = L"0x01";
    while (text.size() < 16384)
        text += L",0x01";
    std::uint32_t* words = nullptr;
    EXPECT_EQ(TextToBinary(text.c_str(), &words), -1);
    EXPECT_NE(Log().find("ERROR, Binary value text longer than 16383 characters.\n"),
              std::string::npos);
}

TEST_F(ValueTextTest, BooleanWordsAreExact) {
    const std::pair<const wchar_t*, int> words[] = {
        {L"Enabled", 1},  {L"True", 1},  {L"On", 1},  {L"1", 1},
        {L"Disabled", 0}, {L"False", 0}, {L"Off", 0}, {L"0", 0},
    };
    for (const auto& [text, expected] : words) {
        int value = -1;
        EXPECT_EQ(TextToBoolean(text, &value), 0);
        EXPECT_EQ(value, expected);
    }
    int value = -1;
    EXPECT_EQ(TextToBoolean(L"true", &value), -1);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(Log(), "Boolean conversion error: Unknown string: - true.\n");
}

// What the printers write is checked through the reverse conversion; here only
// what it cannot reach.
TEST_F(ValueTextTest, PrintersLeaveTooSmallBuffersAlone) {
    wchar_t small[9] = L"unchange";
    WSPrintDWORD(1, small, 8);
    EXPECT_STREQ(small, L"unchange");
    const std::uint8_t bytes[] = {1, 255, 16};
    wchar_t tooSmall[15] = {};
    WSPrintBinary(bytes, 3, tooSmall, 15);
    EXPECT_STREQ(tooSmall, L"");
    EXPECT_EQ(HexChar(16), L'0');  // not a digit
}

}  // namespace
}  // namespace qk
