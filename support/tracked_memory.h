#pragma once

#include <cstddef>
#include <cstdint>

namespace qk {

// Registry of every tracked block, grown in steps of 8192 slots; freed slots hold null.
extern void** g_pAllBuffers;
extern int g_iTotalbuffers;
// Number of successful Allocate calls; never decreases.
extern int g_iMalloced;

// Zero-filled, registered block; never null. When the heap is exhausted the run
// ends with status 0 (FatalExit).
void* Allocate(std::uint32_t size);

template <typename T>
T* AllocateRecord() {
    return static_cast<T*>(Allocate(static_cast<std::uint32_t>(sizeof(T))));
}

// Frees every registered block; the registry and the counters stay.
void FreeAll();

// The error exit: logs, frees and throws FatalExit{255}, whose catcher copies
// the log.
[[noreturn]] void ExitFree();

// Test hooks: replace the heap allocation (nullptr restores calloc) and forget
// the registry between runs.
using HeapAllocator = void* (*)(std::size_t count, std::size_t size);
void SetHeapAllocatorForTests(HeapAllocator allocator);
void ResetTrackedMemory();

}  // namespace qk
