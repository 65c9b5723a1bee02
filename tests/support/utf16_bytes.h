#pragma once

// UTF-16 bytes of ASCII texts, for tests of UTF-16 files and of the reverse
// conversion's output.

#include <string>
#include <string_view>

namespace qk::test {

// The code units of an ASCII text, without a byte-order mark.
inline std::string Utf16Bytes(std::string_view ascii, bool little = true) {
    std::string bytes;
    bytes.reserve(2 * ascii.size());
    for (const char c : ascii) {
        bytes.push_back(little ? c : '\0');
        bytes.push_back(little ? '\0' : c);
    }
    return bytes;
}

// The same after the byte-order mark.
inline std::string Utf16WithMark(std::string_view ascii, bool little = true) {
    std::string bytes = little ? "\xFF\xFE" : "\xFE\xFF";
    bytes.append(Utf16Bytes(ascii, little));
    return bytes;
}

}  // namespace qk::test
