#include "app/tracked_memory.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "app/fatal_exit.h"
#include "app/progress_log.h"
#include "text/wide_string.h"

namespace qk {

void** g_pAllBuffers = nullptr;
int g_iTotalbuffers = 0;
int g_iMalloced = 0;

namespace {

constexpr int kRegistryStep = 8192;
HeapAllocator g_heapAllocator = nullptr;

// Blocks are never freed one by one, so small ones are carved in order from
// large zero-filled chunks: one system call per chunk instead of one heap call
// per block, and the sweep releases chunks. Where a deleted document left a
// large free area in the heap, chunks of 256 KiB are taken from it. Otherwise
// the first chunk, 256 KiB so that a small run stays small, is mapped with its
// pages already present, and later ones are 2 MiB, aligned so that the kernel
// can back each with one huge page: a run fills them at once with texts, and
// one huge page is supplied several times faster than 512 small ones. Large
// blocks, the test hook and sanitizer builds (which must see each block's own
// bounds) take one heap block each.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

constexpr std::size_t kFirstChunkBytes = std::size_t{256} * 1024;
constexpr std::size_t kHugeChunkBytes = std::size_t{2048} * 1024;
constexpr std::size_t kLargestCarved = kFirstChunkBytes / 16;
constexpr std::size_t kAlignment = alignof(std::max_align_t);

struct Chunk {
    void* start;
    std::size_t bytes;
};

// Everything the sweep hands back: heap blocks and mapped chunks.
std::vector<void*> g_heapBlocks;
std::vector<Chunk> g_chunks;
unsigned char* g_chunkNext = nullptr;
std::size_t g_chunkLeft = 0;

void* HeapBlock(std::size_t bytes) {
    void* block = g_heapAllocator ? g_heapAllocator(1, bytes) : std::calloc(1, bytes);
    if (block == nullptr) {
        return nullptr;
    }
    try {
        g_heapBlocks.push_back(block);
    } catch (const std::bad_alloc&) {
        std::free(block);
        return nullptr;
    }
    return block;
}

// Heap space that earlier frees left (the parsed documents, once deleted) is
// already paged in: a chunk taken from it costs a memset instead of fresh
// pages. Only a large free area is worth it: a few scattered holes would just
// split, and the chunk would come from fresh pages after all. Asking the heap
// walks every free block, so its answer is kept as a budget: half of what was
// free, less what chunks have taken since; frees in between only add room.
constexpr std::size_t kWorthwhileFreeHeap = std::size_t{2} << 20;
std::size_t g_heapBudget = 0;

bool TakeFromHeap(std::size_t bytes) {
#ifdef __GLIBC__
    if (g_heapBudget < bytes) {
        const struct mallinfo2 info = mallinfo2();
        const std::size_t free = info.fordblks - info.keepcost;
        g_heapBudget = free >= kWorthwhileFreeHeap ? free / 2 : 0;
    }
    if (g_heapBudget < bytes) {
        return false;
    }
    g_heapBudget -= bytes;
    return true;
#else
    return false;
#endif
}

// A mapping of `bytes` that starts on a multiple of `alignment` (a power of
// two), or MAP_FAILED.
void* AlignedMapping(std::size_t bytes, std::size_t alignment) {
    void* mapped = mmap(nullptr, bytes + alignment, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return MAP_FAILED;
    }
    const auto first = reinterpret_cast<std::uintptr_t>(mapped);
    const auto start = (first + alignment - 1) & ~(alignment - 1);
    const auto end = first + bytes + alignment;
    if (start > first) {
        munmap(mapped, start - first);
    }
    if (end > start + bytes) {
        munmap(reinterpret_cast<void*>(start + bytes), end - (start + bytes));
    }
    return reinterpret_cast<void*>(start);
}

// A chunk mapped with its pages already present, registered for the sweep.
void* MappedChunk(std::size_t bytes) {
    void* start = MAP_FAILED;
    if (bytes < kHugeChunkBytes) {
        start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    } else {
        start = AlignedMapping(bytes, kHugeChunkBytes);
        if (start != MAP_FAILED) {
            // Both are hints: without huge pages, or without the populate
            // request (older kernels), the chunk's pages come as they are touched.
            madvise(start, bytes, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
            madvise(start, bytes, MADV_POPULATE_WRITE);
#endif
        }
    }
    if (start == MAP_FAILED) {
        return nullptr;
    }
    try {
        g_chunks.push_back({start, bytes});
    } catch (const std::bad_alloc&) {
        munmap(start, bytes);
        return nullptr;
    }
    return start;
}

bool NewChunk() {
    const bool fromHeap = TakeFromHeap(kFirstChunkBytes);
    // The first mapped chunk is small; later ones are huge-page sized.
    const std::size_t bytes = fromHeap || g_chunks.empty() ? kFirstChunkBytes : kHugeChunkBytes;
    void* start = fromHeap ? HeapBlock(bytes) : MappedChunk(bytes);
    if (start == nullptr) {
        return false;
    }
    g_chunkNext = static_cast<unsigned char*>(start);
    g_chunkLeft = bytes;
    return true;
}

void* NewBlock(std::size_t bytes) {
    if (kSanitized || g_heapAllocator != nullptr || bytes > kLargestCarved) {
        return HeapBlock(bytes);
    }
    const std::size_t rounded = (bytes + kAlignment - 1) & ~(kAlignment - 1);
    if (rounded > g_chunkLeft && !NewChunk()) {
        return nullptr;
    }
    void* block = g_chunkNext;
    g_chunkNext += rounded;
    g_chunkLeft -= rounded;
    return block;
}

void ReleaseHeapBlocks() {
    for (void* block : g_heapBlocks) {
        std::free(block);
    }
    g_heapBlocks.clear();
    for (const Chunk& chunk : g_chunks) {
        munmap(chunk.start, chunk.bytes);
    }
    g_chunks.clear();
    g_heapBudget = 0;
    g_chunkNext = nullptr;
    g_chunkLeft = 0;
}

[[noreturn]] void OutOfMemoryExit() {
    ProgressLog(L"ERROR, Unable to allocate memory, EXIT PROGRAM\n", 0);
    FreeAll();
    throw FatalExit{0};
}

}  // namespace

void* Allocate(std::uint32_t size) {
    // A zero-byte request still yields a distinct, registered block.
    const std::size_t bytes = size == 0 ? 1 : size;
    void* block = NewBlock(bytes);
    if (block == nullptr) {
        OutOfMemoryExit();
    }
    ++g_iMalloced;
    if (g_iTotalbuffers % kRegistryStep == 0) {
        const std::size_t slots =
            (static_cast<std::size_t>(g_iTotalbuffers) / kRegistryStep + 1) * kRegistryStep;
        void* grown = std::realloc(g_pAllBuffers, slots * sizeof(void*));
        if (grown == nullptr) {
            ProgressLog(L"Increase buffer size FAILED.\n", 0);
            // The block cannot be registered without writing past the registry;
            // it stays with the heap blocks that the sweep frees.
            OutOfMemoryExit();
        }
        g_pAllBuffers = static_cast<void**>(grown);
        std::memset(g_pAllBuffers + g_iTotalbuffers, 0, kRegistryStep * sizeof(void*));
        ProgressLog(L"Increase buffer size success.\n", 0);
    }
    g_pAllBuffers[g_iTotalbuffers++] = block;
    return block;
}

void FreeAll() {
    for (int slot = 0; slot < g_iTotalbuffers; ++slot) {
        g_pAllBuffers[slot] = nullptr;
    }
    ReleaseHeapBlocks();
    ProgressLog(L"DONE, FreeAll()\n", 0);
}

void ExitFree() {
    ProgressLog(L"ExitFree Called on ERROR.", 0);
    FreeAll();
    LogFormat(L"g_iMalloced = %d\n", g_iMalloced);
    ProgressLog(L"Exiting Quillkit...\n", 0);
    if (g_strLogFile[0] != L'\0') {
        CopyLogTo(wctochar(g_strLogFile));
    }
    throw FatalExit{255};
}

void SetHeapAllocatorForTests(HeapAllocator allocator) {
    g_heapAllocator = allocator;
}

void ResetTrackedMemory() {
    ReleaseHeapBlocks();
    std::free(g_pAllBuffers);
    g_pAllBuffers = nullptr;
    g_iTotalbuffers = 0;
    g_iMalloced = 0;
}

}  // namespace qk
