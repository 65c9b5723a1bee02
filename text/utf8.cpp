#include "text/utf8.h"

namespace qk {

void AppendUtf8(std::string& out, std::uint32_t point) {
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
        point = 0xFFFD;
    }
    if (point < 0x80) {
        out.push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (point >> 6)));
        out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
    } else if (point < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (point >> 12)));
        out.push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (point >> 18)));
        out.push_back(static_cast<char>(0x80 | ((point >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
    }
}

void EncodeUtf8(const wchar_t* text, std::string& out) {
    out.clear();
    if (text == nullptr) {
        return;
    }
    for (const wchar_t* at = text; *at != L'\0'; ++at) {
        auto unit = static_cast<std::uint32_t>(*at);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            const auto low = static_cast<std::uint32_t>(at[1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                ++at;
            }
        }
        AppendUtf8(out, unit);
    }
}

std::string EncodeUtf8(const wchar_t* text) {
    std::string out;
    EncodeUtf8(text, out);
    return out;
}

}  // namespace qk
