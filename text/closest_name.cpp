#include "text/closest_name.h"

#include <algorithm>
#include <cwctype>

namespace qk {

namespace {

template <typename Char>
Char Lower(Char c) {
    return c < 0x80 && c >= 'A' && c <= 'Z' ? static_cast<Char>(c - 'A' + 'a') : c;
}

template <typename Char>
bool SameIgnoringCase(std::basic_string_view<Char> a, std::basic_string_view<Char> b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](Char x, Char y) { return Lower(x) == Lower(y); });
}

// Edits between a and b (insertions, deletions, changes, swaps of neighbours),
// letter case ignored; stops counting past limit.
template <typename Char>
std::size_t Distance(std::basic_string_view<Char> a, std::basic_string_view<Char> b,
                     std::size_t limit) {
    if ((a.size() > b.size() ? a.size() - b.size() : b.size() - a.size()) > limit) {
        return limit + 1;
    }
    std::vector<std::size_t> before(b.size() + 1);
    std::vector<std::size_t> previous(b.size() + 1);
    std::vector<std::size_t> current(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        previous[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = Lower(a[i - 1]) == Lower(b[j - 1]) ? 0 : 1;
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + change});
            if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) &&
                Lower(a[i - 2]) == Lower(b[j - 1])) {
                current[j] = std::min(current[j], before[j - 2] + 1);
            }
        }
        std::swap(before, previous);
        std::swap(previous, current);
    }
    return previous[b.size()];
}

template <typename Char>
std::basic_string<Char> Closest(std::basic_string_view<Char> word,
                                const std::vector<std::basic_string_view<Char>>& known) {
    for (const auto& name : known) {
        if (name != word && SameIgnoringCase(word, name)) {
            return std::basic_string<Char>(name);
        }
    }
    const std::size_t limit = std::min<std::size_t>(2, std::max<std::size_t>(1, word.size() / 3));
    std::size_t best = limit + 1;
    std::basic_string_view<Char> found;
    for (const auto& name : known) {
        if (name == word || name.empty()) {
            continue;
        }
        const std::size_t distance = Distance(word, name, limit);
        if (distance < best) {
            best = distance;
            found = name;
        }
    }
    return std::basic_string<Char>(found);
}

}  // namespace

std::wstring ClosestName(std::wstring_view word, const std::vector<std::wstring_view>& known) {
    return Closest(word, known);
}

std::string ClosestName(std::string_view word, const std::vector<std::string_view>& known) {
    return Closest(word, known);
}

}  // namespace qk
