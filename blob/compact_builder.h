#pragma once

#include <cstdint>

#include "blob/blob_reader.h"

namespace qk {

// The current image: built by CreateCompact or loaded from a file; kMaxImageBytes long.
extern std::uint8_t* g_lpBlob;

// Lays the checked tree out as a blob image in g_lpBlob; 0 on success.
int CreateCompact();

// A reader over the current image (empty when there is none).
BlobReader CurrentImage();

}  // namespace qk
