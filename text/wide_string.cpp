#include "text/wide_string.h"

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "text/utf8_decode.h"

namespace qk {

namespace {

constexpr std::size_t kMaxUtf16Units = 8192;

}  // namespace

wchar_t* chartowc(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::string_view input(text);
    // One wide unit per UTF-16 unit, and never more units than input bytes.
    wchar_t converted[kMaxUtf16Units];
    std::size_t units = 0;
    std::size_t at = 0;
    while (at < input.size()) {
        const long point = DecodeUtf8(input, at);
        if (point < 0) {
            return nullptr;
        }
        const std::size_t needed = point > 0xFFFF ? 2 : 1;
        if (units + needed > kMaxUtf16Units) {
            return nullptr;
        }
        if (point > 0xFFFF) {
            const long offset = point - 0x10000;
            converted[units++] = static_cast<wchar_t>(0xD800 + (offset >> 10));
            converted[units++] = static_cast<wchar_t>(0xDC00 + (offset & 0x3FF));
        } else {
            converted[units++] = static_cast<wchar_t>(point);
        }
    }
    auto* wide = static_cast<wchar_t*>(
        Allocate(static_cast<std::uint32_t>((input.size() + 1) * sizeof(wchar_t))));
    std::wmemcpy(wide, converted, units);
    return wide;
}

wchar_t* MakeWc(const char* text) {
    return chartowc(text);
}

char* wctochar(const wchar_t* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t length = std::wcslen(text);
    auto* narrow = static_cast<char*>(Allocate(static_cast<std::uint32_t>(length + 1)));
    std::size_t out = 0;
    for (std::size_t i = 0; i < length; ++i) {
        // The tool keeps the default locale, where only the 7-bit set converts.
        if (static_cast<std::uint32_t>(text[i]) < 0x80) {
            narrow[out++] = static_cast<char>(text[i]);
        } else {
            const wchar_t character[2] = {text[i], L'\0'};
            LogFormat(L"ERROR, wctochar:- unable to convert to regular char - %ls\n", character);
        }
    }
    return narrow;
}

wchar_t* TrackedCopy(const wchar_t* text) {
    if (text == nullptr) {
        return nullptr;
    }
    return TrackedCopy(text, std::wcslen(text));
}

wchar_t* TrackedCopy(const wchar_t* text, std::size_t length) {
    if (text == nullptr) {
        return nullptr;
    }
    auto* copy =
        static_cast<wchar_t*>(Allocate(static_cast<std::uint32_t>((length + 1) * sizeof(wchar_t))));
    std::wmemcpy(copy, text, length);
    return copy;
}

bool WidenText(const char* text, std::wstring& out) {
    constexpr std::size_t kMaxWideUnits = 8192;  // the bound that chartowc keeps
    out.clear();
    const char* at = text;
    for (; *at != '\0' && static_cast<unsigned char>(*at) < 0x80; ++at) {
        out.push_back(static_cast<wchar_t>(*at));
    }
    if (*at == '\0') {
        return out.size() <= kMaxWideUnits;
    }
    const wchar_t* wide = chartowc(text);
    if (wide == nullptr) {
        return false;
    }
    out.assign(wide);
    return true;
}

}  // namespace qk
