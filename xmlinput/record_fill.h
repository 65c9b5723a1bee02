#pragma once

// Filling the tree's records from XML attributes: every stored text is a
// private copy that also goes into the word list.

#include "model/customisation.h"
#include "xmlinput/xml_place.h"

#include <string_view>
#include <vector>

namespace qk {

// Whether name is the text wanted (false for null).
bool NameIs(const wchar_t* name, const wchar_t* wanted);
// A tracked copy of text, also offered to the word list.
wchar_t* StoredCopy(const wchar_t* text);

// Fill operations: store a private copy of the value (also entered in the word
// list) in the field that the attribute name selects. An unknown attribute or
// value is logged and reported at its place in the element at.
void FillCustomisationStrings(const wchar_t* name, const wchar_t* value,
                              const ElementPlace& at = {});
void FillDriver(Driver* driver, const wchar_t* name, const wchar_t* value,
                const ElementPlace& at = {});
void FillProperty(Property* property, const wchar_t* name, const wchar_t* value,
                  const ElementPlace& at = {});
void FillProfile(Profile* profile, const wchar_t* name, const wchar_t* value,
                 const ElementPlace& at = {});
void FillApplication(Application* application, const wchar_t* name, const wchar_t* value,
                     const ElementPlace& at = {});

// 1 when the stored header attribute exists and equals value exactly, else 0.
int CompareCustomisation(const wchar_t* name, const wchar_t* value, const ElementPlace& at = {});

// Reports an attribute that the element does not know, with the closest known
// one as a hint.
void ReportUnknownAttribute(const ElementPlace& at, const char* element, const wchar_t* name,
                            std::vector<std::string_view> known);

}  // namespace qk
