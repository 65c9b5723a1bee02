#pragma once

// Reading a whole file that must be a regular file of bounded size, through
// one open that never waits: a FIFO without a writer, a terminal or a device
// would block the open or never end the read, and a second open could meet a
// different file. Anything but a regular file is refused.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qk {

enum class FileReadProblem { kNone, kCannotOpen, kNotRegular, kTooLarge, kReadFailed };

struct RegularFileRead {
    FileReadProblem problem = FileReadProblem::kNone;
    int cause = 0;           // errno of kCannotOpen and kReadFailed
    std::uint64_t size = 0;  // of a regular file, as far as it was seen
    std::vector<std::uint8_t> bytes;
};

// The file's bytes when it is a regular file of at most limit bytes; otherwise
// why not (and no bytes). A file that grows while it is read past limit is
// kTooLarge; a read that fails part way is kReadFailed, never a shorter file.
RegularFileRead ReadRegularFile(const char* path, std::size_t limit);

}  // namespace qk
