#include "support/regular_file_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qk {

RegularFileRead ReadRegularFile(const char* path, std::size_t limit) {
    RegularFileRead result;
    // O_NONBLOCK: opening a FIFO returns at once instead of waiting for a
    // writer; it changes nothing for a regular file.
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        result.problem = FileReadProblem::kCannotOpen;
        result.cause = errno;
        return result;
    }
    struct stat info {};
    if (fstat(descriptor, &info) != 0) {
        result.problem = FileReadProblem::kReadFailed;
        result.cause = errno;
    } else if (!S_ISREG(info.st_mode)) {
        result.problem = FileReadProblem::kNotRegular;
    } else if (result.size = static_cast<std::uint64_t>(std::max<off_t>(info.st_size, 0));
               result.size > limit) {
        result.problem = FileReadProblem::kTooLarge;
    } else {
        // One byte more than the limit shows a file that grew past it.
        result.bytes.resize(static_cast<std::size_t>(info.st_size) + 1);
        std::size_t filled = 0;
        for (;;) {
            if (filled == result.bytes.size()) {
                result.bytes.resize(result.bytes.size() + 4096);
            }
            const ssize_t got =
                read(descriptor, result.bytes.data() + filled, result.bytes.size() - filled);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                result.problem = FileReadProblem::kReadFailed;
                result.cause = errno;
                break;
            }
            if (got == 0) {
                break;
            }
            filled += static_cast<std::size_t>(got);
            if (filled > limit) {
                result.problem = FileReadProblem::kTooLarge;
                result.size = filled;
                break;
            }
        }
        result.bytes.resize(filled);
    }
    close(descriptor);
    if (result.problem != FileReadProblem::kNone) {
        result.bytes.clear();
    }
    return result;
}

}  // namespace qk
