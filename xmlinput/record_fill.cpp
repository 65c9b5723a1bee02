#include "xmlinput/record_fill.h"

#include <cwchar>

#include "blob/string_table.h"
#include "model/file_kind.h"
#include "model/type_names.h"
#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "support/utf8_encode.h"
#include "text/closest_name.h"
#include "text/wide_string.h"
#include "xmlinput/known_names.h"
#include "xmlinput/name_lookup.h"

namespace qk {

namespace {

// A value that is none of the names the attribute takes.
void ReportUnknownValue(const ElementPlace& at, const char* attribute, const wchar_t* value,
                        const std::vector<std::wstring_view>& known, const char* what) {
    std::wstring_view word(OrEmpty(value));
    Report(Diagnostic::Error("unknown-value", AttributeValueLocation(at, attribute),
                             std::string("unknown ") + what + " " + Quoted(value))
               .Suggest(EncodeUtf8(ClosestName(word, known).c_str())));
}

std::vector<std::wstring_view> PrivacyNames() {
    return {L"Undefined", L"Defined", L"ProfilesOnly", L"ApplicationsOnly",
            L"ApplicationsAndProfiles"};
}

std::vector<std::wstring_view> TypeNames() {
    return {L"Binary", L"Qword", L"Dword", L"Boolean", L"Enumerated", L"String"};
}

}  // namespace

void ReportUnknownAttribute(const ElementPlace& at, const char* element, const wchar_t* name,
                            std::vector<std::string_view> known) {
    if (DiagnosticsFull()) {
        Report(Diagnostic::Error("unknown-attribute", {}, ""));  // counted only
        return;
    }
    const std::string narrow = EncodeUtf8(name);
    Report(Diagnostic::Error("unknown-attribute", AttributeNameLocation(at, narrow),
                             "unknown attribute " + narrow + " of <" + element + ">")
               .Suggest(ClosestName(std::string_view(narrow), known)));
}

bool NameIs(const wchar_t* name, const wchar_t* wanted) {
    return name != nullptr && std::wcscmp(name, wanted) == 0;
}

wchar_t* StoredCopy(const wchar_t* text) {
    const std::size_t length = std::wcslen(text);
    wchar_t* copy = TrackedCopy(text, length);
    AddToWordsArray(copy, length);
    return copy;
}

void FillCustomisationStrings(const wchar_t* name, const wchar_t* value, const ElementPlace& at) {
    Customisations* root = g_lpCustomisations;
    if (root == nullptr) {
        return;
    }
    if (NameIs(name, L"Content")) {
        root->strContent = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"Release")) {
        root->strRelease = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"Format")) {
        wchar_t format[16];
        std::swprintf(format, 16, L"%d", 1);
        root->strFormat = StoredCopy(format);
    } else {
        LogFormat(L"ERROR: - Unknown customisations attributes: - %ls\n", OrEmpty(name));
        ReportUnknownAttribute(at, "customisations", name, {"Release", "Format", "Content"});
    }
}

void FillDriver(Driver* driver, const wchar_t* name, const wchar_t* value, const ElementPlace& at) {
    if (driver == nullptr) {
        return;
    }
    if (NameIs(name, L"Name")) {
        if (driver->strName == nullptr) {
            driver->strName = StoredCopy(OrEmpty(value));
            driver->iPrivacy = kPrivacyDefined;
        }
    } else if (NameIs(name, L"Privacy")) {
        if (const auto code = PrivacyCode(value)) {
            if (driver->strName == nullptr) {
                Report(Diagnostic::Warning(
                    "privacy-before-name", AttributeNameLocation(at, "Privacy"),
                    "Privacy stands before Name: naming the area sets its privacy back to "
                    "\"Defined\", so " +
                        Quoted(value) + " is lost; put Privacy after Name"));
            }
            driver->iPrivacy = *code;
            return;
        }
        LogFormat(L"ERROR: - type not defined: - %ls\n", OrEmpty(value));
        ReportUnknownValue(at, "Privacy", value, PrivacyNames(), "privacy");
    } else {
        LogFormat(L"ERROR: - Unknown driver attributes: - %ls\n", OrEmpty(name));
        ReportUnknownAttribute(at, "area", name, {"Name", "Privacy"});
    }
}

void FillProperty(Property* property, const wchar_t* name, const wchar_t* value,
                  const ElementPlace& at) {
    if (property == nullptr) {
        return;
    }
    if (NameIs(name, L"Type")) {
        if (const auto code = TypeCode(value)) {
            property->iType = *code;
            return;
        }
        LogFormat(L"ERROR: - type not defined: - %ls\n", OrEmpty(value));
        ReportUnknownValue(at, "Type", value, TypeNames(), "property type");
    } else if (NameIs(name, L"Set")) {
        property->strSet = StoredCopy(OrEmpty(value));
    } else {
        // The log passes other attributes of a property over in silence.
        ReportUnknownAttribute(at, "property", name, {"Type", "Set"});
    }
}

void FillProfile(Profile* profile, const wchar_t* name, const wchar_t* value,
                 const ElementPlace& at) {
    if (profile == nullptr) {
        return;
    }
    if (NameIs(name, L"Area")) {
        profile->lpDriver = FindDriver(value);
        if (profile->lpDriver == nullptr && g_appProfileMode == kSystemFile) {
            Report(
                Diagnostic::Error(
                    "unknown-area", AttributeValueLocation(at, "Area"),
                    "unknown area " + Quoted(value) + ": the profile and its values are left out")
                    .Suggest(EncodeUtf8(
                        ClosestName(std::wstring_view(OrEmpty(value)), KnownAreaNames()).c_str())));
        }
    } else if (NameIs(name, L"Usage")) {
        profile->strUsage = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"Notes")) {
        profile->strNotes = StoredCopy(OrEmpty(value));
    } else {
        LogFormat(L"ERROR: - Unknown driver attributes: - %ls\n", OrEmpty(name));
        ReportUnknownAttribute(at, "profile", name, {"Area", "Usage", "Notes"});
    }
}

void FillApplication(Application* application, const wchar_t* name, const wchar_t* value,
                     const ElementPlace& at) {
    if (application == nullptr) {
        return;
    }
    if (NameIs(name, L"Title")) {
        application->strTitle = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"File")) {
        application->strFile = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"Path")) {
        application->strPath = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"Version")) {
        application->strVersion = StoredCopy(OrEmpty(value));
    } else {
        LogFormat(L"ERROR: - Unknown application attributes: - %ls\n", OrEmpty(name));
        ReportUnknownAttribute(at, "application", name, {"Title", "File", "Path", "Version"});
    }
}

int CompareCustomisation(const wchar_t* name, const wchar_t* value, const ElementPlace& at) {
    const Customisations* root = g_lpCustomisations;
    const wchar_t* stored = nullptr;
    if (NameIs(name, L"Content")) {
        stored = root != nullptr ? root->strContent : nullptr;
    } else if (NameIs(name, L"Release")) {
        stored = root != nullptr ? root->strRelease : nullptr;
    } else if (NameIs(name, L"Format")) {
        stored = root != nullptr ? root->strFormat : nullptr;
    } else {
        LogFormat(L"ERROR: - Unknown customisations attributes: - %ls\n", OrEmpty(name));
        ReportUnknownAttribute(at, "customisations", name, {"Release", "Format", "Content"});
        return 0;
    }
    return stored != nullptr && value != nullptr && std::wcscmp(stored, value) == 0 ? 1 : 0;
}

}  // namespace qk
