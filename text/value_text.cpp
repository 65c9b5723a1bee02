#include "text/value_text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "text/wide_string.h"

namespace qk {

namespace {

constexpr std::size_t kWorkingUnits = 16384;
constexpr std::size_t kMaxHexDigits = 31;

std::string g_problem;

void NoteProblem(std::string why) {
    g_problem = std::move(why);
}

std::string Shown(std::wstring_view text) {
    return "\"" + EncodeUtf8(std::wstring(text).c_str()) + "\"";
}

int HexValue(wchar_t digit) {
    if (digit >= L'0' && digit <= L'9') {
        return digit - L'0';
    }
    if (digit >= L'A' && digit <= L'F') {
        return digit - L'A' + 10;
    }
    if (digit >= L'a' && digit <= L'f') {
        return digit - L'a' + 10;
    }
    return -1;
}

bool HasHexPrefix(std::wstring_view text) {
    return text.size() >= 2 && text[0] == L'0' && text[1] == L'x';
}

// Hex digits after "0x", taken modulo 2^64; the caller keeps the bits it needs.
int ParseHexDigits(std::wstring_view digits, std::uint64_t* value) {
    if (digits.empty()) {
        ProgressLog(L"ERROR, Invalid Hex string, too short.\n", 0);
        NoteProblem("has no digit after \"0x\"");
        return -1;
    }
    if (digits.size() > kMaxHexDigits) {
        NoteProblem("has more than 31 hexadecimal digits");
        LogFormat(L"ERROR, Hex string longer than %d digits.\n", static_cast<int>(kMaxHexDigits));
        return -1;
    }
    std::uint64_t number = 0;
    for (wchar_t digit : digits) {
        const int nibble = HexValue(digit);
        if (nibble < 0) {
            ProgressLog(L"StringToDword ERROR: Invalid character for Hex string.\n", 0);
            NoteProblem("holds " + Shown(std::wstring_view(&digit, 1)) +
                        ", which is not a hexadecimal digit");
            return -1;
        }
        number = (number << 4) | static_cast<std::uint64_t>(nibble);
    }
    *value = number;
    return 0;
}

// A value text that the conversion takes only in part (or not at all) is a
// problem the log does not show: "sixty" stores 0, "60abc" 60.
void ReportInexact(const char* why, std::int64_t stored) {
    NoteProblem(std::string(why) + " (" + std::to_string(stored) + " is stored)");
}

// Decimal text read the way strtoll reads it, saturating at the given range.
std::int64_t ParseDecimal(const wchar_t* text, std::int64_t lowest, std::int64_t highest,
                          const wchar_t* /*type*/) {
    const char* narrow = wctochar(text);
    errno = 0;
    char* end = nullptr;
    const long long number = std::strtoll(narrow, &end, 10);
    const std::int64_t stored = std::clamp<long long>(number, lowest, highest);
    if (end == narrow || *end != '\0' || std::iswspace(static_cast<wint_t>(text[0]))) {
        ReportInexact("is not a decimal number", stored);
    } else if (errno == ERANGE || number < lowest || number > highest) {
        ReportInexact("is out of range", stored);
    }
    return stored;
}

}  // namespace

int StringToInt(const wchar_t* token, std::uint32_t* byte) {
    const std::wstring_view text(token);
    if (text.empty()) {
        *byte = 0;
        return 0;
    }
    if (!HasHexPrefix(text)) {
        ProgressLog(L"ERROR, Improperly formed Hex string.\n", 0);
        NoteProblem("has byte " + Shown(text) + ", which does not start with \"0x\"");
        return -1;
    }
    const std::wstring_view digits = text.substr(2);
    if (digits.empty()) {
        ProgressLog(L"ERROR, Invalid Hex string, too short.\n", 0);
        NoteProblem("has a byte \"0x\" without digits");
        return -1;
    }
    if (digits.size() > 2) {
        ProgressLog(L"Hex string too long, not supported\n", 0);
        NoteProblem("has byte " + Shown(text) + ", with more than two hexadecimal digits");
        return -1;
    }
    std::uint32_t value = 0;
    for (wchar_t digit : digits) {
        const int nibble = HexValue(digit);
        if (nibble < 0) {
            ProgressLog(L"invalid character, not supported\n", 0);
            NoteProblem("has byte " + Shown(text) + ", where " +
                        Shown(std::wstring_view(&digit, 1)) + " is not a hexadecimal digit");
            return -1;
        }
        value = (value << 4) | static_cast<std::uint32_t>(nibble);
    }
    *byte = value;
    return 0;
}

int TextToBinary(const wchar_t* text, std::uint32_t** words) {
    const std::wstring_view whole(text);
    if (whole.size() < 3) {
        NoteProblem("is shorter than 3 characters: a Binary value is bytes such as 0x01,0xFF");
        return 0;
    }
    if (whole.size() >= kWorkingUnits) {
        NoteProblem("is longer than 16383 characters");
        LogFormat(L"ERROR, Binary value text longer than %d characters.\n",
                  static_cast<int>(kWorkingUnits - 1));
        return -1;
    }
    // Runs of commas and a trailing comma make no empty tokens; spaces stay in tokens.
    std::vector<std::wstring> tokens;
    std::size_t at = 0;
    while (at < whole.size()) {
        const std::size_t comma = whole.find(L',', at);
        const std::size_t end = comma == std::wstring_view::npos ? whole.size() : comma;
        if (end > at) {
            tokens.emplace_back(whole.substr(at, end - at));
        }
        at = end + 1;
    }
    auto* array = static_cast<std::uint32_t*>(
        Allocate(static_cast<std::uint32_t>(tokens.size() * sizeof(std::uint32_t))));
    *words = array;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        if (StringToInt(tokens[i].c_str(), &array[i]) != 0) {
            ProgressLog(L"TextToBinary: string conversion failed.\n", 0);
            return -1;
        }
    }
    return static_cast<int>(tokens.size());
}

int StringToDword(const wchar_t* text, std::uint32_t* value) {
    const std::wstring_view whole(text);
    if (whole.empty()) {
        *value = 0;
        return 0;
    }
    if (HasHexPrefix(whole)) {
        std::uint64_t number = 0;
        if (ParseHexDigits(whole.substr(2), &number) != 0) {
            return -1;
        }
        if (whole.size() - 2 > 8) {
            NoteProblem("has more than 8 hexadecimal digits (only the last 8 are stored)");
        }
        *value = static_cast<std::uint32_t>(number);
        return 0;
    }
    *value = static_cast<std::uint32_t>(ParseDecimal(text, std::numeric_limits<std::int32_t>::min(),
                                                     std::numeric_limits<std::int32_t>::max(),
                                                     L"Dword"));
    return 0;
}

int StringToQword(const wchar_t* text, std::uint64_t* value) {
    const std::wstring_view whole(text);
    if (whole.empty()) {
        *value = 0;
        return 0;
    }
    if (HasHexPrefix(whole)) {
        if (ParseHexDigits(whole.substr(2), value) != 0) {
            return -1;
        }
        if (whole.size() - 2 > 16) {
            NoteProblem("has more than 16 hexadecimal digits (only the last 16 are stored)");
        }
        return 0;
    }
    *value = static_cast<std::uint64_t>(ParseDecimal(text, std::numeric_limits<std::int64_t>::min(),
                                                     std::numeric_limits<std::int64_t>::max(),
                                                     L"Qword"));
    return 0;
}

int DwordToBinary(const wchar_t* text, std::uint32_t* value) {
    if (text[0] == L'\0') {
        return -1;
    }
    return StringToDword(text, value);
}

int QwordToBinary(const wchar_t* text, std::uint64_t* value) {
    if (text[0] == L'\0') {
        return -1;
    }
    return StringToQword(text, value);
}

int TextToBoolean(const wchar_t* text, int* value) {
    static constexpr const wchar_t* kTrue[] = {L"Enabled", L"True", L"On", L"1"};
    static constexpr const wchar_t* kFalse[] = {L"Disabled", L"False", L"Off", L"0"};
    for (const wchar_t* word : kTrue) {
        if (std::wcscmp(text, word) == 0) {
            *value = 1;
            return 0;
        }
    }
    for (const wchar_t* word : kFalse) {
        if (std::wcscmp(text, word) == 0) {
            *value = 0;
            return 0;
        }
    }
    LogFormat(L"Boolean conversion error: Unknown string: - %ls.\n", text);
    NoteProblem("is not a Boolean word (Enabled, True, On, 1, Disabled, False, Off, 0)");
    return -1;
}

const std::string& LastValueProblem() {
    return g_problem;
}

void ClearValueProblem() {
    g_problem.clear();
}

wchar_t HexChar(unsigned short number) {
    if (number <= 9) {
        return static_cast<wchar_t>(L'0' + number);
    }
    if (number <= 15) {
        return static_cast<wchar_t>(L'A' + (number - 10));
    }
    return L'0';
}

namespace {

void WriteHexDigits(std::uint64_t value, int digits, wchar_t* buffer, unsigned length) {
    // The digits end just before the buffer's last unit, most significant first.
    wchar_t* last = buffer + length - 2;
    for (int i = 0; i < digits; ++i) {
        *(last - i) = HexChar(static_cast<unsigned short>(value & 0xF));
        value >>= 4;
    }
}

}  // namespace

void WSPrintDWORD(std::uint32_t value, wchar_t* buffer, unsigned length) {
    if (length > 8) {
        WriteHexDigits(value, 8, buffer, length);
    }
}

void WSPrintQWORD(std::uint64_t value, wchar_t* buffer, unsigned length) {
    if (length > 16) {
        WriteHexDigits(value, 16, buffer, length);
    }
}

void WSPrintBinary(const std::uint8_t* bytes, unsigned count, wchar_t* buffer, unsigned length) {
    if (count == 0 || length < 5ull * count + 1) {
        return;
    }
    for (unsigned i = 0; i < count; ++i) {
        wchar_t* out = buffer + 5 * i;
        out[0] = L'0';
        out[1] = L'x';
        out[2] = HexChar(static_cast<unsigned short>(bytes[i] >> 4));
        out[3] = HexChar(static_cast<unsigned short>(bytes[i] & 0xF));
        out[4] = L',';
    }
}

}  // namespace qk
