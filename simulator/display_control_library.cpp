// A stand-in for the display-control library, so that every path of quillard can
// run on a machine without the display driver. It holds the installed databases
// as blob files system.blb, user.blb and oem.blb in $VEXZEL_SIM_DIR.
// $VEXZEL_SIM_FAIL names entries (comma-separated) that are made to return -1.
// Built with SIM_OMIT_<entry> defined, the library lacks that entry.

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>
#include <sstream>
#include <string>

#include "bridge/display_control_abi.h"
#include "model/customisation.h"
#include "simulator/installed_database.h"

namespace {

using qk::sim::InstalledDatabase;

qk::ZelMemoryAlloc g_allocate = nullptr;

[[maybe_unused]] bool Failing(const char* entry) {
    const char* list = std::getenv("VEXZEL_SIM_FAIL");
    if (list == nullptr) {
        return false;
    }
    std::stringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        if (name == entry) {
            return true;
        }
    }
    return false;
}

[[maybe_unused]] std::optional<InstalledDatabase> Database(int database) {
    static const char* const kFiles[] = {"system.blb", "user.blb", "oem.blb"};
    const char* dir = std::getenv("VEXZEL_SIM_DIR");
    std::string path = dir != nullptr ? std::string(dir) + "/" : std::string();
    return qk::sim::LoadInstalledDatabase(path + kFiles[database]);
}

// The caller's memory callback gave nothing; the fetch fails with an error code.
struct OutOfMemory {};

void* NewBlock(std::size_t bytes) {
    if (bytes > 0xFFFFFFFFu) {
        throw OutOfMemory{};
    }
    void* block = g_allocate(static_cast<unsigned>(bytes));
    if (block == nullptr) {
        throw OutOfMemory{};
    }
    std::memset(block, 0, bytes);
    return block;
}

template <typename T>
T* New() {
    return static_cast<T*>(NewBlock(sizeof(T)));
}

wchar_t* NewText(const std::wstring& text) {
    auto* copy = static_cast<wchar_t*>(NewBlock((text.size() + 1) * sizeof(wchar_t)));
    std::wmemcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

template <typename T>
void Append(T*& head, T*& tail, T* item) {
    (tail ? tail->lpNext : head) = item;
    tail = item;
}

std::string Narrow(const std::wstring& text) {
    std::string narrow;
    for (wchar_t unit : text)
        narrow.push_back(static_cast<char>(unit));
    return narrow;
}

[[maybe_unused]] void FillTree(const InstalledDatabase& database, qk::Customisations* root) {
    using namespace qk;
    root->strFormat = NewText(L"1");
    root->strRelease = NewText(database.release);
    Area* lastArea = nullptr;
    for (const auto& installed : database.areas) {
        auto* area = New<Area>();
        area->lpDriver = New<Driver>();
        area->lpDriver->strName = NewText(installed.driver);
        area->lpDriver->iPrivacy = installed.privacy;
        Property* lastProperty = nullptr;
        for (const auto& property : installed.properties) {
            auto* record = New<Property>();
            record->iType = property.type;
            record->strName = NewText(property.name);
            record->strSet = NewText(property.set);
            Append(area->lpProperties, lastProperty, record);
        }
        Append(root->lpAreas, lastArea, area);
    }
    auto driverOf = [&](std::uint32_t driverPosition) -> Area* {
        Area* area = root->lpAreas;
        for (const auto& installed : database.areas) {
            if (installed.driverPosition == driverPosition)
                return area;
            area = area->lpNext;
        }
        return nullptr;
    };
    Profile* lastProfile = nullptr;
    for (const auto& installed : database.profiles) {
        auto* profile = New<Profile>();
        Area* area = driverOf(installed.driverPosition);
        if (area != nullptr) {
            profile->lpDriver = area->lpDriver;
        } else if (!installed.driver.empty()) {
            profile->lpDriver = New<Driver>();
            profile->lpDriver->strName = NewText(installed.driver);
        }
        profile->strUsage = NewText(installed.name);
        profile->strNotes = NewText(installed.notes);
        Value* lastValue = nullptr;
        for (const auto& installedValue : installed.values) {
            auto* value = New<Value>();
            // Room for a terminator after text data, which carries none of its own.
            value->lpData = NewBlock(installedValue.datum.size() + sizeof(wchar_t));
            if (!installedValue.datum.empty())
                std::memcpy(value->lpData, installedValue.datum.data(),
                            installedValue.datum.size());
            value->iDataLength = static_cast<std::uint32_t>(installedValue.datum.size());
            for (Property* property = area ? area->lpProperties : nullptr; property != nullptr;
                 property = property->lpNext) {
                if (Narrow(property->strName) == installedValue.property) {
                    value->lpProperty = property;
                    break;
                }
            }
            Append(profile->lpValues, lastValue, value);
        }
        Append(root->lpProfiles, lastProfile, profile);
        profile->iBlobPos = installed.position;
    }
    Application* lastApplication = nullptr;
    for (const auto& installed : database.applications) {
        auto* application = New<Application>();
        application->strTitle = NewText(installed.title);
        application->strFile = NewText(installed.file);
        application->strPath = NewText(installed.path);
        application->strVersion = NewText(installed.version);
        Use* lastUse = nullptr;
        for (std::uint32_t position : installed.useProfiles) {
            auto* use = New<Use>();
            for (Profile* profile = root->lpProfiles; profile != nullptr;
                 profile = profile->lpNext) {
                if (profile->iBlobPos == position) {
                    use->strProfile = NewText(profile->strUsage);
                    use->lpDriver = profile->lpDriver;
                    break;
                }
            }
            Append(application->lpUses, lastUse, use);
        }
        Append(root->lpApplications, lastApplication, application);
    }
}

[[maybe_unused]] const qk::sim::InstalledArea* FindArea(const InstalledDatabase& database,
                                                        const wchar_t* name) {
    for (const auto& area : database.areas) {
        if (area.driver == name)
            return &area;
    }
    return nullptr;
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
    const auto installed = Database(database);
    if (!installed) {
        return -2;  // the database file is not a readable blob
    }
    try {
        FillTree(*installed, root);
    } catch (const OutOfMemory&) {
        return -4;  // the blocks taken so far stay with the caller's allocator
    }
    return 0;
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_Profile_Exist
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_Profile_Exist(
    const wchar_t* area, const wchar_t* profile, unsigned char* exists) {
    if (Failing("ZEL_ApplicationProfiles_Profile_Exist") || area == nullptr || profile == nullptr ||
        exists == nullptr)
        return -1;
    const auto installed = Database(0);
    if (!installed)
        return -2;
    *exists = 0;
    for (const auto& candidate : installed->profiles) {
        if (candidate.driver == area && candidate.name == profile) {
            *exists = 1;
        }
    }
    return 0;
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(
    const wchar_t* area, int* privacy) {
    if (Failing("ZEL_ApplicationProfiles_DriverAreaPrivacy_Get") || area == nullptr ||
        privacy == nullptr)
        return -1;
    const auto installed = Database(0);
    if (!installed)
        return -2;
    const auto* found = FindArea(*installed, area);
    if (found == nullptr)
        return qk::kAreaNotInstalled;
    *privacy = found->privacy;
    return 0;
}
#endif

#ifndef SIM_OMIT_ZEL_ApplicationProfiles_PropertyType_Get
__attribute__((visibility("default"))) int ZEL_ApplicationProfiles_PropertyType_Get(
    const wchar_t* area, const wchar_t* property, int* type) {
    if (Failing("ZEL_ApplicationProfiles_PropertyType_Get") || area == nullptr ||
        property == nullptr || type == nullptr)
        return -1;
    const auto installed = Database(0);
    if (!installed)
        return -2;
    for (const auto& candidate : installed->areas) {
        if (candidate.driver != area)
            continue;
        for (const auto& known : candidate.properties) {
            if (known.name == property) {
                *type = known.type;
                return 0;
            }
        }
    }
    return -3;  // no such driver/property pair
}
#endif

}  // extern "C"
