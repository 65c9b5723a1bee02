// Arbitrary bytes as one side of --diff, the installed example set as the other.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "bridge/blob_database.h"
#include "bridge/display_control.h"
#include "fuzz/fuzz_support.h"
#include "inspect/blob_diff.h"
#include "model/customisation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // fuzz/run installs the example set there.
    static const std::optional<qk::BlobDatabase> kExample = [] {
        const char* dir = std::getenv("VEXZEL_SIM_DIR");
        return qk::LoadBlobDatabase(std::string(dir != nullptr ? dir : ".") + "/system.blb");
    }();
    qk::fuzz::ResetRun();
    const auto database = qk::DecodeBlobDatabase({data, size});
    if (!database) {
        return 0;
    }
    qk::Customisations fuzzed{};
    qk::Customisations example{};
    if (database->FillCustomisation(&fuzzed, qk::ZEL_Main_Memory_Alloc) == 0 &&
        (!kExample || kExample->FillCustomisation(&example, qk::ZEL_Main_Memory_Alloc) == 0)) {
        qk::DiffCustomisations(fuzzed, example);
        qk::DiffCustomisations(example, fuzzed);
        qk::DiffCustomisations(fuzzed, fuzzed);
    }
    qk::ReleaseLibraryAnswers();
    return 0;
}
