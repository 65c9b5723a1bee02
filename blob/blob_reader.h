#pragma once

// The one bounds-checked reader of blob images. Every component that reads a
// blob (the dump, -v, text lookups, the library simulator) goes through it:
// each position, size, chain link and text is checked against the image and
// its table before a byte is read.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "blob/blob_format.h"

namespace qk {

enum class BlobTable { kWords, kDriver, kProperty, kArea, kProfile, kUse, kApplication };

// A table's extent in units, already checked to lie inside the image.
struct TableBounds {
    std::uint32_t start;
    std::uint32_t units;
    std::uint64_t end() const { return std::uint64_t{start} + units; }
    bool Contains(std::uint64_t position) const { return position >= start && position < end(); }
};

enum class ChainEnd { kComplete, kOutside, kLoop };

class BlobReader {
  public:
    // The bytes must stay alive and unchanged while the reader is used; they
    // must be 4-byte aligned (heap buffers are).
    explicit BlobReader(std::span<const std::uint8_t> image);

    std::size_t size() const { return image_.size(); }
    const std::uint8_t* data() const { return image_.data(); }

    // The 32-bit word at a byte offset, or nothing when it leaves the image.
    std::optional<std::uint32_t> WordAt(std::uint64_t byteOffset) const;

    // A whole fixed-size record (or the header) starting at a byte offset.
    template <typename Record>
    std::optional<Record> RecordAtByte(std::uint64_t byteOffset) const {
        if (byteOffset > image_.size() || image_.size() - byteOffset < sizeof(Record)) {
            return std::nullopt;
        }
        Record record;
        std::memcpy(&record, image_.data() + byteOffset, sizeof(Record));
        return record;
    }
    template <typename Record>
    std::optional<Record> RecordAt(std::uint32_t position) const {
        return RecordAtByte<Record>(PositionToByte(position));
    }

    std::optional<BlobHeader> Header() const { return RecordAtByte<BlobHeader>(0); }

    // The table's start and size from the header, when the whole table lies
    // inside the image (no overflow, no byte beyond the end).
    std::optional<TableBounds> Table(BlobTable table) const;

    // The text at a position: the units up to the first zero unit, which must
    // lie inside the image. Null for a position above 0x3FFFF, outside the
    // image, or a text without terminator. The pointer points into the image.
    const wchar_t* TextAt(std::uint32_t position) const;

    // The text a StringRef names: its position inside the Words table, its length
    // a multiple of 4 of at least 4, the terminator exactly at its end, inside the
    // table. Null otherwise.
    const wchar_t* TextAt(StringRef ref) const;

    // Whether a record of recordUnits starting at position lies wholly inside the
    // table, on a record boundary.
    static bool IsRecordOf(const TableBounds& table, std::uint64_t position,
                           std::uint32_t recordUnits);

    // Walks a chain of fixed-size records: from first, through the 32-bit link at
    // linkOffset of each record, until kNoRecord. Every link must name a record of
    // the table; the walk visits at most as many records as the table holds, so a
    // loop ends. visit(position) is called for each record.
    template <typename Visit>
    ChainEnd WalkChain(std::uint32_t first, const TableBounds& table, std::uint32_t recordUnits,
                       std::size_t linkOffset, Visit&& visit) const {
        const std::uint64_t limit = recordUnits == 0 ? 0 : table.units / recordUnits;
        std::uint64_t steps = 0;
        std::uint32_t position = first;
        while (position != kNoRecord) {
            if (!IsRecordOf(table, position, recordUnits)) {
                return ChainEnd::kOutside;
            }
            if (steps++ >= limit) {
                return ChainEnd::kLoop;
            }
            visit(position);
            auto next = WordAt(PositionToByte(position) + linkOffset);
            if (!next) {
                return ChainEnd::kOutside;
            }
            position = *next;
        }
        return ChainEnd::kComplete;
    }

  private:
    std::span<const std::uint8_t> image_;
};

}  // namespace qk
