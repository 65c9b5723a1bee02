// Diagnostics as compilers print them:
//
//   quillard: set.xml:12:25: error: unknown property "Smothing"; did you mean "Smoothing"?
//      12 |             <value Property="Smothing">1</value>
//         |                             ^~~~~~~~
//         |                             Smoothing
//
// then "note:" lines for the related places.

#include <cstdio>
#include <string>
#include <string_view>

#include "support/diagnostic.h"

namespace qk {

namespace {

// Lines longer than this are shown as a window around the column.
constexpr std::size_t kShownBytes = 200;
constexpr std::size_t kMostUnderlined = 1024;
// A message that quotes a name of megabytes shows its start and its end.
constexpr std::size_t kMessageHead = 600;
constexpr std::size_t kMessageTail = 200;

bool StartsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

// The message, its middle left out (at character boundaries) when it is long.
std::string Shortened(const std::string& message) {
    if (message.size() <= kMessageHead + kMessageTail + 5) {
        return message;
    }
    std::size_t head = kMessageHead;
    while (head > 0 && !StartsCharacter(message[head])) {
        --head;
    }
    std::size_t tail = message.size() - kMessageTail;
    while (tail < message.size() && !StartsCharacter(message[tail])) {
        ++tail;
    }
    return message.substr(0, head) + " ... " + message.substr(tail);
}

std::string Header(const SourceLocation& where, Severity severity, const std::string& message) {
    std::string out = "quillard: ";
    if (where.HasFile()) {
        out += SourceName(where.file);
        if (where.HasOffset()) {
            const LineColumn place = ResolveLocation(where);
            out += ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
        }
        out += ": ";
    }
    out += SeverityName(severity);
    out += ": ";
    out += Shortened(message);
    out += "\n";
    return out;
}

// The source line with its tabs expanded (so the caret lines up), control
// characters shown as '?', and a long line cut to a window around the place
// (at, a byte of the line). column receives the place's column as shown.
std::string ShownLine(std::string_view line, std::size_t at, unsigned& column) {
    std::size_t from = 0;
    std::string out;
    if (line.size() > kShownBytes) {
        from = at > kShownBytes / 2 ? at - kShownBytes / 2 : 0;
        while (from < line.size() && !StartsCharacter(line[from])) {
            ++from;
        }
        std::size_t to = std::min(line.size(), from + kShownBytes);
        while (to < line.size() && !StartsCharacter(line[to])) {
            ++to;
        }
        line = line.substr(0, to);
        out = from > 0 ? "..." : "";
    }
    unsigned shown = static_cast<unsigned>(out.size()) + 1;
    column = 0;
    for (std::size_t index = from; index < line.size(); ++index) {
        if (index == at) {
            column = shown;
        }
        const char byte = line[index];
        if (byte == '\t') {
            const unsigned next = (shown - 1) / 8 * 8 + 9;
            out.append(next - shown, ' ');
            shown = next;
            continue;
        }
        out.push_back(static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F ? '?' : byte);
        shown += StartsCharacter(byte) ? 1 : 0;
    }
    if (column == 0) {
        column = shown;  // the place is the line's end
    }
    return out;
}

std::string SourceLines(const SourceLocation& where, const std::string& suggestion) {
    if (!where.HasOffset()) {
        return {};
    }
    const LineColumn place = ResolveLocation(where);
    unsigned column = 1;
    const std::string shown = ShownLine(place.lineText, place.lineOffset, column);
    std::string number = std::to_string(place.line);
    const std::size_t width = std::max<std::size_t>(4, number.size());
    const std::string gutter(width + 1, ' ');
    std::string out = " " + std::string(width - number.size(), ' ') + number + " | " + shown + "\n";
    std::string caret = gutter + " | " + std::string(column - 1, ' ') + "^";
    if (place.underlined > 1) {
        // A range of megabytes (a hostile file's text) is not underlined whole.
        caret.append(std::min<std::size_t>(place.underlined - 1, kMostUnderlined), '~');
    }
    out += caret + "\n";
    if (!suggestion.empty()) {
        out += gutter + " | " + std::string(column - 1, ' ') + suggestion + "\n";
    }
    return out;
}

}  // namespace

void PrintDiagnosticText(const Diagnostic& diagnostic) {
    std::string message = diagnostic.message;
    if (!diagnostic.suggestion.empty()) {
        message += "; did you mean \"" + diagnostic.suggestion + "\"?";
    }
    std::string out = Header(diagnostic.where, diagnostic.severity, message);
    out += SourceLines(diagnostic.where, diagnostic.suggestion);
    for (const DiagnosticNote& note : diagnostic.notes) {
        out += Header(note.where, Severity::kNote, note.message);
        out += SourceLines(note.where, {});
    }
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
}

}  // namespace qk
