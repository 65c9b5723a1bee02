#pragma once

#include <cstdint>
#include <string>

namespace qk {

// Binary text "0x01,0xFF": number of bytes (one 32-bit word each, in a new
// tracked array), 0 for text under 3 characters, -1 on a bad byte.
int TextToBinary(const wchar_t* text, std::uint32_t** words);
int StringToInt(const wchar_t* token, std::uint32_t* byte);

int DwordToBinary(const wchar_t* text, std::uint32_t* value);
int StringToDword(const wchar_t* text, std::uint32_t* value);
int QwordToBinary(const wchar_t* text, std::uint64_t* value);
int StringToQword(const wchar_t* text, std::uint64_t* value);
int TextToBoolean(const wchar_t* text, int* value);

// Why the last conversion failed, or took its text only in part ("60abc"
// stores 60): empty when it took all of it. The reader reports it at the
// value's place. Cleared by ClearValueProblem.
const std::string& LastValueProblem();
void ClearValueProblem();

wchar_t HexChar(unsigned short number);
// The buffer holds the template "0x00000000" (or the Qword one); the digits are
// written into the units before the last.
void WSPrintDWORD(std::uint32_t value, wchar_t* buffer, unsigned length);
void WSPrintQWORD(std::uint64_t value, wchar_t* buffer, unsigned length);
void WSPrintBinary(const std::uint8_t* bytes, unsigned count, wchar_t* buffer, unsigned length);

}  // namespace qk
