// Arbitrary bytes as value text for every parser and printer.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "support/fatal_exit.h"
#include "support/tracked_memory.h"
#include "text/value_text.h"
#include "text/wide_string.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qk::fuzz::ResetRun();
    // Text arrives widened from UTF-8; take the bytes as such, falling back to one
    // unit per byte so that every input reaches the parsers.
    std::string narrow(reinterpret_cast<const char*>(data), size);
    narrow = narrow.substr(0, narrow.find('\0'));
    std::wstring text;
    if (const wchar_t* wide = qk::chartowc(narrow.c_str())) {
        text = wide;
    } else {
        for (unsigned char byte : narrow)
            text.push_back(static_cast<wchar_t>(byte));
    }
    try {
        std::uint32_t* words = nullptr;
        const int count = qk::TextToBinary(text.c_str(), &words);
        std::uint32_t dword = 0;
        std::uint64_t qword = 0;
        int flag = 0;
        qk::DwordToBinary(text.c_str(), &dword);
        qk::QwordToBinary(text.c_str(), &qword);
        qk::TextToBoolean(text.c_str(), &flag);
        if (count > 0) {
            std::basic_string<std::uint8_t> bytes;
            for (int i = 0; i < count; ++i)
                bytes.push_back(static_cast<std::uint8_t>(words[i]));
            std::wstring printed(5 * bytes.size() + 1, L'\0');
            qk::WSPrintBinary(bytes.data(), static_cast<unsigned>(bytes.size()), printed.data(),
                              static_cast<unsigned>(printed.size()));
            // What the printer writes, the parser reads back unchanged.
            std::uint32_t* again = nullptr;
            if (qk::TextToBinary(printed.c_str(), &again) != count)
                __builtin_trap();
            for (int i = 0; i < count; ++i) {
                if (again[i] != bytes[static_cast<std::size_t>(i)])
                    __builtin_trap();
            }
        }
        wchar_t dwordText[11] = L"0x00000000";
        qk::WSPrintDWORD(dword, dwordText, 11);
        std::uint32_t back = 0;
        if (qk::StringToDword(dwordText, &back) != 0 || back != dword)
            __builtin_trap();
    } catch (const qk::FatalExit& exit) {
        qk::fuzz::CheckFatalExit(exit.status);
    }
    return 0;
}
