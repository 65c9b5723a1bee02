#pragma once

// Turning the text of a profile's value into the data its property's type stores.

#include <cstdint>

#include "model/customisation.h"

namespace qk {

enum class Conversion {
    kStored,  // a number: value's data is set
    kText,    // a text type: the caller stores the text once it is complete
    kFailed,  // an ERROR line was logged; the value is to be dropped
};

// Converts text for a property of the given type into value's data: Binary,
// Dword, Qword and Boolean texts become their stored words.
Conversion ConvertValueText(std::int32_t type, const wchar_t* text, Value& value);

// The ERROR lines for a value of the given type whose text is empty; null for
// the text types, where an empty text is a value.
const wchar_t* EmptyValueMessage(std::int32_t type);

}  // namespace qk
