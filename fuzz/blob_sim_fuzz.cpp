// Arbitrary bytes as an installed database, decoded as the stand-in
// display-control library decodes its blob files.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "simulator/installed_database.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qk::fuzz::ResetRun();
    const std::vector<std::uint8_t> bytes(data, data + size);
    qk::sim::DecodeInstalledDatabase(bytes);
    return 0;
}
