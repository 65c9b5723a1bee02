#include <malloc.h>

#include "app/run.h"

int main(int argc, char** argv) {
#ifdef __GLIBC__
    // A run is short and its memory only grows until the final sweep: keep freed
    // heap instead of handing it back and faulting it in again, and grow the heap
    // in steps of 8 MiB. Large blocks (the blob image) come from the heap too, so
    // that they reuse the pages of a deleted document instead of faulting in new
    // ones. Without fast bins the tens of thousands of small blocks that Mini-XML
    // frees after each file are merged as they are freed, into room that those
    // large blocks can take.
    mallopt(M_TRIM_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TOP_PAD, 8 * 1024 * 1024);
    mallopt(M_MMAP_THRESHOLD, 128 * 1024 * 1024);
    mallopt(M_MXFAST, 0);
#endif
    return qk::RunQuillard(argc, argv);
}
