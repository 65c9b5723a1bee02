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
    XmlFileList list;
    if (directory == nullptr || FindXmlFiles(directory, list.paths) != 0) {
        ProgressLog(L"No XML file found.\n", 0);
        return -1;
    }
    if (g_bCreateLog != 0) {
        // The log shows the list as paths each followed by ';'; a line holds
        // at most 4096 characters, so no more than its first bytes are needed.
        std::string joined;
        for (const std::string& path : list.paths) {
            if (joined.size() > 4 * kLogFormatBound) {
                break;
            }
            joined += path + ";";
        }
        list.shown = Widened(joined.c_str());
    }
    LogFormat(L"------------------ all xml's: - %ls\n", list.shown.c_str());
    int read = 0;
    const int count = static_cast<int>(list.paths.size());
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

int FindXmlFiles(const char* directory, std::vector<std::string>& files) {
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
            FindXmlFiles(path.c_str(), files);
        } else if (HasXmlExtension(name)) {
            LogFormat(L"XML file found:- %ls/%ls\n", wideDirectory.c_str(),
                      Widened(name.c_str()).c_str());
            files.push_back(path);
        }
    }
    return files.empty() ? -1 : 0;
}

int ExtractFileName(const XmlFileList& list, int index, char*& name) {
    LogFormat(L"ExtractFileName: - %ls\n", list.shown.c_str());
    if (index < 1 || static_cast<std::size_t>(index) > list.paths.size()) {
        return -1;
    }
    const std::string& path = list.paths[static_cast<std::size_t>(index) - 1];
    auto* copy = static_cast<char*>(Allocate(static_cast<std::uint32_t>(path.size() + 1)));
    std::memcpy(copy, path.c_str(), path.size());
    name = copy;
    return 0;
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
