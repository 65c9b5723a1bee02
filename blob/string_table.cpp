#include "blob/string_table.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

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

// Text -> entry index. The views point at the entries' tracked copies, which
// live until the final sweep. Texts are unique, so the index gives exactly the
// entry that a scan from the first entry would find.
std::unordered_map<std::wstring_view, int> g_wordsIndex;

BlobHeader* Header() {
    return reinterpret_cast<BlobHeader*>(g_lpBlob);
}

void RebuildIndex() {
    g_wordsIndex.clear();
    g_wordsIndex.reserve(static_cast<std::size_t>(g_iWordsArrElement));
    for (int i = 0; i < g_iWordsArrElement; ++i) {
        const wchar_t* text = g_lpWordsArray[static_cast<std::size_t>(i)].text;
        if (text != nullptr) {
            g_wordsIndex.emplace(text, i);
        }
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
    wchar_t* copy = TrackedCopy(text);
    const std::size_t length = std::wcslen(copy);
    if (length > static_cast<std::size_t>(g_iLongestString)) {
        g_iLongestString = static_cast<int>(length);
    }
    if (auto found = g_wordsIndex.find(std::wstring_view(copy, length));
        found != g_wordsIndex.end()) {
        return found->second;
    }
    if (g_iWordsArrElement == g_iWordsArrAllocated && !GrowWords()) {
        ProgressLog(L"ERROR: Couldn't realloc memory!\n", 0);
        return -1;
    }
    g_lpWordsArray.push_back({copy, {0, 0}});
    g_wordsIndex.emplace(std::wstring_view(copy, length), g_iWordsArrElement);
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
    // Ordinary (untracked) scratch copies; an entry without text sorts as empty
    // here and is refused below.
    std::vector<std::wstring> sorted(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (g_lpWordsArray[i].text != nullptr) {
            sorted[i] = g_lpWordsArray[i].text;
        }
    }
    std::sort(sorted.begin(), sorted.end(), [](const std::wstring& a, const std::wstring& b) {
        return int_cmp(a.c_str(), b.c_str()) < 0;
    });
    std::vector<const wchar_t*> texts(count);
    for (std::size_t i = 0; i < count; ++i) {
        texts[i] = sorted[i].c_str();
    }
    PrintAll(texts.data(), g_iWordsArrElement);
    for (std::size_t i = 0; i < count; ++i) {
        if (g_lpWordsArray[i].text == nullptr) {
            ProgressLog(L"ERROR, words array item is NULL\n", 0);
            ExitFree();
        }
        g_lpWordsArray[i].text = TrackedCopy(texts[i]);
    }
    RebuildIndex();
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
    const std::size_t length = std::wcslen(text);
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
    auto found = g_wordsIndex.find(text);
    if (found == g_wordsIndex.end()) {
        return g_strsEmptyString;
    }
    return g_lpWordsArray[static_cast<std::size_t>(found->second)].ref;
}

const wchar_t* GetWordsViaOffset(std::int32_t position) {
    if (position < 0) {
        return nullptr;
    }
    return CurrentImage().TextAt(static_cast<std::uint32_t>(position));
}

void PrintStrings(std::uint32_t position, std::uint32_t length, const wchar_t* label) {
    const wchar_t* text = GetWordsViaOffset(static_cast<std::int32_t>(position));
    LogFormat(L"%ls: - offset:- %d, length:- %d, content:- %ls\n", label ? label : L"",
              static_cast<int>(position), static_cast<int>(length), text ? text : L"");
}

void ResetStringTable() {
    g_lpWordsArray.clear();
    g_lpWordsArray.shrink_to_fit();
    g_wordsIndex.clear();
    g_iWordsArrElement = 0;
    g_iWordsArrAllocated = 0;
    g_iLongestString = 0;
    g_strsEmptyString = kEmptyStringRef;
    g_lpWordsPtr = nullptr;
}

}  // namespace qk
