// The least any compile can cost: load each file with Mini-XML and visit every
// node once, the way the compiler does.
#include <cstdio>

#include "floor_walk.h"

int main(int argc, char** argv) {
    unsigned long nodes = 0;
    unsigned long checksum = 0;
    for (int index = 1; index < argc; ++index) {
        if (!LoadAndWalk(argv[index], nodes, checksum)) {
            return 1;
        }
    }
    std::printf("%lu nodes %lu\n", nodes, checksum);
    return 0;
}
