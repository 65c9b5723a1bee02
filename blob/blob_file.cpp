// Placeholder until blob writing lands.
#include "blob/blob_file.h"

#include "app/progress_log.h"
#include "app/tracked_memory.h"

namespace qk {

int WriteBinFile(char*) { return 0; }

long LoadBlobImage(const char*) {
    ProgressLog(L"ERROR, blob loading is not available yet\n", 0);
    ExitFree();
}

int printVersionString() { return 0; }

}  // namespace qk
