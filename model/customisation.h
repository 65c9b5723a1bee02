#pragma once

// The customisation tree. Plain C-layout records in field order: the
// display-control library fills the very same records, so neither fields nor
// their order may change.

#include <cstdint>

#include "model/string_ref.h"

namespace qk {

enum DataType : std::int32_t {
    kTypeUnknown = 0,
    kTypeBinary = 1,
    kTypeQword = 2,
    kTypeDword = 3,
    kTypeBoolean = 4,
    kTypeEnumerated = 5,
    kTypeString = 6,
};

enum Privacy : std::int32_t {
    kPrivacyUndefined = 0,
    kPrivacyDefined = 1,
    kPrivacyProfilesOnly = 3,
    kPrivacyApplicationsOnly = 5,
    kPrivacyApplicationsAndProfiles = 7,
};

struct Property {
    std::int32_t iType;
    wchar_t* strName;
    wchar_t* strSet;
    Property* lpNext;
    StringRef refName;
    StringRef refSet;
    std::uint32_t iBlobPos;
};

struct Driver {
    wchar_t* strName;
    std::int32_t iPrivacy;
    StringRef refName;
    std::uint32_t iBlobPos;
};

struct Area {
    Driver* lpDriver;
    Property* lpProperties;
    Area* lpNext;
    std::uint32_t iBlobPos;
};

struct Value {
    void* lpData;
    std::uint32_t iDataLength;  // 32-bit units; 0 for text data
    Property* lpProperty;
    Value* lpNext;
    StringRef refData;
};

struct Profile {
    Driver* lpDriver;
    wchar_t* strUsage;
    wchar_t* strNotes;
    Value* lpValues;
    Profile* lpNext;
    StringRef refUsage;
    StringRef refNotes;
    std::uint32_t iBlobPos;
};

struct Use {
    wchar_t* strProfile;
    Driver* lpDriver;
    Use* lpNext;
    StringRef refProfile;
    std::uint32_t iBlobPos;
};

struct Application {
    wchar_t* strTitle;
    wchar_t* strFile;
    wchar_t* strPath;
    wchar_t* strVersion;
    Use* lpUses;
    Application* lpNext;
    StringRef refTitle;
    StringRef refFile;
    StringRef refPath;
    StringRef refVersion;
    std::uint32_t iBlobPos;
};

struct Customisations {
    Area* lpAreas;
    Profile* lpProfiles;
    Application* lpApplications;
    wchar_t* strContent;
    wchar_t* strRelease;
    wchar_t* strFormat;
    StringRef refContent;
    StringRef refRelease;
    StringRef refFormat;
};

// The one tree of the run, created before any option is examined.
extern Customisations* g_lpCustomisations;

// Creates the zero-filled root record (tracked) and makes it the run's tree.
Customisations* CreateCustomisations();

}  // namespace qk
