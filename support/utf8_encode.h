#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qk {

// Appends one character as UTF-8; surrogates and values beyond U+10FFFF become U+FFFD.
void AppendUtf8(std::string& out, std::uint32_t point);

// Wide text as UTF-8 into out (replacing its content). Texts widened from XML hold
// UTF-16 surrogate pairs, which are joined into one character; a lone surrogate
// becomes U+FFFD. A null text gives an empty string.
void EncodeUtf8(const wchar_t* text, std::string& out);
// The same for the first `length` units of text, written to out, which has room
// for 4 * length bytes (no unit takes more); returns the number of bytes written.
std::size_t EncodeUtf8To(const wchar_t* text, std::size_t length, char* out);
std::string EncodeUtf8(const wchar_t* text);

// Makes the process's character type UTF-8, so that the C library decodes the
// narrow "%s" arguments of wide formats (file names, XML names) as UTF-8. A run
// does it once, at its start.
void UseUtf8CharacterType();

}  // namespace qk
