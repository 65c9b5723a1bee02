#pragma once

// The names of the property data types and area privacy settings, as the XML
// spells them, with their codes.

#include <cstdint>
#include <optional>

namespace qk {

// "Binary", "Qword", "Dword", "Boolean", "Enumerated", "String"; null for any
// other code.
const wchar_t* TypeName(std::int32_t type);
std::optional<std::int32_t> TypeCode(const wchar_t* name);

// "Undefined", "Defined", "ProfilesOnly", "ApplicationsOnly",
// "ApplicationsAndProfiles"; null for any other code.
const wchar_t* PrivacyName(std::int32_t privacy);
std::optional<std::int32_t> PrivacyCode(const wchar_t* name);

}  // namespace qk
