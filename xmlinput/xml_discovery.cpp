#include "xmlinput/xml_discovery.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/file_kind.h"
#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "text/utf8_decode.h"
#include "xmlinput/file_reader.h"
#include "xmlinput/name_lookup.h"
#include "xmlinput/xml_load.h"
#include "xmlinput/xml_place.h"

namespace qk {

namespace {

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

// The check of a loaded file's shape: 0 valid, -1 invalid, with a diagnostic
// that says which rule the file breaks.
int ValidateLoadedXml(const LoadedXml& loaded, int bCountProperties) {
    bool format = false;
    bool unknown = false;
    int properties = 0;
    int profiles = 0;
    int applications = 0;
    ElementPlace header{loaded.file};
    NodePlaces places(loaded.file, &loaded.nodeOffsets);
    // The top node itself is not visited: without a declaration that is the
    // customisations element, whose Format is then never seen.
    mxml_node_t* top = loaded.document.get();
    for (mxml_node_t* node = mxmlWalkNext(top, top, MXML_DESCEND); node != nullptr;
         node = mxmlWalkNext(node, top, MXML_DESCEND)) {
        if (mxmlGetType(node) != MXML_ELEMENT) {
            continue;
        }
        const char* element = mxmlGetElement(node);
        const std::string_view name = element != nullptr ? element : "";
        const ElementPlace place = places.Next(name);
        if (!IsKnownElement(name)) {
            unknown = true;
            LogFormat(L"ERROR, unknown node found: - %ls\n", WidenForLog(element).c_str());
            Report(Diagnostic::Error(
                "refused-by-directory-check", ElementLocation(place),
                name.starts_with("!--")
                    ? std::string("-p refuses files that hold comments")
                    : "-p refuses the file: unknown element <" + std::string(name) + ">"));
        }
        if (name == "property") {
            ++properties;
        } else if (name == "profile") {
            ++profiles;
        } else if (name == "application") {
            ++applications;
        } else if (name == "customisations") {
            header = place;
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
    const auto refuse = [&](const std::string& why) {
        Report(Diagnostic::Error("refused-by-directory-check", ElementLocation(header),
                                 "-p refuses the file: " + why));
        return -1;
    };
    if (!format) {
        return refuse(header.offset == SourceLocation::kNoOffset
                          ? "it needs an XML declaration before <customisations>, or its Format "
                            "is never read"
                          : "<customisations> needs a Format attribute holding a whole number");
    }
    if (IsUserOrOem() && applications < 1) {
        return refuse("a user or OEM file needs at least one <application>");
    }
    if (unknown) {
        return -1;
    }
    switch (g_appProfileMode) {
        case kSystemFile:
            return hasProperties ? 0 : refuse("a system file needs at least one <property>");
        case kUserFile:
            return hasProperties == hasProfiles
                       ? 0
                       : refuse(
                             "a user file needs <property> and <profile> elements, or "
                             "neither");
        case kOemFile:
            return !hasProperties || hasProfiles
                       ? 0
                       : refuse("an OEM file with <property> elements needs a <profile>");
        default:
            return -1;
    }
}

// Loads and validates path; 0 with the document kept in loaded for the reader.
int LoadAndValidate(const char* path, int bCountProperties, LoadedXml& loaded) {
    XmlLoadError why = XmlLoadError::kNone;
    if (!LoadXmlDocument(path, loaded, &why)) {
        if (why == XmlLoadError::kCannotOpen) {
            return -1;
        }
        LogFormat(L"Invalid XML detected: %ls\n", WidenForLog(path).c_str());
        return -2;
    }
    return ValidateLoadedXml(loaded, bCountProperties);
}

}  // namespace

int ReadAllXmls(const char* directory, int bCountProperties) {
    LogFormat(L"Searching for xml's in: - %ls\n", WidenForLog(directory).c_str());
    XmlFileList list;
    const int found = directory != nullptr ? FindXmlFiles(directory, list.paths) : -1;
    if (found == -2) {
        return -2;
    }
    if (found != 0) {
        ProgressLog(L"No XML file found.\n", 0);
        if (directory != nullptr && list.paths.empty()) {
            Report(Diagnostic::Error("no-xml-file", FileLocation(AddSourceName(directory)),
                                     "no .xml file in or below this directory"));
        }
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
        list.shown = WidenForLog(joined.c_str());
    }
    LogFormat(L"------------------ all xml's: - %ls\n", list.shown.c_str());
    int read = 0;
    const int count = static_cast<int>(list.paths.size());
    for (int index = 1; index <= count; ++index) {
        char* name = nullptr;
        if (ExtractFileName(list, index, name) != 0) {
            continue;
        }
        LogFormat(L"File #%d - %ls\n", index, WidenForLog(name).c_str());
        LoadedXml loaded;
        if (LoadAndValidate(name, bCountProperties, loaded) != 0) {
            ProgressLog(L"XML Invalid!!!\n", 0);
            return -2;
        }
        if (ReadLoadedFile(name, std::move(loaded)) != 0) {
            LogFormat(L"ERROR, ReadAllXmls, XML file read: - %ls\n", WidenForLog(name).c_str());
            return -2;
        }
        ++read;
    }
    return read > 0 ? 0 : -1;
}

namespace {

// An entry's type as the listing gives it or, where the file system leaves it
// unknown (some network and FUSE file systems), as the entry itself says
// without following a link. DT_UNKNOWN when it cannot be asked.
unsigned char EntryType(DIR* listing, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type;
    }
    struct stat info {};
    if (fstatat(dirfd(listing), entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return DT_UNKNOWN;
    }
    return static_cast<unsigned char>(IFTODT(info.st_mode));
}

// A folder below the -p directory that cannot be read would drop its files
// from the set unnoticed; it ends the scan instead.
int RefuseFolder(const std::string& path, int error) {
    LogFormat(L"ERROR, folder cannot be read: - %ls\n", WidenForLog(path.c_str()).c_str());
    Report(Diagnostic::Error("cannot-read", FileLocation(AddSourceName(path)),
                             "-p cannot read this folder: " + SystemReason(error)));
    return -2;
}

// Scans directory into files; depth counts the folders above it in the scan.
int ScanFolder(const std::string& directory, std::vector<std::string>& files, int depth) {
    DIR* listing = opendir(directory.c_str());
    if (listing == nullptr) {
        if (depth > 0) {
            return RefuseFolder(directory, errno);
        }
        Report(Diagnostic::Error("cannot-read", FileLocation(AddSourceName(directory)),
                                 "cannot read the directory: " + SystemReason(errno)));
        return -1;
    }
    // The whole listing is taken and closed before any recursion, so a deep
    // tree holds one open directory at a time; entries go in byte order of
    // their names, whatever order the file system lists them in.
    std::vector<std::pair<std::string, unsigned char>> entries;
    int unreadable = 0;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(listing);
        if (entry == nullptr) {
            unreadable = errno;
            break;
        }
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const unsigned char type = EntryType(listing, *entry);
        if (type == DT_UNKNOWN) {
            unreadable = errno;
            break;
        }
        // Links, devices and pipes are passed over, so a link loop is never
        // followed; a diagnostic says so.
        entries.emplace_back(name, type);
    }
    closedir(listing);
    if (unreadable != 0) {
        return RefuseFolder(directory, unreadable);
    }
    std::sort(entries.begin(), entries.end());

    const std::wstring wideDirectory = WidenForLog(directory.c_str());
    for (const auto& [name, type] : entries) {
        const std::string path = directory + "/" + name;
        if (type == DT_DIR) {
            LogFormat(L"folder found:- %ls/%ls\n", wideDirectory.c_str(),
                      WidenForLog(name.c_str()).c_str());
            if (ScanFolder(path, files, depth + 1) == -2) {
                return -2;
            }
        } else if (type != DT_REG) {
            Report(Diagnostic::Warning("not-followed", FileLocation(AddSourceName(path)),
                                       type == DT_LNK
                                           ? "-p does not follow symbolic links; passed over"
                                           : "-p reads only files and folders; passed over"));
        } else if (HasXmlExtension(name)) {
            LogFormat(L"XML file found:- %ls/%ls\n", wideDirectory.c_str(),
                      WidenForLog(name.c_str()).c_str());
            files.push_back(path);
        }
    }
    return files.empty() ? -1 : 0;
}

}  // namespace

int FindXmlFiles(const char* directory, std::vector<std::string>& files) {
    return ScanFolder(directory, files, 0);
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

int ValidateXmlProfile(const char* path, int bCountProperties) {
    LoadedXml loaded;
    return LoadAndValidate(path, bCountProperties, loaded);
}

}  // namespace qk
