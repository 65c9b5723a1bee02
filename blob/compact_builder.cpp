// Placeholder until the builder lands.
#include "blob/compact_builder.h"

#include "app/progress_log.h"
#include "app/tracked_memory.h"

namespace qk {

std::uint8_t* g_lpBlob = nullptr;

int CreateCompact() {
    ProgressLog(L"ERROR, blob building is not available yet\n", 0);
    ExitFree();
}

BlobReader CurrentImage() {
    if (g_lpBlob == nullptr) {
        return BlobReader({});
    }
    return BlobReader({g_lpBlob, kMaxImageBytes});
}

}  // namespace qk
