// The word list's index and sort at sizes that make the index grow many times
// and with texts that share long prefixes, checked against plain scans.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "blob/string_table.h"
#include "tests/support/blob_test.h"

namespace qk::unit {
namespace {

class WordIndexTest : public BlobTest {};

std::vector<std::wstring> ManyTexts() {
    std::vector<std::wstring> texts;
    for (int i = 0; i < 3000; ++i) {
        std::wstring number = std::to_wstring(i);
        texts.push_back(L"programs/" + std::wstring(number.rbegin(), number.rend()) + L"/bin");
        texts.push_back(L"P" + number);
    }
    // Short texts, texts that are prefixes of others, and units beyond 16 bits.
    for (const wchar_t* text : {L"P", L"p", L"programs", L"programs/", L"\u00e9", L"\U0001F600",
                                L"\U0001F600a", L"\xFFFF", L"\x10FFFF\x41", L"a\x10FFFF"}) {
        texts.emplace_back(text);
    }
    return texts;
}

TEST_F(WordIndexTest, EveryRepeatFindsItsEntryWhileTheIndexGrows) {
    const auto texts = ManyTexts();
    for (std::size_t i = 0; i < texts.size(); ++i) {
        ASSERT_EQ(AddToWordsArray(texts[i].c_str()), static_cast<int>(i) + 1);
    }
    for (std::size_t i = 0; i < texts.size(); i += 97) {
        EXPECT_EQ(AddToWordsArray(texts[i].c_str()), static_cast<int>(i))
            << Narrow(texts[i].c_str());
        // A text one unit shorter or longer is a different text.
        const std::wstring longer = texts[i] + L"x";
        EXPECT_EQ(AddToWordsArray(longer.c_str()), g_iWordsArrElement);
    }
}

TEST_F(WordIndexTest, LookupsAfterTheBuildGiveEachTextsOwnPlace) {
    const auto texts = ManyTexts();
    for (const auto& text : texts) {
        AddToWordsArray(text.c_str());
    }
    ASSERT_TRUE(Build().ok());
    for (const auto& text : texts) {
        const StringRef ref = FindStrings(text.c_str());
        const wchar_t* stored = GetWordsViaOffset(static_cast<std::int32_t>(ref.pos));
        ASSERT_NE(stored, nullptr);
        EXPECT_EQ(std::wstring(stored), text);
        EXPECT_EQ(ref.len, 4 * text.size() + 4);
    }
    EXPECT_EQ(FindStrings(L"programs/0/bi").pos, 0u);
}

}  // namespace
}  // namespace qk::unit
