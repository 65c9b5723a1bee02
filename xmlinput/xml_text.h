#pragma once

// The text of an XML file: read through one open, its encoding found from the
// byte-order mark (UTF-8 without one), and checked to hold only characters
// that XML allows. UTF-16 is turned into UTF-8 here, so that the parser, the
// checker and the diagnostics all work on the same bytes.

#include <cstddef>
#include <string>

namespace qk {

struct XmlTextError {
    std::size_t offset = 0;  // in the UTF-8 text made so far
    std::string message;
};

enum class XmlTextResult { kGood, kCannotRead, kBadEncoding };

// Reads path into utf8 (without its byte-order mark). kCannotRead sets
// *systemError to errno; kBadEncoding fills error.
XmlTextResult ReadXmlText(const char* path, std::string& utf8, XmlTextError& error,
                          int* systemError);

// Checks and converts bytes already in memory (the reader of a file and the
// fuzzers share it).
XmlTextResult DecodeXmlText(std::string&& bytes, std::string& utf8, XmlTextError& error);

}  // namespace qk
