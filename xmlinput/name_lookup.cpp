#include "xmlinput/name_lookup.h"

#include <cwchar>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "model/file_kind.h"
#include "support/fatal_exit.h"
#include "support/progress_log.h"

#include "text/wide_string.h"

namespace qk {

namespace {

struct WideHash {
    using is_transparent = void;
    std::size_t operator()(std::wstring_view text) const {
        return std::hash<std::wstring_view>{}(text);
    }
};

template <typename T>
using WideMap = std::unordered_map<std::wstring, T, WideHash, std::equal_to<>>;

// Keys are owned copies: the indexes may outlive a tree that tests throw away.
struct Indexes {
    Customisations* root = nullptr;
    bool areasValid = false;
    WideMap<Area*> areas;  // driver name -> first area
    bool propertiesValid = false;
    WideMap<WideMap<Property*>> properties;  // driver name -> property name -> first
    bool profilesValid = false;
    WideMap<int> profiles;  // usage -> number of profiles carrying it
};

Indexes g_indexes;

const wchar_t* DriverName(const Area* area) {
    return area->lpDriver != nullptr ? area->lpDriver->strName : nullptr;
}

// A new tree (or none) makes every index stale.
Customisations* CurrentRoot() {
    if (g_indexes.root != g_lpCustomisations) {
        InvalidateNameLookups();
        g_indexes.root = g_lpCustomisations;
    }
    return g_indexes.root;
}

void RebuildAreas(const Customisations* root) {
    g_indexes.areas.clear();
    for (Area* area = root->lpAreas; area != nullptr; area = area->lpNext) {
        if (const wchar_t* name = DriverName(area)) {
            g_indexes.areas.try_emplace(name, area);
        }
    }
    g_indexes.areasValid = true;
}

void RebuildProperties(const Customisations* root) {
    g_indexes.properties.clear();
    for (Area* area = root->lpAreas; area != nullptr; area = area->lpNext) {
        const wchar_t* driver = DriverName(area);
        if (driver == nullptr) {
            continue;
        }
        auto& byName = g_indexes.properties[driver];
        for (Property* property = area->lpProperties; property != nullptr;
             property = property->lpNext) {
            if (property->strName != nullptr) {
                byName.try_emplace(property->strName, property);
            }
        }
    }
    g_indexes.propertiesValid = true;
}

void RebuildProfiles(const Customisations* root) {
    g_indexes.profiles.clear();
    for (Profile* profile = root->lpProfiles; profile != nullptr; profile = profile->lpNext) {
        if (profile->strUsage != nullptr) {
            ++g_indexes.profiles[profile->strUsage];
        }
    }
    g_indexes.profilesValid = true;
}

bool SameText(const wchar_t* stored, std::wstring_view wanted) {
    return stored != nullptr && wanted == stored;
}

// The first area of that driver name, or null; no message.
Area* LookUpArea(const wchar_t* name) {
    const Customisations* root = CurrentRoot();
    if (root == nullptr || name == nullptr) {
        return nullptr;
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!g_indexes.areasValid || attempt > 0) {
            RebuildAreas(root);
        }
        const auto hit = g_indexes.areas.find(std::wstring_view(name));
        if (hit == g_indexes.areas.end()) {
            return nullptr;
        }
        // A record cleared behind the index's back is caught here.
        if (SameText(DriverName(hit->second), name)) {
            return hit->second;
        }
    }
    return nullptr;
}

Property* LookUpProperty(const wchar_t* driverName, const wchar_t* propertyName) {
    const Customisations* root = CurrentRoot();
    if (root == nullptr || driverName == nullptr || propertyName == nullptr) {
        return nullptr;
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!g_indexes.propertiesValid || attempt > 0) {
            RebuildProperties(root);
        }
        const auto driver = g_indexes.properties.find(std::wstring_view(driverName));
        if (driver == g_indexes.properties.end()) {
            return nullptr;
        }
        const auto hit = driver->second.find(std::wstring_view(propertyName));
        if (hit == driver->second.end()) {
            return nullptr;
        }
        if (SameText(hit->second->strName, propertyName)) {
            return hit->second;
        }
    }
    return nullptr;
}

}  // namespace

int isLetters(const char* text) {
    if (text == nullptr || *text == '\0') {
        return -1;
    }
    for (; *text != '\0'; ++text) {
        const bool letter = (*text >= 'A' && *text <= 'Z') || (*text >= 'a' && *text <= 'z');
        if (!letter) {
            return -1;
        }
    }
    return 0;
}

int isNumbers(const char* text) {
    if (text == nullptr || *text == '\0') {
        return -1;
    }
    for (; *text != '\0'; ++text) {
        if (!((*text >= '0' && *text <= '9') || *text == '.')) {
            return -1;
        }
    }
    return 0;
}

int isInteger(const char* text) {
    if (text == nullptr || *text == '\0') {
        return -1;
    }
    for (; *text != '\0'; ++text) {
        if (*text < '0' || *text > '9') {
            return -1;
        }
    }
    return 0;
}

int isValidNameString(const char* text) {
    if (text == nullptr || *text == '\0' || *text == ' ') {
        return -1;
    }
    return 0;
}

Driver* FindDriver(const wchar_t* name) {
    Area* area = LookUpArea(name);
    if (area == nullptr) {
        LogFormat(L"WARNING: Unknown Driver: - %ls\n", OrEmpty(name));
        return nullptr;
    }
    return area->lpDriver;
}

Area* FindArea(const wchar_t* name) {
    Area* area = LookUpArea(name);
    if (area == nullptr) {
        LogFormat(L"WARNING: Unknown Driver: - %ls\n", OrEmpty(name));
    }
    return area;
}

Property* FindProperty(const wchar_t* driverName, const wchar_t* propertyName) {
    Property* property = LookUpProperty(driverName, propertyName);
    if (property == nullptr && g_appProfileMode == kSystemFile) {
        LogFormat(L"ERROR: - Unknown Driver/PropertyID pair: - %ls/%ls.", OrEmpty(driverName),
                  OrEmpty(propertyName));
        throw FatalExit{0};
    }
    return property;
}

int FindUseName(const wchar_t* name) {
    const Customisations* root = CurrentRoot();
    if (root == nullptr || name == nullptr) {
        return 0;
    }
    if (!g_indexes.profilesValid) {
        RebuildProfiles(root);
    }
    return g_indexes.profiles.contains(std::wstring_view(name)) ? 1 : 0;
}

Area* GetLastValidArea() {
    if (g_lpCustomisations == nullptr) {
        return nullptr;
    }
    Area* area = g_lpCustomisations->lpAreas;
    while (area != nullptr && area->lpNext != nullptr) {
        area = area->lpNext;
    }
    return area;
}

Driver* GetLastValidDriver(Area* area) {
    return area != nullptr ? area->lpDriver : nullptr;
}

Property* GetLastValidProperty(Area* area) {
    if (area == nullptr) {
        return nullptr;
    }
    Property* property = area->lpProperties;
    while (property != nullptr && property->lpNext != nullptr) {
        property = property->lpNext;
    }
    return property;
}

Profile* GetLastValidProfile() {
    if (g_lpCustomisations == nullptr) {
        return nullptr;
    }
    Profile* profile = g_lpCustomisations->lpProfiles;
    while (profile != nullptr && profile->lpNext != nullptr) {
        profile = profile->lpNext;
    }
    return profile;
}

Value* GetLastValidValue(Profile* profile) {
    if (profile == nullptr) {
        return nullptr;
    }
    Value* value = profile->lpValues;
    while (value != nullptr && value->lpNext != nullptr) {
        value = value->lpNext;
    }
    return value;
}

Application* GetLastValidApplication() {
    if (g_lpCustomisations == nullptr) {
        return nullptr;
    }
    Application* application = g_lpCustomisations->lpApplications;
    while (application != nullptr && application->lpNext != nullptr) {
        application = application->lpNext;
    }
    return application;
}

Use* GetLastValidUse(Application* application) {
    if (application == nullptr) {
        return nullptr;
    }
    Use* use = application->lpUses;
    while (use != nullptr && use->lpNext != nullptr) {
        use = use->lpNext;
    }
    return use;
}

void NoteAreaNamed(Area* area) {
    CurrentRoot();
    if (area == nullptr || !g_indexes.areasValid) {
        return;
    }
    const wchar_t* name = DriverName(area);
    if (name == nullptr) {
        return;
    }
    // Properties are indexed under their driver's name, so they move with it.
    if (area->lpProperties != nullptr) {
        g_indexes.propertiesValid = false;
    }
    const auto [hit, added] = g_indexes.areas.try_emplace(name, area);
    // An earlier holder of the name stays first unless the new one may precede it.
    if (!added && hit->second != area && area->lpNext != nullptr) {
        g_indexes.areasValid = false;
    }
}

void NotePropertyNamed(Area* owner, Property* property, const wchar_t* oldName) {
    CurrentRoot();
    if (owner == nullptr || property == nullptr || !g_indexes.propertiesValid) {
        return;
    }
    const wchar_t* driver = DriverName(owner);
    if (driver == nullptr) {
        return;  // properties of a nameless driver are never found
    }
    auto& byName = g_indexes.properties[driver];
    if (oldName != nullptr) {
        const auto old = byName.find(std::wstring_view(oldName));
        if (old != byName.end() && old->second == property) {
            // Another property may hold the old name further on.
            g_indexes.propertiesValid = false;
            return;
        }
    }
    if (property->strName == nullptr) {
        return;
    }
    const auto [hit, added] = byName.try_emplace(property->strName, property);
    const bool lastOfAll = owner->lpNext == nullptr && property->lpNext == nullptr;
    if (!added && hit->second != property && !lastOfAll) {
        g_indexes.propertiesValid = false;
    }
}

void NoteProfileNamed(const wchar_t* oldName, const wchar_t* newName) {
    CurrentRoot();
    if (!g_indexes.profilesValid) {
        return;
    }
    if (oldName != nullptr) {
        const auto old = g_indexes.profiles.find(std::wstring_view(oldName));
        if (old == g_indexes.profiles.end()) {
            g_indexes.profilesValid = false;
            return;
        }
        if (--old->second == 0) {
            g_indexes.profiles.erase(old);
        }
    }
    if (newName != nullptr) {
        ++g_indexes.profiles[newName];
    }
}

void InvalidateNameLookups() {
    g_indexes.areasValid = false;
    g_indexes.propertiesValid = false;
    g_indexes.profilesValid = false;
}

void ResetNameLookup() {
    g_indexes = Indexes{};
}

}  // namespace qk
