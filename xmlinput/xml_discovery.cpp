#include "xmlinput/xml_discovery.h"

#include <dirent.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/profile_mode.h"
#include "app/progress_log.h"
#include "app/tracked_memory.h"
#include "xmlinput/file_reader.h"
#include "xmlinput/name_lookup.h"
#include "xmlinput/xml_load.h"

namespace qk {

namespace {

// Narrow texts (paths, element names) widened for the log. The wide formatter
// refuses "%s" arguments that are not valid UTF-8, so they are decoded here and
// each byte that is not part of a valid sequence becomes U+FFFD. Only the first
// maxBytes bytes are taken: a log line is cut at 4096 characters anyway.
std::wstring Widened(const char* text, std::size_t maxBytes = 4 * kLogFormatBound) {
    std::wstring out;
    if (text == nullptr) {
        return out;
    }
    const auto* at = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = at + strnlen(text, maxBytes);
    while (at < end) {
        const unsigned lead = *at;
        if (lead < 0x80) {
            out.push_back(static_cast<wchar_t>(lead));
            ++at;
            continue;
        }
        const int extra = lead >= 0xF0 && lead < 0xF8   ? 3
                          : lead >= 0xE0 && lead < 0xF0 ? 2
                          : lead >= 0xC0 && lead < 0xE0 ? 1
                                                        : 0;
        // The smallest character each length may encode; shorter forms are invalid.
        static constexpr std::uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
        const std::uint32_t least = kLeast[extra];
        std::uint32_t point = lead & (0x3Fu >> extra);
        int taken = 0;
        while (taken < extra && at + 1 + taken < end && (at[1 + taken] & 0xC0) == 0x80) {
            point = point << 6 | (at[1 + taken] & 0x3F);
            ++taken;
        }
        const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
        if (extra == 0 || taken < extra || point < least || point > 0x10FFFF || surrogate) {
            out.push_back(L'\xFFFD');
            ++at;
            continue;
        }
        out.push_back(static_cast<wchar_t>(point));
        at += 1 + extra;
    }
    return out;
}

// The list grows by a new tracked string holding the old list and the
// addition; the old one stays for the final sweep.
void AppendToList(char*& list, std::string_view addition) {
    const std::size_t old = list != nullptr ? std::strlen(list) : 0;
    const std::size_t total = old + addition.size() + 1;
    if (total > UINT32_MAX) {
        ProgressLog(L"ERROR, the list of XML files is too long\n", 0);
        ExitFree();
    }
    auto* grown = static_cast<char*>(Allocate(static_cast<std::uint32_t>(total)));
    if (old != 0) {
        std::memcpy(grown, list, old);
    }
    std::memcpy(grown + old, addition.data(), addition.size());
    list = grown;
}

bool HasXmlExtension(std::string_view name) {
    if (name.size() < 4 || name[name.size() - 4] != '.') {
        return false;
    }
    const std::string_view letters = name.substr(name.size() - 3);
    constexpr std::string_view kXml = "xml";
    for (std::size_t i = 0; i < kXml.size(); ++i) {
        const char lower = letters[i] >= 'A' && letters[i] <= 'Z'
                               ? static_cast<char>(letters[i] - 'A' + 'a')
                               : letters[i];
        if (lower != kXml[i]) {
            return false;
        }
    }
    return true;
}

bool IsKnownElement(std::string_view name) {
    static constexpr std::array<std::string_view, 12> kElements = {
        "customisations", "properties",   "driver",      "property", "profiles", "profile",
        "value",          "applications", "application", "for",      "area",     "use"};
    return std::find(kElements.begin(), kElements.end(), name) != kElements.end();
}

}  // namespace

int ReadAllXmls(const char* directory, int bCountProperties) {
    LogFormat(L"Searching for xml's in: - %ls\n", Widened(directory).c_str());
    char* list = nullptr;
    int count = 0;
    if (directory == nullptr || FindXmlFiles(directory, list, count) != 0) {
        ProgressLog(L"No XML file found.\n", 0);
        return -1;
    }
    LogFormat(L"------------------ all xml's: - %ls\n", Widened(list).c_str());
    int read = 0;
    for (int index = 1; index <= count; ++index) {
        char* name = nullptr;
        if (ExtractFileName(list, index, name) != 0) {
            continue;
        }
        LogFormat(L"File #%d - %ls\n", index, Widened(name).c_str());
        if (ValidateXmlProfile(name, bCountProperties) != 0) {
            ProgressLog(L"XML Invalid!!!\n", 0);
            return -2;
        }
        if (ReadOneFile(name) != 0) {
            LogFormat(L"ERROR, ReadAllXmls, XML file read: - %ls\n", Widened(name).c_str());
            return -2;
        }
        ++read;
    }
    return read > 0 ? 0 : -1;
}

int FindXmlFiles(const char* directory, char*& list, int& count) {
    DIR* listing = opendir(directory);
    if (listing == nullptr) {
        return -1;
    }
    // The whole listing is taken and closed before any recursion, so a deep
    // tree holds one open directory at a time; entries go in byte order of
    // their names, whatever order the file system lists them in.
    std::vector<std::pair<std::string, unsigned char>> entries;
    while (const dirent* entry = readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        // Links, devices and entries of unknown type are skipped, so a link
        // loop is never followed.
        if (entry->d_type == DT_DIR || entry->d_type == DT_REG) {
            entries.emplace_back(name, entry->d_type);
        }
    }
    closedir(listing);
    std::sort(entries.begin(), entries.end());

    const std::wstring wideDirectory = Widened(directory);
    for (const auto& [name, type] : entries) {
        const std::string path = std::string(directory) + "/" + name;
        if (type == DT_DIR) {
            LogFormat(L"folder found:- %ls/%ls\n", wideDirectory.c_str(),
                      Widened(name.c_str()).c_str());
            char* inner = nullptr;
            if (FindXmlFiles(path.c_str(), inner, count) == 0 && inner != nullptr &&
                *inner != '\0') {
                AppendToList(list, inner);
            }
        } else if (HasXmlExtension(name)) {
            LogFormat(L"XML file found:- %ls/%ls\n", wideDirectory.c_str(),
                      Widened(name.c_str()).c_str());
            ++count;
            AppendToList(list, path + ";");
        }
    }
    return count >= 1 ? 0 : -1;
}

int ExtractFileName(const char* list, int index, char*& name) {
    LogFormat(L"ExtractFileName: - %ls\n", Widened(list).c_str());
    if (index < 1 || list == nullptr || *list == '\0') {
        return -1;
    }
    // Split at ';' as strtok would: runs of separators count as one.
    int piece = 0;
    for (const char* at = list; *at != '\0';) {
        at += std::strspn(at, ";");
        if (*at == '\0') {
            break;
        }
        const std::size_t length = std::strcspn(at, ";");
        if (++piece == index) {
            auto* copy = static_cast<char*>(Allocate(static_cast<std::uint32_t>(length + 1)));
            std::memcpy(copy, at, length);
            name = copy;
            return 0;
        }
        at += length;
    }
    return -1;
}

long GetFileSizeAp(const char* path) {
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return 0;
    }
    long size = 0;
    if (std::fseek(file, 0, SEEK_END) == 0) {
        size = std::ftell(file);
    }
    std::fclose(file);
    return size < 0 ? 0 : size;
}

int ValidateXmlProfile(const char* path, int bCountProperties) {
    XmlLoadError why = XmlLoadError::kNone;
    XmlDocument document(LoadXmlDocument(path, &why));
    if (!document) {
        if (why == XmlLoadError::kCannotOpen) {
            return -1;
        }
        LogFormat(L"Invalid XML detected: %ls\n", Widened(path).c_str());
        return -2;
    }
    bool format = false;
    bool unknown = false;
    int properties = 0;
    int profiles = 0;
    int applications = 0;
    // The top node itself is not visited: without a declaration that is the
    // customisations element, whose Format is then never seen.
    mxml_node_t* top = document.get();
    for (mxml_node_t* node = mxmlWalkNext(top, top, MXML_DESCEND); node != nullptr;
         node = mxmlWalkNext(node, top, MXML_DESCEND)) {
        if (mxmlGetType(node) != MXML_ELEMENT) {
            continue;
        }
        const char* element = mxmlGetElement(node);
        const std::string_view name = element != nullptr ? element : "";
        if (!IsKnownElement(name)) {
            unknown = true;
            LogFormat(L"ERROR, unknown node found: - %ls\n", Widened(element).c_str());
        }
        if (name == "property") {
            ++properties;
        } else if (name == "profile") {
            ++profiles;
        } else if (name == "application") {
            ++applications;
        } else if (name == "customisations") {
            const int attributes = mxmlElementGetAttrCount(node);
            for (int i = 0; i < attributes; ++i) {
                const char* attribute = nullptr;
                const char* value = mxmlElementGetAttrByIndex(node, i, &attribute);
                if (attribute != nullptr && std::strcmp(attribute, "Format") == 0 &&
                    value != nullptr && isInteger(value) == 0) {
                    format = true;
                }
            }
        }
    }

    const bool hasProperties = properties >= 1 || bCountProperties == 0;
    const bool hasProfiles = profiles >= 1;
    if (!format || (IsUserOrOem() && applications < 1) || unknown) {
        return -1;
    }
    switch (g_appProfileMode) {
        case kSystemFile:
            return hasProperties ? 0 : -1;
        case kUserFile:
            return hasProperties == hasProfiles ? 0 : -1;
        case kOemFile:
            return !hasProperties || hasProfiles ? 0 : -1;
        default:
            return -1;
    }
}

}  // namespace qk
