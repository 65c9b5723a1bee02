#include "support/huge_page_mapping.h"

#include <sys/mman.h>

#include <cstdint>

namespace qk {

void* MapHugePageChunk() {
    // Map one chunk more than needed and cut it down to the aligned part.
    constexpr std::size_t kAlignment = kHugeChunkBytes;
    void* mapped = mmap(nullptr, kHugeChunkBytes + kAlignment, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    const auto first = reinterpret_cast<std::uintptr_t>(mapped);
    const auto start = (first + kAlignment - 1) & ~(kAlignment - 1);
    const auto end = first + kHugeChunkBytes + kAlignment;
    if (start > first) {
        munmap(mapped, start - first);
    }
    if (end > start + kHugeChunkBytes) {
        munmap(reinterpret_cast<void*>(start + kHugeChunkBytes), end - (start + kHugeChunkBytes));
    }
    auto* chunk = reinterpret_cast<void*>(start);
    // Both are hints: without huge pages, or without the populate request
    // (older kernels), the chunk's pages come as they are touched.
    madvise(chunk, kHugeChunkBytes, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
    madvise(chunk, kHugeChunkBytes, MADV_POPULATE_WRITE);
#endif
    return chunk;
}

}  // namespace qk
