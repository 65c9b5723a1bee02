#include "support/tracked_memory.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "support/chunk_arena.h"
#include "support/diagnostic.h"
#include "support/fatal_exit.h"
#include "support/out_of_memory.h"
#include "support/progress_log.h"

namespace qk {

void** g_pAllBuffers = nullptr;
int g_iTotalbuffers = 0;
int g_iMalloced = 0;

namespace {

constexpr int kRegistryStep = 8192;
HeapAllocator g_heapAllocator = nullptr;

// Sanitizer builds must see each block's own bounds: they take one heap block
// each instead of carving.
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

// The blocks that did not come from chunks, for the sweep.
std::vector<void*> g_heapBlocks;

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

void* NewBlock(std::size_t bytes) {
    if (kSanitized || g_heapAllocator != nullptr || bytes > kLargestCarved) {
        return HeapBlock(bytes);
    }
    return CarveBlock(bytes);
}

void ReleaseBlocks() {
    for (void* block : g_heapBlocks) {
        std::free(block);
    }
    g_heapBlocks.clear();
    ReleaseChunks();
}

[[noreturn]] void OutOfMemoryExit() {
    const int status = EndOutOfMemory();
    throw FatalExit{status};
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
            // the sweep releases it with the rest.
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
    ReleaseBlocks();
    ProgressLog(L"DONE, FreeAll()\n", 0);
}

void ExitFree() {
    ProgressLog(L"ExitFree Called on ERROR.", 0);
    FreeAll();
    LogFormat(L"g_iMalloced = %d\n", g_iMalloced);
    ProgressLog(L"Exiting Quillkit...\n", 0);
    throw FatalExit{255, true};
}

void SetHeapAllocatorForTests(HeapAllocator allocator) {
    g_heapAllocator = allocator;
}

void ResetTrackedMemory() {
    ReleaseBlocks();
    std::free(g_pAllBuffers);
    g_pAllBuffers = nullptr;
    g_iTotalbuffers = 0;
    g_iMalloced = 0;
}

}  // namespace qk
