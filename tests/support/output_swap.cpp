// Loaded into the tool with LD_PRELOAD: at one moment of writing an output, the
// file at the path named by QUILLKIT_SWAP_PATH is moved aside to PATH.moved and
// a symbolic link to QUILLKIT_SWAP_TARGET takes its name, as a hostile user
// sharing the directory could do. The moment (QUILLKIT_SWAP_WHEN) is "open",
// right after the tool opened the path for writing, or "tmpfile", right after it
// made the new file in the directory for it. A test shows that the output is then
// refused, and neither the link's target nor the moved file is written.
//
// With QUILLKIT_NO_TMPFILE set, an unnamed file cannot be made (EOPNOTSUPP), as
// on the file systems that have none: the tool must then take its named way.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

bool IsTemporaryFile(int flags) {
    return (flags & O_TMPFILE) == O_TMPFILE;
}

void SwapAfterOpen(const char* path, int flags) {
    static bool opened = false;
    static bool swapped = false;
    const char* watched = std::getenv("QUILLKIT_SWAP_PATH");
    const char* target = std::getenv("QUILLKIT_SWAP_TARGET");
    const char* when = std::getenv("QUILLKIT_SWAP_WHEN");
    if (swapped || watched == nullptr || target == nullptr) {
        return;
    }
    const bool openedNow =
        std::strcmp(path, watched) == 0 && (flags & O_ACCMODE) != O_RDONLY && (flags & O_PATH) == 0;
    opened = opened || openedNow;
    const bool atNewFile = when != nullptr && std::strcmp(when, "tmpfile") == 0;
    if (!(atNewFile ? opened && IsTemporaryFile(flags) : openedNow)) {
        return;
    }
    swapped = true;
    const std::string moved = std::string(watched) + ".moved";
    if (std::rename(watched, moved.c_str()) == 0) {
        symlink(target, watched);
    }
}

mode_t ModeOf(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 || IsTemporaryFile(flags)
               ? static_cast<mode_t>(va_arg(arguments, int))
               : 0;
}

using Open = int (*)(const char*, int, ...);
using OpenAt = int (*)(int, const char*, int, ...);

template <typename Next, typename... Directory>
int Swapping(Next next, const char* path, int flags, mode_t mode, Directory... directory) {
    if (IsTemporaryFile(flags) && std::getenv("QUILLKIT_NO_TMPFILE") != nullptr) {
        errno = EOPNOTSUPP;
        return -1;
    }
    const int fd = next(directory..., path, flags, mode);
    if (fd >= 0) {
        SwapAfterOpen(path, flags);
    }
    return fd;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    static const auto next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Swapping(next, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    static const auto next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open64"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Swapping(next, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    static const auto next = reinterpret_cast<OpenAt>(dlsym(RTLD_NEXT, "openat"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Swapping(next, path, flags, mode, directory);
}

int openat64(int directory, const char* path, int flags, ...) {
    static const auto next = reinterpret_cast<OpenAt>(dlsym(RTLD_NEXT, "openat64"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Swapping(next, path, flags, mode, directory);
}

}  // extern "C"
