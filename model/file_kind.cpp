#include "model/file_kind.h"

namespace qk {

int g_appProfileMode = kSystemFile;

void SetFileKind(FileKind kind) {
    g_appProfileMode = kind;
}

}  // namespace qk
