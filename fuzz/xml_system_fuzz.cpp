// Arbitrary bytes compiled as one system XML file.
#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_support.h"
#include "model/file_kind.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qk::fuzz::CompileXml(data, size, qk::kSystemFile);
    return 0;
}
