// Arbitrary bytes compiled as one user XML file. Built twice: without a
// display-control library (every query fails), and with the stand-in library
// answering from an installed system set (QUILLKIT_FUZZ_WITH_LIBRARY).
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bridge/display_control.h"
#include "fuzz/fuzz_support.h"
#include "model/file_kind.h"

namespace {

void ChooseLibrary() {
#ifdef QUILLKIT_FUZZ_WITH_LIBRARY
    // fuzz/run provides an installed system set; without one (the empty work
    // directory) the library answers that every area is missing.
    setenv("VEXZEL_SIM_DIR", std::filesystem::current_path().c_str(), 0);
#else
    qk::SetDisplayControlLibrary("libquillkit-fuzz-no-such-library.so");
#endif
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool chosen = (ChooseLibrary(), true);
    (void)chosen;
    qk::fuzz::CompileXml(data, size, qk::kUserFile);
    return 0;
}
