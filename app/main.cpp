#include <malloc.h>

#include "app/run.h"

int main(int argc, char** argv) {
#ifdef __GLIBC__
    // A run is short and its memory only grows until the final sweep: keep freed
    // heap instead of handing it back and faulting it in again, and grow the heap
    // in steps of 8 MiB. A fixed mapping threshold also keeps large zeroed blocks
    // (the blob image, the tracked chunks) as fresh mappings, zero without memset.
    mallopt(M_TRIM_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TOP_PAD, 8 * 1024 * 1024);
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
#endif
    return qk::RunQuillard(argc, argv);
}
