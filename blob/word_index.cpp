#include "blob/word_index.h"

#include <cwchar>
#include <functional>

namespace qk {

namespace {

constexpr std::size_t kFirstSlots = 1024;

}  // namespace

std::uint32_t WordIndex::Hash(std::wstring_view text) {
    return static_cast<std::uint32_t>(std::hash<std::wstring_view>{}(text));
}

int WordIndex::Find(std::wstring_view text, std::uint32_t hash) const {
    if (slots_.empty()) {
        return -1;
    }
    for (std::size_t at = hash & Mask();; at = (at + 1) & Mask()) {
        const Slot& slot = slots_[at];
        if (slot.index < 0) {
            return -1;
        }
        if (slot.hash == hash && slot.length == text.size() &&
            std::wmemcmp(textOf_(slot.index), text.data(), text.size()) == 0) {
            return slot.index;
        }
    }
}

void WordIndex::Insert(std::size_t length, std::uint32_t hash, int index) {
    if (2 * (used_ + 1) > slots_.size()) {
        Grow(slots_.empty() ? kFirstSlots : 2 * slots_.size());
    }
    Place({hash, static_cast<std::uint32_t>(length), index});
    ++used_;
}

void WordIndex::Renumber(const std::vector<int>& newIndex) {
    for (Slot& slot : slots_) {
        if (slot.index >= 0) {
            slot.index = newIndex[static_cast<std::size_t>(slot.index)];
        }
    }
}

void WordIndex::Forget() {
    slots_.clear();
    slots_.shrink_to_fit();
    used_ = 0;
}

void WordIndex::Place(const Slot& entry) {
    std::size_t at = entry.hash & Mask();
    while (slots_[at].index >= 0) {
        at = (at + 1) & Mask();
    }
    slots_[at] = entry;
}

void WordIndex::Grow(std::size_t size) {
    std::vector<Slot> old(size);
    old.swap(slots_);
    for (const Slot& entry : old) {
        if (entry.index >= 0) {
            Place(entry);
        }
    }
}

}  // namespace qk
