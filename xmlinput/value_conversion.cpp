#include "xmlinput/value_conversion.h"

#include <initializer_list>

#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "text/value_text.h"

namespace qk {

namespace {

// A tracked array holding the words, made value's data.
void StoreWords(Value& value, std::initializer_list<std::uint32_t> words) {
    auto* data = static_cast<std::uint32_t*>(
        Allocate(static_cast<std::uint32_t>(words.size() * sizeof(std::uint32_t))));
    std::uint32_t* at = data;
    for (std::uint32_t word : words) {
        *at++ = word;
    }
    value.lpData = data;
    value.iDataLength = static_cast<std::uint32_t>(words.size());
}

}  // namespace

Conversion ConvertValueText(std::int32_t type, const wchar_t* text, Value& value) {
    switch (type) {
        case kTypeBinary: {
            std::uint32_t* words = nullptr;
            const int count = TextToBinary(text, &words);
            if (count < 1 || words == nullptr) {
                LogFormat(L"ERROR, Zero length binary data.\n");
                return Conversion::kFailed;
            }
            value.lpData = words;
            value.iDataLength = static_cast<std::uint32_t>(count);
            return Conversion::kStored;
        }
        case kTypeDword: {
            std::uint32_t number = 0;
            if (DwordToBinary(text, &number) == -1) {
                LogFormat(L"ERROR, Dword conversion error.\n");
                return Conversion::kFailed;
            }
            StoreWords(value, {number});
            return Conversion::kStored;
        }
        case kTypeQword: {
            std::uint64_t number = 0;
            if (QwordToBinary(text, &number) == -1) {
                LogFormat(L"ERROR, Dword conversion error.\n");
                return Conversion::kFailed;
            }
            StoreWords(value, {static_cast<std::uint32_t>(number & 0xFFFFFFFFu),
                               static_cast<std::uint32_t>(number >> 32)});
            return Conversion::kStored;
        }
        case kTypeBoolean: {
            int flag = -1;
            TextToBoolean(text, &flag);
            if (flag != 0 && flag != 1) {
                LogFormat(L"ERROR, Invalid Boolean value returned.\n");
                return Conversion::kFailed;
            }
            StoreWords(value, {static_cast<std::uint32_t>(flag)});
            return Conversion::kStored;
        }
        default:
            value.iDataLength = 0;
            return Conversion::kText;
    }
}

const wchar_t* EmptyValueMessage(std::int32_t type) {
    switch (type) {
        case kTypeBinary:
            return L"ERROR: Binary conversion error.\nProfile value is ignored.\n";
        case kTypeDword:
        case kTypeQword:
            return L"ERROR: Dword conversion error.\nProfile value is ignored.\n";
        case kTypeBoolean:
            return L"ERROR: Boolean conversion error.\nProfile value is ignored.\n";
        default:
            return nullptr;
    }
}

}  // namespace qk
