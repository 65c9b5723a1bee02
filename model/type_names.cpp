#include "model/type_names.h"

#include <cwchar>
#include <span>

#include "model/customisation.h"

namespace qk {

namespace {

struct Named {
    const wchar_t* name;
    std::int32_t code;
};

constexpr Named kTypes[] = {
    {L"Binary", kTypeBinary},   {L"Qword", kTypeQword},           {L"Dword", kTypeDword},
    {L"Boolean", kTypeBoolean}, {L"Enumerated", kTypeEnumerated}, {L"String", kTypeString},
};

constexpr Named kPrivacies[] = {
    {L"Undefined", kPrivacyUndefined},
    {L"Defined", kPrivacyDefined},
    {L"ProfilesOnly", kPrivacyProfilesOnly},
    {L"ApplicationsOnly", kPrivacyApplicationsOnly},
    {L"ApplicationsAndProfiles", kPrivacyApplicationsAndProfiles},
};

const wchar_t* NameOf(std::span<const Named> table, std::int32_t code) {
    for (const Named& entry : table) {
        if (entry.code == code) {
            return entry.name;
        }
    }
    return nullptr;
}

std::optional<std::int32_t> CodeOf(std::span<const Named> table, const wchar_t* name) {
    for (const Named& entry : table) {
        if (name != nullptr && std::wcscmp(entry.name, name) == 0) {
            return entry.code;
        }
    }
    return std::nullopt;
}

}  // namespace

const wchar_t* TypeName(std::int32_t type) {
    return NameOf(kTypes, type);
}

std::optional<std::int32_t> TypeCode(const wchar_t* name) {
    return CodeOf(kTypes, name);
}

const wchar_t* PrivacyName(std::int32_t privacy) {
    return NameOf(kPrivacies, privacy);
}

std::optional<std::int32_t> PrivacyCode(const wchar_t* name) {
    return CodeOf(kPrivacies, name);
}

}  // namespace qk
