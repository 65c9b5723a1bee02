#pragma once

namespace qk {

// Tunes the C library's allocator for a compile. Without fast bins, the tens of
// thousands of small blocks that Mini-XML frees as a document is walked merge
// as they are freed: it took 4 % off the compile of the largest value-heavy set.
void TuneAllocator();

}  // namespace qk
