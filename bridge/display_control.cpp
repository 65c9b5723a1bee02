#include "bridge/display_control.h"

#include "bridge/blob_database.h"
#include "support/diagnostic.h"
#include "support/out_of_memory.h"
#include "text/utf8_decode.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>
#include <unordered_set>

namespace qk {

ZelSystemReloadFn ZEL_ApplicationProfiles_System_Reload = nullptr;
ZelProfileExistFn ZEL_ApplicationProfiles_Profile_Exist = nullptr;
ZelDriverAreaPrivacyGetFn ZEL_ApplicationProfiles_DriverAreaPrivacy_Get = nullptr;
ZelPropertyTypeGetFn ZEL_ApplicationProfiles_PropertyType_Get = nullptr;

namespace {

// The library the bridge loads; tests point it at a variant build by path.
const char* g_lpLibraryName = kDisplayControlLibrary;
// Set, the database that answers instead of the library.
const BlobDatabase* g_answeringBlob = nullptr;

// Every block handed to the library, so its answers can be released together.
std::unordered_set<void*>& Blocks() {
    static std::unordered_set<void*> blocks;
    return blocks;
}

}  // namespace

void* ZEL_Main_Memory_Alloc(unsigned int size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        return nullptr;
    }
    try {
        Blocks().insert(block);
    } catch (const std::bad_alloc&) {  // nothing is thrown back into the library
        std::free(block);
        return nullptr;
    }
    return block;
}

void ZEL_Main_Memory_Free(void** block) {
    if (block != nullptr && *block != nullptr) {
        Blocks().erase(*block);
        std::free(*block);
        *block = nullptr;
    }
}

void AnswerFromBlob(const BlobDatabase* database) {
    g_answeringBlob = database;
}

void SetDisplayControlLibrary(const char* name) {
    g_lpLibraryName = name != nullptr ? name : kDisplayControlLibrary;
}

void ReleaseLibraryAnswers() {
    for (void* block : Blocks()) {
        std::free(block);
    }
    Blocks().clear();
}

namespace {

// The library's messages run together on one line, as the library's users know
// them; each is also a diagnostic.
void Say(const char* message) {
    std::printf("%s", message);
    std::fflush(stdout);
    Report(Diagnostic::Error("display-control-library", {},
                             std::string("the display-control library: ") + message));
}

template <typename Fn>
Fn Resolve(void* library, const char* name) {
    return reinterpret_cast<Fn>(dlsym(library, name));
}

struct Entry {
    const char* name;
    const char* missing;
    const char* failed;
};

constexpr Entry kReload = {"ZEL_ApplicationProfiles_System_Reload",
                           "Fail to get ZEL_APPLICATIONPROFILES_SYSTEM_RELOAD handle!",
                           "ZEL_ApplicationProfiles_System_Reload failed."};
constexpr Entry kGetCustomization = {"ZEL_ApplicationProfiles_GetCustomization",
                                     "Fail to get ZEL_ApplicationProfiles_GetCustomization handle!",
                                     "ZEL_ApplicationProfiles_GetCustomization failed."};
constexpr Entry kProfileExist = {"ZEL_ApplicationProfiles_Profile_Exist",
                                 "Fail to get ZEL_APPLICATIONPROFILES_PROFILE_EXIST handle!",
                                 "ZEL_ApplicationProfiles_Profile_Exist failed."};
constexpr Entry kPrivacyGet = {"ZEL_ApplicationProfiles_DriverAreaPrivacy_Get",
                               "Fail to get ZEL_APPLICATIONPROFILES_DRIVERAREA_GET handle!",
                               "ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed."};
constexpr Entry kPropertyTypeGet = {"ZEL_ApplicationProfiles_PropertyType_Get",
                                    "Fail to get ZEL_APPLICATIONPROFILES_PROPERTYTYPE handle!",
                                    "ZEL_ApplicationProfiles_PropertyType_Get failed."};

// The loader keeps no errno: only its words tell that it had no room to map
// the library, which is memory exhaustion, not a missing library. dlerror()
// is read once, so the words are kept for the diagnostic.
const char* g_loaderError = "";

constexpr std::size_t kLoaderRoomBytes = std::size_t{16} << 20;

bool LoaderRanOutOfMemory() {
    const char* error = dlerror();
    g_loaderError = error != nullptr ? error : "";
    const std::string_view words(g_loaderError);
    return words.find("failed to map segment") != std::string_view::npos ||
           words.find("allocate memory") != std::string_view::npos ||
           words.find("out of memory") != std::string_view::npos;
}

// One complete cycle: load, resolve, create, call, destroy. The library handle is
// never closed; the loader keeps one copy however often it is opened.
template <typename Fn, typename Store, typename Call>
int CallLibrary(const Entry& entry, Store store, Call call) {
    // The loader ends the process, with no error to answer, when it cannot have
    // the thread-local data of a library it has mapped: the first load is made
    // only with room to spare.
    static bool loaded = false;
    if (!loaded) {
        MakeSureOfAddressSpace(kLoaderRoomBytes);
    }
    void* library = dlopen(g_lpLibraryName, RTLD_LAZY | RTLD_GLOBAL);
    loaded = library != nullptr;
    if (library == nullptr && LoaderRanOutOfMemory()) {
        ThrowOutOfMemory();  // no room to map it: not a missing library
    }
    if (library == nullptr) {
        static bool reported = false;  // once a run is enough
        if (!reported) {
            reported = true;
            Report(Diagnostic::Error("display-control-library", {},
                                     std::string("the display-control library ") + g_lpLibraryName +
                                         " cannot be loaded (" + g_loaderError +
                                         "); without it, --against names a system blob to "
                                         "check against"));
        }
        return -1;
    }
    auto create = Resolve<ZelControlCreateFn>(library, "ZEL_Main_Control_Create");
    if (create == nullptr) {
        Say("Fail to get ZEL_MAIN_CONTROL_CREATE handle!");
        return -1;
    }
    auto destroy = Resolve<ZelControlDestroyFn>(library, "ZEL_Main_Control_Destroy");
    if (destroy == nullptr) {
        Say("Fail to get ZEL_MAIN_CONTROL_DESTROY handle!");
        return -1;
    }
    auto function = Resolve<Fn>(library, entry.name);
    store(function);
    if (function == nullptr) {
        Say(entry.missing);
        return -1;
    }
    if (create(ZEL_Main_Memory_Alloc, 1) != 0) {
        Say("ZEL Initialization error!");
        return -1;
    }
    const int result = call(function);
    if (result != 0) {
        Say(entry.failed);
    }
    if (destroy() != 0) {
        Say("ZEL Destroy error!");
    }
    return result;
}

}  // namespace

void Call_ZEL_ApplicationProfiles_System_Reload() {
    CallLibrary<ZelSystemReloadFn>(
        kReload, [](ZelSystemReloadFn fn) { ZEL_ApplicationProfiles_System_Reload = fn; },
        [](ZelSystemReloadFn fn) { return fn(); });
}

int Call_ZEL_ApplicationProfiles_GetCustomization(int database, Customisations* root) {
    const int result = g_answeringBlob != nullptr
                           ? g_answeringBlob->FillCustomisation(root, ZEL_Main_Memory_Alloc)
                           : CallLibrary<ZelGetCustomizationFn>(
                                 kGetCustomization, [](ZelGetCustomizationFn) {},
                                 [&](ZelGetCustomizationFn fn) { return fn(database, root); });
    if (result == kFetchOutOfMemory) {
        ReleaseLibraryAnswers();
        ThrowOutOfMemory();  // not an answer about the installed database
    }
    return result;
}

int Call_ZEL_ApplicationProfiles_Profile_Exist(const wchar_t* area, const wchar_t* profile,
                                               unsigned char* exists) {
    if (g_answeringBlob != nullptr) {
        return g_answeringBlob->ProfileExist(area, profile, exists);
    }
    return CallLibrary<ZelProfileExistFn>(
        kProfileExist, [](ZelProfileExistFn fn) { ZEL_ApplicationProfiles_Profile_Exist = fn; },
        [&](ZelProfileExistFn fn) { return fn(area, profile, exists); });
}

int Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(const wchar_t* area, int* privacy) {
    if (g_answeringBlob != nullptr) {
        return g_answeringBlob->AreaPrivacy(area, privacy);
    }
    return CallLibrary<ZelDriverAreaPrivacyGetFn>(
        kPrivacyGet,
        [](ZelDriverAreaPrivacyGetFn fn) { ZEL_ApplicationProfiles_DriverAreaPrivacy_Get = fn; },
        [&](ZelDriverAreaPrivacyGetFn fn) { return fn(area, privacy); });
}

int Call_ZEL_ApplicationProfiles_PropertyType_Get(const wchar_t* area, const wchar_t* property,
                                                  int* type) {
    if (g_answeringBlob != nullptr) {
        return g_answeringBlob->PropertyType(area, property, type);
    }
    return CallLibrary<ZelPropertyTypeGetFn>(
        kPropertyTypeGet,
        [](ZelPropertyTypeGetFn fn) { ZEL_ApplicationProfiles_PropertyType_Get = fn; },
        [&](ZelPropertyTypeGetFn fn) { return fn(area, property, type); });
}

}  // namespace qk
