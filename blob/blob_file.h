#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace qk {

constexpr const char* kDefaultBlobName = "quillard.blb";

// Writes the built image to name ("quillard.blb" when shorter than 2
// characters; the buffer then receives that name). A regular (or new) file is
// replaced atomically through a temporary file in its directory, so a failed
// run leaves the old blob whole; a device or pipe is written in place. Bytes
// written, 0 when the file could not be written.
int WriteBinFile(char* name);

// Names, before the build, the file that WriteBinFile will be given, so that
// the image's bytes that are final early can go to the disk while the rest is
// built. Without it WriteBinFile writes everything itself.
void ExpectBlobFile(const char* name);
// The builder's word: the image's bytes from 4 KiB up to `finished` will not
// change again (only the header, in the first 4 KiB, and what follows do).
void WriteFinalBytesEarly(std::size_t finished);

// Loads a blob file into a fresh zero-filled image that becomes the current
// one. Returns the file's size, or -1 (after an ERROR line) when the file is
// larger than an image can hold; an unreadable file leaves the image zero.
long LoadBlobImage(const char* path);

// -v: prints the version string stored in quillard.blb; returns 0.
int printVersionString();

// Test hook: replaces the one write of the blob's bytes (nullptr restores fwrite).
using BlobWriter = std::size_t (*)(const void* bytes, std::size_t count, std::FILE* file);
void SetBlobWriterForTests(BlobWriter writer);

}  // namespace qk
