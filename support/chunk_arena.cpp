#include "support/chunk_arena.h"

#include <sys/mman.h>

#include <new>
#include <vector>

#include "support/huge_page_mapping.h"

namespace qk {

namespace {

// The first chunk is small, so that a small run stays small; its pages are
// made present at once, as the run fills them right away.
constexpr std::size_t kFirstChunkBytes = std::size_t{256} * 1024;
constexpr std::size_t kAlignment = alignof(std::max_align_t);

struct Chunk {
    void* start;
    std::size_t bytes;
};

std::vector<Chunk> g_chunks;
unsigned char* g_next = nullptr;
std::size_t g_left = 0;

bool NewChunk() {
    const bool first = g_chunks.empty();
    const std::size_t bytes = first ? kFirstChunkBytes : kHugeChunkBytes;
    void* start = nullptr;
    if (first) {
        start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        start = start == MAP_FAILED ? nullptr : start;
    } else {
        start = MapHugePageChunk();
    }
    if (start == nullptr) {
        return false;
    }
    try {
        g_chunks.push_back({start, bytes});
    } catch (const std::bad_alloc&) {
        munmap(start, bytes);
        return false;
    }
    g_next = static_cast<unsigned char*>(start);
    g_left = bytes;
    return true;
}

}  // namespace

void* CarveBlock(std::size_t bytes) {
    const std::size_t rounded = (bytes + kAlignment - 1) & ~(kAlignment - 1);
    if (rounded > g_left && !NewChunk()) {
        return nullptr;
    }
    void* block = g_next;
    g_next += rounded;
    g_left -= rounded;
    return block;
}

void ReleaseChunks() {
    for (const Chunk& chunk : g_chunks) {
        munmap(chunk.start, chunk.bytes);
    }
    g_chunks.clear();
    g_next = nullptr;
    g_left = 0;
}

}  // namespace qk
