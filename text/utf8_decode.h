#pragma once

// The one UTF-8 decoder of the tool.

#include <cstddef>
#include <string>
#include <string_view>

namespace qk {

// Decodes the sequence at text[at] strictly (no overlong forms, no surrogates,
// nothing beyond U+10FFFF, no sequence cut by the end). Returns the code point
// and moves at past it, or returns -1 and leaves at alone.
long DecodeUtf8(std::string_view text, std::size_t& at);

// Narrow text (a path, an element name) as wide text for the log, decoded as
// UTF-8 with each byte that starts no valid sequence shown as U+FFFD. Only the
// first maxBytes bytes are taken: a log line is cut at 4096 characters anyway.
std::wstring WidenForLog(const char* text, std::size_t maxBytes = 16384);

}  // namespace qk
