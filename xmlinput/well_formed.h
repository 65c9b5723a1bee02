#pragma once

// The well-formedness check of a customisation file's text, before the XML
// library sees it: the library accepts some broken files and, for others, gives
// up far from the mistake. The check finds the place where the text goes wrong,
// and, on the way, where every node that the library makes starts: start tags,
// comments, processing instructions and CDATA sections, in document order.
// Document type declarations are refused: customisation files need none.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qk {

struct XmlSyntaxError {
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    std::size_t offset = 0;
    std::size_t length = 1;
    std::string message;
    // A related place (the start tag that a wrong end tag should close).
    std::size_t relatedOffset = kNone;
    std::size_t relatedLength = 1;
    std::string relatedMessage;
};

// True when text (UTF-8, checked characters) is a well-formed document;
// nodeOffsets then holds the offset of each node's '<'. False fills error.
bool CheckWellFormed(std::string_view text, std::vector<std::uint32_t>& nodeOffsets,
                     XmlSyntaxError& error);

}  // namespace qk
