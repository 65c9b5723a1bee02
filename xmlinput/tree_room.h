#pragma once

#include <cstddef>
#include <string_view>

namespace qk {

// Mini-XML does not survive running out of memory while it builds its tree
// (it goes on with names it could not copy), so room for the tree is made sure
// of before a load.

// At most the bytes of heap that Mini-XML's tree of text takes: a node for
// every markup and every word, an attribute for every '=', and a copy of the
// text. Done many bytes at a time: the scan costs about a tenth of a
// millisecond per megabyte.
std::size_t TreeBytesBound(std::string_view text);

// Ends the run out of memory (std::bad_alloc) when the address space has no
// room for the tree of text.
void MakeSureOfRoomForTree(std::string_view text);

}  // namespace qk
