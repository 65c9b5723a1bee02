// What the text of an element does: names a property, gives a value, or
// selects the profile of an application's use. Mini-XML hands the text over
// word by word; the words of one element are joined with one space.

#include <cstdint>
#include <cstdio>
#include <string>

#include "blob/string_table.h"
#include "bridge/display_control.h"
#include "model/file_kind.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "text/closest_name.h"
#include "text/value_text.h"
#include "text/wide_string.h"
#include "xmlinput/known_names.h"
#include "xmlinput/name_lookup.h"
#include "xmlinput/reader_state.h"
#include "xmlinput/record_fill.h"
#include "xmlinput/value_conversion.h"

namespace qk {

namespace {

constexpr std::size_t kTextUnits = 16384;     // element text, terminator included
constexpr std::size_t kWordUnits = 4096;      // one word, terminator included
constexpr std::size_t kMaxPropertyName = 15;  // code units

const wchar_t* TypeWord(std::int32_t type) {
    switch (type) {
        case kTypeBinary:
            return L"Binary";
        case kTypeQword:
            return L"Qword";
        case kTypeDword:
            return L"Dword";
        case kTypeBoolean:
            return L"Boolean";
        default:
            return L"text";
    }
}

}  // namespace

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

int FileReader::HandleWord(const char* word) {
    const bool widened = WidenText(word, word_);
    if (!widened || word_.size() >= kWordUnits) {
        LogFormat(widened ? L"ERROR: - maximum string length exceeded, Text word.\n"
                          : L"ERROR: - Text is not valid UTF-8 or too long, it is ignored.\n");
        ReportLazily(Severity::kError, [this] {
            return Diagnostic::Error("text-too-long", TextHere(),
                                     "a word of this text is longer than 4095 characters and is "
                                     "ignored");
        });
        lastWasText_ = true;
        return 0;
    }
    if (lastWasText_) {
        if (text_.size() + word_.size() >= kTextUnits) {
            LogFormat(L"ERROR: - maximum string length exceeded, Text item.\n");
            ReportLazily(Severity::kError, [this] {
                return Diagnostic::Error("text-too-long", TextHere(),
                                         "the text is longer than 16383 characters; the words "
                                         "past that are left out");
            });
            textRepeated_ = true;
        } else if (!text_.empty()) {
            text_.push_back(L' ');
            text_.append(word_);
            textRepeated_ = false;
        } else {
            text_ = word_;
            textRepeated_ = false;
        }
    } else {
        text_ = word_;
        textRepeated_ = false;
    }
    useMissing_ = useMissing_ && textRepeated_;
    LogFormat(L"Text node found: - %ls\n", text_.c_str());

    switch (context_) {
        case kPropertyText:
            if (const int result = TextForProperty(); result != 0) {
                return result;
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
            if (!insideIgnoredGroup_) {
                ReportLazily(Severity::kError, [this] {
                    return Diagnostic::Error(
                        "stray-text", ElementTextLocation(place_),
                        "text " + Quoted(word_.c_str()) + " stands where no element takes text");
                });
            }
            break;
    }
    lastWasText_ = true;
    return 0;
}

int FileReader::TextForProperty() {
    if (property_ == nullptr) {
        return 0;
    }
    if (text_.size() > kMaxPropertyName) {
        LogFormat(L"ERROR: - Property name is too long: - %ls\n", text_.c_str());
        Report(Diagnostic::Error("property-name-too-long", TextHere(),
                                 "the property name " + Quoted(text_.c_str()) +
                                     " is longer than 15 characters: the file is refused"));
        return -2;
    }
    const wchar_t* before = property_->strName;
    property_->strName = TrackedCopy(text_.c_str(), text_.size());
    pendingWord_ = true;
    propertyComplete_ = true;
    NotePropertyNamed(propertyArea_, property_, before);
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

std::string FileReader::ValueName() const {
    const Property* property = value_ != nullptr ? value_->lpProperty : nullptr;
    return "property " + Quoted(OrEmpty(property != nullptr ? property->strName : nullptr)) +
           " in profile " + Quoted(OrEmpty(profile_ != nullptr ? profile_->strUsage : nullptr));
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
    const std::int32_t type = value_->lpProperty->iType;
    ClearValueProblem();
    const Conversion conversion = ConvertValueText(type, text_.c_str(), *value_);
    const std::string& why = LastValueProblem();
    if (!why.empty()) {
        Diagnostic diagnostic = Diagnostic::Error(
            "bad-value", TextHere(),
            (conversion == Conversion::kFailed ? "bad " : "inexact ") + EncodeUtf8(TypeWord(type)) +
                " value " + Quoted(text_.c_str()) + " of " + ValueName() + ": it " + why +
                (conversion == Conversion::kFailed ? "; the value is dropped" : ""));
        if (type == kTypeBoolean) {
            diagnostic.suggestion =
                EncodeUtf8(ClosestName(std::wstring_view(text_),
                                       {L"Enabled", L"True", L"On", L"Disabled", L"False", L"Off"})
                               .c_str());
        }
        Report(diagnostic);
    }
    switch (conversion) {
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
    useHadText_ = true;
    if (use_->strProfile != nullptr) {
        LogFormat(L"ERROR: - usage of USE already assigned.\n");
        ReportLazily(Severity::kError, [this] {
            return Diagnostic::Error("second-use", TextHere(),
                                     "the application already has a use; this one is ignored")
                .Note(ElementLocation(usePlace_), "the use that is kept");
        });
        return;
    }
    // Words past the text's limit leave it as it was: a failed lookup is not repeated.
    const bool known = !useMissing_ && FindUseName(text_.c_str()) != 0;
    useMissing_ = !known;
    if (known) {
        use_->strProfile = StoredCopy(text_.c_str());
        applicationComplete_ = true;
        useComplete_ = true;
        return;
    }
    const wchar_t* areaName =
        OrEmpty(use_->lpDriver != nullptr ? use_->lpDriver->strName : nullptr);
    if (!IsUserOrOem()) {
        LogFormat(L"ERROR: - Unable to find Use profile: - %ls\n", text_.c_str());
        ReportLazily(Severity::kError, [this, areaName] {
            return Diagnostic::Error(
                       "unknown-profile", TextHere(),
                       "no profile " + Quoted(text_.c_str()) + " in area " + Quoted(areaName))
                .Suggest(EncodeUtf8(
                    ClosestName(std::wstring_view(text_), KnownProfileNames(areaName)).c_str()));
        });
        return;
    }
    unsigned char exists = 0;
    if (Call_ZEL_ApplicationProfiles_Profile_Exist(areaName, text_.c_str(), &exists) != 0) {
        std::fputs("ZEL_ApplicationProfiles_Profile_Exist failed!", stdout);
        std::fflush(stdout);
        Report(Diagnostic::Error("installed-set-unavailable", TextHere(),
                                 "cannot check profile " + Quoted(text_.c_str()) +
                                     " against the installed system set; the use is dropped"));
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
        Report(Diagnostic::Error("unknown-profile", TextHere(),
                                 "no profile " + Quoted(text_.c_str()) + " in area " +
                                     Quoted(areaName) +
                                     " of the installed system set; the use is dropped"));
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
            Report(Diagnostic::Error("empty-property-name", ElementLocation(textPlace_),
                                     "the property has no name: the file is refused"));
            return -2;
        }
    } else if (context_ == kValueText && !recordComplete_) {
        if (value_ != nullptr && valueValid_) {
            const std::int32_t type =
                value_->lpProperty != nullptr ? value_->lpProperty->iType : kTypeUnknown;
            if (const wchar_t* message = EmptyValueMessage(type)) {
                ProgressLog(message, 0);
                Report(Diagnostic::Error("bad-value", ElementLocation(textPlace_),
                                         "the " + EncodeUtf8(TypeWord(type)) + " value of " +
                                             ValueName() + " is empty; the value is dropped"));
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
        // The log says the name is empty also when a name came and named no
        // profile; the diagnostic about that name has said what happened.
        if (!useHadText_) {
            Report(Diagnostic::Error("use-dropped", ElementLocation(usePlace_),
                                     "the use names no profile; the application loses it"));
        }
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
    for (const auto& [profile, value, offset] : linkedValues_) {
        if (value->lpData != nullptr) {
            continue;
        }
        for (Value** link = &profile->lpValues; *link != nullptr; link = &(*link)->lpNext) {
            if (*link == value) {
                *link = value->lpNext;
                const wchar_t* name =
                    OrEmpty(value->lpProperty != nullptr ? value->lpProperty->strName : nullptr);
                LogFormat(L"ERROR: Value of property %ls has no data. Value is ignored.\n", name);
                Report(Diagnostic::Error(
                    "value-without-text", ElementLocation({loaded_.file, offset}),
                    "the value of property " + Quoted(name) + " has no text and is dropped"));
                break;
            }
        }
    }
}

}  // namespace qk
