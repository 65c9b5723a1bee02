#include "support/source_manager.h"

#include <algorithm>
#include <deque>
#include <vector>

namespace qk {

namespace {

struct SourceFile {
    std::string name;
    std::string text;
    std::vector<std::uint32_t> lineStarts;  // built on the first question
    bool released = false;                  // the text is to be read again when asked for
    bool rereadable = true;                 // a pipe's text is kept: it cannot be read twice
    // The place resolved last: a hostile file can have hundreds of diagnostics
    // on one line of megabytes, each of which would count its columns again.
    SourceLocation lastLocation{};
    LineColumn lastPlace{};
};

void ForgetLastPlace(SourceFile& file) {
    file.lastLocation = SourceLocation{};
}

SourceReloader g_reloader = nullptr;

// A deque keeps every file's address while more are added. It is made on
// first use: an empty deque allocates, and memory that runs out before main
// could not be answered.
std::deque<SourceFile>& Files() {
    static std::deque<SourceFile> files;
    return files;
}

SourceFile* FileOf(std::uint32_t file) {
    if (file < 1 || file > Files().size()) {
        return nullptr;
    }
    SourceFile& found = Files()[file - 1];
    if (found.released) {
        found.released = false;
        ForgetLastPlace(found);
        if (g_reloader == nullptr || !g_reloader(found.name, found.text)) {
            found.text.clear();
        }
    }
    return &found;
}

const std::vector<std::uint32_t>& LineStarts(SourceFile& file) {
    if (file.lineStarts.empty()) {
        file.lineStarts.push_back(0);
        for (std::size_t at = file.text.find('\n'); at != std::string::npos;
             at = file.text.find('\n', at + 1)) {
            file.lineStarts.push_back(static_cast<std::uint32_t>(at + 1));
        }
    }
    return file.lineStarts;
}

bool StartsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

}  // namespace

std::uint32_t AddSourceFile(std::string name, std::string text, bool rereadable) {
    Files().push_back({std::move(name), std::move(text), {}, false, rereadable});
    return static_cast<std::uint32_t>(Files().size());
}

std::uint32_t AddSourceName(std::string name) {
    for (std::size_t index = 0; index < Files().size(); ++index) {
        if (Files()[index].name == name && Files()[index].text.empty()) {
            return static_cast<std::uint32_t>(index + 1);
        }
    }
    return AddSourceFile(std::move(name), {});
}

void SetSourceReloader(SourceReloader reloader) {
    g_reloader = reloader;
}

void ReleaseSourceText(std::uint32_t file) {
    if (file >= 1 && file <= Files().size() && Files()[file - 1].rereadable &&
        !Files()[file - 1].text.empty()) {
        SourceFile& released = Files()[file - 1];
        std::string().swap(released.text);
        std::vector<std::uint32_t>().swap(released.lineStarts);
        released.released = true;
        ForgetLastPlace(released);
    }
}

SourceLocation FileLocation(std::uint32_t file) {
    return {.file = file};
}

SourceLocation RangeLocation(std::uint32_t file, std::size_t offset, std::size_t length) {
    return {.file = file,
            .offset = static_cast<std::uint32_t>(offset),
            .length = static_cast<std::uint32_t>(length)};
}

const std::string& SourceName(std::uint32_t file) {
    static const std::string kNone;
    const SourceFile* found = FileOf(file);
    return found != nullptr ? found->name : kNone;
}

std::string_view SourceText(std::uint32_t file) {
    const SourceFile* found = FileOf(file);
    return found != nullptr ? std::string_view(found->text) : std::string_view();
}

LineColumn ResolveLocation(const SourceLocation& location) {
    LineColumn place;
    SourceFile* found = location.HasOffset() ? FileOf(location.file) : nullptr;
    if (found == nullptr) {
        return place;
    }
    SourceFile& file = *found;
    const SourceLocation& last = file.lastLocation;
    if (last.HasOffset() && last.offset == location.offset && last.length == location.length) {
        return file.lastPlace;
    }
    const std::size_t offset = std::min<std::size_t>(location.offset, file.text.size());
    const std::vector<std::uint32_t>& starts = LineStarts(file);
    const auto next = std::upper_bound(starts.begin(), starts.end(), offset);
    const std::size_t lineStart = *(next - 1);
    std::size_t lineEnd = file.text.find('\n', lineStart);
    lineEnd = lineEnd == std::string::npos ? file.text.size() : lineEnd;
    place.line = static_cast<unsigned>(next - starts.begin());
    place.lineText = std::string_view(file.text).substr(lineStart, lineEnd - lineStart);
    if (place.lineText.ends_with('\r')) {
        place.lineText.remove_suffix(1);
    }
    place.lineOffset = offset - lineStart;
    unsigned column = 1;
    unsigned characters = 1;
    std::size_t from = lineStart;
    // Further along the line of the last place: count on from there.
    if (last.HasOffset() && file.lastPlace.line == place.line && last.offset <= offset &&
        last.offset >= lineStart) {
        from = last.offset;
        column = file.lastPlace.column;
        characters = file.lastPlace.characterColumn;
    }
    for (std::size_t at = from; at < offset; ++at) {
        if (!StartsCharacter(file.text[at])) {
            continue;
        }
        ++characters;
        column = file.text[at] == '\t' ? (column - 1) / 8 * 8 + 9 : column + 1;
    }
    place.column = column;
    place.characterColumn = characters;
    const std::size_t end = std::min(offset + location.length, lineEnd);
    place.underlined = static_cast<unsigned>(std::max<std::ptrdiff_t>(
        1, std::count_if(file.text.begin() + static_cast<std::ptrdiff_t>(offset),
                         file.text.begin() + static_cast<std::ptrdiff_t>(std::max(end, offset)),
                         StartsCharacter)));
    file.lastLocation = location;
    file.lastPlace = place;
    return place;
}

void ResetSourceManager() {
    Files().clear();
}

}  // namespace qk
