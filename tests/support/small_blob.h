#pragma once

// A hand-made blob for tests of the stand-in library and its users: one driver
// "D" (privacy Defined) whose area has one Dword property "P", nothing else.

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "blob/blob_format.h"

namespace qk::sim {

// Words at 0 ("", "D", "P"), Driver at 3, Property at 5, Area at 8; 9 units.
inline std::vector<std::uint8_t> SmallBlob() {
    std::vector<std::uint8_t> bytes(kHeaderBytes + 9 * 8, 0);
    auto word = [&](std::size_t offset, std::uint32_t value) {
        std::memcpy(bytes.data() + offset, &value, 4);
    };
    auto at = [](std::uint32_t position, std::size_t byte) { return 92 + 8 * position + byte; };
    word(0, kBlobMagic);
    word(4, 1);   // format 1
    word(32, 4);  // the release: the empty text
    word(40, 3);
    word(at(1, 0), L'D');
    word(at(2, 0), L'P');
    word(44, 3), word(48, 2);
    word(at(3, 0), 1), word(at(3, 4), 8), word(at(3, 8), 1);
    word(52, 5), word(56, 3);
    word(at(5, 0), 3), word(at(5, 4), 2), word(at(5, 8), 8), word(at(5, 12), 0);
    word(at(5, 16), 4), word(at(5, 20), kNoRecord);
    word(60, 8), word(64, 1);
    word(at(8, 0), 3), word(at(8, 4), 5);
    word(68, 9), word(76, 9), word(84, 9);
    return bytes;
}

inline void WriteBlobFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
}

}  // namespace qk::sim
