// Placeholder until the dump lands.
#include "inspect/blob_dump.h"

#include "app/progress_log.h"
#include "app/tracked_memory.h"

namespace qk {

void PrintCompact() {
    ProgressLog(L"ERROR, blob dump is not available yet\n", 0);
    ExitFree();
}

}  // namespace qk
