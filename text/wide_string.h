#pragma once

#include <string>

#include <cstddef>

namespace qk {

// UTF-8 to wide text: a new tracked string, one wide unit per UTF-16 unit (so a
// character beyond U+FFFF gives its two surrogates). Null for a null argument,
// invalid or incomplete UTF-8, or more than 8192 UTF-16 units.
wchar_t* chartowc(const char* text);
// UTF-8 text widened into out, the reused buffer of a caller that widens many
// texts: plain ASCII, by far the most common, in one pass and without a tracked
// copy. False where chartowc would give null (invalid, or over 8192 units).
bool WidenText(const char* text, std::wstring& out);
wchar_t* MakeWc(const char* text);

// The text, or the empty text for null.
inline const wchar_t* OrEmpty(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

// Wide to narrow text: a new tracked string holding the 7-bit characters;
// every other character is logged as an error and left out. Null for null.
char* wctochar(const wchar_t* text);

// A tracked private copy of exactly the text's length plus the terminator;
// null for null.
wchar_t* TrackedCopy(const wchar_t* text);
// The same for a text whose length (in code units) the caller already knows.
wchar_t* TrackedCopy(const wchar_t* text, std::size_t length);

}  // namespace qk
