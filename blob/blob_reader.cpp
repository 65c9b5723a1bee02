#include "blob/blob_reader.h"

#include <cassert>
#include <cwchar>

namespace qk {

BlobReader::BlobReader(std::span<const std::uint8_t> image) : image_(image) {
    assert(reinterpret_cast<std::uintptr_t>(image.data()) % alignof(wchar_t) == 0);
}

std::optional<std::uint32_t> BlobReader::WordAt(std::uint64_t byteOffset) const {
    return RecordAtByte<std::uint32_t>(byteOffset);
}

std::optional<TableBounds> BlobReader::Table(BlobTable table) const {
    auto header = Header();
    if (!header) {
        return std::nullopt;
    }
    TableBounds bounds{};
    switch (table) {
        case BlobTable::kWords:
            bounds = {header->posWordsStart, header->nWordsUnits};
            break;
        case BlobTable::kDriver:
            bounds = {header->posDriverStart, header->nDriverUnits};
            break;
        case BlobTable::kProperty:
            bounds = {header->posPropertyStart, header->nPropertyUnits};
            break;
        case BlobTable::kArea:
            bounds = {header->posAreaStart, header->nAreaUnits};
            break;
        case BlobTable::kProfile:
            bounds = {header->posProfileStart, header->nProfileUnits};
            break;
        case BlobTable::kUse:
            bounds = {header->posUseStart, header->nUseUnits};
            break;
        case BlobTable::kApplication:
            bounds = {header->posApplicationStart, header->nApplicationUnits};
            break;
    }
    // 64-bit arithmetic: start + size of two 32-bit words cannot overflow it.
    if (PositionToByte(bounds.end()) > image_.size()) {
        return std::nullopt;
    }
    return bounds;
}

const wchar_t* BlobReader::TextAt(std::uint32_t position) const {
    if (position > kMaxTextPosition) {
        return nullptr;
    }
    const std::uint64_t first = PositionToByte(position);
    if (first >= image_.size()) {
        return nullptr;
    }
    const auto* text = reinterpret_cast<const wchar_t*>(image_.data() + first);
    const std::size_t available = (image_.size() - first) / sizeof(wchar_t);
    return std::wmemchr(text, L'\0', available) ? text : nullptr;
}

const wchar_t* BlobReader::TextAt(StringRef ref) const {
    auto words = Table(BlobTable::kWords);
    if (!words || !words->Contains(ref.pos) || ref.len < 4 || ref.len % 4 != 0) {
        return nullptr;
    }
    const std::uint64_t first = PositionToByte(ref.pos);
    const std::uint64_t terminator = first + ref.len - 4;
    if (terminator + 4 > PositionToByte(words->end())) {
        return nullptr;
    }
    const auto* text = reinterpret_cast<const wchar_t*>(image_.data() + first);
    const std::size_t characters = (ref.len - 4) / 4;
    if (text[characters] != L'\0' || std::wmemchr(text, L'\0', characters) != nullptr) {
        return nullptr;
    }
    return text;
}

bool BlobReader::IsRecordOf(const TableBounds& table, std::uint64_t position,
                            std::uint32_t recordUnits) {
    return recordUnits != 0 && table.Contains(position) &&
           (position - table.start) % recordUnits == 0 && position + recordUnits <= table.end();
}

}  // namespace qk
