#pragma once

#include <cstddef>
#include <ctime>
#include <optional>

namespace qk {

constexpr std::size_t kVersionUnits = 256;
constexpr std::size_t kReleaseBound = 64;  // the -c text: at most 63 characters

// The -c release text and the composed version string of the run.
extern wchar_t g_strRelease[kVersionUnits];
extern wchar_t g_strVersion[kVersionUnits];

// -c: clears both buffers, then stores the release text (null leaves it empty).
// False when the text does not fit.
bool SetReleaseText(const wchar_t* release);

// Copies the run's version string ("<release>_<YYYYmmdd_HHMM>_", local time) into
// output (kVersionUnits units). Composed once; later calls give the same text.
// 0 on success, -1 when it could not be composed.
int GetVersionString(wchar_t* output);

// Fixes the time of the version string: that moment, in UTC, instead of the
// local time of the run (SOURCE_DATE_EPOCH). Nothing: the local time again.
void SetVersionTime(std::optional<std::time_t> utc);

// Clears both buffers (between runs in tests).
void ResetVersionString();

}  // namespace qk
