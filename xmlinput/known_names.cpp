#include "xmlinput/known_names.h"

#include <cwchar>

#include "model/customisation.h"

namespace qk {

namespace {

bool Same(const wchar_t* a, const wchar_t* b) {
    return a != nullptr && b != nullptr && std::wcscmp(a, b) == 0;
}

}  // namespace

std::vector<std::wstring_view> KnownAreaNames() {
    std::vector<std::wstring_view> names;
    for (const Area* area = g_lpCustomisations != nullptr ? g_lpCustomisations->lpAreas : nullptr;
         area != nullptr; area = area->lpNext) {
        if (area->lpDriver != nullptr && area->lpDriver->strName != nullptr) {
            names.emplace_back(area->lpDriver->strName);
        }
    }
    return names;
}

std::vector<std::wstring_view> KnownPropertyNames(const wchar_t* driverName) {
    std::vector<std::wstring_view> names;
    for (const Area* area = g_lpCustomisations != nullptr ? g_lpCustomisations->lpAreas : nullptr;
         area != nullptr; area = area->lpNext) {
        if (area->lpDriver == nullptr || !Same(area->lpDriver->strName, driverName)) {
            continue;
        }
        for (const Property* property = area->lpProperties; property != nullptr;
             property = property->lpNext) {
            if (property->strName != nullptr) {
                names.emplace_back(property->strName);
            }
        }
    }
    return names;
}

std::vector<std::wstring_view> KnownProfileNames(const wchar_t* driverName) {
    std::vector<std::wstring_view> names;
    for (const Profile* profile = g_lpCustomisations != nullptr ? g_lpCustomisations->lpProfiles
                                                                : nullptr;
         profile != nullptr; profile = profile->lpNext) {
        if (profile->strUsage != nullptr && profile->lpDriver != nullptr &&
            Same(profile->lpDriver->strName, driverName)) {
            names.emplace_back(profile->strUsage);
        }
    }
    return names;
}

}  // namespace qk
