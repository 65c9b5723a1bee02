#include "xmlinput/xml_place.h"

namespace qk {

namespace {

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool EndsName(char c) {
    return IsSpace(c) || c == '=' || c == '>' || c == '/';
}

// Walks the start tag at place (a checked, well-formed text) and calls
// visit(nameOffset, name, valueOffset, value) for each attribute; returns the
// offset just after the tag's '>', or 0 when the place is unknown.
template <typename Visit>
std::size_t WalkStartTag(const ElementPlace& place, Visit&& visit) {
    const std::string_view text = SourceText(place.file);
    if (place.offset == SourceLocation::kNoOffset || place.offset >= text.size()) {
        return 0;
    }
    std::size_t at = place.offset + 1;
    while (at < text.size() && !EndsName(text[at])) {
        ++at;
    }
    while (at < text.size()) {
        while (at < text.size() && IsSpace(text[at])) {
            ++at;
        }
        if (at >= text.size() || text[at] == '>' || text[at] == '/' || text[at] == '?') {
            break;
        }
        const std::size_t nameAt = at;
        while (at < text.size() && !EndsName(text[at])) {
            ++at;
        }
        const std::string_view name = text.substr(nameAt, at - nameAt);
        const std::size_t quote = text.find_first_of("\"'", at);
        if (quote == std::string_view::npos) {
            return 0;
        }
        const std::size_t end = text.find(text[quote], quote + 1);
        if (end == std::string_view::npos) {
            return 0;
        }
        if (visit(nameAt, name, quote + 1, text.substr(quote + 1, end - quote - 1))) {
            return 0;
        }
        at = end + 1;
    }
    const std::size_t close = text.find('>', at);
    return close == std::string_view::npos ? 0 : close + 1;
}

SourceLocation AttributeLocation(const ElementPlace& place, std::string_view wanted, bool value) {
    SourceLocation found = ElementLocation(place);
    WalkStartTag(place, [&](std::size_t nameAt, std::string_view name, std::size_t valueAt,
                            std::string_view text) {
        if (name != wanted) {
            return false;
        }
        found = value ? RangeLocation(place.file, valueAt, text.size())
                      : RangeLocation(place.file, nameAt, name.size());
        return true;
    });
    return found;
}

}  // namespace

ElementPlace NodePlaces::Next(std::string_view element) {
    ElementPlace place{file_};
    if (offsets_ == nullptr) {
        return place;
    }
    // The markup must begin with the node's name (up to its first blank: a
    // comment's node is named by its whole text); a node that the library made
    // differently (only at the top level of an odd file) is passed over.
    const std::string_view text = SourceText(file_);
    const auto startsWithName = [&](std::size_t at) {
        for (char c : element) {
            if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
                return true;
            }
            if (at >= text.size() || text[at++] != c) {
                return false;
            }
        }
        return true;
    };
    for (std::size_t k = next_; k < offsets_->size() && k < next_ + 64; ++k) {
        if (startsWithName((*offsets_)[k] + 1)) {
            place.offset = (*offsets_)[k];
            next_ = k + 1;
            break;
        }
    }
    return place;
}

SourceLocation ElementLocation(const ElementPlace& place) {
    const std::string_view text = SourceText(place.file);
    if (place.offset == SourceLocation::kNoOffset || place.offset >= text.size()) {
        return FileLocation(place.file);
    }
    std::size_t end = place.offset + 1;
    while (end < text.size() && !EndsName(text[end])) {
        ++end;
    }
    return RangeLocation(place.file, place.offset, end - place.offset);
}

SourceLocation AttributeNameLocation(const ElementPlace& place, std::string_view name) {
    return AttributeLocation(place, name, false);
}

SourceLocation AttributeValueLocation(const ElementPlace& place, std::string_view name) {
    return AttributeLocation(place, name, true);
}

SourceLocation ElementTextLocation(const ElementPlace& place) {
    const std::string_view text = SourceText(place.file);
    std::size_t at = WalkStartTag(place, [](auto...) { return false; });
    if (at == 0 || text[at - 2] == '/') {
        return ElementLocation(place);
    }
    while (at < text.size() && IsSpace(text[at])) {
        ++at;
    }
    std::size_t end = text.find('<', at);
    end = end == std::string_view::npos ? text.size() : end;
    while (end > at && IsSpace(text[end - 1])) {
        --end;
    }
    return RangeLocation(place.file, at, end - at);
}

}  // namespace qk
