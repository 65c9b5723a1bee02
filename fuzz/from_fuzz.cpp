// Arbitrary bytes as the blob file of --from: decoded as the installed database,
// filled into a tree as the library fills one, and written as -r writes it.
#include <cstddef>
#include <cstdint>

#include "bridge/blob_database.h"
#include "bridge/display_control.h"
#include "fuzz/fuzz_support.h"
#include "inspect/reverse_xml.h"
#include "model/customisation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qk::fuzz::ResetRun();
    const auto database = qk::DecodeBlobDatabase({data, size});
    if (database) {
        qk::Customisations root{};
        if (database->FillCustomisation(&root, qk::ZEL_Main_Memory_Alloc) == 0) {
            qk::ReverseXmlBytes(root, 1);
        }
        qk::ReleaseLibraryAnswers();
    }
    return 0;
}
