#include "inspect/blob_diff.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "bridge/blob_database.h"
#include "bridge/display_control.h"
#include "inspect/reverse_xml.h"
#include "model/customisation.h"
#include "model/type_names.h"
#include "support/diagnostic.h"
#include "support/out_of_memory.h"
#include "support/progress_log.h"
#include "support/utf8_encode.h"
#include "text/utf8_decode.h"
#include "text/wide_string.h"

namespace qk {

namespace {

// What a record shows: its fields in a fixed order, each as it is printed.
using Fields = std::vector<std::pair<std::string, std::string>>;
// The records of one kind, by name.
using Section = std::map<std::string, Fields>;

std::string Name(const wchar_t* text) {
    return EncodeUtf8(OrEmpty(text));
}

std::string Quoted(const wchar_t* text) {
    return "\"" + Name(text) + "\"";
}

std::string Code(const wchar_t* name, std::int32_t code) {
    return name != nullptr ? Name(name) : std::to_string(code);
}

const wchar_t* DriverName(const Driver* driver) {
    return driver != nullptr ? driver->strName : nullptr;
}

// Records of the same name are told apart by their rank: "name#2", "name#3".
void Put(Section& section, const std::string& key, Fields fields) {
    std::string unique = key;
    for (int rank = 2; section.contains(unique); ++rank) {
        unique = key + "#" + std::to_string(rank);
    }
    section.emplace(std::move(unique), std::move(fields));
}

struct Sections {
    Section version, areas, properties, profiles, values, applications, uses;
};

struct Kind {
    const char* name;
    Section Sections::*section;
};

Sections Collect(const Customisations& root) {
    Sections out;
    out.version[""] = {{"", Quoted(root.strRelease)}};
    for (const Area* area = root.lpAreas; area != nullptr; area = area->lpNext) {
        const std::string areaName = Name(DriverName(area->lpDriver));
        const std::int32_t privacy = area->lpDriver ? area->lpDriver->iPrivacy : 0;
        Put(out.areas, areaName, {{"privacy", Code(PrivacyName(privacy), privacy)}});
        for (const Property* property = area->lpProperties; property != nullptr;
             property = property->lpNext) {
            Put(out.properties, areaName + "/" + Name(property->strName),
                {{"type", Code(TypeName(property->iType), property->iType)},
                 {"set", Quoted(property->strSet)}});
        }
    }
    for (const Profile* profile = root.lpProfiles; profile != nullptr; profile = profile->lpNext) {
        const std::string profileName =
            Name(DriverName(profile->lpDriver)) + "/" + Name(profile->strUsage);
        Put(out.profiles, profileName, {{"notes", Quoted(profile->strNotes)}});
        for (const Value* value = profile->lpValues; value != nullptr; value = value->lpNext) {
            const wchar_t* property = value->lpProperty ? value->lpProperty->strName : nullptr;
            Put(out.values, profileName + "/" + Name(property),
                {{"", Quoted(ValueText(*value).c_str())}});
        }
    }
    for (const Application* application = root.lpApplications; application != nullptr;
         application = application->lpNext) {
        const std::string file = Name(application->strFile);
        Put(out.applications, file,
            {{"title", Quoted(application->strTitle)},
             {"path", Quoted(application->strPath)},
             {"version", Quoted(application->strVersion)}});
        for (const Use* use = application->lpUses; use != nullptr; use = use->lpNext) {
            Put(out.uses,
                file + " " + Name(DriverName(use->lpDriver)) + "/" + Name(use->strProfile), {});
        }
    }
    return out;
}

// "kind name" for a record, "kind" alone for the version.
std::string Label(const char* kind, const std::string& key) {
    return key.empty() ? std::string(kind) : std::string(kind) + " " + key;
}

// Values show their text on - and + lines too: a value is its text.
std::string Shown(const Fields& fields) {
    return fields.size() == 1 && fields[0].first.empty() ? " = " + fields[0].second : "";
}

void Compare(const char* kind, const Section& first, const Section& second,
             std::vector<std::string>& lines) {
    auto a = first.begin();
    auto b = second.begin();
    while (a != first.end() || b != second.end()) {
        if (b == second.end() || (a != first.end() && a->first < b->first)) {
            lines.push_back("- " + Label(kind, a->first) + Shown(a->second));
            ++a;
        } else if (a == first.end() || b->first < a->first) {
            lines.push_back("+ " + Label(kind, b->first) + Shown(b->second));
            ++b;
        } else {
            for (std::size_t field = 0; field < a->second.size(); ++field) {
                const auto& [fieldName, old] = a->second[field];
                const std::string& now = b->second[field].second;
                if (old != now) {
                    const std::string named = fieldName.empty() ? "" : " " + fieldName;
                    lines.push_back("~ " + Label(kind, a->first) + named + ": " + old + " -> " +
                                    now);
                }
            }
            ++a;
            ++b;
        }
    }
}

void ReportUnreadable(const char* file, const std::string& problem) {
    const std::string line =
        "ERROR, --diff: blob file \"" + std::string(file) + "\" " + problem + ".\n";
    ProgressLog(WidenForLog(line.c_str()).c_str(), 0);
    Report(Diagnostic::Error("not-a-blob", FileLocation(AddSourceName(file)),
                             "--diff: the blob file " + problem));
}

}  // namespace

std::string SameContentLine(const std::vector<std::uint8_t>& first,
                            const std::vector<std::uint8_t>& second) {
    const auto [at, ignored] =
        std::mismatch(first.begin(), first.end(), second.begin(), second.end());
    return "~ bytes: the same content, stored differently (first difference at byte " +
           std::to_string(at - first.begin()) + ")";
}

std::vector<std::string> DiffCustomisations(const Customisations& first,
                                            const Customisations& second) {
    const Sections a = Collect(first);
    const Sections b = Collect(second);
    static constexpr Kind kKinds[] = {
        {"version", &Sections::version},
        {"area", &Sections::areas},
        {"property", &Sections::properties},
        {"profile", &Sections::profiles},
        {"value", &Sections::values},
        {"application", &Sections::applications},
        {"use", &Sections::uses},
    };
    std::vector<std::string> lines;
    for (const Kind& kind : kKinds) {
        Compare(kind.name, a.*kind.section, b.*kind.section, lines);
    }
    return lines;
}

std::optional<std::vector<std::string>> DiffBlobs(const BlobDatabase& first,
                                                  const std::vector<std::uint8_t>& firstBytes,
                                                  const BlobDatabase& second,
                                                  const std::vector<std::uint8_t>& secondBytes) {
    Customisations treeA{};
    Customisations treeB{};
    if (first.FillCustomisation(&treeA, ZEL_Main_Memory_Alloc) != 0 ||
        second.FillCustomisation(&treeB, ZEL_Main_Memory_Alloc) != 0) {
        ReleaseLibraryAnswers();
        return std::nullopt;
    }
    std::vector<std::string> lines = DiffCustomisations(treeA, treeB);
    ReleaseLibraryAnswers();
    if (lines.empty() && firstBytes != secondBytes) {
        lines.push_back(SameContentLine(firstBytes, secondBytes));
    }
    return lines;
}

int DiffBlobFiles(const char* first, const char* second) {
    std::string problem;
    std::vector<std::uint8_t> bytesA;
    std::vector<std::uint8_t> bytesB;
    const std::optional<BlobDatabase> a = LoadBlobDatabase(first, &problem, false, &bytesA);
    if (!a) {
        ReportUnreadable(first, problem);
        return 2;
    }
    const std::optional<BlobDatabase> b = LoadBlobDatabase(second, &problem, false, &bytesB);
    if (!b) {
        ReportUnreadable(second, problem);
        return 2;
    }
    const std::optional<std::vector<std::string>> lines = DiffBlobs(*a, bytesA, *b, bytesB);
    if (!lines) {
        ThrowOutOfMemory();  // the checked blobs fill their trees unless memory runs out
    }
    for (const std::string& line : *lines) {
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fputc('\n', stdout);
    }
    std::fflush(stdout);
    return lines->empty() ? 0 : 1;
}

}  // namespace qk
