#include "text/bounded_string.h"

#include <cstdarg>
#include <cstring>
#include <cwchar>

namespace qk {

std::size_t apStrLen(const char* text) {
    return std::strlen(text);
}

char* apStrCpy(char* destination, const char* source, std::size_t capacity) {
    const std::size_t length = std::strlen(source);
    if (length >= capacity) {
        return nullptr;
    }
    std::memcpy(destination, source, length + 1);
    return destination;
}

int apStrCmp(const char* left, const char* right) {
    return std::strcmp(left, right);
}

const wchar_t* swPrintStr(const wchar_t* text) {
    return text;
}

wchar_t* wcscpy_s(wchar_t* destination, std::size_t capacity, const wchar_t* source) {
    const std::size_t length = std::wcslen(source);
    if (length >= capacity) {
        return nullptr;
    }
    std::wmemcpy(destination, source, length + 1);
    return destination;
}

wchar_t* wcsncpy_s(wchar_t* destination, std::size_t capacity, const wchar_t* source,
                   std::size_t count) {
    if (count > capacity) {
        return nullptr;
    }
    std::wcsncpy(destination, source, count);
    return destination;
}

wchar_t* wcscat_s(wchar_t* destination, std::size_t capacity, const wchar_t* source) {
    const std::size_t have = std::wcslen(destination);
    const std::size_t add = std::wcslen(source);
    if (have + add >= capacity) {
        return nullptr;
    }
    std::wmemcpy(destination + have, source, add + 1);
    return destination;
}

int _snwprintf_s(wchar_t* buffer, std::size_t capacity, std::size_t, const wchar_t* format, ...) {
    if (capacity == 0) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vswprintf(buffer, capacity, format, arguments);
    va_end(arguments);
    if (written < 0) {
        buffer[capacity - 1] = L'\0';
        return -1;
    }
    return written;
}

wchar_t Towchar_t(unsigned short unit) {
    return (unit >= 32 && unit <= 126) ? static_cast<wchar_t>(unit) : L' ';
}

}  // namespace qk
