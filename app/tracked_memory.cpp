#include "app/tracked_memory.h"

#include <cstdlib>
#include <cstring>

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

[[noreturn]] void OutOfMemoryExit() {
    ProgressLog(L"ERROR, Unable to allocate memory, EXIT PROGRAM\n", 0);
    FreeAll();
    throw FatalExit{0};
}

}  // namespace

void* Allocate(std::uint32_t size) {
    // A zero-byte request still yields a distinct, registered block.
    const std::size_t bytes = size == 0 ? 1 : size;
    void* block = g_heapAllocator ? g_heapAllocator(1, bytes) : std::calloc(1, bytes);
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
            // The block cannot be registered without writing past the registry.
            std::free(block);
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
        std::free(g_pAllBuffers[slot]);
        g_pAllBuffers[slot] = nullptr;
    }
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
    for (int slot = 0; slot < g_iTotalbuffers; ++slot) {
        std::free(g_pAllBuffers[slot]);
    }
    std::free(g_pAllBuffers);
    g_pAllBuffers = nullptr;
    g_iTotalbuffers = 0;
    g_iMalloced = 0;
}

}  // namespace qk
