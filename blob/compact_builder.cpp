#include "blob/compact_builder.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <unordered_map>

#include "blob/string_table.h"
#include "model/customisation.h"
#include "model/file_kind.h"
#include "model/record_places.h"
#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "text/wide_string.h"

namespace qk {

std::uint8_t* g_lpDriverPtr = nullptr;
std::uint8_t* g_lpPropertyPtr = nullptr;
std::uint8_t* g_lpAreaPtr = nullptr;
std::uint8_t* g_lpProfilePtr = nullptr;
std::uint8_t* g_lpValuePtr = nullptr;
std::uint8_t* g_lpUsePtr = nullptr;
std::uint8_t* g_lpApplicationPtr = nullptr;

namespace {

// Profile name + L'\0' + driver name -> position of the first such profile.
// Built on the first lookup after the Profile table is written.
std::unordered_map<std::wstring, std::uint32_t> g_profileIndex;
bool g_profileIndexReady = false;
bool g_profileOpen = false;

using HeaderWord = std::uint32_t BlobHeader::*;

// A record already written to the image; the linking operations take
// positions from their callers, so a position beyond the written part ends the run.
template <typename Record>
Record* RecordAtPosition(std::uint32_t position) {
    const auto written = static_cast<std::uint64_t>(g_lpBuffer - g_lpBlob);
    if (PositionToByte(position) + sizeof(Record) > written) {
        LogFormat(L"ERROR, CreateCompact, position %u names no record written so far.\n", position);
        ExitFree();
    }
    return reinterpret_cast<Record*>(g_lpBlob + PositionToByte(position));
}

// The text of a StringRef of the image being built, for messages.
const wchar_t* WordText(StringRef ref) {
    return OrEmpty(GetWordsViaOffset(static_cast<std::int32_t>(ref.pos)));
}

void OpenTable(std::uint8_t*& cursor, HeaderWord start, HeaderWord units) {
    cursor = g_lpBuffer;
    ImageHeader()->*units = 0;
    ImageHeader()->*start = CursorPosition();
}

// nameOf gives the record's name for the message when the image has no room;
// only then is it looked up.
template <typename Record, typename NameOf>
std::uint32_t AddRecord(std::uint8_t*& cursor, HeaderWord start, HeaderWord units,
                        const Record& record, const wchar_t* kind, NameOf nameOf) {
    if (!ImageHasRoom(sizeof(Record))) {
        ReserveImageBytes(sizeof(Record), kind, nameOf());
    }
    BlobHeader* header = ImageHeader();
    const std::uint32_t position = header->*start + header->*units;
    std::memcpy(cursor, &record, sizeof(Record));
    header->*units += static_cast<std::uint32_t>(sizeof(Record) / kUnitBytes);
    cursor += sizeof(Record);
    g_lpBuffer += sizeof(Record);
    return position;
}

[[noreturn]] void BuildError(const wchar_t* format, const wchar_t* first, const wchar_t* second) {
    LogFormat(format, OrEmpty(first), OrEmpty(second));
    ExitFree();
}

std::wstring ProfileKey(const wchar_t* profileName, const wchar_t* driverName) {
    std::wstring key(profileName);
    key.push_back(L'\0');
    key.append(driverName);
    return key;
}

void BuildProfileIndex() {
    g_profileIndex.clear();
    for (const Profile* profile = g_lpCustomisations ? g_lpCustomisations->lpProfiles : nullptr;
         profile != nullptr; profile = profile->lpNext) {
        if (profile->lpDriver == nullptr || profile->strUsage == nullptr ||
            profile->lpDriver->strName == nullptr) {
            continue;
        }
        // try_emplace keeps the first profile of a name and driver.
        g_profileIndex.try_emplace(ProfileKey(profile->strUsage, profile->lpDriver->strName),
                                   profile->iBlobPos);
    }
    g_profileIndexReady = true;
}

// Bytes of a value's data as ProfileAddValue takes them.
std::uint64_t ValueDataBytes(const Value& value, std::int32_t type) {
    if (value.lpData == nullptr) {
        return 0;
    }
    if (type >= kTypeBinary && type <= kTypeBoolean) {
        return 4 * std::uint64_t{value.iDataLength};
    }
    return 4 * std::uint64_t{std::wcslen(static_cast<const wchar_t*>(value.lpData))};
}

void WriteWordsTable() {
    SortStringTable();
    WordsInitialise();
    g_strsEmptyString = WordsAdd(L"");
    for (int i = 0; i < g_iWordsArrElement; ++i) {
        WordEntry& entry = g_lpWordsArray[static_cast<std::size_t>(i)];
        entry.ref = WordsAdd(entry.text, entry.length);
    }
}

void WriteDrivers(Customisations& root) {
    DriverInitialise();
    for (Area* area = root.lpAreas; area != nullptr; area = area->lpNext) {
        if (area->lpDriver != nullptr) {
            Driver& driver = *area->lpDriver;
            driver.iBlobPos = DriverAdd(driver.refName, driver.iPrivacy);
        }
    }
}

void WriteProperties(Customisations& root) {
    PropertyInitialise();
    for (Area* area = root.lpAreas; area != nullptr; area = area->lpNext) {
        for (Property* property = area->lpProperties; property != nullptr;
             property = property->lpNext) {
            property->iBlobPos = PropertyAdd(property->iType, property->refName, property->refSet);
        }
    }
}

void WriteAreas(Customisations& root) {
    AreaInitialise();
    for (Area* area = root.lpAreas; area != nullptr; area = area->lpNext) {
        if (area->lpDriver == nullptr) {
            // Its Driver record does not exist, so an Area record would pair wrongly.
            ProgressLog(L"ERROR, CreateCompact, area without driver is left out.\n", 0);
            continue;
        }
        const std::uint32_t driverPos = area->lpDriver->iBlobPos;
        if (area->lpProperties != nullptr) {
            area->iBlobPos = AreaAdd(driverPos, area->lpProperties->iBlobPos);
            for (Property* property = area->lpProperties->lpNext; property != nullptr;
                 property = property->lpNext) {
                AreaAddProperty(area->iBlobPos, property->iBlobPos);
            }
        } else if (IsUserOrOem()) {
            area->iBlobPos = AreaAdd(driverPos, kNoRecord);
        } else {
            ProgressLog(L"ERROR, Should never have undefined Property on non-USER file", 0);
            Report(Diagnostic::Error("area-without-properties", RecordPlace(area),
                                     "area " + Quoted(area->lpDriver->strName) +
                                         " has no properties, which a system set does not allow; "
                                         "no blob is written"));
            ExitFree();
        }
    }
}

void WriteProfiles(Customisations& root) {
    ProfileInitialise();
    for (Profile* profile = root.lpProfiles; profile != nullptr; profile = profile->lpNext) {
        const StringRef name = profile->refUsage;
        const StringRef notes = profile->refNotes;
        PrintStrings(name.pos, name.len, L"Create compact, Profile");
        if (profile->lpDriver == nullptr) {
            ProgressLog(L"ERROR, Profile NULL, not adding Profile, OK for USER file", 0);
            Report(Diagnostic::Error(
                "profile-without-area", RecordPlace(profile),
                "profile " + Quoted(profile->strUsage) + " names no known area and is left out"));
            continue;
        }
        profile->iBlobPos = ProfileAdd(profile->lpDriver->iBlobPos, name, notes);
        for (Value* value = profile->lpValues; value != nullptr; value = value->lpNext) {
            const Property* property = value->lpProperty;
            if (property == nullptr) {
                LogFormat(
                    L"ERROR, CreateCompact, a value of profile \"%ls\" has no property; "
                    L"no blob is written.\n",
                    OrEmpty(profile->strUsage));
                ExitFree();
            }
            PrintStrings(property->refName.pos, property->refName.len,
                         L"Create compact, Profile/Value");
            if (property->iType <= kTypeUnknown || property->iType > kTypeString) {
                ProgressLog(L"ERROR, CreateCompact, Un-recongnized data type.", 0);
                Report(Diagnostic::Error("property-without-type", RecordPlace(property),
                                         "property " + Quoted(property->strName) +
                                             " has no known Type, so its value in profile " +
                                             Quoted(profile->strUsage) +
                                             " cannot be stored; no blob is written"));
                ExitFree();
            }
            ProfileAddValue(property->refName.pos, value->lpData,
                            ValueDataBytes(*value, property->iType), property->iType);
        }
        ProfileAddFinish();
    }
}

void WriteUses(Customisations& root) {
    UseInitialise();
    for (Application* application = root.lpApplications; application != nullptr;
         application = application->lpNext) {
        for (Use* use = application->lpUses; use != nullptr; use = use->lpNext) {
            use->iBlobPos = UseAdd(
                FindProfileElm(use->strProfile, use->lpDriver ? use->lpDriver->strName : nullptr));
        }
    }
}

void WriteApplications(Customisations& root) {
    ApplicationInitialise();
    for (Application* application = root.lpApplications; application != nullptr;
         application = application->lpNext) {
        const StringRef title = application->refTitle;
        const StringRef file = application->refFile;
        const StringRef path = application->refPath;
        const StringRef version = application->refVersion;
        if (application->lpUses == nullptr) {
            ProgressLog(L"XML ERROR, APPLICATION has no valid USE.\n", 0);
            continue;
        }
        application->iBlobPos =
            ApplicationAdd(title, file, path, version, application->lpUses->iBlobPos);
        for (Use* use = application->lpUses->lpNext; use != nullptr; use = use->lpNext) {
            ApplicationAddUse(application->iBlobPos, use->iBlobPos);
        }
    }
}

}  // namespace

void DriverInitialise() {
    OpenTable(g_lpDriverPtr, &BlobHeader::posDriverStart, &BlobHeader::nDriverUnits);
}

std::uint32_t DriverAdd(StringRef name, std::int32_t privacy) {
    const DriverRecord record = {name, static_cast<std::uint32_t>(privacy), 0};
    return AddRecord(g_lpDriverPtr, &BlobHeader::posDriverStart, &BlobHeader::nDriverUnits, record,
                     L"driver", [name] { return WordText(name); });
}

void PropertyInitialise() {
    OpenTable(g_lpPropertyPtr, &BlobHeader::posPropertyStart, &BlobHeader::nPropertyUnits);
}

std::uint32_t PropertyAdd(std::int32_t type, StringRef name, StringRef set) {
    const PropertyRecord record = {static_cast<std::uint32_t>(type), name, set, kNoRecord};
    return AddRecord(g_lpPropertyPtr, &BlobHeader::posPropertyStart, &BlobHeader::nPropertyUnits,
                     record, L"property", [name] { return WordText(name); });
}

void AreaInitialise() {
    OpenTable(g_lpAreaPtr, &BlobHeader::posAreaStart, &BlobHeader::nAreaUnits);
}

std::uint32_t AreaAdd(std::uint32_t driverPos, std::uint32_t firstPropertyPos) {
    const AreaRecord record = {driverPos, firstPropertyPos};
    return AddRecord(g_lpAreaPtr, &BlobHeader::posAreaStart, &BlobHeader::nAreaUnits, record,
                     L"area", [driverPos] {
                         auto driver = CurrentImage().RecordAt<DriverRecord>(driverPos);
                         return driver ? WordText(driver->refName) : L"";
                     });
}

void AreaAddProperty(std::uint32_t areaPos, std::uint32_t propertyPos) {
    AreaRecord* area = RecordAtPosition<AreaRecord>(areaPos);
    RecordAtPosition<PropertyRecord>(propertyPos)->posNext = area->posFirstProperty;
    area->posFirstProperty = propertyPos;
}

void ProfileInitialise() {
    OpenTable(g_lpProfilePtr, &BlobHeader::posProfileStart, &BlobHeader::nProfileUnits);
    g_profileIndexReady = false;
    g_profileOpen = false;
}

std::uint32_t ProfileAdd(std::uint32_t driverPos, StringRef name, StringRef notes) {
    // The header alone: the value records follow at g_lpValuePtr.
    const ProfileRecord record = {driverPos, name, notes, kNoRecord, 0, 0};
    std::uint8_t* header = g_lpProfilePtr;
    const std::uint32_t position =
        AddRecord(g_lpProfilePtr, &BlobHeader::posProfileStart, &BlobHeader::nProfileUnits, record,
                  L"profile", [name] { return WordText(name); });
    g_lpValuePtr = g_lpProfilePtr;
    g_lpProfilePtr = header;
    g_profileOpen = true;
    return position;
}

void ProfileAddValue(std::uint32_t namePos, const void* data, std::uint64_t size,
                     std::int32_t type) {
    if (!g_profileOpen) {
        ProgressLog(L"ERROR, CreateCompact, a value without an open profile.\n", 0);
        ExitFree();
    }
    auto* profile = reinterpret_cast<ProfileRecord*>(g_lpProfilePtr);
    const wchar_t* profileName = WordText(profile->refName);
    const wchar_t* wideName = OrEmpty(GetWordsViaOffset(static_cast<std::int32_t>(namePos)));
    if (profile->dwValueCount >= kMaxProfileValues) {
        BuildError(
            L"ERROR, CreateCompact, profile \"%ls\" has more than 1024 values (at "
            L"property \"%ls\"); no blob is written.\n",
            profileName, wideName);
    }
    const char* narrow = wctochar(wideName);
    const std::size_t nameLength = narrow != nullptr ? std::strlen(narrow) : 0;
    if (nameLength >= kPropertyNameBytes) {
        BuildError(
            L"ERROR, CreateCompact, property name \"%ls\" is longer than 15 narrow "
            L"characters (profile \"%ls\"); no blob is written.\n",
            wideName, profileName);
    }
    if (data == nullptr) {
        size = 0;
    }
    std::uint64_t datumBytes = size;
    if (type == kTypeBinary) {
        datumBytes = size / 4;
        if (datumBytes > kMaxBinaryBytes) {
            LogFormat(
                L"ERROR, CreateCompact, Binary value of property \"%ls\" in profile "
                L"\"%ls\" has %llu bytes, more than 4096; no blob is written.\n",
                wideName, profileName, static_cast<unsigned long long>(datumBytes));
            ExitFree();
        }
    }
    const std::uint64_t units = ValueRecordUnits(datumBytes);
    ReserveImageBytes(units * kUnitBytes, L"value of property", wideName);

    if (nameLength > 0) {
        std::memcpy(g_lpValuePtr, narrow, nameLength);
    }
    const auto datumSize = static_cast<std::uint32_t>(datumBytes);
    std::memcpy(g_lpValuePtr + offsetof(ValueRecordHead, dwDatumSize), &datumSize,
                sizeof(datumSize));
    std::uint8_t* datum = g_lpValuePtr + sizeof(ValueRecordHead);
    if (type == kTypeBinary) {
        const auto* words = static_cast<const std::uint32_t*>(data);
        for (std::uint64_t i = 0; i < datumBytes; ++i) {
            datum[i] = static_cast<std::uint8_t>(words[i] & 0xFF);
        }
    } else if (datumBytes > 0) {
        std::memcpy(datum, data, datumBytes);
    }
    // The padding after the datum is already zero: the image is zero-filled.
    const auto recordBytes = static_cast<std::uint32_t>(units * kUnitBytes);
    g_lpValuePtr += recordBytes;
    g_lpBuffer += recordBytes;
    ImageHeader()->nProfileUnits += static_cast<std::uint32_t>(units);
    profile->dwAggregatedSize += recordBytes;
    profile->dwValueCount += 1;
}

void ProfileAddFinish() {
    g_lpProfilePtr = g_lpBuffer;
    g_profileOpen = false;
}

void UseInitialise() {
    OpenTable(g_lpUsePtr, &BlobHeader::posUseStart, &BlobHeader::nUseUnits);
}

std::uint32_t UseAdd(std::uint32_t profilePos) {
    const UseRecord record = {profilePos, kNoRecord};
    return AddRecord(g_lpUsePtr, &BlobHeader::posUseStart, &BlobHeader::nUseUnits, record, L"use",
                     [] { return L""; });
}

void ApplicationInitialise() {
    OpenTable(g_lpApplicationPtr, &BlobHeader::posApplicationStart, &BlobHeader::nApplicationUnits);
}

std::uint32_t ApplicationAdd(StringRef title, StringRef file, StringRef path, StringRef version,
                             std::uint32_t firstUsePos) {
    const ApplicationRecord record = {title, file, path, version, firstUsePos, 0};
    return AddRecord(g_lpApplicationPtr, &BlobHeader::posApplicationStart,
                     &BlobHeader::nApplicationUnits, record, L"application",
                     [title] { return WordText(title); });
}

void ApplicationAddUse(std::uint32_t applicationPos, std::uint32_t usePos) {
    ApplicationRecord* application = RecordAtPosition<ApplicationRecord>(applicationPos);
    RecordAtPosition<UseRecord>(usePos)->posNext = application->posFirstUse;
    application->posFirstUse = usePos;
}

std::uint32_t FindProfileElm(const wchar_t* profileName, const wchar_t* driverName) {
    if (profileName == nullptr || driverName == nullptr || profileName[0] == L'\0' ||
        driverName[0] == L'\0') {
        ProgressLog(L"ERROR, ProfileName or DriverName is empty.\n", 0);
        Report(Diagnostic::Error("use-without-profile", {},
                                 "a use names no profile or no area; it selects nothing"));
        return 0;
    }
    if (!g_profileIndexReady) {
        BuildProfileIndex();
    }
    auto found = g_profileIndex.find(ProfileKey(profileName, driverName));
    return found != g_profileIndex.end() ? found->second : 1;
}

void FillInterimStrings() {
    Customisations& root = *g_lpCustomisations;
    root.refContent = FindStrings(root.strContent);
    root.refRelease = FindStrings(root.strRelease);
    root.refFormat = FindStrings(root.strFormat);
    for (Area* area = root.lpAreas; area != nullptr; area = area->lpNext) {
        if (area->lpDriver != nullptr) {
            area->lpDriver->refName = FindStrings(area->lpDriver->strName);
        }
        for (Property* property = area->lpProperties; property != nullptr;
             property = property->lpNext) {
            property->refName = FindStrings(property->strName);
            property->refSet = FindStrings(property->strSet);
        }
    }
    for (Profile* profile = root.lpProfiles; profile != nullptr; profile = profile->lpNext) {
        for (Value* value = profile->lpValues; value != nullptr; value = value->lpNext) {
            if (value->iDataLength == 0) {
                value->refData = FindStrings(static_cast<const wchar_t*>(value->lpData));
            }
        }
        profile->refUsage = FindStrings(profile->strUsage);
        profile->refNotes = FindStrings(profile->strNotes);
    }
    for (Application* application = root.lpApplications; application != nullptr;
         application = application->lpNext) {
        application->refTitle = FindStrings(application->strTitle);
        application->refFile = FindStrings(application->strFile);
        application->refPath = FindStrings(application->strPath);
        application->refVersion = FindStrings(application->strVersion);
        for (Use* use = application->lpUses; use != nullptr; use = use->lpNext) {
            use->refProfile = FindStrings(use->strProfile);
        }
    }
}

int CreateCompact() {
    ProgressLog(L"Creating Compact\n", 0);
    if (g_lpCustomisations == nullptr) {
        ProgressLog(L"ERROR, CreateCompact, there is no customisation tree.\n", 0);
        ExitFree();
    }
    Customisations& root = *g_lpCustomisations;
    // The format word is the digit of the Format text; the reader always stores "1".
    const wchar_t* format = root.strFormat;
    BeginImage(
        format != nullptr && format[0] != L'\0' ? static_cast<std::uint32_t>(format[0]) - 0x30 : 1);
    WriteWordsTable();
    // Every tree text's StringRef is looked up once here; the tables below use them.
    FillInterimStrings();
    ImageHeader()->refRelease = FindStrings(root.strRelease);
    WriteDrivers(root);
    WriteProperties(root);
    WriteAreas(root);
    WriteProfiles(root);
    WriteUses(root);
    WriteApplications(root);
    ProgressLog(L"Creating Compact, done.\n", 0);
    return 0;
}

void ResetCompactBuilder() {
    ResetImage();
    g_lpDriverPtr = nullptr;
    g_lpPropertyPtr = nullptr;
    g_lpAreaPtr = nullptr;
    g_lpProfilePtr = nullptr;
    g_lpValuePtr = nullptr;
    g_lpUsePtr = nullptr;
    g_lpApplicationPtr = nullptr;
    g_profileIndex.clear();
    g_profileIndexReady = false;
    g_profileOpen = false;
}

}  // namespace qk
