#include "support/file_size.h"

#include <cstdio>

namespace qk {

long GetFileSizeAp(const char* path) {
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return 0;
    }
    long size = 0;
    if (std::fseek(file, 0, SEEK_END) == 0) {
        size = std::ftell(file);
    }
    std::fclose(file);
    return size < 0 ? 0 : size;
}

}  // namespace qk
