// Diagnostics as one SARIF 2.1.0 log, the format code-review systems read:
// one run of the tool, one result per diagnostic, notes as related locations.
// Columns count characters (a tab is one), as SARIF's "unicodeCodePoints" says.

#include <unistd.h>

#include <cstdio>
#include <set>
#include <string>
#include <string_view>

#include "support/diagnostic.h"

namespace qk {

namespace {

std::string JsonString(std::string_view text) {
    std::string out = "\"";
    for (char byte : text) {
        const auto unit = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += byte;
        } else if (unit < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", unit);
            out += escaped;
        } else {
            out += byte;
        }
    }
    return out + "\"";
}

// An absolute file URI for a path as the user gave it.
std::string FileUri(const std::string& path) {
    std::string absolute = path;
    if (!path.starts_with('/')) {
        char directory[4096];
        if (getcwd(directory, sizeof directory) != nullptr) {
            absolute = std::string(directory) + "/" + path;
        }
    }
    std::string uri = "file://";
    for (char byte : absolute) {
        const auto unit = static_cast<unsigned char>(byte);
        const bool plain = (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z') ||
                           (unit >= '0' && unit <= '9') || byte == '/' || byte == '-' ||
                           byte == '.' || byte == '_' || byte == '~';
        if (plain) {
            uri += byte;
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", unit);
            uri += escaped;
        }
    }
    return uri;
}

std::string Location(const SourceLocation& where) {
    std::string out = "{\"physicalLocation\":{\"artifactLocation\":{\"uri\":" +
                      JsonString(FileUri(SourceName(where.file))) + "}";
    if (where.HasOffset()) {
        const LineColumn place = ResolveLocation(where);
        out += ",\"region\":{\"startLine\":" + std::to_string(place.line) +
               ",\"startColumn\":" + std::to_string(place.characterColumn) +
               ",\"endColumn\":" + std::to_string(place.characterColumn + place.underlined) +
               ",\"snippet\":{\"text\":" + JsonString(place.lineText) + "}}";
    }
    return out + "}}";
}

std::string Result(const Diagnostic& diagnostic, int ruleIndex) {
    std::string message = diagnostic.message;
    if (!diagnostic.suggestion.empty()) {
        message += "; did you mean \"" + diagnostic.suggestion + "\"?";
    }
    std::string out = "{\"ruleId\":" + JsonString(diagnostic.rule) +
                      ",\"ruleIndex\":" + std::to_string(ruleIndex) + ",\"level\":\"" +
                      SeverityName(diagnostic.severity) +
                      "\",\"message\":{\"text\":" + JsonString(message) + "}";
    if (diagnostic.where.HasFile()) {
        out += ",\"locations\":[" + Location(diagnostic.where) + "]";
    }
    if (!diagnostic.notes.empty()) {
        out += ",\"relatedLocations\":[";
        int id = 0;
        for (const DiagnosticNote& note : diagnostic.notes) {
            std::string related = note.where.HasFile() ? Location(note.where) : "{}";
            related.pop_back();
            related += std::string(related.size() > 1 ? "," : "") + "\"id\":" + std::to_string(id) +
                       ",\"message\":{\"text\":" + JsonString(note.message) + "}}";
            out += (id++ > 0 ? "," : "") + related;
        }
        out += "]";
    }
    return out + "}";
}

}  // namespace

void PrintDiagnosticsSarif(const std::vector<Diagnostic>& diagnostics, const char* toolVersion) {
    std::set<std::string> rules;
    for (const Diagnostic& diagnostic : diagnostics) {
        rules.insert(diagnostic.rule);
    }
    std::string out =
        "{\"$schema\":\"https://json.schemastore.org/sarif-2.1.0.json\",\"version\":\"2.1.0\","
        "\"runs\":[{\"tool\":{\"driver\":{\"name\":\"quillard\",\"version\":" +
        JsonString(toolVersion != nullptr ? toolVersion : "") + ",\"rules\":[";
    bool first = true;
    for (const std::string& rule : rules) {
        out += (first ? "" : ",") + std::string("{\"id\":") + JsonString(rule) + "}";
        first = false;
    }
    out += "]}},\"columnKind\":\"unicodeCodePoints\",\"results\":[";
    first = true;
    for (const Diagnostic& diagnostic : diagnostics) {
        const auto index =
            static_cast<int>(std::distance(rules.begin(), rules.find(diagnostic.rule)));
        out += (first ? "" : ",") + Result(diagnostic, index);
        first = false;
    }
    out += "]}]}\n";
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
}

}  // namespace qk
