#pragma once

#include <string>

namespace qk {

struct Customisations;
struct Value;

constexpr int kSystemDatabase = 0;
constexpr int kOemDatabase = 2;

// Fetches database (0 system, 1 user, 2 OEM) from the display-control library and
// writes it as customisation XML (UTF-16LE with byte-order mark) to path. 0 on
// success; -1 for an unknown database or a file that cannot be written (an ERROR
// line in the log); the library's result when the fetch fails (then no file is
// touched).
int ReverseToXml(int database, int placeholders, const char* path);

// The text of a fetched value as the XML shows it (data lengths count bytes).
std::wstring ValueText(const Value& value);

// The XML document for a fetched tree, as the bytes ReverseToXml writes.
std::string ReverseXmlBytes(const Customisations& root, int placeholders);

}  // namespace qk
