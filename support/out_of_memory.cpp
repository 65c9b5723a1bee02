#include "support/out_of_memory.h"

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <new>

#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"

namespace qk {

namespace {

OutOfMemoryEnd g_end = kOutOfMemoryEnd;
// Enough for the exception objects of the way out.
constexpr std::size_t kSetAsideBytes = std::size_t{64} * 1024;
void* g_setAside = nullptr;

void ReleaseAndThrow() {
    ThrowOutOfMemory();
}

}  // namespace

void SetOutOfMemoryEnd(OutOfMemoryEnd end) {
    g_end = end;
}

bool SetMemoryAsideForTheEnd() {
    if (g_setAside == nullptr) {
        g_setAside = std::malloc(kSetAsideBytes);
    }
    std::set_new_handler(ReleaseAndThrow);
    return g_setAside != nullptr;
}

void ReleaseMemorySetAside() {
    std::free(g_setAside);
    g_setAside = nullptr;
}

void ThrowOutOfMemory() {
    ReleaseMemorySetAside();
    throw std::bad_alloc();
}

int EndOutOfMemory() {
    ReleaseMemorySetAside();
    ProgressLog(L"ERROR, Unable to allocate memory, EXIT PROGRAM\n", 0);
    ReportOutOfMemory(g_end.message);
    FreeAll();
    return g_end.status;
}

void MakeSureOfAddressSpace(std::size_t bytes) {
    // Only address space is asked for: nothing is touched or counted against
    // the memory the system has promised.
    void* room =
        mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED) {
        ThrowOutOfMemory();
    }
    munmap(room, bytes);
}

}  // namespace qk
