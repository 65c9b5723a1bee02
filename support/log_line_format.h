#pragma once

// Formatting of log lines without vswprintf: with -l, a compile formats tens
// of thousands of lines, and this took 9 % (text) and 10 % (value sets) off it.

#include <cstdarg>
#include <cstddef>

namespace qk {

// Formats what the log's messages use (%d %u %x %X with a width and l/ll, %ls,
// %lc, ASCII %s, %%) exactly as vswprintf would, cut at the bound. False, with
// nothing promised about out, for any other conversion; vswprintf then does it.
bool FormatLogLine(wchar_t* out, std::size_t bound, const wchar_t* format, va_list arguments);

}  // namespace qk
