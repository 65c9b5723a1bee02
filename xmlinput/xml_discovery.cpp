// Placeholder until directory discovery lands.
#include "xmlinput/xml_discovery.h"

#include <cstdio>

#include "app/progress_log.h"

namespace qk {

int ReadAllXmls(const char* directory, int) {
    LogFormat(L"Searching for xml's in: - %s\n", directory);
    ProgressLog(L"No XML file found.\n", 0);
    return -1;
}

long GetFileSizeAp(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return 0;
    }
    long size = 0;
    if (std::fseek(file, 0, SEEK_END) == 0) {
        size = std::ftell(file);
    }
    std::fclose(file);
    return size < 0 ? 0 : size;
}

}  // namespace qk
