// Arbitrary bytes checked as -p does before reading a file. The first byte
// picks the file kind and whether properties are counted.
#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_support.h"
#include "model/file_kind.h"
#include "support/fatal_exit.h"
#include "xmlinput/xml_discovery.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    qk::fuzz::ResetRun();
    qk::SetFileKind(static_cast<qk::FileKind>(data[0] % 3));
    const int countProperties = (data[0] >> 2) & 1;
    const char* path = qk::fuzz::WriteInput(data + 1, size - 1, "input.xml");
    try {
        qk::ValidateXmlProfile(path, countProperties);
    } catch (const qk::FatalExit& exit) {
        qk::fuzz::CheckFatalExit(exit.status);
    }
    return 0;
}
