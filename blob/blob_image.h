#pragma once

// The current blob image: the one the builder lays out, or one loaded from a
// file. Everything that reads or writes the image's bytes finds it here.

#include <cstdint>

#include "blob/blob_format.h"
#include "blob/blob_reader.h"

namespace qk {

// The current image, kMaxImageBytes long; null before one exists.
extern std::uint8_t* g_lpBlob;
// Build cursor: the first byte of the image not yet written.
extern std::uint8_t* g_lpBuffer;

// A reader over the current image (empty when there is none).
BlobReader CurrentImage();
// The header of the current image, to be filled in by the builder.
BlobHeader* ImageHeader();

// Makes a loaded kMaxImageBytes image the current one.
void SetCurrentImage(std::uint8_t* image);
// Starts an empty image: a fresh zero-filled buffer, the magic and format
// words written, the cursor behind the header.
void BeginImage(std::uint32_t format);

// Whether bytes more fit in the image after the build cursor.
bool ImageHasRoom(std::uint64_t bytes);
// Ends the run through the error exit, after an ERROR line naming what is
// written, when bytes more would take the image beyond 0xFFFFF bytes.
void ReserveImageBytes(std::uint64_t bytes, const wchar_t* kind, const wchar_t* name);

// The position of the build cursor.
std::uint32_t CursorPosition();

// Forgets the image (between runs in tests).
void ResetImage();

}  // namespace qk
