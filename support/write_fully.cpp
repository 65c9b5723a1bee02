#include "support/write_fully.h"

#include <unistd.h>

#include <cerrno>

namespace qk {

bool WriteFully(int fd, std::span<const std::byte> bytes, std::size_t& written) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t wrote = write(fd, bytes.data() + done, bytes.size() - done);
        if (wrote < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        done += static_cast<std::size_t>(wrote);
        written += static_cast<std::size_t>(wrote);
    }
    return true;
}

}  // namespace qk
