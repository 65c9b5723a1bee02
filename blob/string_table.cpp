// Placeholder until the string table lands.
#include "blob/string_table.h"

namespace qk {

StringRef g_strsEmptyString = {0, 4};

int AddToWordsArray(const wchar_t*) { return -1; }
void SortStringTable() {}
int WordsInitialise() { return 0; }
StringRef WordsAdd(const wchar_t*) { return g_strsEmptyString; }
StringRef FindStrings(const wchar_t*) { return g_strsEmptyString; }
const wchar_t* GetWordsViaOffset(std::int32_t) { return nullptr; }
void PrintStrings(std::uint32_t, std::uint32_t, const wchar_t*) {}

}  // namespace qk
