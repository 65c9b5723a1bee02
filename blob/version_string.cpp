#include "blob/version_string.h"

#include <ctime>
#include <cwchar>

#include "text/bounded_string.h"

namespace qk {

wchar_t g_strRelease[kVersionUnits];
wchar_t g_strVersion[kVersionUnits];

namespace {

constexpr std::size_t kTimeUnits = 32;
std::optional<std::time_t> g_fixedTime;

}  // namespace

bool SetReleaseText(const wchar_t* release) {
    ResetVersionString();
    return release == nullptr || wcscpy_s(g_strRelease, kReleaseBound, release) != nullptr;
}

int GetVersionString(wchar_t* output) {
    if (g_strVersion[0] != L'\0') {
        wcscpy_s(output, kVersionUnits, g_strVersion);
        return 0;
    }
    std::wmemset(output, L'\0', kVersionUnits);
    const std::time_t now = g_fixedTime.value_or(std::time(nullptr));
    // SetReleaseText keeps the release within its bound, so this copy cannot fail.
    wchar_t release[kReleaseBound] = {};
    if (g_strRelease[0] != L'\0' && wcscpy_s(release, kReleaseBound, g_strRelease) == nullptr) {
        return -1;
    }
    wchar_t stamp[kTimeUnits] = {};
    std::tm when{};
    const bool broken =
        g_fixedTime ? gmtime_r(&now, &when) == nullptr : localtime_r(&now, &when) == nullptr;
    if (broken || std::wcsftime(stamp, kTimeUnits, L"%Y%m%d_%H%M", &when) == 0) {
        return -1;
    }
    if (_snwprintf_s(output, kVersionUnits, kVersionUnits - 1, L"%ls_%ls_", release, stamp) < 0 ||
        output[0] == L'\0') {
        return -1;
    }
    wcscpy_s(g_strVersion, kVersionUnits, output);
    return 0;
}

void SetVersionTime(std::optional<std::time_t> utc) {
    g_fixedTime = utc;
}

void ResetVersionString() {
    std::wmemset(g_strRelease, L'\0', kVersionUnits);
    std::wmemset(g_strVersion, L'\0', kVersionUnits);
}

}  // namespace qk
