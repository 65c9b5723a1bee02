#include "xmlinput/tree_room.h"

#include <algorithm>

#include "support/out_of_memory.h"

namespace qk {

namespace {

// Measured on the library's 64-bit builds, heap overhead included: a node with
// its name or word takes 128 bytes, an attribute with its name and value 96.
constexpr std::size_t kPieceBytes = 160;
constexpr std::size_t kMarginBytes = std::size_t{64} * 1024;
// Counts are kept in bytes for a block, so the loop stays simple enough to be
// done many bytes at a time (a byte adds at most one).
constexpr std::size_t kBlock = 255;

}  // namespace

std::size_t TreeBytesBound(std::string_view text) {
    // A piece starts at each '<' (a node), '=' (an attribute) and run of white
    // space (the library keeps text word by word). White space is every byte
    // up to ' '; UTF-8 bytes are above it.
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t pieces = 1;
    for (std::size_t start = 1; start < text.size(); start += kBlock) {
        const std::size_t end = std::min(text.size(), start + kBlock);
        unsigned char block = 0;
        for (std::size_t at = start; at < end; ++at) {
            const unsigned char byte = bytes[at];
            block += static_cast<unsigned char>((byte == '<') + (byte == '=') +
                                                ((byte <= ' ') & (bytes[at - 1] > ' ')));
        }
        pieces += block;
    }
    return pieces * kPieceBytes + text.size() + kMarginBytes;
}

void MakeSureOfRoomForTree(std::string_view text) {
    MakeSureOfAddressSpace(TreeBytesBound(text));
}

}  // namespace qk
