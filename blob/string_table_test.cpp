#include "blob/string_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/fatal_exit.h"
#include "tests/support/blob_test.h"

namespace qk::unit {
namespace {

class StringTableTest : public BlobTest {
  protected:
    // Offers texts, builds an image holding only them and returns the Words table.
    std::vector<DecodedWord> WordsOf(std::initializer_list<const wchar_t*> texts) {
        for (const wchar_t* text : texts) {
            AddToWordsArray(text);
        }
        DecodedBlob blob = Build();
        EXPECT_TRUE(blob.ok()) << (blob.errors.empty() ? "" : blob.errors.front());
        return blob.words;
    }
};

TEST_F(StringTableTest, DuplicatesLeaveOneEntryButEveryOfferIsCopied) {
    const int before = g_iMalloced;
    EXPECT_EQ(AddToWordsArray(L"alpha"), 1);
    EXPECT_EQ(AddToWordsArray(L"alpha"), 0);  // the index of the equal entry
    EXPECT_EQ(AddToWordsArray(L"beta"), 2);
    EXPECT_EQ(AddToWordsArray(L"gamma"), 3);
    EXPECT_EQ(AddToWordsArray(L"beta"), 1);
    EXPECT_EQ(g_iWordsArrElement, 3);
    EXPECT_EQ(g_iMalloced - before, 5);
}

TEST_F(StringTableTest, LongestStringCountsDuplicatesAndNeverShrinks) {
    AddToWordsArray(L"abcdef");
    AddToWordsArray(L"ab");
    EXPECT_EQ(g_iLongestString, 6);
    AddToWordsArray(L"abcdefgh");
    AddToWordsArray(L"abcdefgh");
    EXPECT_EQ(g_iLongestString, 8);
}

TEST_F(StringTableTest, ArrayGrowsFromTenByDoubling) {
    const struct {
        int distinct;
        int allocated;
    } cases[] = {{1, 10}, {10, 10}, {11, 20}, {20, 20}, {21, 40}, {41, 80}};
    int offered = 0;
    for (const auto& c : cases) {
        while (offered < c.distinct) {
            AddToWordsArray(std::to_wstring(offered++).c_str());
            AddToWordsArray(L"0");  // a duplicate never takes room
        }
        EXPECT_EQ(g_iWordsArrElement, c.distinct);
        EXPECT_EQ(g_iWordsArrAllocated, c.allocated) << "after " << c.distinct << " texts";
    }
}

TEST_F(StringTableTest, SortsByCodeUnitsWithPrefixesFirst) {
    const struct {
        std::vector<const wchar_t*> offered;
        std::vector<std::wstring> sorted;
    } cases[] = {
        {{L"b", L"a", L"ab"}, {L"a", L"ab", L"b"}},
        {{L"abc", L"ab", L"abd", L"a"}, {L"a", L"ab", L"abc", L"abd"}},
        {{L"a", L"Z", L"_", L"0"}, {L"0", L"Z", L"_", L"a"}},
        {{L"\u00e9t\u00e9", L"zz", L"\U0001F600", L"ete"},
         {L"ete", L"zz", L"\u00e9t\u00e9", L"\U0001F600"}},
    };
    for (const auto& c : cases) {
        ResetStringTable();
        for (const wchar_t* text : c.offered) {
            AddToWordsArray(text);
        }
        SortStringTable();
        ASSERT_EQ(g_iWordsArrElement, static_cast<int>(c.sorted.size()));
        for (std::size_t i = 0; i < c.sorted.size(); ++i) {
            EXPECT_EQ(std::wstring(g_lpWordsArray[i].text), c.sorted[i]) << "entry " << i;
        }
    }
}

// Texts that share long beginnings of odd and even lengths, are prefixes of one
// another, or hold units whose sign bit is set: the order is int_cmp's, whether
// the list's units all fit in 8 bits, in 16, or need all 32.
TEST_F(StringTableTest, SortAgreesWithIntCmpOnSharedBeginnings) {
    const std::wstring alphabets[] = {
        {L'a', L'b', L'/', L'\u00e9', L'\u00ff'},
        {L'a', L'b', L'/', L'\u00e9', L'\u4e2d', L'\uffff'},
        {L'a', L'b', L'/', L'\u00e9', static_cast<wchar_t>(0x10FFFF), static_cast<wchar_t>(-5)},
    };
    for (const std::wstring& alphabet : alphabets) {
        ResetStringTable();
        std::mt19937 random(7);
        std::vector<std::wstring> offered;
        for (int i = 0; i < 3000; ++i) {
            std::wstring text =
                i % 3 == 0 ? L"programs/vendor/" : (i % 3 == 1 ? L"programs/v" : L"");
            const std::size_t length = random() % 19;
            for (std::size_t at = 0; at < length; ++at) {
                text.push_back(alphabet[random() % alphabet.size()]);
            }
            offered.push_back(text);
            AddToWordsArray(text.c_str());
        }
        SortStringTable();
        std::sort(offered.begin(), offered.end(), [](const std::wstring& a, const std::wstring& b) {
            return int_cmp(a.c_str(), b.c_str()) < 0;
        });
        offered.erase(std::unique(offered.begin(), offered.end()), offered.end());
        ASSERT_EQ(g_iWordsArrElement, static_cast<int>(offered.size()));
        for (std::size_t i = 0; i < offered.size(); ++i) {
            ASSERT_EQ(std::wstring(g_lpWordsArray[i].text), offered[i])
                << "entry " << i << " of alphabet " << static_cast<int>(alphabet.back());
        }
    }
}

TEST_F(StringTableTest, SortLogsEverySortedText) {
    AddToWordsArray(L"b");
    AddToWordsArray(L"a");
    SortStringTable();
    EXPECT_EQ(Log(),
              "START, SortStringTable.\n"
              "PrintAll 0: - a\n"
              "PrintAll 1: - b\n"
              "DONE print All\n"
              "DONE, SortStringTable.\n");
}

TEST_F(StringTableTest, OneLetterAndTwoLetterTextsLayOutAsDocumented) {
    auto words = WordsOf({L"b", L"a", L"ab"});
    ASSERT_EQ(words.size(), 4u);
    const struct {
        std::uint32_t position;
        std::wstring text;
    } expected[] = {{0, L""}, {1, L"a"}, {2, L"ab"}, {4, L"b"}};
    for (std::size_t i = 0; i < words.size(); ++i) {
        EXPECT_EQ(words[i].position, expected[i].position);
        EXPECT_EQ(words[i].text, expected[i].text);
    }
    EXPECT_EQ(reinterpret_cast<const BlobHeader*>(g_lpBlob)->nWordsUnits, 5u);
    const struct {
        const wchar_t* text;
        std::uint32_t pos;
        std::uint32_t len;
    } refs[] = {{L"a", 1, 8}, {L"ab", 2, 12}, {L"b", 4, 8}, {L"", 0, 4}, {nullptr, 0, 4}};
    for (const auto& r : refs) {
        const StringRef ref = FindStrings(r.text);
        EXPECT_EQ(ref.pos, r.pos);
        EXPECT_EQ(ref.len, r.len);
    }
}

TEST_F(StringTableTest, EmptyTextIsStoredTwiceButLooksUpAtZero) {
    auto words = WordsOf({L"z", L""});
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(words[0].text, L"");
    EXPECT_EQ(words[1].position, 1u);
    EXPECT_EQ(words[1].text, L"");
    EXPECT_EQ(words[2].position, 2u);
    EXPECT_EQ(FindStrings(L"").pos, 0u);
    EXPECT_EQ(FindStrings(L"").len, 4u);
    EXPECT_EQ(g_strsEmptyString.pos, 0u);
    EXPECT_EQ(g_strsEmptyString.len, 4u);
}

TEST_F(StringTableTest, TextSizesInUnitsAndBytes) {
    auto words = WordsOf({L"abc", L"abcd", L"x"});
    // "" 1 unit, "abc" 2 units, "abcd" 3 units, "x" 1 unit.
    ASSERT_EQ(words.size(), 4u);
    EXPECT_EQ(FindStrings(L"abc").pos, 1u);
    EXPECT_EQ(FindStrings(L"abc").len, 16u);
    EXPECT_EQ(FindStrings(L"abcd").pos, 3u);
    EXPECT_EQ(FindStrings(L"abcd").len, 20u);
    EXPECT_EQ(FindStrings(L"x").pos, 6u);
    // Padding after an even-length text is zero.
    const std::uint8_t* padding = g_lpBlob + PositionToByte(3) + 20;
    EXPECT_EQ(std::vector<std::uint8_t>(padding, padding + 4), std::vector<std::uint8_t>(4, 0));
}

TEST_F(StringTableTest, LookupIsExact) {
    WordsOf({L"Alpha", L"beta"});
    for (const wchar_t* text : {L"alpha", L"ALPHA", L"Alpha ", L"Alph", L"gamma"}) {
        EXPECT_EQ(FindStrings(text).pos, 0u) << Narrow(text);
        EXPECT_EQ(FindStrings(text).len, 4u);
    }
    EXPECT_NE(FindStrings(L"Alpha").pos, 0u);
}

TEST_F(StringTableTest, TextAtPositionReadsTheCurrentImage) {
    EXPECT_EQ(GetWordsViaOffset(0), nullptr);  // no image yet
    WordsOf({L"hello"});
    EXPECT_STREQ(GetWordsViaOffset(1), L"hello");
    EXPECT_STREQ(GetWordsViaOffset(0), L"");
    EXPECT_EQ(GetWordsViaOffset(-1), nullptr);
    EXPECT_EQ(GetWordsViaOffset(0x40000), nullptr);
    // The last whole code unit of the zero image still reads as an empty text.
    EXPECT_NE(GetWordsViaOffset(131059), nullptr);
    EXPECT_EQ(GetWordsViaOffset(131060), nullptr);
}

TEST_F(StringTableTest, PrintStringsLine) {
    WordsOf({L"hello"});
    ResetProgressLog();
    SetCreateLog(1);
    ProgressLog(L"", 1);
    PrintStrings(1, 24, L"Label");
    PrintStrings(0x40000, 4, L"Far");
    EXPECT_EQ(Log(),
              "Label: - offset:- 1, length:- 24, content:- hello\n"
              "Far: - offset:- 262144, length:- 4, content:- \n");
}

TEST_F(StringTableTest, TextsBeyondTheImageEndTheRunWithoutWriting) {
    // Two texts of 140000 characters take 70001 units each, more than the image holds.
    std::wstring first(140000, L'a');
    std::wstring second(140000, L'b');
    AddToWordsArray(first.c_str());
    AddToWordsArray(second.c_str());
    try {
        CreateCompact();
        FAIL() << "the build should stop";
    } catch (const FatalExit& exit) {
        EXPECT_EQ(exit.status, 255);
    }
    EXPECT_NE(Log().find("ERROR, CreateCompact, the blob would outgrow its limit of 0xFFFFF "
                         "bytes at the text \"bbbb"),
              std::string::npos);
}

}  // namespace
}  // namespace qk::unit
