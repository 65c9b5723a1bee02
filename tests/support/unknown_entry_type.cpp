// Loaded into the tool with LD_PRELOAD: directory listings report every entry's
// type as unknown, as some network and FUSE file systems do, so that a test can
// show that -p still finds files there.

#include <dirent.h>
#include <dlfcn.h>

namespace {

template <typename Entry>
Entry* WithoutType(Entry* entry) {
    if (entry != nullptr) {
        entry->d_type = DT_UNKNOWN;
    }
    return entry;
}

}  // namespace

extern "C" {

dirent* readdir(DIR* listing) {
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    return WithoutType(next(listing));
}

dirent64* readdir64(DIR* listing) {
    static const auto next = reinterpret_cast<dirent64* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir64"));
    return WithoutType(next(listing));
}

}  // extern "C"
