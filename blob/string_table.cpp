#include "blob/string_table.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "app/progress_log.h"
#include "app/tracked_memory.h"
#include "blob/compact_builder.h"
#include "text/wide_string.h"

namespace qk {

std::vector<WordEntry> g_lpWordsArray;
int g_iWordsArrElement = 0;
int g_iWordsArrAllocated = 0;
int g_iLongestString = 0;
StringRef g_strsEmptyString = kEmptyStringRef;
std::uint8_t* g_lpWordsPtr = nullptr;

namespace {

constexpr int kFirstWordsRoom = 10;

// Four code units per step in two independent lanes, so that the multiplies
// of a long text overlap instead of waiting on each other.
std::uint32_t HashText(std::wstring_view text) {
    constexpr std::uint64_t kFirst = 0x9E3779B97F4A7C15ULL;
    constexpr std::uint64_t kSecond = 0xC2B2AE3D27D4EB4FULL;
    std::uint64_t first = text.size() * kFirst;
    std::uint64_t second = ~first;
    const wchar_t* at = text.data();
    const wchar_t* const end = at + text.size();
    for (; end - at >= 4; at += 4) {
        std::uint64_t pairs[2];
        std::memcpy(pairs, at, sizeof pairs);
        first = std::rotl((first ^ pairs[0]) * kFirst, 29);
        second = std::rotl((second ^ pairs[1]) * kSecond, 31);
    }
    for (; at < end; ++at) {
        first = std::rotl((first ^ static_cast<std::uint32_t>(*at)) * kFirst, 29);
    }
    std::uint64_t hash = (first ^ std::rotl(second, 17)) * kSecond;
    hash ^= hash >> 32;
    return static_cast<std::uint32_t>(hash);
}

// Text -> entry index, open addressing over entry indices with their hashes,
// kept at most half full. Flat slots keep a lookup to about one cache line of
// the table and one of the text; the texts are the entries' tracked copies,
// which live until the final sweep. Texts are unique, so a lookup gives
// exactly the entry that a scan from the first entry would find.
class WordsIndex {
  public:
    void Forget() {
        slots_.clear();
        slots_.shrink_to_fit();
        used_ = 0;
    }

    int Find(std::wstring_view text) const { return Find(text, HashText(text)); }

    int Find(std::wstring_view text, std::uint32_t hash) const {
        if (slots_.empty()) {
            return -1;
        }
        for (std::size_t at = hash & Mask();; at = (at + 1) & Mask()) {
            const Slot& slot = slots_[at];
            if (slot.index < 0) {
                return -1;
            }
            if (slot.hash == hash && slot.length == text.size() &&
                std::wmemcmp(g_lpWordsArray[static_cast<std::size_t>(slot.index)].first,
                             text.data(), text.size()) == 0) {
                return slot.index;
            }
        }
    }

    // Starts loading the slot where a lookup of this hash begins, so that the
    // caller's work overlaps the cache miss.
    void Prefetch(std::uint32_t hash) const {
        if (!slots_.empty()) {
            __builtin_prefetch(&slots_[hash & Mask()]);
        }
    }

    // Throws std::bad_alloc when the table cannot grow.
    void Insert(std::size_t length, std::uint32_t hash, int index) {
        if (2 * (used_ + 1) > slots_.size()) {
            Grow(slots_.empty() ? kFirstSlots : 2 * slots_.size());
        }
        Place({hash, static_cast<std::uint32_t>(length), index});
        ++used_;
    }

    // After the entries were reordered: the entry that was at index i is now at
    // newIndex[i]. Texts and hashes are unchanged, so nothing is hashed again.
    void Renumber(const std::vector<int>& newIndex) {
        for (Slot& slot : slots_) {
            if (slot.index >= 0) {
                slot.index = newIndex[static_cast<std::size_t>(slot.index)];
            }
        }
    }

  private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t length = 0;
        int index = -1;  // -1: free
    };
    static constexpr std::size_t kFirstSlots = 1024;

    std::size_t Mask() const { return slots_.size() - 1; }

    void Place(const Slot& entry) {
        std::size_t at = entry.hash & Mask();
        while (slots_[at].index >= 0) {
            at = (at + 1) & Mask();
        }
        slots_[at] = entry;
    }

    void Grow(std::size_t size) {
        std::vector<Slot> old(size);
        old.swap(slots_);
        for (const Slot& entry : old) {
            if (entry.index >= 0) {
                Place(entry);
            }
        }
    }

    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

WordsIndex g_wordsIndex;

BlobHeader* Header() {
    return reinterpret_cast<BlobHeader*>(g_lpBlob);
}

// Runs at least this long are sorted by radix, shorter ones by comparison.
constexpr std::ptrdiff_t kRadixRun = 256;

struct Sortable {
    std::uint64_t key;
    const wchar_t* text;
    int entry;             // where the text stands in the word list
    std::uint32_t length;  // of the text, in code units
};

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

// Sorts by key, least significant byte first, one counting pass per byte that
// differs among the keys: for a large run, a few linear passes instead of a
// comparison sort's n log n comparisons.
void RadixSortByKey(std::vector<Sortable>::iterator first, std::vector<Sortable>::iterator last,
                    std::vector<Sortable>& scratch) {
    const auto count = static_cast<std::size_t>(last - first);
    std::array<std::array<std::size_t, 256>, 8> counts{};
    for (auto item = first; item != last; ++item) {
        for (std::size_t byte = 0; byte < 8; ++byte) {
            ++counts[byte][(item->key >> (8 * byte)) & 0xFF];
        }
    }
    scratch.resize(count);
    Sortable* from = &*first;
    Sortable* to = scratch.data();
    for (std::size_t byte = 0; byte < 8; ++byte) {
        auto& starts = counts[byte];
        if (starts[(from->key >> (8 * byte)) & 0xFF] == count) {
            continue;  // every key has the same byte here
        }
        std::size_t next = 0;
        for (std::size_t& start : starts) {
            next += std::exchange(start, next);
        }
        for (std::size_t i = 0; i < count; ++i) {
            to[starts[(from[i].key >> (8 * byte)) & 0xFF]++] = from[i];
        }
        std::swap(from, to);
    }
    if (from != &*first) {
        std::copy(from, from + count, first);
    }
}

// Orders the texts as wcscmp does, a key of several code units at a time: sort
// by the key at some depth, then every run that shares it by the next key. Only
// numbers are compared, and each text is read once per depth instead of once per
// comparison, which matters for paths that share long beginnings. Runs wait on a
// list rather than the call stack, however long the shared part.
template <int kBits>
void SortTexts(std::vector<Sortable>& texts) {
    struct Run {
        std::size_t begin;
        std::size_t end;
        std::size_t depth;
    };
    std::vector<Run> pending{{0, texts.size(), 0}};
    std::vector<Sortable> scratch;
    while (!pending.empty()) {
        const Run run = pending.back();
        pending.pop_back();
        const auto first = texts.begin() + static_cast<std::ptrdiff_t>(run.begin);
        const auto last = texts.begin() + static_cast<std::ptrdiff_t>(run.end);
        for (auto item = first; item != last; ++item) {
            item->key = SortKey<kBits>(*item, run.depth);
        }
        if (last - first >= kRadixRun) {
            RadixSortByKey(first, last, scratch);
        } else {
            std::sort(first, last,
                      [](const Sortable& a, const Sortable& b) { return a.key < b.key; });
        }
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

void SortTexts(std::vector<Sortable>& texts) {
    std::uint32_t units = 0;  // every unit of every text, or-ed
    for (const Sortable& item : texts) {
        for (std::uint32_t at = 0; at < item.length; ++at) {
            units |= static_cast<std::uint32_t>(item.text[at]);
        }
    }
    if (units < 0x100) {
        SortTexts<8>(texts);
    } else if (units < 0x10000) {
        SortTexts<16>(texts);
    } else {
        SortTexts<32>(texts);
    }
}

bool GrowWords() {
    const int room = g_iWordsArrAllocated == 0 ? kFirstWordsRoom : g_iWordsArrAllocated * 2;
    try {
        g_lpWordsArray.reserve(static_cast<std::size_t>(room));
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    g_iWordsArrAllocated = room;
    return true;
}

}  // namespace

int AddToWordsArray(const wchar_t* text) {
    if (text == nullptr) {
        return -1;
    }
    return AddToWordsArray(text, std::wcslen(text));
}

int AddToWordsArray(const wchar_t* text, std::size_t length) {
    if (text == nullptr) {
        return -1;
    }
    const std::uint32_t hash = HashText(std::wstring_view(text, length));
    g_wordsIndex.Prefetch(hash);
    wchar_t* copy = TrackedCopy(text, length);
    if (length > static_cast<std::size_t>(g_iLongestString)) {
        g_iLongestString = static_cast<int>(length);
    }
    if (const int found = g_wordsIndex.Find(std::wstring_view(copy, length), hash); found >= 0) {
        return found;
    }
    if (g_iWordsArrElement == g_iWordsArrAllocated && !GrowWords()) {
        ProgressLog(L"ERROR: Couldn't realloc memory!\n", 0);
        return -1;
    }
    g_lpWordsArray.push_back({copy, {0, 0}, static_cast<std::uint32_t>(length), copy});
    try {
        g_wordsIndex.Insert(length, hash, g_iWordsArrElement);
    } catch (const std::bad_alloc&) {
        g_lpWordsArray.pop_back();
        ProgressLog(L"ERROR: Couldn't realloc memory!\n", 0);
        return -1;
    }
    return ++g_iWordsArrElement;
}

int int_cmp(const wchar_t* left, const wchar_t* right) {
    return std::wcscmp(left, right);
}

void PrintAll(const wchar_t* const* texts, int count) {
    for (int i = 0; i < count; ++i) {
        LogFormat(L"PrintAll %d: - %ls\n", i, texts[i]);
    }
    ProgressLog(L"DONE print All\n", 0);
}

void SortStringTable() {
    ProgressLog(L"START, SortStringTable.\n", 0);
    const auto count = static_cast<std::size_t>(g_iWordsArrElement);
    // Pointers to the texts are sorted, not copies; an entry without text sorts as
    // empty here and is refused below.
    std::vector<Sortable> sortable(count);
    for (std::size_t i = 0; i < count; ++i) {
        const WordEntry& entry = g_lpWordsArray[i];
        sortable[i] = entry.text != nullptr
                          ? Sortable{0, entry.text, static_cast<int>(i), entry.length}
                          : Sortable{0, L"", static_cast<int>(i), 0};
    }
    SortTexts(sortable);
    std::vector<const wchar_t*> texts(count);
    std::vector<int> newIndex(count);
    for (std::size_t i = 0; i < count; ++i) {
        texts[i] = sortable[i].text;
        newIndex[static_cast<std::size_t>(sortable[i].entry)] = static_cast<int>(i);
    }
    PrintAll(texts.data(), g_iWordsArrElement);
    for (std::size_t i = 0; i < count; ++i) {
        if (g_lpWordsArray[i].text == nullptr) {
            ProgressLog(L"ERROR, words array item is NULL\n", 0);
            ExitFree();
        }
        g_lpWordsArray[i].text = TrackedCopy(texts[i], sortable[i].length);
        g_lpWordsArray[i].first = texts[i];
        g_lpWordsArray[i].length = sortable[i].length;
    }
    g_wordsIndex.Renumber(newIndex);
    ProgressLog(L"DONE, SortStringTable.\n", 0);
}

int WordsInitialise() {
    g_lpWordsPtr = g_lpBuffer;
    Header()->nWordsUnits = 0;
    Header()->posWordsStart =
        static_cast<std::uint32_t>((g_lpBuffer - g_lpBlob - kHeaderBytes) / kUnitBytes);
    return 0;
}

StringRef WordsAdd(const wchar_t* text) {
    if (text == nullptr) {
        text = L"";
    }
    return WordsAdd(text, std::wcslen(text));
}

StringRef WordsAdd(const wchar_t* text, std::size_t length) {
    const std::uint64_t units = TextUnits(length);
    ReserveImageBytes(units * kUnitBytes, L"text", text);
    BlobHeader* header = Header();
    const StringRef ref = {header->posWordsStart + header->nWordsUnits,
                           static_cast<std::uint32_t>(4 * length + 4)};
    // The padding after the terminator is already zero: the image is zero-filled.
    std::memcpy(g_lpWordsPtr, text, (length + 1) * sizeof(wchar_t));
    header->nWordsUnits += static_cast<std::uint32_t>(units);
    g_lpBuffer += units * kUnitBytes;
    g_lpWordsPtr = g_lpBuffer;
    return ref;
}

StringRef FindStrings(const wchar_t* text) {
    if (text == nullptr || text[0] == L'\0') {
        return g_strsEmptyString;
    }
    const int found = g_wordsIndex.Find(text);
    if (found < 0) {
        return g_strsEmptyString;
    }
    return g_lpWordsArray[static_cast<std::size_t>(found)].ref;
}

const wchar_t* GetWordsViaOffset(std::int32_t position) {
    if (position < 0) {
        return nullptr;
    }
    return CurrentImage().TextAt(static_cast<std::uint32_t>(position));
}

void PrintStrings(std::uint32_t position, std::uint32_t length, const wchar_t* label) {
    if (g_bCreateLog == 0) {
        return;  // the line is all it does; no need to find the text
    }
    const wchar_t* text = GetWordsViaOffset(static_cast<std::int32_t>(position));
    LogFormat(L"%ls: - offset:- %d, length:- %d, content:- %ls\n", label ? label : L"",
              static_cast<int>(position), static_cast<int>(length), text ? text : L"");
}

void ResetStringTable() {
    g_lpWordsArray.clear();
    g_lpWordsArray.shrink_to_fit();
    g_wordsIndex.Forget();
    g_iWordsArrElement = 0;
    g_iWordsArrAllocated = 0;
    g_iLongestString = 0;
    g_strsEmptyString = kEmptyStringRef;
    g_lpWordsPtr = nullptr;
}

}  // namespace qk
