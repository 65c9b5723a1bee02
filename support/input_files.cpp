#include "support/input_files.h"

#include <map>
#include <utility>

namespace qk {

namespace {

std::map<std::pair<dev_t, ino_t>, std::string>& Inputs() {
    static std::map<std::pair<dev_t, ino_t>, std::string> inputs;
    return inputs;
}

}  // namespace

void RecordInputFile(const char* path, const struct stat& info) {
    Inputs().try_emplace({info.st_dev, info.st_ino}, path);
}

void RecordInputName(const char* path) {
    struct stat info {};
    if (path != nullptr && stat(path, &info) == 0) {
        RecordInputFile(path, info);
    }
}

const std::string* InputFileName(const struct stat& info) {
    const auto found = Inputs().find({info.st_dev, info.st_ino});
    return found != Inputs().end() ? &found->second : nullptr;
}

void ResetInputFiles() {
    Inputs().clear();
}

}  // namespace qk
