#pragma once

namespace qk {

constexpr const char* kDefaultBlobName = "quillard.blb";

// The file a blob name stands for: names shorter than 2 characters mean the
// default file.
const char* BlobTargetName(const char* name);

// Writes the built image to name ("quillard.blb" when shorter than 2
// characters; the buffer then receives that name), atomically and durably
// (WriteOutputFile), so a failed run leaves the old blob whole. Bytes written,
// 0 when the file could not be written.
int WriteBinFile(char* name);

// Loads a blob file into a fresh zero-filled image that becomes the current
// one. Returns the file's size, or -1 (after an ERROR line) when the file is
// larger than an image can hold or is not a regular file (a FIFO is never
// waited on); a missing or unreadable file leaves the image zero.
long LoadBlobImage(const char* path);

// -v: prints the version string stored in quillard.blb; returns 0.
int printVersionString();

}  // namespace qk
