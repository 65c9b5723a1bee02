#pragma once

// Customisation sets made to measure: a small system set whose parts a test
// swaps for hostile ones, and sets large enough that every stage of a run
// takes memory.

#include <string>

namespace qk::test {

inline constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// A small system set; parts can be swapped for hostile ones.
struct SetParts {
    std::string properties =
        "<property Type=\"Dword\">Speed</property>"
        "<property Type=\"Binary\">Pattern</property>";
    std::string values = "<value Property=\"Speed\">7</value>";
    std::string applications =
        "<application Title=\"Fern\" File=\"fern.exe\"><use Area=\"Orchid\">Quick</use>"
        "</application>";
    std::string profileAttributes = "Area=\"Orchid\" Usage=\"Quick\"";
};

inline std::string SystemSet(const SetParts& parts = {}) {
    return std::string(kDeclaration) +
           "<customisations Format=\"1\" Content=\"Hostile\">\n"
           "<properties><area Name=\"Orchid\" Privacy=\"Defined\">" +
           parts.properties +
           "</area></properties>\n"
           "<profiles><profile " +
           parts.profileAttributes + ">" + parts.values +
           "</profile></profiles>\n"
           "<applications>" +
           parts.applications + "</applications>\n</customisations>\n";
}

inline std::string Repeat(const std::string& piece, int times) {
    std::string out;
    for (int i = 0; i < times; ++i)
        out += piece;
    return out;
}

// Long distinct texts: the blob (four bytes a character) is larger than the log.
inline std::string TextHeavySet() {
    SetParts parts;
    parts.applications.clear();
    for (int i = 0; i < 600; ++i) {
        const std::string id = std::to_string(i);
        parts.applications += "<application Title=\"" + std::string(150, 'T') + id + "\" File=\"" +
                              std::string(150, 'f') + id +
                              ".exe\"><use Area=\"Orchid\">Quick</use></application>\n";
    }
    return SystemSet(parts);
}

}  // namespace qk::test
