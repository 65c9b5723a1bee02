#include "support/utf8_encode.h"

#include <clocale>
#include <cwchar>

namespace qk {

namespace {

// Writes one character as UTF-8 at out (room for four bytes); returns the end.
char* PutUtf8(char* out, std::uint32_t point) {
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
        point = 0xFFFD;
    }
    if (point < 0x80) {
        *out++ = static_cast<char>(point);
    } else if (point < 0x800) {
        *out++ = static_cast<char>(0xC0 | (point >> 6));
        *out++ = static_cast<char>(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (point >> 12));
        *out++ = static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (point & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (point >> 18));
        *out++ = static_cast<char>(0x80 | ((point >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (point & 0x3F));
    }
    return out;
}

}  // namespace

void AppendUtf8(std::string& out, std::uint32_t point) {
    char bytes[4];
    out.append(bytes, static_cast<std::size_t>(PutUtf8(bytes, point) - bytes));
}

std::size_t EncodeUtf8To(const wchar_t* text, std::size_t length, char* out) {
    char* end = out;
    for (std::size_t at = 0; at < length; ++at) {
        auto unit = static_cast<std::uint32_t>(text[at]);
        if (unit < 0x80) {
            *end++ = static_cast<char>(unit);
            continue;
        }
        if (unit >= 0xD800 && unit <= 0xDBFF && at + 1 < length) {
            const auto low = static_cast<std::uint32_t>(text[at + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                ++at;
            }
        }
        end = PutUtf8(end, unit);
    }
    return static_cast<std::size_t>(end - out);
}

void EncodeUtf8(const wchar_t* text, std::string& out) {
    out.clear();
    if (text == nullptr) {
        return;
    }
    const std::size_t length = std::wcslen(text);
    out.resize(4 * length);
    out.resize(EncodeUtf8To(text, length, out.data()));
}

std::string EncodeUtf8(const wchar_t* text) {
    std::string out;
    EncodeUtf8(text, out);
    return out;
}

void UseUtf8CharacterType() {
    std::setlocale(LC_CTYPE, "C.UTF-8");
}

}  // namespace qk
