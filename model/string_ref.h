#pragma once

#include <cstdint>

namespace qk {

// Where a text stands in a blob's Words table: its position (in 8-byte units
// after the header) and its byte length including the 4-byte terminator.
struct StringRef {
    std::uint32_t pos;
    std::uint32_t len;
};

// The empty text that opens every Words table.
constexpr StringRef kEmptyStringRef = {0, 4};

}  // namespace qk
