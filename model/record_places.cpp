#include "model/record_places.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace qk {

namespace {

using Entry = std::pair<const void*, SourceLocation>;

// Noted in reading order; sorted by record only when a diagnostic asks, which
// keeps the fast path to one append per record.
std::vector<Entry> g_places;
std::size_t g_sorted = 0;

}  // namespace

void NoteRecordPlace(const void* record, SourceLocation where) {
    g_places.emplace_back(record, where);
}

SourceLocation RecordPlace(const void* record) {
    if (g_sorted != g_places.size()) {
        // A record noted twice (filled again) keeps its first place.
        std::stable_sort(g_places.begin(), g_places.end(),
                         [](const Entry& a, const Entry& b) { return a.first < b.first; });
        g_sorted = g_places.size();
    }
    const auto found = std::lower_bound(
        g_places.begin(), g_places.end(), record,
        [](const Entry& entry, const void* wanted) { return entry.first < wanted; });
    return found != g_places.end() && found->first == record ? found->second : SourceLocation{};
}

void ResetRecordPlaces() {
    g_places.clear();
    g_sorted = 0;
}

}  // namespace qk
