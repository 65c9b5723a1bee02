// Placeholder until the version string lands.
#include "blob/version_string.h"

#include "text/bounded_string.h"

namespace qk {

wchar_t g_strRelease[kVersionUnits];
wchar_t g_strVersion[kVersionUnits];

bool SetReleaseText(const wchar_t* release) {
    for (auto& unit : g_strRelease) unit = 0;
    for (auto& unit : g_strVersion) unit = 0;
    return release == nullptr || wcscpy_s(g_strRelease, kReleaseBound, release) != nullptr;
}

int GetVersionString(wchar_t*) { return -1; }

}  // namespace qk
