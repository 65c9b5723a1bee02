#pragma once

// Builds a customisation tree by hand as the XML reader links it: tracked
// copies of the names, records appended at the ends of their lists, and the
// name lookup told of every name.

#include <string>
#include <vector>

#include "model/customisation.h"
#include "support/tracked_memory.h"
#include "text/wide_string.h"
#include "xmlinput/name_lookup.h"

namespace qk::unit {

template <typename Record>
void AppendRecord(Record*& head, Record* record) {
    Record** link = &head;
    while (*link != nullptr) {
        link = &(*link)->lpNext;
    }
    *link = record;
}

inline Area* AddArea(Customisations* root, const wchar_t* name,
                     const std::vector<std::wstring>& properties = {}) {
    auto* area = AllocateRecord<Area>();
    area->lpDriver = AllocateRecord<Driver>();
    area->lpDriver->strName = TrackedCopy(name);
    AppendRecord(root->lpAreas, area);
    NoteAreaNamed(area);
    for (const std::wstring& propertyName : properties) {
        auto* property = AllocateRecord<Property>();
        property->strName = TrackedCopy(propertyName.c_str());
        AppendRecord(area->lpProperties, property);
        NotePropertyNamed(area, property, nullptr);
    }
    return area;
}

inline Profile* AddProfile(Customisations* root, const wchar_t* usage) {
    auto* profile = AllocateRecord<Profile>();
    profile->strUsage = TrackedCopy(usage);
    AppendRecord(root->lpProfiles, profile);
    NoteProfileNamed(nullptr, profile->strUsage);
    return profile;
}

}  // namespace qk::unit
