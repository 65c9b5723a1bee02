#pragma once

// Writing a whole buffer to a descriptor: write() may take less than it is
// given, or be interrupted by a signal, and both simply mean "go on".

#include <cstddef>
#include <span>

namespace qk {

// Writes every byte; false (errno set) when a write fails. written grows by
// the bytes that did go out, also on failure.
bool WriteFully(int fd, std::span<const std::byte> bytes, std::size_t& written);

}  // namespace qk
