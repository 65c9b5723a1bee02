// Arbitrary bytes as a blob file: dumped as -o does with a blob re-read from
// disk, and its version string printed as -v does.
#include <cstddef>
#include <cstdint>

#include "blob/blob_file.h"
#include "fuzz/fuzz_support.h"
#include "inspect/blob_dump.h"
#include "support/fatal_exit.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qk::fuzz::ResetRun();
    const char* path = qk::fuzz::WriteInput(data, size, qk::kDefaultBlobName);
    try {
        if (qk::LoadBlobImage(path) >= 0)
            qk::PrintCompact();
        qk::printVersionString();
    } catch (const qk::FatalExit& exit) {
        qk::fuzz::CheckFatalExit(exit.status);
    }
    return 0;
}
