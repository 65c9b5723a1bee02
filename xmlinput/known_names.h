#pragma once

// The names a misspelt one is compared with for a "did you mean" hint, taken
// from the tree when a diagnostic needs them.

#include <string_view>
#include <vector>

namespace qk {

std::vector<std::wstring_view> KnownAreaNames();
// Properties of the areas whose driver has this name.
std::vector<std::wstring_view> KnownPropertyNames(const wchar_t* driverName);
// Profiles of the areas whose driver has this name.
std::vector<std::wstring_view> KnownProfileNames(const wchar_t* driverName);

}  // namespace qk
