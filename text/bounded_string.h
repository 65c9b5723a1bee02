#pragma once

#include <cstddef>

namespace qk {

// Copies the whole source when it fits the capacity; returns null (copying
// nothing) when it does not.
char* apStrCpy(char* destination, const char* source, std::size_t capacity);
int apStrCmp(const char* left, const char* right);

// Bounded wide copies: never write past capacity. A source that does not fit
// is refused (null result, destination left as it was).
wchar_t* wcscpy_s(wchar_t* destination, std::size_t capacity, const wchar_t* source);

// Formats like vswprintf into buffer, never beyond capacity; -1 when the
// output does not fit (the buffer then holds the cut, terminated text).
int _snwprintf_s(wchar_t* buffer, std::size_t capacity, std::size_t count, const wchar_t* format,
                 ...);

// Not called by the tool itself; kept for their documented role among the
// string helpers.
std::size_t apStrLen(const char* text);
const wchar_t* swPrintStr(const wchar_t* text);
wchar_t* wcsncpy_s(wchar_t* destination, std::size_t capacity, const wchar_t* source,
                   std::size_t count);
wchar_t* wcscat_s(wchar_t* destination, std::size_t capacity, const wchar_t* source);
wchar_t Towchar_t(unsigned short unit);

}  // namespace qk
