#include <malloc.h>

#include "app/run.h"

int main(int argc, char** argv) {
#ifdef __GLIBC__
    // A run is short and its memory only grows until the final sweep: keep freed
    // heap instead of handing it back and faulting it in again, and grow the heap
    // in steps of 8 MiB. A fixed mapping threshold also keeps large zeroed blocks
    // (the blob image) as fresh mappings, zero without memset. Without fast bins
    // the tens of thousands of small blocks that Mini-XML frees after each file
    // are merged as they are freed, not all at once at the next large request.
    mallopt(M_TRIM_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TOP_PAD, 8 * 1024 * 1024);
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_MXFAST, 0);
#endif
    return qk::RunQuillard(argc, argv);
}
