// Placeholder until the XML reader lands: reading fails, never pretends.
#include "xmlinput/file_reader.h"

#include "app/progress_log.h"

namespace qk {

int ReadOneFile(const char* path) {
    LogFormat(L"ERROR, XML reading is not available yet: %s\n", path);
    return -2;
}

}  // namespace qk
