#include "xmlinput/record_fill.h"

#include <cwchar>

#include "blob/string_table.h"
#include "model/type_names.h"
#include "support/progress_log.h"
#include "text/wide_string.h"
#include "xmlinput/name_lookup.h"

namespace qk {

bool NameIs(const wchar_t* name, const wchar_t* wanted) {
    return name != nullptr && std::wcscmp(name, wanted) == 0;
}

wchar_t* StoredCopy(const wchar_t* text) {
    const std::size_t length = std::wcslen(text);
    wchar_t* copy = TrackedCopy(text, length);
    AddToWordsArray(copy, length);
    return copy;
}

void FillCustomisationStrings(const wchar_t* name, const wchar_t* value) {
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
    }
}

void FillDriver(Driver* driver, const wchar_t* name, const wchar_t* value) {
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
            driver->iPrivacy = *code;
            return;
        }
        LogFormat(L"ERROR: - type not defined: - %ls\n", OrEmpty(value));
    } else {
        LogFormat(L"ERROR: - Unknown driver attributes: - %ls\n", OrEmpty(name));
    }
}

void FillProperty(Property* property, const wchar_t* name, const wchar_t* value) {
    if (property == nullptr) {
        return;
    }
    if (NameIs(name, L"Type")) {
        if (const auto code = TypeCode(value)) {
            property->iType = *code;
            return;
        }
        LogFormat(L"ERROR: - type not defined: - %ls\n", OrEmpty(value));
    } else if (NameIs(name, L"Set")) {
        property->strSet = StoredCopy(OrEmpty(value));
    }
}

void FillProfile(Profile* profile, const wchar_t* name, const wchar_t* value) {
    if (profile == nullptr) {
        return;
    }
    if (NameIs(name, L"Area")) {
        profile->lpDriver = FindDriver(value);
    } else if (NameIs(name, L"Usage")) {
        profile->strUsage = StoredCopy(OrEmpty(value));
    } else if (NameIs(name, L"Notes")) {
        profile->strNotes = StoredCopy(OrEmpty(value));
    } else {
        LogFormat(L"ERROR: - Unknown driver attributes: - %ls\n", OrEmpty(name));
    }
}

void FillApplication(Application* application, const wchar_t* name, const wchar_t* value) {
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
    }
}

int CompareCustomisation(const wchar_t* name, const wchar_t* value) {
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
        return 0;
    }
    return stored != nullptr && value != nullptr && std::wcscmp(stored, value) == 0 ? 1 : 0;
}

}  // namespace qk
