#pragma once

#include <cstdint>

#include "blob/blob_format.h"

namespace qk {

// StringRef of the empty string that opens the Words table: {0, 4} once written.
extern StringRef g_strsEmptyString;

// Offers a text that the tree stores; every distinct text is written once.
// -1 when the list could not grow.
int AddToWordsArray(const wchar_t* text);

void SortStringTable();
int WordsInitialise();
StringRef WordsAdd(const wchar_t* text);
// The StringRef under which text is stored; the empty string's for an absent,
// empty or unknown text.
StringRef FindStrings(const wchar_t* text);

// The text at a Words position of the current image; null when there is none.
const wchar_t* GetWordsViaOffset(std::int32_t position);
// Logs "<label>: - offset:- <pos>, length:- <len>, content:- <text>".
void PrintStrings(std::uint32_t position, std::uint32_t length, const wchar_t* label);

}  // namespace qk
