#include "xmlinput/file_reader.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "blob/string_table.h"
#include "blob/version_string.h"
#include "bridge/display_control.h"
#include "model/file_kind.h"
#include "support/diagnostics.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "text/value_text.h"
#include "text/wide_string.h"
#include "xmlinput/consistency.h"
#include "xmlinput/name_lookup.h"
#include "xmlinput/privacy_policy.h"
#include "xmlinput/record_fill.h"
#include "xmlinput/value_conversion.h"
#include "xmlinput/walk_and_delete.h"
#include "xmlinput/xml_load.h"

namespace qk {

int g_bFirstFile = 1;

namespace {

constexpr std::size_t kTextUnits = 16384;     // element text, terminator included
constexpr std::size_t kWordUnits = 4096;      // one word, terminator included
constexpr std::size_t kAreaNameUnits = 256;   // the area named by the last Area attribute
constexpr std::size_t kMaxPropertyName = 15;  // code units
constexpr std::size_t kMaxWideUnits = 8192;   // longest text chartowc converts

enum Context { kNoContext = 0, kPropertyText = 1, kValueText = 2, kUseText = 3 };

// Element text is widened as UTF-8, like attribute values; plain ASCII, by far
// the most common, is widened in one pass into the reused buffer and needs no
// tracked copy.
bool WidenWord(const char* word, std::wstring& out) {
    out.clear();
    const char* at = word;
    for (; *at != '\0' && static_cast<unsigned char>(*at) < 0x80; ++at) {
        out.push_back(static_cast<wchar_t>(*at));
    }
    if (*at == '\0') {
        return out.size() <= kMaxWideUnits;  // the bound that chartowc keeps
    }
    const wchar_t* wide = chartowc(word);
    if (wide == nullptr) {
        return false;
    }
    out.assign(wide);
    return true;
}

// Names the record that diagnostics are about while it lives.
class RecordNamed {
  public:
    explicit RecordNamed(std::wstring record) { SetDiagnosticRecord(std::move(record)); }
    ~RecordNamed() { SetDiagnosticRecord({}); }
    RecordNamed(const RecordNamed&) = delete;
    RecordNamed& operator=(const RecordNamed&) = delete;
};

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

// One call of ReadOneFile: the cursors and flags of the walk over one document.
class FileReader {
  public:
    explicit FileReader(const char* path) : path_(path) {
        widePath_ = chartowc(path);
        if (widePath_ == nullptr) {
            widePath_ = TrackedCopy(L"");
        }
    }

    int Read();

  private:
    void Start();
    int HandleNode(mxml_node_t* node);
    int HandleElement(mxml_node_t* node);
    void HandleGroup(const char* element);
    int HandleAttribute(const char* element, int index, const wchar_t* name, const wchar_t* value);
    void HandleCustomisations(const wchar_t* name, const wchar_t* value);
    void HandleArea(int index, const wchar_t* name, const wchar_t* value);
    int HandleProperty(const wchar_t* name, const wchar_t* value);
    void HandleApplication(const wchar_t* name, const wchar_t* value);
    void HandleProfile(const wchar_t* name, const wchar_t* value);
    void HandleValue(int index, const wchar_t* name, const wchar_t* value);
    void HandleUse(const wchar_t* name, const wchar_t* value);
    int HandleWord(const char* word);
    int HandleEmptyText();
    void TextForValue();
    // The value being read, for diagnostics (only computed under --strict).
    std::wstring ValueName() const;
    void TextForUse();
    void Finish();

    bool CopyAreaName(const wchar_t* value);
    Area* AppendNewArea();
    Profile* NextProfile();
    void FillCurrentProfile(const wchar_t* name, const wchar_t* value);
    void DropValue();
    void DropValueWithoutProperty();
    void TakeUseAway();
    void FlushPendingWord();
    void RemoveValuesWithoutData();

    const char* path_;
    const wchar_t* widePath_;
    Customisations* root_ = g_lpCustomisations;

    Area* area_ = nullptr;
    Driver* driver_ = nullptr;
    Property* property_ = nullptr;
    Area* propertyArea_ = nullptr;  // the area whose list holds property_
    Profile* profile_ = nullptr;
    Value* value_ = nullptr;
    Value* previousValue_ = nullptr;
    Application* application_ = nullptr;
    Use* use_ = nullptr;

    int context_ = kNoContext;
    bool propertyComplete_ = false;
    bool recordComplete_ = false;
    bool applicationComplete_ = false;
    bool useComplete_ = false;
    bool valueValid_ = false;
    bool useValid_ = false;
    bool pendingWord_ = false;
    bool lastWasText_ = false;

    std::wstring text_;
    std::wstring word_;
    std::wstring attributeName_;
    std::wstring attributeValue_;
    wchar_t areaName_[kAreaNameUnits] = {};
    // A text value takes its copy when its text is complete, not once per word.
    Value* pendingTextValue_ = nullptr;
    // Values linked by this file, checked for data when the file ends.
    std::vector<std::pair<Profile*, Value*>> linkedValues_;
};

int FileReader::Read() {
    XmlLoadError why = XmlLoadError::kNone;
    XmlDocument document(LoadXmlDocument(path_, &why));
    if (!document) {
        if (why == XmlLoadError::kNotWellFormed) {
            LogFormat(L"Invalid XML detected: %ls\n", widePath_);
        }
        return -2;
    }
    LogFormat(L"ReadOneFile loaded XML file: %s\n", path_);
    Start();
    const auto handle = [this](mxml_node_t* node) { return HandleNode(node); };
    if (const int result = WalkAndDelete(document.get(), handle); result != 0) {
        return result;
    }
    Finish();
    return 0;
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

void FileReader::FlushPendingWord() {
    if (!pendingWord_) {
        return;
    }
    if (pendingTextValue_ != nullptr) {
        pendingTextValue_->lpData = TrackedCopy(text_.c_str(), text_.size());
        pendingTextValue_->iDataLength = 0;
        pendingTextValue_ = nullptr;
    }
    AddToWordsArray(text_.c_str(), text_.size());
    pendingWord_ = false;
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
    LogFormat(L"XML node Text, 1: - %s\n", element);
    const int count = mxmlElementGetAttrCount(node);
    if (count <= 0) {
        HandleGroup(element);
        return 0;
    }
    for (int index = 0; index < count; ++index) {
        const char* name = nullptr;
        const char* value = mxmlElementGetAttrByIndex(node, index, &name);
        if (name == nullptr) {
            continue;
        }
        if (!WidenWord(name, attributeName_) ||
            !WidenWord(value != nullptr ? value : "", attributeValue_)) {
            LogFormat(
                L"ERROR: - attribute #%d of element %s is not valid UTF-8 or too long, it is "
                L"ignored.\n",
                index, element);
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
    if (std::strcmp(element, "properties") == 0) {
        if (g_appProfileMode == kOemFile) {
            LogFormat(
                L"ERROR, in OEM xml file, 'properties' element is found and this is not "
                L"allowed, it will be ignored\n");
        }
        g_bFirstFile = 0;
    } else if (std::strcmp(element, "profiles") == 0) {
        // nothing to do: profiles attach by their own attributes
    } else if (std::strcmp(element, "applications") == 0) {
        recordComplete_ = true;
        useComplete_ = true;
        if (IsUserOrOem()) {
            applicationComplete_ = true;
        }
    } else {
        LogFormat(L"ERROR: - Unknown group found: - %s.\n", element);
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
        HandleApplication(name, value);
    } else if (kind == "profile") {
        HandleProfile(name, value);
    } else if (kind == "value") {
        HandleValue(index, name, value);
    } else if (kind == "use") {
        HandleUse(name, value);
    } else {
        LogFormat(L"ERROR: - ELEMENT not captured: - %s\n", element);
    }
    return 0;
}

void FileReader::HandleCustomisations(const wchar_t* name, const wchar_t* value) {
    if (g_bFirstFile != 0) {
        // The release text of the run replaces the file's when the file ends.
        if (!NameIs(name, L"Release")) {
            FillCustomisationStrings(name, value);
        }
    } else if (CompareCustomisation(name, value) == 0) {
        LogFormat(L"WARNING: Customisation header mismatches: - %ls\n", widePath_);
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
    }
    if (area_->lpDriver != nullptr) {
        LogFormat(L"Driver already allocated: - %s\n", path_);
    } else {
        area_->lpDriver = AllocateRecord<Driver>();
        driver_ = area_->lpDriver;
    }
    const wchar_t* before = driver_->strName;
    FillDriver(driver_, name, value);
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
    }
    FillProperty(property_, name, value);
    context_ = kPropertyText;
    return 0;
}

void FileReader::HandleApplication(const wchar_t* name, const wchar_t* value) {
    if (root_->lpApplications == nullptr || applicationComplete_ || application_ == nullptr) {
        Application* after = application_ != nullptr ? application_ : GetLastValidApplication();
        auto* application = AllocateRecord<Application>();
        InsertAfter(after, application, root_->lpApplications);
        applicationComplete_ = false;
        application_ = application;
    }
    use_ = nullptr;
    FillApplication(application_, name, value);
}

bool FileReader::CopyAreaName(const wchar_t* value) {
    const std::size_t length = std::wcslen(value);
    if (length >= kAreaNameUnits) {
        LogFormat(L"ERROR: - Area name is too long: - %ls\n", value);
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
    return area;
}

void FileReader::HandleProfile(const wchar_t* name, const wchar_t* value) {
    if (IsUserOrOem()) {
        if (NameIs(name, L"Area") && !CopyAreaName(value)) {
            return;
        }
        if (PrivacyRefuses(areaName_, AreaUse::kProfile, nullptr)) {
            // The refused profile is not there, so its values must not reach the
            // profile before it.
            profile_ = nullptr;
            value_ = nullptr;
            previousValue_ = nullptr;
            return;
        }
        if (FindDriver(areaName_) == nullptr) {
            Area* area = AppendNewArea();
            area->lpDriver->strName = StoredCopy(areaName_);  // privacy stays 0
            NoteAreaNamed(area);
        }
    }
    if (root_->lpProfiles == nullptr || recordComplete_ || profile_ == nullptr) {
        NextProfile();
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
    return profile;
}

void FileReader::FillCurrentProfile(const wchar_t* name, const wchar_t* value) {
    const wchar_t* before = profile_->strUsage;
    FillProfile(profile_, name, value);
    if (profile_->strUsage != before) {
        NoteProfileNamed(before, profile_->strUsage);
    }
}

void FileReader::DropValueWithoutProperty() {
    LogFormat(L"ERROR: Propery of value is invalid. Value is ignored. \n");
    valueValid_ = false;
    context_ = kValueText;
}

void FileReader::HandleValue(int index, const wchar_t* name, const wchar_t* value) {
    if (index > 0) {
        // Only the first attribute makes a value; a second one would start another.
        LogFormat(L"ERROR: - Unknown value attributes: - %ls\n", name);
        return;
    }
    if (profile_ == nullptr || profile_->lpDriver == nullptr || !NameIs(name, L"Property")) {
        DropValueWithoutProperty();
        return;
    }
    auto* record = AllocateRecord<Value>();
    valueValid_ = true;
    const wchar_t* driverName = profile_->lpDriver->strName;
    LogFormat(L"Searching Property: %ls\n", OrEmpty(driverName));
    record->lpProperty = FindProperty(driverName, value);
    if (record->lpProperty == nullptr && IsUserOrOem() && driverName != nullptr) {
        int type = 0;
        Area* owner = nullptr;
        if (Call_ZEL_ApplicationProfiles_PropertyType_Get(driverName, value, &type) == 0 &&
            (owner = FindArea(driverName)) != nullptr) {
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
        DropValueWithoutProperty();
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
        context_ = kValueText;
        return;  // dropped: the current value is still waiting for its text
    }
    linkedValues_.emplace_back(profile_, record);
    recordComplete_ = false;
    context_ = kValueText;
}

void FileReader::HandleUse(const wchar_t* name, const wchar_t* value) {
    if (application_ == nullptr) {
        LogFormat(L"ERROR: - use %ls/%ls found before any application, it is ignored.\n", name,
                  value);
        useValid_ = false;
        context_ = kUseText;
        return;
    }
    auto* use = AllocateRecord<Use>();
    useComplete_ = false;
    useValid_ = true;
    if (NameIs(name, L"Area")) {
        use->lpDriver = FindDriver(value);
        if (use->lpDriver == nullptr && !IsUserOrOem()) {
            LogFormat(L"ERROR: - Driver not found: - %ls\n", value);
        } else if (use->lpDriver == nullptr) {
            if (!CopyAreaName(value) ||
                PrivacyRefuses(areaName_, AreaUse::kApplication, application_->strFile)) {
                useValid_ = false;
                context_ = kUseText;
                return;
            }
            Area* area = AppendNewArea();
            FillDriver(area->lpDriver, L"Name", value);
            NoteAreaNamed(area);
            use->lpDriver = area->lpDriver;
        }
    }
    if (application_->lpUses == nullptr) {
        application_->lpUses = use;
        use_ = use;
    }
    context_ = kUseText;
}

int FileReader::HandleWord(const char* word) {
    if (!WidenWord(word, word_)) {
        LogFormat(L"ERROR: - Text is not valid UTF-8 or too long, it is ignored.\n");
        lastWasText_ = true;
        return 0;
    }
    if (word_.size() >= kWordUnits) {
        LogFormat(L"ERROR: - maximum string length exceeded, Text word.\n");
        lastWasText_ = true;
        return 0;
    }
    if (lastWasText_) {
        if (text_.size() + word_.size() >= kTextUnits) {
            LogFormat(L"ERROR: - maximum string length exceeded, Text item.\n");
        } else if (!text_.empty()) {
            text_.push_back(L' ');
            text_.append(word_);
        } else {
            text_ = word_;
        }
    } else {
        text_ = word_;
    }
    LogFormat(L"Text node found: - %ls\n", text_.c_str());

    switch (context_) {
        case kPropertyText:
            if (property_ != nullptr) {
                if (text_.size() > kMaxPropertyName) {
                    LogFormat(L"ERROR: - Property name is too long: - %ls\n", text_.c_str());
                    return -2;
                }
                const wchar_t* before = property_->strName;
                property_->strName = TrackedCopy(text_.c_str(), text_.size());
                pendingWord_ = true;
                propertyComplete_ = true;
                NotePropertyNamed(propertyArea_, property_, before);
            }
            break;
        case kValueText:
            TextForValue();
            break;
        case kUseText:
            TextForUse();
            break;
        default:
            LogFormat(L"ERROR: - Invalid text found: - %ls\n", word_.c_str());
            break;
    }
    lastWasText_ = true;
    return 0;
}

void FileReader::DropValue() {
    valueValid_ = false;
    if (pendingTextValue_ == value_) {
        pendingTextValue_ = nullptr;
    }
    if (previousValue_ != nullptr && previousValue_->lpNext == value_) {
        previousValue_->lpNext = nullptr;
        value_ = previousValue_;
        return;
    }
    if (profile_ == nullptr) {
        value_ = nullptr;
        return;
    }
    if (profile_->lpValues == value_) {
        profile_->lpValues = nullptr;
        value_ = nullptr;
        return;
    }
    value_ = nullptr;
}

std::wstring FileReader::ValueName() const {
    if (!IsStrict() || value_ == nullptr) {
        return {};
    }
    const Property* property = value_->lpProperty;
    const Driver* driver = profile_ != nullptr ? profile_->lpDriver : nullptr;
    return std::wstring(L"value of property \"") + OrEmpty(property ? property->strName : nullptr) +
           L"\" in profile \"" + OrEmpty(profile_ ? profile_->strUsage : nullptr) + L"\", area \"" +
           OrEmpty(driver ? driver->strName : nullptr) + L"\"";
}

void FileReader::TextForValue() {
    if (value_ == nullptr || !valueValid_) {
        return;
    }
    if (value_->lpProperty == nullptr) {
        LogFormat(L"ERROR: Propery of value is invalid. Value is ignored. \n");
        DropValue();
        recordComplete_ = true;
        return;
    }
    const RecordNamed named(ValueName());
    switch (ConvertValueText(value_->lpProperty->iType, text_.c_str(), *value_)) {
        case Conversion::kStored:
            break;
        case Conversion::kText:
            pendingTextValue_ = value_;
            pendingWord_ = true;
            break;
        case Conversion::kFailed:
            DropValue();
            break;
    }
    recordComplete_ = true;
}

void FileReader::TakeUseAway() {
    if (application_ != nullptr && application_->lpUses == use_) {
        application_->lpUses = nullptr;
    }
    use_ = nullptr;
}

void FileReader::TextForUse() {
    if (use_ == nullptr || !useValid_) {
        return;
    }
    if (use_->strProfile != nullptr) {
        LogFormat(L"ERROR: - usage of USE already assigned.\n");
        return;
    }
    if (FindUseName(text_.c_str()) != 0) {
        use_->strProfile = StoredCopy(text_.c_str());
        applicationComplete_ = true;
        useComplete_ = true;
        return;
    }
    if (!IsUserOrOem()) {
        LogFormat(L"ERROR: - Unable to find Use profile: - %ls\n", text_.c_str());
        return;
    }
    const wchar_t* areaName =
        OrEmpty(use_->lpDriver != nullptr ? use_->lpDriver->strName : nullptr);
    unsigned char exists = 0;
    if (Call_ZEL_ApplicationProfiles_Profile_Exist(areaName, text_.c_str(), &exists) != 0) {
        std::fputs("ZEL_ApplicationProfiles_Profile_Exist failed!", stdout);
        std::fflush(stdout);
        TakeUseAway();
    } else if (exists != 0) {
        // A placeholder for the system profile that the use selects.
        if (root_->lpProfiles == nullptr || recordComplete_ || profile_ == nullptr) {
            NextProfile();
        }
        value_ = nullptr;
        previousValue_ = nullptr;
        FillCurrentProfile(L"Area", areaName);
        FillCurrentProfile(L"Usage", text_.c_str());
        use_->strProfile = StoredCopy(text_.c_str());
    } else {
        LogFormat(
            L"XML ERROR, Application %ls use doesn't refer to an existing area %ls profile "
            L"%ls\n",
            OrEmpty(application_ != nullptr ? application_->strTitle : nullptr), areaName,
            text_.c_str());
        TakeUseAway();
    }
    recordComplete_ = true;
    applicationComplete_ = true;
    useComplete_ = true;
}

int FileReader::HandleEmptyText() {
    FlushPendingWord();
    if (context_ == kPropertyText && !propertyComplete_) {
        if (property_ != nullptr) {
            LogFormat(L"ERROR: Property name is empty.\n");
            return -2;
        }
    } else if (context_ == kValueText && !recordComplete_) {
        if (value_ != nullptr && valueValid_) {
            const std::int32_t type =
                value_->lpProperty != nullptr ? value_->lpProperty->iType : kTypeUnknown;
            if (const wchar_t* message = EmptyValueMessage(type)) {
                const RecordNamed named(ValueName());
                ProgressLog(message, 0);
                DropValue();
            } else {
                // An empty text value: the empty string is what the tree stores.
                value_->lpData = StoredCopy(L"");
                value_->iDataLength = 0;
            }
            recordComplete_ = true;
        }
    } else if (!useComplete_ && use_ != nullptr && useValid_) {
        LogFormat(L"ERROR: Use profile name is empty.\nApplication Use is ignored.\n");
        TakeUseAway();
        recordComplete_ = true;
        applicationComplete_ = true;
        useComplete_ = true;
    }
    lastWasText_ = true;
    return 0;
}

// A value whose text never came (no white space after it, end of the file) would
// reach the builder without data; it is dropped instead.
void FileReader::RemoveValuesWithoutData() {
    for (const auto& [profile, value] : linkedValues_) {
        if (value->lpData != nullptr) {
            continue;
        }
        for (Value** link = &profile->lpValues; *link != nullptr; link = &(*link)->lpNext) {
            if (*link == value) {
                *link = value->lpNext;
                LogFormat(
                    L"ERROR: Value of property %ls has no data. Value is ignored.\n",
                    OrEmpty(value->lpProperty != nullptr ? value->lpProperty->strName : nullptr));
                break;
            }
        }
    }
}

void FileReader::Finish() {
    FlushPendingWord();
    RemoveValuesWithoutData();
    LogFormat(L"Merged XML file: - %ls\n", widePath_);
    wchar_t version[kVersionUnits] = {};
    if (GetVersionString(version) == 0) {
        FillCustomisationStrings(L"Release", version);
    }
    RemoveInvalidApplications(root_);
    if (IsUserOrOem()) {
        RemoveUnusedDriverArea(root_);
    }
}

}  // namespace

int ReadOneFile(const char* path) {
    if (path == nullptr || g_lpCustomisations == nullptr) {
        return -2;
    }
    FileReader reader(path);
    return reader.Read();
}

void ResetFileReader() {
    g_bFirstFile = 1;
    ResetNameLookup();
}

}  // namespace qk
