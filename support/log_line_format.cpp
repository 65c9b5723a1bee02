#include "support/log_line_format.h"

#include <cstring>
#include <cwchar>

namespace qk {

namespace {

// Output of the formatter: stops taking units at the bound, as vswprintf
// does.
class LineWriter {
  public:
    LineWriter(wchar_t* out, std::size_t bound) : out_(out), room_(bound - 1) {}

    void Put(wchar_t unit) {
        if (used_ < room_) {
            out_[used_++] = unit;
        }
    }
    void Pad(std::size_t width, std::size_t length) {
        for (; length < width; ++length) {
            Put(L' ');
        }
    }
    void Number(bool negative, unsigned long long magnitude, unsigned base, bool upper,
                std::size_t width) {
        wchar_t digits[24];
        std::size_t count = 0;
        const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
        do {
            digits[count++] = static_cast<wchar_t>(set[magnitude % base]);
            magnitude /= base;
        } while (magnitude != 0);
        Pad(width, count + (negative ? 1 : 0));
        if (negative) {
            Put(L'-');
        }
        while (count > 0) {
            Put(digits[--count]);
        }
    }
    void Finish() { out_[used_] = L'\0'; }

  private:
    wchar_t* out_;
    std::size_t room_;
    std::size_t used_ = 0;
};

// Decodes narrow text into line (when given) and returns its number of characters.
std::size_t DecodeNarrow(const char* text, LineWriter* line) {
    std::mbstate_t state{};
    std::size_t characters = 0;
    std::size_t left = std::strlen(text);
    while (left > 0) {
        wchar_t unit = 0;
        std::size_t used = static_cast<unsigned char>(*text) < 0x80
                               ? (unit = static_cast<wchar_t>(*text), 1)
                               : std::mbrtowc(&unit, text, left, &state);
        if (used == static_cast<std::size_t>(-1) || used == static_cast<std::size_t>(-2) ||
            used == 0) {
            unit = L'\xFFFD';
            used = 1;
            state = std::mbstate_t{};
        }
        if (line != nullptr) {
            line->Put(unit);
        }
        ++characters;
        text += used;
        left -= used;
    }
    return characters;
}

}  // namespace

bool FormatLogLine(wchar_t* out, std::size_t bound, const wchar_t* format, va_list arguments) {
    if (bound == 0) {
        return false;
    }
    LineWriter line(out, bound);
    for (const wchar_t* at = format; *at != L'\0'; ++at) {
        if (*at != L'%') {
            line.Put(*at);
            continue;
        }
        ++at;
        if (*at == L'%') {
            line.Put(L'%');
            continue;
        }
        std::size_t width = 0;
        if (*at >= L'1' && *at <= L'9') {
            while (*at >= L'0' && *at <= L'9') {
                width = width * 10 + static_cast<std::size_t>(*at - L'0');
                ++at;
            }
        }
        int longs = 0;
        while (*at == L'l' && longs < 2) {
            ++longs;
            ++at;
        }
        switch (*at) {
            case L'd': {
                long long value = longs == 0   ? va_arg(arguments, int)
                                  : longs == 1 ? va_arg(arguments, long)
                                               : va_arg(arguments, long long);
                const bool negative = value < 0;
                const unsigned long long magnitude =
                    negative ? 0ULL - static_cast<unsigned long long>(value)
                             : static_cast<unsigned long long>(value);
                line.Number(negative, magnitude, 10, false, width);
                break;
            }
            case L'u':
            case L'X':
            case L'x': {
                const unsigned long long value = longs == 0 ? va_arg(arguments, unsigned)
                                                 : longs == 1
                                                     ? va_arg(arguments, unsigned long)
                                                     : va_arg(arguments, unsigned long long);
                line.Number(false, value, *at == L'u' ? 10 : 16, *at == L'X', width);
                break;
            }
            case L's': {
                if (longs == 1) {
                    const auto* text = va_arg(arguments, const wchar_t*);
                    if (text == nullptr) {
                        return false;
                    }
                    const std::size_t length = width > 0 ? std::wcslen(text) : 0;
                    line.Pad(width, length);
                    for (; *text != L'\0'; ++text) {
                        line.Put(*text);
                    }
                } else if (longs == 0) {
                    // Narrow text decodes with the character type (UTF-8 in a
                    // run); a byte that does not decode stands as U+FFFD, so
                    // that a file name in another encoding still gives its line.
                    const auto* text = va_arg(arguments, const char*);
                    if (text == nullptr) {
                        return false;
                    }
                    line.Pad(width, width > 0 ? DecodeNarrow(text, nullptr) : 0);
                    DecodeNarrow(text, &line);
                } else {
                    return false;
                }
                break;
            }
            case L'c':
                if (longs != 1) {
                    return false;
                }
                line.Pad(width, 1);
                line.Put(static_cast<wchar_t>(va_arg(arguments, wint_t)));
                break;
            default:
                return false;
        }
    }
    // A text cut at the bound is what the caller leaves after vswprintf too.
    line.Finish();
    return true;
}

}  // namespace qk
