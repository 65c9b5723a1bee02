#include "blob/blob_reader.h"

#include <algorithm>
#include <cassert>
#include <cwchar>

namespace qk {

BlobReader::BlobReader(std::span<const std::uint8_t> image) : image_(image) {
    assert(reinterpret_cast<std::uintptr_t>(image.data()) % alignof(wchar_t) == 0);
}

std::optional<TableBounds> BlobReader::Table(BlobTable table) const {
    auto header = Header();
    if (!header) {
        return std::nullopt;
    }
    const TableFields& fields = FieldsOf(table);
    const TableBounds bounds = {(*header).*fields.start, (*header).*fields.units};
    // 64-bit arithmetic: start + size of two 32-bit words cannot overflow it.
    if (PositionToByte(bounds.end()) > image_.size()) {
        return std::nullopt;
    }
    return bounds;
}

TableProblem BlobReader::Check(BlobTable table, std::uint32_t recordUnits,
                               TableBounds& bounds) const {
    if (!Header()) {
        return TableProblem::kNoHeader;
    }
    auto checked = Table(table);
    if (!checked) {
        return TableProblem::kLeavesImage;
    }
    bounds = *checked;
    if (recordUnits != 0 && bounds.units % recordUnits != 0) {
        return TableProblem::kNotWholeRecords;
    }
    return TableProblem::kNone;
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

const wchar_t* BlobReader::TextInWords(std::uint32_t position) const {
    auto words = Table(BlobTable::kWords);
    if (!words || !words->Contains(position)) {
        return nullptr;
    }
    const wchar_t* text = TextAt(position);
    if (text == nullptr || position + TextUnits(std::wcslen(text)) > words->end()) {
        return nullptr;
    }
    return text;
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

ProfileEntry BlobReader::ProfileAt(const TableBounds& table, std::uint32_t position,
                                   int ordinal) const {
    ProfileEntry entry;
    entry.position = position;
    entry.ordinal = ordinal;
    entry.record = *RecordAt<ProfileRecord>(position);
    std::uint32_t count = entry.record.dwValueCount;
    if (count > kMaxProfileValues) {
        entry.tooManyValues = true;
        count = 0;
    }
    // A value record must end inside the table, and inside the image.
    const std::uint64_t endByte = std::min<std::uint64_t>(PositionToByte(table.end()), size());
    std::uint64_t byte = PositionToByte(std::uint64_t{position} + kProfileUnits);
    for (std::uint32_t index = 0; index < count; ++index) {
        auto head = RecordAtByte<ValueRecordHead>(byte);
        const std::uint64_t bytes =
            head ? ValueRecordUnits(head->dwDatumSize) * kUnitBytes : kUnitBytes;
        if (!head || byte + bytes > endByte) {
            entry.valueOutside = {index, byte};
            break;
        }
        const std::span<const std::uint8_t> datum =
            image_.subspan(byte + sizeof(ValueRecordHead), head->dwDatumSize);
        entry.values.push_back({byte, *head, datum, bytes});
        byte += bytes;
    }
    return entry;
}

std::uint64_t ProfileEntry::ValueBytes() const {
    std::uint64_t total = 0;
    for (const ValueEntry& value : values) {
        total += value.bytes;
    }
    return total;
}

ChainWalker::ChainWalker(const BlobReader& reader, BlobTable table, std::uint32_t recordUnits,
                         std::size_t linkOffset)
    : reader_(reader),
      table_(reader.Table(table)),
      recordUnits_(recordUnits),
      linkOffset_(linkOffset),
      marks_(table_ && recordUnits != 0 ? table_->units / recordUnits : 0, kUnseen) {}

}  // namespace qk
