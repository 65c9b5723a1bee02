#include "blob/string_table.h"

#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string_view>

#include "blob/blob_image.h"
#include "blob/text_sort.h"
#include "blob/word_index.h"
#include "support/out_of_memory.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
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

const wchar_t* EntryText(int index) {
    return g_lpWordsArray[static_cast<std::size_t>(index)].text;
}

WordIndex g_wordsIndex(EntryText);

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
    const std::uint32_t hash = WordIndex::Hash(std::wstring_view(text, length));
    wchar_t* copy = TrackedCopy(text, length);
    if (length > static_cast<std::size_t>(g_iLongestString)) {
        g_iLongestString = static_cast<int>(length);
    }
    if (const int found = g_wordsIndex.Find(std::wstring_view(copy, length), hash); found >= 0) {
        return found;
    }
    if (g_iWordsArrElement == g_iWordsArrAllocated && !GrowWords()) {
        ProgressLog(L"ERROR: Couldn't realloc memory!\n", 0);
        // A text left out would make a different blob: the run ends here.
        ThrowOutOfMemory();
    }
    g_lpWordsArray.push_back({copy, {0, 0}, static_cast<std::uint32_t>(length)});
    try {
        g_wordsIndex.Insert(length, hash, g_iWordsArrElement);
    } catch (const std::bad_alloc&) {
        g_lpWordsArray.pop_back();
        ProgressLog(L"ERROR: Couldn't realloc memory!\n", 0);
        ThrowOutOfMemory();
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
        g_lpWordsArray[i].length = sortable[i].length;
    }
    g_wordsIndex.Renumber(newIndex);
    ProgressLog(L"DONE, SortStringTable.\n", 0);
}

int WordsInitialise() {
    g_lpWordsPtr = g_lpBuffer;
    ImageHeader()->nWordsUnits = 0;
    ImageHeader()->posWordsStart = CursorPosition();
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
    BlobHeader* header = ImageHeader();
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
