// Loaded into the tool with LD_PRELOAD: the moment the tool has opened the path
// named by QUILLKIT_SWAP_PATH for writing, the file there is moved aside to
// PATH.moved and a symbolic link to QUILLKIT_SWAP_TARGET takes its name, as a
// hostile user sharing the directory could do. A test shows that the output is
// then refused, and neither the link's target nor the moved file is written.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void SwapAfterOpen(const char* path, int flags) {
    static bool swapped = false;
    const char* watched = std::getenv("QUILLKIT_SWAP_PATH");
    const char* target = std::getenv("QUILLKIT_SWAP_TARGET");
    if (swapped || watched == nullptr || target == nullptr || std::strcmp(path, watched) != 0 ||
        (flags & O_ACCMODE) == O_RDONLY || (flags & O_PATH) != 0) {
        return;
    }
    swapped = true;
    const std::string moved = std::string(path) + ".moved";
    if (std::rename(path, moved.c_str()) == 0) {
        symlink(target, path);
    }
}

template <typename Open>
int OpenAndSwap(Open next, const char* path, int flags, mode_t mode) {
    const int fd = next(path, flags, mode);
    if (fd >= 0) {
        SwapAfterOpen(path, flags);
    }
    return fd;
}

mode_t ModeOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    static const auto next =
        reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAndSwap(next, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    static const auto next =
        reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open64"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAndSwap(next, path, flags, mode);
}

}  // extern "C"
