#pragma once

// Places in a loaded file: the reader keeps, for the element it is at, only
// where its start tag begins. The places of its attributes and its text are
// found from there when a diagnostic asks for them.

#include <cstdint>
#include <string_view>
#include <vector>

#include "support/source_manager.h"

namespace qk {

struct ElementPlace {
    std::uint32_t file = 0;
    std::uint32_t offset = SourceLocation::kNoOffset;  // of the start tag's '<'
};

// Pairs the element nodes that a walk meets, in document order, with the
// places where the well-formedness check found their markup starting.
class NodePlaces {
  public:
    NodePlaces() = default;
    NodePlaces(std::uint32_t file, const std::vector<std::uint32_t>* offsets)
        : file_(file), offsets_(offsets) {}

    // The place of the next node, a node named element (as Mini-XML names it:
    // a comment's name is "!--" and its text).
    ElementPlace Next(std::string_view element);

  private:
    std::uint32_t file_ = 0;
    const std::vector<std::uint32_t>* offsets_ = nullptr;
    std::size_t next_ = 1;  // node 0 is the top, which a walk does not visit
};

// The start tag's '<' and name.
SourceLocation ElementLocation(const ElementPlace& place);
// An attribute's name, or its value (inside the quotes); the element when the
// attribute is not found.
SourceLocation AttributeNameLocation(const ElementPlace& place, std::string_view name);
SourceLocation AttributeValueLocation(const ElementPlace& place, std::string_view name);
// The element's text: its first word up to its last, after the start tag.
SourceLocation ElementTextLocation(const ElementPlace& place);

}  // namespace qk
