// The Mini-XML floor plus the least that replacing a blob safely can cost: after
// the files are loaded and walked, as many bytes as the given blob holds are
// written to an unnamed file beside the target, synced, linked in under a
// temporary name and renamed over the target, and the directory is synced.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "floor_walk.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr,
                     "usage: write_floor BLOB TARGET XML... (TARGET in the working "
                     "directory; only BLOB's size is used)\n");
        return 2;
    }
    struct stat blob {};
    if (stat(argv[1], &blob) != 0) {
        std::perror(argv[1]);
        return 1;
    }
    unsigned long nodes = 0;
    unsigned long checksum = 0;
    for (int index = 3; index < argc; ++index) {
        if (!LoadAndWalk(argv[index], nodes, checksum)) {
            return 1;
        }
    }
    // Any bytes will do; the file system neither compresses nor shares them.
    std::vector<char> bytes(static_cast<std::size_t>(blob.st_size), '\x5a');
    const int directory = open(".", O_RDONLY | O_DIRECTORY);
    const int file = openat(directory, ".", O_TMPFILE | O_WRONLY, 0644);
    if (directory < 0 || file < 0) {
        std::perror("open");
        return 1;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(file);
    const std::string temporary = std::string(".") + argv[2] + ".tmp";
    if (write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        fsync(file) != 0 ||
        linkat(AT_FDCWD, self.c_str(), directory, temporary.c_str(), AT_SYMLINK_FOLLOW) != 0 ||
        renameat(directory, temporary.c_str(), directory, argv[2]) != 0 || fsync(directory) != 0) {
        std::perror(argv[2]);
        return 1;
    }
    close(file);
    close(directory);
    std::printf("%lu nodes %lu\n", nodes, checksum);
    return 0;
}
