#pragma once

// The text of an XML file: read through one open, its encoding found from the
// byte-order mark (UTF-8 without one), and checked to hold only characters
// that XML allows. UTF-16 is turned into UTF-8 here, so that the parser, the
// checker and the diagnostics all work on the same bytes.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qk {

struct XmlTextError {
    std::size_t offset = 0;  // in the UTF-8 text made so far
    std::string message;
};

enum class XmlTextResult { kGood, kCannotRead, kBadEncoding };

// Which files a read takes: the first read of a file any that opens (a pipe
// too, read to its end); a second read, for a late diagnostic, a regular file
// only, opened without waiting for a writer.
enum class XmlReadMode { kAnyFile, kRegularFileAgain };

// Reads path into utf8 (without its byte-order mark) through one open. UTF-16
// is checked as it is turned into UTF-8; UTF-8 is left to the well-formedness
// check, which judges each character it passes with DecodeXmlCharacter.
// kCannotRead sets *systemError to errno; kBadEncoding fills error. *regular
// (when given) tells whether the file was a regular one, which can be read again.
XmlTextResult ReadXmlText(const char* path, std::string& utf8, XmlTextError& error,
                          int* systemError, XmlReadMode mode = XmlReadMode::kAnyFile,
                          bool* regular = nullptr);

// Checks and converts bytes already in memory (the reader of a file and the
// fuzzers share it).
XmlTextResult DecodeXmlText(std::string&& bytes, std::string& utf8, XmlTextError& error);

// The character at text[at]: false, with the reason, for a sequence that is
// not whole or not the shortest, or a character that XML does not allow.
bool DecodeXmlCharacter(std::string_view text, std::size_t at, std::uint32_t& point,
                        std::size_t& length, XmlTextError& error);

}  // namespace qk
