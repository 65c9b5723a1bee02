#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "blob/blob_format.h"

namespace qk {

// One text of the word list and, once the Words table is written, where it stands.
struct WordEntry {
    wchar_t* text;  // tracked copy
    StringRef ref;
    std::uint32_t length;  // of text, in code units, so that it is counted once
};

// The word list: every distinct text the tree stores, in offer order until
// SortStringTable, ascending afterwards. Entries in use: g_iWordsArrElement;
// room: g_iWordsArrAllocated (grown 10, 20, 40, ...).
extern std::vector<WordEntry> g_lpWordsArray;
extern int g_iWordsArrElement;
extern int g_iWordsArrAllocated;
// Longest text ever offered, in code units (duplicates included).
extern int g_iLongestString;
// StringRef of the empty string that opens the Words table: {0, 4} once written.
extern StringRef g_strsEmptyString;
// Where the next Words-table text is written.
extern std::uint8_t* g_lpWordsPtr;

// Offers a text that the tree stores; every distinct text is written once.
// -1 for a null text; when the list cannot grow, std::bad_alloc ends the run.
int AddToWordsArray(const wchar_t* text);
// The same for a text whose length (in code units) the caller already knows.
int AddToWordsArray(const wchar_t* text, std::size_t length);

// Sorts the list's texts in place (ascending code units) and logs them.
void SortStringTable();
// The sort's order: that of wcscmp. Not called by the tool itself (the sort
// compares keys); kept for its documented role.
int int_cmp(const wchar_t* left, const wchar_t* right);
void PrintAll(const wchar_t* const* texts, int count);

int WordsInitialise();
StringRef WordsAdd(const wchar_t* text);
StringRef WordsAdd(const wchar_t* text, std::size_t length);
// The StringRef under which text is stored; the empty string's for an absent,
// empty or unknown text.
StringRef FindStrings(const wchar_t* text);

// The text at a Words position of the current image; null when there is none.
const wchar_t* GetWordsViaOffset(std::int32_t position);
// Logs "<label>: - offset:- <pos>, length:- <len>, content:- <text>".
void PrintStrings(std::uint32_t position, std::uint32_t length, const wchar_t* label);

// Forgets the list, its index and the Words cursor (between runs in tests).
void ResetStringTable();

}  // namespace qk
