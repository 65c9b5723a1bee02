#pragma once

// Writing an output file (the blob, the XML of -r, the copy of the log) so that
// a failed or interrupted run never leaves a broken file where a good one was.

#include <cstddef>
#include <span>

namespace qk {

enum class OutputError {
    kNone,
    kCannotOpen,     // the path may not be opened for writing (as open() decides)
    kDanglingLink,   // the path is a symbolic link to nothing
    kWriteFailed,    // writing or syncing the new content failed
    kReplaceFailed,  // the new content could not take the old file's place
    kPathChanged     // the path no longer stands for the file that was opened
};

struct OutputResult {
    OutputError error = OutputError::kNone;
    std::size_t written = 0;  // bytes of the new content that were written
    int cause = 0;            // errno of the failure
};

// Why an output was refused when its path changed, in the diagnostics' words.
constexpr const char* kPathChangedReason =
    "the path changed while the file was written; nothing is written there";

// What an output file receives: bytes in memory, or, when source is an open
// file, that file's whole content (copied in pieces, never held in memory).
struct OutputContent {
    std::span<const std::byte> bytes;
    int source = -1;
};

// Writes the content to path. An existing path is opened as any program would
// open it to write (O_CREAT, without truncating), so every check the kernel
// makes applies: permissions, links, files and pipes in shared sticky
// directories; what was opened decides the rest. A regular file, or a new one,
// is replaced atomically: the content goes to an unnamed file in the same
// directory, which takes the path's place only when complete, with the old
// file's owner, group and permission bits (never set-user or set-group ID),
// and only if the name still stands for the file that was opened (for a new
// file: for nothing). With durable set, the file and the rename are synced to
// the disk. Anything else (a device, a pipe) is written in place. On failure
// the old file is left as it was and nothing is left behind.
OutputResult WriteOutputFile(const char* path, const OutputContent& content, bool durable);

}  // namespace qk
