#include "text/utf8_decode.h"

#include <cstring>

namespace qk {

long DecodeUtf8(std::string_view text, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
        ++at;
        return lead;
    }
    int extra = 0;
    long point = 0;
    long minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        extra = 1;
        point = lead & 0x1F;
        minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2;
        point = lead & 0x0F;
        minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3;
        point = lead & 0x07;
        minimum = 0x10000;
    } else {
        return -1;
    }
    if (text.size() - at <= static_cast<std::size_t>(extra)) {
        return -1;
    }
    for (int i = 1; i <= extra; ++i) {
        const auto next = static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]);
        if ((next & 0xC0) != 0x80) {
            return -1;
        }
        point = (point << 6) | (next & 0x3F);
    }
    if (point < minimum || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
        return -1;
    }
    at += static_cast<std::size_t>(extra) + 1;
    return point;
}

std::wstring WidenForLog(const char* text, std::size_t maxBytes) {
    std::wstring out;
    if (text == nullptr) {
        return out;
    }
    const std::string_view bytes(text, strnlen(text, maxBytes));
    for (std::size_t at = 0; at < bytes.size();) {
        const long point = DecodeUtf8(bytes, at);
        if (point < 0) {
            out.push_back(L'\xFFFD');
            ++at;
        } else {
            out.push_back(static_cast<wchar_t>(point));
        }
    }
    return out;
}

}  // namespace qk
