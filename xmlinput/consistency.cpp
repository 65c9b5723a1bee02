#include "xmlinput/consistency.h"

#include <cwchar>
#include <unordered_set>

#include "model/record_places.h"
#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "xmlinput/name_lookup.h"

namespace qk {

DriverPair g_driverNames[1] = {{nullptr, nullptr}};
std::vector<const wchar_t*> g_propertyNames_1;
std::vector<const wchar_t*> g_propertyNames_2;

namespace {

constexpr int kPairCount = static_cast<int>(sizeof g_driverNames / sizeof g_driverNames[0]);

bool SameName(const wchar_t* left, const wchar_t* right) {
    return left != nullptr && right != nullptr && std::wcscmp(left, right) == 0;
}

// Stores name in the next slot of a list whose filling restarts at slot 0.
void StoreName(std::vector<const wchar_t*>& list, std::size_t slot, const wchar_t* name) {
    if (slot < list.size()) {
        list[slot] = name;
    } else {
        list.push_back(name);
    }
}

// The first property of one list that the other lacks, in words.
std::string MissingPropertyText(const wchar_t* firstName, const wchar_t* secondName) {
    const auto missing = [](const std::vector<const wchar_t*>& from,
                            const std::vector<const wchar_t*>& in) -> const wchar_t* {
        for (const wchar_t* name : from) {
            if (name == nullptr) {
                break;
            }
            bool found = false;
            for (const wchar_t* other : in) {
                found = found || SameName(name, other);
            }
            if (!found) {
                return name;
            }
        }
        return nullptr;
    };
    if (const wchar_t* name = missing(g_propertyNames_1, g_propertyNames_2)) {
        return Quoted(secondName) + " lacks property " + Quoted(name);
    }
    if (const wchar_t* name = missing(g_propertyNames_2, g_propertyNames_1)) {
        return Quoted(firstName) + " lacks property " + Quoted(name);
    }
    return "their property names differ";
}

}  // namespace

int checkXML() {
    g_driverNames[0] = {L"HYDynamic", L"NOMM-HYDynamic"};
    if (startComparison(g_driverNames[0].first, g_driverNames[0].second, 0) == 1) {
        return 1;
    }
    g_propertyNames_1.clear();
    g_propertyNames_2.clear();
    return 0;
}

int startComparison(const wchar_t* firstName, const wchar_t* secondName, int pairIndex) {
    if (firstName == nullptr || secondName == nullptr) {
        return 0;
    }
    const Customisations* root = g_lpCustomisations;
    if (root == nullptr || root->lpAreas == nullptr) {
        LogFormat(L"SUCCESS - Skipped matching drivers: %ls and %ls.\n", firstName, secondName);
        return 0;
    }
    bool foundFirst = false;
    bool foundSecond = false;
    const Area* firstArea = nullptr;
    const Area* secondArea = nullptr;
    int firstCount = 0;
    int secondCount = 0;
    for (const Area* area = root->lpAreas; area != nullptr; area = area->lpNext) {
        const wchar_t* driver = area->lpDriver != nullptr ? area->lpDriver->strName : nullptr;
        if (SameName(driver, firstName)) {
            foundFirst = true;
            firstArea = firstArea != nullptr ? firstArea : area;
            firstCount += countProperties(area, firstName, pairIndex);
            LogFormat(L"Total number of properties for %ls: %d\n", firstName, firstCount);
        } else if (SameName(driver, secondName)) {
            foundSecond = true;
            secondArea = secondArea != nullptr ? secondArea : area;
            secondCount += countProperties(area, secondName, pairIndex);
            LogFormat(L"Total number of properties for %ls: %d\n", secondName, secondCount);
        }
    }
    if (!foundFirst || !foundSecond) {
        LogFormat(L"SUCCESS - Skipped matching drivers: %ls and %ls.\n", firstName, secondName);
        return 0;
    }
    const auto mismatch = [&](const std::string& why) {
        Report(Diagnostic::Error("driver-pair-mismatch", RecordPlace(firstArea),
                                 "the dynamic-switching areas " + Quoted(firstName) + " and " +
                                     Quoted(secondName) + " must define the same properties: " +
                                     why + "; no blob is written")
                   .Note(RecordPlace(secondArea), "area " + Quoted(secondName) + " is here"));
    };
    if (firstCount != secondCount) {
        LogFormat(L"ERROR -  Drivers: %ls and %ls have no matches.\n", firstName, secondName);
        mismatch(Quoted(firstName) + " has " + std::to_string(firstCount) + ", " +
                 Quoted(secondName) + " has " + std::to_string(secondCount));
        return 1;
    }
    if (matchProperties() == 0) {
        LogFormat(L"SUCCESS -  Drivers: %ls and %ls match.\n", firstName, secondName);
        return 0;
    }
    LogFormat(
        L"ERROR -  Drivers: %ls and %ls have same number of properties, but different "
        L"property names.\n",
        firstName, secondName);
    mismatch(MissingPropertyText(firstName, secondName));
    return 1;
}

int countProperties(const Area* area, const wchar_t* driverName, int pairIndex) {
    if (area == nullptr) {
        return 0;
    }
    const DriverPair* pair =
        pairIndex >= 0 && pairIndex < kPairCount ? &g_driverNames[pairIndex] : nullptr;
    int count = 0;
    std::size_t slot = 0;
    for (const Property* property = area->lpProperties; property != nullptr;
         property = property->lpNext) {
        ++count;
        std::vector<const wchar_t*>* list = nullptr;
        if (pair != nullptr && SameName(driverName, pair->first)) {
            list = &g_propertyNames_1;
        } else if (pair != nullptr && SameName(driverName, pair->second)) {
            list = &g_propertyNames_2;
        }
        if (list != nullptr) {
            StoreName(*list, slot++, property->strName);
            LogFormat(L"Added to %ls properties: %ls\n", driverName,
                      property->strName != nullptr ? property->strName : L"");
        }
    }
    return count;
}

int matchProperties() {
    for (const wchar_t* name : g_propertyNames_1) {
        if (name == nullptr) {
            break;  // the first empty slot ends the list
        }
        bool found = false;
        for (const wchar_t* other : g_propertyNames_2) {
            if (SameName(name, other)) {
                found = true;
                break;
            }
        }
        if (!found) {
            return 1;
        }
    }
    return 0;
}

int RemoveInvalidApplications(Customisations* root) {
    if (root == nullptr) {
        return -1;
    }
    Application** link = &root->lpApplications;
    while (*link != nullptr) {
        Application* application = *link;
        if (application->lpUses == nullptr) {
            *link = application->lpNext;
            FreeApplication(application);
        } else {
            link = &application->lpNext;
        }
    }
    return 0;
}

int RemoveUnusedDriverArea(Customisations* root) {
    if (root == nullptr) {
        return -1;
    }
    // One pass over profiles and uses instead of one per area.
    std::unordered_set<const Driver*> used;
    for (const Profile* profile = root->lpProfiles; profile != nullptr; profile = profile->lpNext) {
        if (profile->lpDriver != nullptr) {
            used.insert(profile->lpDriver);
        }
    }
    for (const Application* application = root->lpApplications; application != nullptr;
         application = application->lpNext) {
        for (const Use* use = application->lpUses; use != nullptr; use = use->lpNext) {
            if (use->lpDriver != nullptr) {
                used.insert(use->lpDriver);
            }
        }
    }
    bool removed = false;
    Area** link = &root->lpAreas;
    while (*link != nullptr) {
        Area* area = *link;
        if (area->lpDriver == nullptr || !used.contains(area->lpDriver)) {
            *link = area->lpNext;
            FreeArea(area);
            removed = true;
        } else {
            link = &area->lpNext;
        }
    }
    if (removed) {
        InvalidateNameLookups();
    }
    return 0;
}

void FreeApplication(Application* application) {
    if (application == nullptr) {
        return;
    }
    application->strTitle = nullptr;
    application->strFile = nullptr;
    application->strPath = nullptr;
    application->strVersion = nullptr;
}

void FreeArea(Area* area) {
    if (area == nullptr) {
        return;
    }
    if (area->lpDriver != nullptr) {
        area->lpDriver->strName = nullptr;
    }
    area->lpDriver = nullptr;
    for (Property* property = area->lpProperties; property != nullptr;
         property = property->lpNext) {
        property->strName = nullptr;
        property->strSet = nullptr;
    }
    InvalidateNameLookups();
}

void ResetConsistency() {
    g_driverNames[0] = {nullptr, nullptr};
    g_propertyNames_1.clear();
    g_propertyNames_2.clear();
}

}  // namespace qk
