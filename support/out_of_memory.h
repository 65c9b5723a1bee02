#pragma once

#include <cstddef>

namespace qk {

// How a run that runs out of memory ends: its status and the line standard
// error gets. The run chooses them from its options before it takes memory;
// the line is a fixed text, so saying it takes none.
struct OutOfMemoryEnd {
    int status;
    const char* message;  // one line, ending in a newline
};

// The single-dash modes' end: status 0, as a run always ended out of memory.
constexpr OutOfMemoryEnd kOutOfMemoryEnd = {
    0, "quillard: error: out of memory; the run ends without a blob (status 0)\n"};

void SetOutOfMemoryEnd(OutOfMemoryEnd end);

// Sets memory aside for the way out: throwing an exception takes memory, and
// when even the runtime's own reserve could not be had at start-up, a throw
// out of memory would end the process. Installs the handler that gives the
// memory back before the standard allocator reports exhaustion. False when
// the memory is not there: the run must then end at once (EndOutOfMemory).
bool SetMemoryAsideForTheEnd();
// Gives the memory set aside back; called before anything is thrown out of memory.
void ReleaseMemorySetAside();
// Releases the memory set aside and throws std::bad_alloc.
[[noreturn]] void ThrowOutOfMemory();

// Ends the run out of memory (ThrowOutOfMemory) when the address space has no
// room for bytes more. For code that does not survive running short midway.
void MakeSureOfAddressSpace(std::size_t bytes);

// Ends a run out of memory without allocating: the log line, the message on
// standard error, every tracked block freed. Returns the status to end with.
int EndOutOfMemory();

}  // namespace qk
