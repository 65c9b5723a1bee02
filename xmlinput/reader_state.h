#pragma once

// The reader of one customisation file: the cursors and flags of its walk over
// the document. Elements and attributes are handled in file_reader.cpp, the
// texts of elements in element_text.cpp.

#include <string>
#include <utility>
#include <vector>

#include "model/customisation.h"
#include "support/diagnostic.h"
#include "xmlinput/xml_load.h"
#include "xmlinput/xml_place.h"

namespace qk {

class FileReader {
  public:
    explicit FileReader(const char* path);

    // Reads and merges the file, loading it unless it comes loaded.
    int Read();
    int Read(LoadedXml&& loaded);

  private:
    enum Context { kNoContext = 0, kPropertyText = 1, kValueText = 2, kUseText = 3 };

    // file_reader.cpp: the walk, elements and attributes.
    void Start();
    int HandleNode(mxml_node_t* node);
    int HandleElement(mxml_node_t* node);
    void HandleGroup(const char* element);
    int HandleAttribute(const char* element, int index, const wchar_t* name, const wchar_t* value);
    void HandleCustomisations(const wchar_t* name, const wchar_t* value);
    void HandleArea(int index, const wchar_t* name, const wchar_t* value);
    int HandleProperty(const wchar_t* name, const wchar_t* value);
    void HandleApplication(int index, const wchar_t* name, const wchar_t* value);
    void HandleProfile(int index, const wchar_t* name, const wchar_t* value);
    void HandleValue(int index, const wchar_t* name, const wchar_t* value);
    Property* FindValueProperty(const wchar_t* driverName, const wchar_t* name);
    void HandleUse(const wchar_t* name, const wchar_t* value);
    bool CopyAreaName(const wchar_t* value);
    Area* AppendNewArea();
    Profile* NextProfile();
    void FillCurrentProfile(const wchar_t* name, const wchar_t* value);
    void DropValueWithoutProperty(std::string why);
    void Finish();
    // reader_warnings.cpp: what the reader warns of once a file is read.
    void ReportDuplicates();
    void ReportPrunedApplications();

    // element_text.cpp: what the text of an element does.
    int HandleWord(const char* word);
    int HandleEmptyText();
    int TextForProperty();
    void TextForValue();
    void TextForUse();
    void DropValue();
    void TakeUseAway();
    void FlushPendingWord();
    void RemoveValuesWithoutData();
    // The value being read, in words ("the value of property X in profile Y").
    std::string ValueName() const;

    // Places of what the reader is at.
    SourceLocation Here() const { return ElementLocation(place_); }
    SourceLocation AttributeHere(const char* name) const {
        return AttributeNameLocation(place_, name);
    }
    SourceLocation ValueHere(const char* name) const {
        return AttributeValueLocation(place_, name);
    }
    SourceLocation TextHere() const { return ElementTextLocation(textPlace_); }

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
    // The last word left the text as it was (it is past its limit), and the
    // text's use lookup already failed: both hold for the words that follow.
    bool textRepeated_ = false;
    bool useMissing_ = false;
    // A user file's properties group is not read: its texts are no mistakes of their own.
    bool insideIgnoredGroup_ = false;
    // The last profile element was refused by its area's privacy.
    bool profileRefused_ = false;
    // The current use's text came (and was reported if wrong).
    bool useHadText_ = false;

    std::wstring text_;
    std::wstring word_;
    std::wstring attributeName_;
    std::wstring attributeValue_;
    wchar_t areaName_[256] = {};
    // A text value takes its copy when its text is complete, not once per word.
    Value* pendingTextValue_ = nullptr;
    // Values linked by this file, checked for data when the file ends.
    struct LinkedValue {
        Profile* profile;
        Value* value;
        std::uint32_t offset;  // where its element starts
    };
    std::vector<LinkedValue> linkedValues_;
    // Profiles and applications this file made, for duplicates and pruning.
    std::vector<Profile*> newProfiles_;
    std::vector<Application*> newApplications_;

    // Where the element being handled starts, and the element whose text comes.
    LoadedXml loaded_;
    NodePlaces nodePlaces_;
    ElementPlace place_;
    ElementPlace textPlace_;
    ElementPlace usePlace_;  // the use that the current application keeps
};

// Forgets the profiles and applications met so far (a new run).
void ResetDuplicateChecks();

}  // namespace qk
