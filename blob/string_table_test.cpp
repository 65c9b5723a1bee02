#include "blob/string_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <random>
#include <string>
#include <vector>

#include "tests/support/logged_test.h"

namespace qk {
namespace {

class StringTableTest : public unit::LoggedTest {
  protected:
    void SetUp() override {
        unit::LoggedTest::SetUp();
        ResetStringTable();
    }
    void TearDown() override {
        ResetStringTable();
        unit::LoggedTest::TearDown();
    }
};

// The sort packs several code units into each key when they are narrow, so it is
// checked on texts of 8-, 16- and 32-bit units, with shared beginnings, prefixes
// and repeats, against wcscmp's order.
TEST_F(StringTableTest, SortsAsWcscmpDoesAndFindsEveryTextAgain) {
    std::mt19937 random(11);
    for (const wchar_t widest : {L'\x7F', L'\xFFFF', static_cast<wchar_t>(0x10FFFF)}) {
        ResetStringTable();
        std::vector<std::wstring> texts;
        for (int i = 0; i < 600; ++i) {
            std::wstring text(i % 3 == 0 ? L"shared/beginning/of/a/path/" : L"");
            for (std::size_t n = random() % 12; n > 0; --n) {
                text.push_back(static_cast<wchar_t>(1 + random() % (widest < 0x80 ? 3 : widest)));
            }
            texts.push_back(text);
            ASSERT_GE(AddToWordsArray(text.c_str()), 0);
        }
        SortStringTable();
        std::sort(texts.begin(), texts.end(), [](const std::wstring& a, const std::wstring& b) {
            return std::wcscmp(a.c_str(), b.c_str()) < 0;
        });
        texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
        ASSERT_EQ(static_cast<std::size_t>(g_iWordsArrElement), texts.size());
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(g_lpWordsArray[i].text, texts[i]) << "at " << i;
        }
    }
}

}  // namespace
}  // namespace qk
