#pragma once

// "Did you mean": the known name that a misspelt one was probably meant to
// be. A name that differs only in letter case wins first; otherwise the one
// with the fewest edits (a swap of two neighbours counts as one), and only
// within two edits and a third of the name's length (at least one), so that a
// hint is rarely wrong. No candidate close enough: an empty result.

#include <string>
#include <string_view>
#include <vector>

namespace qk {

std::wstring ClosestName(std::wstring_view word, const std::vector<std::wstring_view>& known);
std::string ClosestName(std::string_view word, const std::vector<std::string_view>& known);

}  // namespace qk
