#pragma once

// What a user or OEM file may do with an area of the installed system set: the
// area's privacy, asked through the display-control library, decides.

#include "support/source_manager.h"

namespace qk {

enum class AreaUse { kProfile, kApplication };

// True, after an ERROR line and a diagnostic at where, when the file may not
// use the area so: the area is missing from the installed set, the library
// could not be asked, or its privacy forbids it (ProfilesOnly and
// ApplicationsAndProfiles forbid profiles, ApplicationsOnly and
// ApplicationsAndProfiles forbid applications' uses). application names the
// application in the message of a missing area.
// report false: the same element was already refused (the check runs for
// every attribute of a profile), so no second diagnostic.
bool PrivacyRefuses(const wchar_t* area, AreaUse use, const wchar_t* application,
                    SourceLocation where = {}, bool report = true);

}  // namespace qk
