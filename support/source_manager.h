#pragma once

// Where a problem is: files by number, places in them by byte offset. A run
// keeps the text of every XML file it reads; the lines of a file are found only
// when a diagnostic first asks for one, so the fast path pays for an offset per
// record and nothing else.

#include <cstdint>
#include <string>
#include <string_view>

namespace qk {

// A place: a file (0 for none) and, when known, a byte range in its text.
struct SourceLocation {
    static constexpr std::uint32_t kNoOffset = 0xFFFFFFFF;

    std::uint32_t file = 0;
    std::uint32_t offset = kNoOffset;
    std::uint32_t length = 0;  // bytes the caret line underlines; 0 for one character

    bool HasFile() const { return file != 0; }
    bool HasOffset() const { return file != 0 && offset != kNoOffset; }
};

// Registers a file whose text (UTF-8) diagnostics may show; returns its number.
// The text of a file that cannot be read again (a pipe) is kept to the end.
std::uint32_t AddSourceFile(std::string name, std::string text, bool rereadable = true);
// Registers a file known by its name only (a blob, a directory, an output).
std::uint32_t AddSourceName(std::string name);

// A run keeps the text of the file it is reading; once the file is read its
// text is let go (a directory may hold thousands of files), and read again
// through the reloader when a later diagnostic points into it.
using SourceReloader = bool (*)(const std::string& name, std::string& text);
void SetSourceReloader(SourceReloader reloader);
void ReleaseSourceText(std::uint32_t file);

// The file as a whole, and a range of it.
SourceLocation FileLocation(std::uint32_t file);
SourceLocation RangeLocation(std::uint32_t file, std::size_t offset, std::size_t length);

const std::string& SourceName(std::uint32_t file);
std::string_view SourceText(std::uint32_t file);

// A place as people count it: lines and columns from 1, a tab advancing to
// the next multiple of 8 plus one, every other character one column.
struct LineColumn {
    unsigned line = 0;
    unsigned column = 0;           // with tab stops, as compilers print it
    unsigned characterColumn = 0;  // characters from the line start, plus one
    std::string_view lineText;     // the whole line, without its end
    std::size_t lineOffset = 0;    // bytes from the line's start to the place
    unsigned underlined = 0;       // characters under the range, at least 1
};

// Line and column of a place that has an offset.
LineColumn ResolveLocation(const SourceLocation& location);

// Forgets every file (between runs in tests).
void ResetSourceManager();

}  // namespace qk
