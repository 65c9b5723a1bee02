#include "blob/text_sort.h"

#include <algorithm>
#include <cstddef>

namespace qk {

namespace {

// The code units of a text from `depth` on, as one number in wcscmp's order.
// When every unit of the list fits in 8 or 16 bits, 8 or 4 units make a key, and
// the positions past the text's end count as 0, below every unit, so a shorter
// text sorts first. Otherwise a key holds 2 units of 32 bits; units compare as
// wchar_t (signed), so the sign bit is flipped to order them as unsigned numbers,
// and the terminator ends the key.
template <int kBits>
std::uint64_t SortKey(const Sortable& item, std::size_t depth) {
    if constexpr (kBits == 32) {
        const auto order = [](wchar_t unit) {
            return static_cast<std::uint64_t>(static_cast<std::uint32_t>(unit) ^ 0x80000000U);
        };
        const wchar_t* at = item.text + depth;
        const wchar_t first = at[0];
        const wchar_t second = first != L'\0' ? at[1] : L'\0';
        return (order(first) << 32) | order(second);
    } else {
        std::uint64_t key = 0;
        for (std::size_t at = depth; at < depth + 64 / kBits; ++at) {
            const std::uint64_t unit =
                at < item.length ? static_cast<std::uint32_t>(item.text[at]) : 0;
            key = (key << kBits) | unit;
        }
        return key;
    }
}

// Whether texts with this key cannot differ after it: they end within it.
template <int kBits>
bool KeyEndsText(std::uint64_t key) {
    if constexpr (kBits == 32) {
        constexpr std::uint64_t kTerminator = 0x80000000U;
        return (key >> 32) == kTerminator || (key & 0xFFFFFFFFU) == kTerminator;
    } else {
        return (key & ((std::uint64_t{1} << kBits) - 1)) == 0;
    }
}

// Orders the texts as wcscmp does, a key of several code units at a time: sort
// by the key at some depth, then every run that shares it by the next key. Only
// numbers are compared, and each text is read once per depth instead of once per
// comparison, which matters for paths that share long beginnings. Runs wait on a
// list rather than the call stack, however long the shared part.
template <int kBits>
void SortByKeys(std::vector<Sortable>& texts) {
    struct Run {
        std::size_t begin;
        std::size_t end;
        std::size_t depth;
    };
    std::vector<Run> pending{{0, texts.size(), 0}};
    while (!pending.empty()) {
        const Run run = pending.back();
        pending.pop_back();
        const auto first = texts.begin() + static_cast<std::ptrdiff_t>(run.begin);
        const auto last = texts.begin() + static_cast<std::ptrdiff_t>(run.end);
        for (auto item = first; item != last; ++item) {
            item->key = SortKey<kBits>(*item, run.depth);
        }
        std::sort(first, last, [](const Sortable& a, const Sortable& b) { return a.key < b.key; });
        for (std::size_t begin = run.begin; begin < run.end;) {
            std::size_t end = begin + 1;
            while (end < run.end && texts[end].key == texts[begin].key) {
                ++end;
            }
            if (end - begin > 1 && !KeyEndsText<kBits>(texts[begin].key)) {
                pending.push_back({begin, end, run.depth + 64 / kBits});
            }
            begin = end;
        }
    }
}

}  // namespace

void SortTexts(std::vector<Sortable>& texts) {
    std::uint32_t units = 0;  // every unit of every text, or-ed
    for (const Sortable& item : texts) {
        for (std::uint32_t at = 0; at < item.length; ++at) {
            units |= static_cast<std::uint32_t>(item.text[at]);
        }
    }
    if (units < 0x100) {
        SortByKeys<8>(texts);
    } else if (units < 0x10000) {
        SortByKeys<16>(texts);
    } else {
        SortByKeys<32>(texts);
    }
}

}  // namespace qk
