#include "xmlinput/file_reader.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>

#include "blob/version_string.h"
#include "bridge/display_control.h"
#include "model/file_kind.h"
#include "model/record_places.h"
#include "support/fatal_exit.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "text/closest_name.h"
#include "text/wide_string.h"
#include "xmlinput/consistency.h"
#include "xmlinput/known_names.h"
#include "xmlinput/name_lookup.h"
#include "xmlinput/privacy_policy.h"
#include "xmlinput/reader_state.h"
#include "xmlinput/record_fill.h"
#include "xmlinput/walk_and_delete.h"

namespace qk {

int g_bFirstFile = 1;

namespace {

constexpr std::size_t kAreaNameUnits = 256;  // the area named by the last Area attribute

template <typename T>
void InsertAfter(T* previous, T* record, T*& head) {
    if (previous == nullptr) {
        record->lpNext = head;
        head = record;
    } else {
        record->lpNext = previous->lpNext;
        previous->lpNext = record;
    }
}

std::string Hint(const wchar_t* word, const std::vector<std::wstring_view>& known) {
    return EncodeUtf8(ClosestName(std::wstring_view(OrEmpty(word)), known).c_str());
}

std::string ElementHint(std::string_view element) {
    return ClosestName(element, {"customisations", "properties", "area", "property", "profiles",
                                 "profile", "value", "applications", "application", "use"});
}

}  // namespace

FileReader::FileReader(const char* path) : path_(path) {
    widePath_ = chartowc(path);
    if (widePath_ == nullptr) {
        widePath_ = TrackedCopy(L"");
    }
}

int FileReader::Read() {
    XmlLoadError why = XmlLoadError::kNone;
    LoadedXml loaded;
    if (!LoadXmlDocument(path_, loaded, &why)) {
        if (why == XmlLoadError::kNotWellFormed) {
            LogFormat(L"Invalid XML detected: %ls\n", widePath_);
        }
        return -2;
    }
    return Read(std::move(loaded));
}

int FileReader::Read(LoadedXml&& loaded) {
    loaded_ = std::move(loaded);
    nodePlaces_ = NodePlaces(loaded_.file, &loaded_.nodeOffsets);
    place_ = textPlace_ = usePlace_ = ElementPlace{loaded_.file};
    LogFormat(L"ReadOneFile loaded XML file: %s\n", path_);
    Start();
    const auto handle = [this](mxml_node_t* node) { return HandleNode(node); };
    const int result = WalkAndDelete(loaded_.document.get(), handle);
    if (result == 0) {
        Finish();
    }
    ReleaseSourceText(loaded_.file);
    return result;
}

void FileReader::Start() {
    area_ = GetLastValidArea();
    driver_ = GetLastValidDriver(area_);
    property_ = GetLastValidProperty(area_);
    propertyArea_ = area_;
    profile_ = GetLastValidProfile();
    application_ = GetLastValidApplication();
    value_ = GetLastValidValue(profile_);
    use_ = GetLastValidUse(application_);
    recordComplete_ = g_bFirstFile == 0;
    applicationComplete_ = recordComplete_;
}

int FileReader::HandleNode(mxml_node_t* node) {
    switch (mxmlGetType(node)) {
        case MXML_ELEMENT:
            return HandleElement(node);
        case MXML_TEXT: {
            const char* word = mxmlGetText(node, nullptr);
            if (word != nullptr && *word != '\0') {
                return HandleWord(word);
            }
            return HandleEmptyText();
        }
        default:
            FlushPendingWord();
            return 0;
    }
}

int FileReader::HandleElement(mxml_node_t* node) {
    FlushPendingWord();
    if (lastWasText_) {
        text_.clear();
    }
    lastWasText_ = false;

    const char* element = mxmlGetElement(node);
    if (element == nullptr) {
        return 0;
    }
    place_ = nodePlaces_.Next(element);
    LogFormat(L"XML node Text, 1: - %s\n", element);
    const int count = mxmlElementGetAttrCount(node);
    if (count <= 0) {
        HandleGroup(element);
        return 0;
    }
    for (int index = 0; index < count; ++index) {
        const char* attribute = nullptr;
        const char* value = mxmlElementGetAttrByIndex(node, index, &attribute);
        if (attribute == nullptr) {
            continue;
        }
        // The checked text holds whole UTF-8 characters, so only a text too
        // long for the tool fails here.
        if (!WidenText(attribute, attributeName_) ||
            !WidenText(value != nullptr ? value : "", attributeValue_)) {
            LogFormat(
                L"ERROR: - attribute #%d of element %s is not valid UTF-8 or too long, it is "
                L"ignored.\n",
                index, element);
            Report(
                Diagnostic::Error("text-too-long", AttributeNameLocation(place_, attribute),
                                  "the attribute is longer than 8192 characters and is ignored"));
            continue;
        }
        const wchar_t* wideName = attributeName_.c_str();
        const wchar_t* wideValue = attributeValue_.c_str();
        LogFormat(L"attribute #%d: - %ls/%ls\n", index, wideName, wideValue);
        const int result = HandleAttribute(element, index, wideName, wideValue);
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

void FileReader::HandleGroup(const char* element) {
    const std::string_view name(element);
    insideIgnoredGroup_ = false;
    if (name == "properties") {
        if (g_appProfileMode == kOemFile) {
            LogFormat(
                L"ERROR, in OEM xml file, 'properties' element is found and this is not "
                L"allowed, it will be ignored\n");
            Report(Diagnostic::Error("properties-in-oem-file", Here(),
                                     "an OEM file may not hold a <properties> group; it is "
                                     "ignored"));
        }
        insideIgnoredGroup_ = IsUserOrOem();
        g_bFirstFile = 0;
    } else if (name == "profiles") {
        // nothing to do: profiles attach by their own attributes
    } else if (name == "applications") {
        recordComplete_ = true;
        useComplete_ = true;
        if (IsUserOrOem()) {
            applicationComplete_ = true;
        }
    } else {
        LogFormat(L"ERROR: - Unknown group found: - %s.\n", element);
        if (name.starts_with("!--")) {
            return;  // a comment: the log names it, but nothing is wrong
        }
        if (name.starts_with("![CDATA[") || name.starts_with('?')) {
            Report(Diagnostic::Warning("markup-not-read", Here(),
                                       name.starts_with('?')
                                           ? "processing instructions are not read"
                                           : "the text of a CDATA section is not read"));
            return;
        }
        Report(Diagnostic::Error("unknown-element", Here(),
                                 "unknown element <" + std::string(name) + ">: it is ignored")
                   .Suggest(ElementHint(name)));
    }
}

int FileReader::HandleAttribute(const char* element, int index, const wchar_t* name,
                                const wchar_t* value) {
    const std::string_view kind(element);
    if (kind == "customisations") {
        HandleCustomisations(name, value);
    } else if (kind == "area") {
        HandleArea(index, name, value);
    } else if (kind == "property") {
        return HandleProperty(name, value);
    } else if (kind == "application") {
        HandleApplication(index, name, value);
    } else if (kind == "profile") {
        HandleProfile(index, name, value);
    } else if (kind == "value") {
        HandleValue(index, name, value);
    } else if (kind == "use") {
        HandleUse(name, value);
    } else {
        LogFormat(L"ERROR: - ELEMENT not captured: - %s\n", element);
        if (index == 0) {
            Report(Diagnostic::Error("unknown-element", Here(),
                                     "unknown element <" + std::string(kind) +
                                         ">: it and its attributes are ignored")
                       .Suggest(ElementHint(kind)));
        }
    }
    return 0;
}

void FileReader::HandleCustomisations(const wchar_t* name, const wchar_t* value) {
    static ElementPlace header;  // the first file's header, for the mismatch note
    if (g_bFirstFile != 0) {
        header = place_;
        // The release text of the run replaces the file's when the file ends.
        if (!NameIs(name, L"Release")) {
            FillCustomisationStrings(name, value, place_);
        }
    } else if (CompareCustomisation(name, value, place_) == 0) {
        LogFormat(L"WARNING: Customisation header mismatches: - %ls\n", widePath_);
        if (NameIs(name, L"Content") || NameIs(name, L"Release") || NameIs(name, L"Format")) {
            const std::string attribute = EncodeUtf8(name);
            Report(
                Diagnostic::Warning(
                    "header-mismatch", AttributeValueLocation(place_, attribute),
                    attribute + " " + Quoted(value) + " differs from the set's; the set's is kept")
                    .Note(AttributeValueLocation(header, attribute),
                          NameIs(name, L"Release") ? "the set's Release is the run's version string"
                                                   : "the set's header is here"));
        }
    }
}

void FileReader::HandleArea(int index, const wchar_t* name, const wchar_t* value) {
    if (IsUserOrOem()) {
        return;
    }
    if (index == 0) {
        auto* area = AllocateRecord<Area>();
        InsertAfter(area_ != nullptr ? area_ : GetLastValidArea(), area, root_->lpAreas);
        if (area->lpNext != nullptr) {
            InvalidateNameLookups();
        }
        area_ = area;
        NoteRecordPlace(area, Here());
    }
    if (area_->lpDriver != nullptr) {
        LogFormat(L"Driver already allocated: - %s\n", path_);
    } else {
        area_->lpDriver = AllocateRecord<Driver>();
        driver_ = area_->lpDriver;
    }
    const wchar_t* before = driver_->strName;
    FillDriver(driver_, name, value, place_);
    if (driver_->strName != before) {
        if (area_->lpDriver == driver_) {
            NoteAreaNamed(area_);
        } else {
            InvalidateNameLookups();
        }
    }
}

int FileReader::HandleProperty(const wchar_t* name, const wchar_t* value) {
    if (IsUserOrOem()) {
        return 0;
    }
    if (area_ == nullptr) {
        Report(Diagnostic::Error("property-outside-area", Here(),
                                 "<property> stands before any <area>: the file is refused"));
        return -1;
    }
    if (area_->lpProperties == nullptr || propertyComplete_ || propertyArea_ != area_ ||
        property_ == nullptr) {
        Property* after = (propertyArea_ == area_ && property_ != nullptr)
                              ? property_
                              : GetLastValidProperty(area_);
        auto* property = AllocateRecord<Property>();
        InsertAfter(after, property, area_->lpProperties);
        propertyComplete_ = false;
        property_ = property;
        propertyArea_ = area_;
        NoteRecordPlace(property, Here());
    }
    FillProperty(property_, name, value, place_);
    context_ = kPropertyText;
    textPlace_ = place_;
    return 0;
}

void FileReader::HandleApplication(int index, const wchar_t* name, const wchar_t* value) {
    if (root_->lpApplications == nullptr || applicationComplete_ || application_ == nullptr) {
        Application* after = application_ != nullptr ? application_ : GetLastValidApplication();
        auto* application = AllocateRecord<Application>();
        InsertAfter(after, application, root_->lpApplications);
        applicationComplete_ = false;
        application_ = application;
        newApplications_.push_back(application);
        NoteRecordPlace(application, Here());
    } else if (index == 0 && application_->lpUses == nullptr &&
               (application_->strTitle != nullptr || application_->strFile != nullptr)) {
        Report(Diagnostic::Warning("application-refilled", Here(),
                                   "the application before this one has no use, so this "
                                   "<application> fills its record again")
                   .Note(RecordPlace(application_), "the application before it"));
    }
    use_ = nullptr;
    FillApplication(application_, name, value, place_);
}

bool FileReader::CopyAreaName(const wchar_t* value) {
    const std::size_t length = std::wcslen(value);
    if (length >= kAreaNameUnits) {
        LogFormat(L"ERROR: - Area name is too long: - %ls\n", value);
        Report(Diagnostic::Error("name-too-long", ValueHere("Area"),
                                 "the area name is longer than 255 characters"));
        return false;
    }
    std::wmemcpy(areaName_, value, length + 1);
    return true;
}

// An area of the installed system set that a user or OEM file refers to.
Area* FileReader::AppendNewArea() {
    LogFormat(L"Area pointer not valid, need to create for USER/OEM file.\n");
    auto* area = AllocateRecord<Area>();
    InsertAfter(GetLastValidArea(), area, root_->lpAreas);
    area->lpDriver = AllocateRecord<Driver>();
    area_ = area;
    driver_ = area->lpDriver;
    NoteRecordPlace(area, Here());
    return area;
}

void FileReader::HandleProfile(int index, const wchar_t* name, const wchar_t* value) {
    if (IsUserOrOem()) {
        if (NameIs(name, L"Area") && !CopyAreaName(value)) {
            return;
        }
        if (index == 0 && !NameIs(name, L"Area")) {
            Report(Diagnostic::Warning("area-not-first", AttributeHere("Area"),
                                       "Area must be the first attribute of <profile> in a user "
                                       "or OEM file; the attributes before it are checked "
                                       "against the area named before"));
        }
        if (PrivacyRefuses(areaName_, AreaUse::kProfile, nullptr, ValueHere("Area"), index == 0)) {
            // The refused profile is not there, so its values must not reach the
            // profile before it.
            profile_ = nullptr;
            value_ = nullptr;
            previousValue_ = nullptr;
            profileRefused_ = true;
            return;
        }
        if (FindDriver(areaName_) == nullptr) {
            Area* area = AppendNewArea();
            area->lpDriver->strName = StoredCopy(areaName_);  // privacy stays 0
            NoteAreaNamed(area);
        }
    }
    profileRefused_ = false;
    if (root_->lpProfiles == nullptr || recordComplete_ || profile_ == nullptr) {
        NextProfile();
    } else if (index == 0 && profile_->strUsage != nullptr) {
        Report(Diagnostic::Warning("profile-refilled", Here(),
                                   "profile " + Quoted(profile_->strUsage) +
                                       " before this one has no values, so this <profile> "
                                       "takes its place and it is lost")
                   .Note(RecordPlace(profile_), "the profile without values"));
    }
    value_ = nullptr;
    previousValue_ = nullptr;
    FillCurrentProfile(name, value);
}

Profile* FileReader::NextProfile() {
    Profile* after = profile_ != nullptr ? profile_ : GetLastValidProfile();
    auto* profile = AllocateRecord<Profile>();
    InsertAfter(after, profile, root_->lpProfiles);
    recordComplete_ = false;
    profile_ = profile;
    newProfiles_.push_back(profile);
    NoteRecordPlace(profile, Here());
    return profile;
}

void FileReader::FillCurrentProfile(const wchar_t* name, const wchar_t* value) {
    const wchar_t* before = profile_->strUsage;
    FillProfile(profile_, name, value, place_);
    if (profile_->strUsage != before) {
        NoteProfileNamed(before, profile_->strUsage);
    }
}

void FileReader::DropValueWithoutProperty(std::string why) {
    LogFormat(L"ERROR: Propery of value is invalid. Value is ignored. \n");
    Report(Diagnostic::Error("value-dropped", Here(), "this value is dropped: " + why));
    valueValid_ = false;
    context_ = kValueText;
    textPlace_ = place_;
}

Property* FileReader::FindValueProperty(const wchar_t* driverName, const wchar_t* name) {
    try {
        return FindProperty(driverName, name);
    } catch (const FatalExit&) {
        Report(Diagnostic::Error("unknown-property", ValueHere("Property"),
                                 "unknown property " + Quoted(name) + " in area " +
                                     Quoted(driverName) + ": the run stops here, without a blob")
                   .Suggest(Hint(name, KnownPropertyNames(driverName)))
                   .Note(RecordPlace(profile_), "the value is in profile " +
                                                    Quoted(OrEmpty(profile_->strUsage)) +
                                                    " of area " + Quoted(driverName)));
        throw;
    }
}

void FileReader::HandleValue(int index, const wchar_t* name, const wchar_t* value) {
    if (index > 0) {
        // Only the first attribute makes a value; a second one would start another.
        LogFormat(L"ERROR: - Unknown value attributes: - %ls\n", name);
        ReportUnknownAttribute(place_, "value", name, {"Property"});
        return;
    }
    if (profile_ == nullptr) {
        DropValueWithoutProperty(profileRefused_ ? "its profile is refused"
                                                 : "it stands outside any <profile>");
        return;
    }
    if (profile_->lpDriver == nullptr) {
        DropValueWithoutProperty("its profile's area is unknown");
        return;
    }
    if (!NameIs(name, L"Property")) {
        ReportUnknownAttribute(place_, "value", name, {"Property"});
        DropValueWithoutProperty("it names no property");
        return;
    }
    auto* record = AllocateRecord<Value>();
    valueValid_ = true;
    const wchar_t* driverName = profile_->lpDriver->strName;
    LogFormat(L"Searching Property: %ls\n", OrEmpty(driverName));
    record->lpProperty = FindValueProperty(driverName, value);
    int askResult = 0;
    if (record->lpProperty == nullptr && IsUserOrOem() && driverName != nullptr) {
        int type = 0;
        Area* owner = nullptr;
        askResult = Call_ZEL_ApplicationProfiles_PropertyType_Get(driverName, value, &type);
        if (askResult == 0 && (owner = FindArea(driverName)) != nullptr) {
            auto* property = AllocateRecord<Property>();
            property->iType = type;
            property->strName = StoredCopy(value);
            InsertAfter(GetLastValidProperty(owner), property, owner->lpProperties);
            NotePropertyNamed(owner, property, nullptr);
            area_ = owner;
            record->lpProperty = property;
        }
    }
    if (record->lpProperty == nullptr) {
        DropValueWithoutProperty(askResult == -1 ? "the installed system set could not be asked "
                                                   "about property " +
                                                       Quoted(value)
                                                 : "area " + Quoted(driverName) +
                                                       " of the installed system set has no "
                                                       "property " +
                                                       Quoted(value));
        return;
    }
    if (profile_->lpValues == nullptr) {
        profile_->lpValues = record;
        value_ = record;
        previousValue_ = nullptr;
    } else if (recordComplete_) {
        previousValue_ = value_ != nullptr ? value_ : GetLastValidValue(profile_);
        InsertAfter(previousValue_, record, profile_->lpValues);
        value_ = record;
    } else {
        Report(Diagnostic::Warning("value-dropped", Here(),
                                   "this value is dropped: the value before it has no text yet"));
        context_ = kValueText;
        return;  // dropped: the current value is still waiting for its text
    }
    linkedValues_.push_back({profile_, record, place_.offset});
    recordComplete_ = false;
    context_ = kValueText;
    textPlace_ = place_;
}

void FileReader::HandleUse(const wchar_t* name, const wchar_t* value) {
    textPlace_ = place_;
    if (application_ == nullptr) {
        LogFormat(L"ERROR: - use %ls/%ls found before any application, it is ignored.\n", name,
                  value);
        Report(Diagnostic::Error("use-outside-application", Here(),
                                 "<use> stands before any <application>; it is ignored"));
        useValid_ = false;
        context_ = kUseText;
        return;
    }
    auto* use = AllocateRecord<Use>();
    useComplete_ = false;
    useHadText_ = false;
    useValid_ = true;
    if (NameIs(name, L"Area")) {
        use->lpDriver = FindDriver(value);
        if (use->lpDriver == nullptr && !IsUserOrOem()) {
            LogFormat(L"ERROR: - Driver not found: - %ls\n", value);
            Report(Diagnostic::Error("unknown-area", ValueHere("Area"),
                                     "unknown area " + Quoted(value) + " in <use>")
                       .Suggest(Hint(value, KnownAreaNames())));
        } else if (use->lpDriver == nullptr) {
            if (!CopyAreaName(value) || PrivacyRefuses(areaName_, AreaUse::kApplication,
                                                       application_->strFile, ValueHere("Area"))) {
                useValid_ = false;
                context_ = kUseText;
                return;
            }
            Area* area = AppendNewArea();
            FillDriver(area->lpDriver, L"Name", value);
            NoteAreaNamed(area);
            use->lpDriver = area->lpDriver;
        }
    } else {
        ReportUnknownAttribute(place_, "use", name, {"Area"});
    }
    if (application_->lpUses == nullptr) {
        application_->lpUses = use;
        use_ = use;
        usePlace_ = place_;
    }
    context_ = kUseText;
}

void FileReader::Finish() {
    FlushPendingWord();
    RemoveValuesWithoutData();
    LogFormat(L"Merged XML file: - %ls\n", widePath_);
    wchar_t version[kVersionUnits] = {};
    if (GetVersionString(version) == 0) {
        FillCustomisationStrings(L"Release", version);
    }
    ReportPrunedApplications();
    RemoveInvalidApplications(root_);
    if (IsUserOrOem()) {
        RemoveUnusedDriverArea(root_);
    }
    ReportDuplicates();
}

int ReadOneFile(const char* path) {
    if (path == nullptr || g_lpCustomisations == nullptr) {
        return -2;
    }
    FileReader reader(path);
    return reader.Read();
}

int ReadLoadedFile(const char* path, LoadedXml&& loaded) {
    if (path == nullptr || g_lpCustomisations == nullptr) {
        return -2;
    }
    FileReader reader(path);
    return reader.Read(std::move(loaded));
}

void ResetFileReader() {
    g_bFirstFile = 1;
    ResetDuplicateChecks();
    ResetRecordPlaces();
    ResetNameLookup();
}

}  // namespace qk
