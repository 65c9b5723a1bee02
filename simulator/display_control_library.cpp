// A stand-in for the display-control library, so that every path of quillard can
// run on a machine without the display driver: a thin shell around the tool's own
// database over a blob file. It holds the installed databases as blob files
// system.blb, user.blb and oem.blb in $VEXZEL_SIM_DIR.
// $VEXZEL_SIM_FAIL names entries (comma-separated) that are made to return -1.
// Built with SIM_OMIT_<entry> defined, the library lacks that entry.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "bridge/blob_database.h"
#include "bridge/display_control_abi.h"

namespace {

using qk::BlobDatabase;

qk::ZelMemoryAlloc g_allocate = nullptr;

[[maybe_unused]] bool Failing(const char* entry) {
    const char* list = std::getenv("VEXZEL_SIM_FAIL");
    if (list == nullptr) {
        return false;
    }
    const std::string_view names(list);
    for (std::size_t start = 0; start <= names.size();) {
        const std::size_t end = std::min(names.find(',', start), names.size());
        if (names.substr(start, end - start) == entry) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// A database never installed is empty; one that is not a readable blob is nothing.
[[maybe_unused]] std::optional<BlobDatabase> Database(int database) {
    static const char* const kFiles[] = {"system.blb", "user.blb", "oem.blb"};
    const char* dir = std::getenv("VEXZEL_SIM_DIR");
    std::string path = dir != nullptr ? std::string(dir) + "/" : std::string();
    return qk::LoadBlobDatabase(path + kFiles[database], nullptr, true);
}

// Nothing is thrown out of a C entry point: memory running out in here is an
// answer like any other (the fetch's own, or -1).
template <typename Body>
int Answer(int outOfMemory, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return outOfMemory;
    }
}

}  // namespace

extern "C" {

#ifndef SIM_OMIT_ZEL_Main_Control_Create
__attribute__((visibility("default"))) int ZEL_Main_Control_Create(qk::ZelMemoryAlloc allocate,
                                                                   int) {
    if (Failing("ZEL_Main_Control_Create"))
        return -1;
    g_allocate = allocate;
    return 0;
}
#endif

#ifndef SIM_OMIT_ZEL_Main_Control_Destroy
__attribute__((visibility("default"))) int ZEL_Main_Control_Destroy() {
    return Failing("ZEL_Main_Control_Destroy") ? -1 : 0;
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_System_Reload
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_System_Reload() {
    return Failing("ZEL_ApplicationProfiles_System_Reload") ? -1 : 0;
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_GetCustomization
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_GetCustomization(
    int database, qk::Customisations* root) {
    if (Failing("ZEL_ApplicationProfiles_GetCustomization") || database < 0 || database > 2 ||
        root == nullptr || g_allocate == nullptr) {
        return -1;
    }
    return Answer(qk::kFetchOutOfMemory, [&] {
        const auto installed = Database(database);
        if (!installed) {
            return -2;  // the database file is not a readable blob
        }
        return installed->FillCustomisation(root, g_allocate);
    });
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_Profile_Exist
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_Profile_Exist(
    const wchar_t* area, const wchar_t* profile, unsigned char* exists) {
    if (Failing("ZEL_ApplicationProfiles_Profile_Exist") || area == nullptr || profile == nullptr ||
        exists == nullptr)
        return -1;
    return Answer(-1, [&] {
        const auto installed = Database(0);
        return installed ? installed->ProfileExist(area, profile, exists) : -2;
    });
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(
    const wchar_t* area, int* privacy) {
    if (Failing("ZEL_ApplicationProfiles_DriverAreaPrivacy_Get") || area == nullptr ||
        privacy == nullptr)
        return -1;
    return Answer(-1, [&] {
        const auto installed = Database(0);
        return installed ? installed->AreaPrivacy(area, privacy) : -2;
    });
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_PropertyType_Get
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_PropertyType_Get(
    const wchar_t* area, const wchar_t* property, int* type) {
    if (Failing("ZEL_ApplicationProfiles_PropertyType_Get") || area == nullptr ||
        property == nullptr || type == nullptr)
        return -1;
    return Answer(-1, [&] {
        const auto installed = Database(0);
        return installed ? installed->PropertyType(area, property, type) : -2;
    });
}
#endif

}  // extern "C"
