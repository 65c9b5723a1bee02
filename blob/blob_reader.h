#pragma once

// The one bounds-checked reader of blob images, and the walks over its tables
// that every component reading a blob shares (the dump, -v, the installed
// database, the tests' decoder): each position, size, chain link and text is
// checked against the image and its table before a byte is read.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "blob/blob_format.h"

namespace qk {

// A table's extent in units, already checked to lie inside the image.
struct TableBounds {
    std::uint32_t start;
    std::uint32_t units;
    std::uint64_t end() const { return std::uint64_t{start} + units; }
    bool Contains(std::uint64_t position) const { return position >= start && position < end(); }
};

// Why a table cannot be walked.
enum class TableProblem { kNone, kNoHeader, kLeavesImage, kNotWholeRecords };

// A record of a fixed-size table with where it stands: its position and its
// ordinal in the table (from 0).
template <typename Record>
struct Located {
    std::uint32_t position;
    int ordinal;
    Record record;
};

// One value record of a profile, wholly inside its table.
struct ValueEntry {
    std::uint64_t byte;  // where the record starts in the image
    ValueRecordHead head;
    std::span<const std::uint8_t> datum;
    std::uint64_t bytes;  // the whole record's
};

// One profile with the value records that follow it.
struct ProfileEntry {
    std::uint32_t position = 0;
    int ordinal = 0;
    ProfileRecord record{};
    // The record claims more than kMaxProfileValues values: none are read.
    bool tooManyValues = false;
    std::vector<ValueEntry> values;
    // Set when the value record after `values` would leave the table (or the
    // image): its index and byte.
    std::optional<std::pair<std::uint32_t, std::uint64_t>> valueOutside;
    std::uint64_t ValueBytes() const;
};

// How a walk of the Profile table ended; the position and ordinal are those of
// the profile where it stopped.
struct ProfilesEnd {
    enum Kind { kComplete, kHeaderDoesNotFit, kRunsPast } kind = kComplete;
    std::uint32_t position = 0;
    int ordinal = 0;
};

enum class ChainEnd { kComplete, kOutside, kLoop };

class BlobReader {
  public:
    // The bytes must stay alive and unchanged while the reader is used; they
    // must be 4-byte aligned (heap buffers are).
    explicit BlobReader(std::span<const std::uint8_t> image);

    std::size_t size() const { return image_.size(); }

    // A whole fixed-size record (or the header, or a word) at a byte offset.
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
    // The record at a position, when that position is one of the table's records.
    template <typename Record>
    std::optional<Record> RecordIn(BlobTable table, std::uint32_t position) const {
        auto bounds = Table(table);
        if (!bounds || !IsRecordOf(*bounds, position, UnitsOf<Record>())) {
            return std::nullopt;
        }
        return RecordAt<Record>(position);
    }

    std::optional<BlobHeader> Header() const { return RecordAtByte<BlobHeader>(0); }

    // The table's start and size from the header, when the whole table lies
    // inside the image (no overflow, no byte beyond the end).
    std::optional<TableBounds> Table(BlobTable table) const;
    // The same, and for fixed-size records (recordUnits above 0) a whole number
    // of them; otherwise why not.
    TableProblem Check(BlobTable table, std::uint32_t recordUnits, TableBounds& bounds) const;

    // The text at a position: the units up to the first zero unit, which must
    // lie inside the image. Null for a position above 0x3FFFF, outside the
    // image, or a text without terminator. The pointer points into the image.
    const wchar_t* TextAt(std::uint32_t position) const;
    // The same, with the position and the whole text inside the Words table.
    const wchar_t* TextInWords(std::uint32_t position) const;
    // The text a StringRef names: its position inside the Words table, its length
    // a multiple of 4 of at least 4, the terminator exactly at its end, inside the
    // table. Null otherwise.
    const wchar_t* TextAt(StringRef ref) const;

    // Whether a record of recordUnits starting at position lies wholly inside the
    // table, on a record boundary.
    static bool IsRecordOf(const TableBounds& table, std::uint64_t position,
                           std::uint32_t recordUnits);

    // Calls visit(const Located<Record>&) for each whole record of the table, in order.
    template <typename Record, typename Visit>
    void ForEach(const TableBounds& table, Visit&& visit) const {
        constexpr std::uint32_t kUnits = UnitsOf<Record>();
        int ordinal = 0;
        for (std::uint64_t position = table.start; position + kUnits <= table.end();
             position += kUnits) {
            const auto at = static_cast<std::uint32_t>(position);
            visit(Located<Record>{at, ordinal++, *RecordAt<Record>(at)});
        }
    }

    // Calls visit(const ProfileEntry&) for each profile of the Profile table,
    // stepping by 4 units and the profile's aggregated size, until the table's
    // end or a profile whose header or aggregated size does not fit.
    template <typename Visit>
    ProfilesEnd ForEachProfile(const TableBounds& table, Visit&& visit) const {
        std::uint64_t position = table.start;
        int ordinal = 0;
        while (position < table.end()) {
            const auto at = static_cast<std::uint32_t>(position);
            if (position + kProfileUnits > table.end()) {
                return {ProfilesEnd::kHeaderDoesNotFit, at, ordinal};
            }
            const ProfileEntry entry = ProfileAt(table, at, ordinal);
            visit(entry);
            position += kProfileUnits + entry.record.dwAggregatedSize / kUnitBytes;
            if (position > table.end()) {
                return {ProfilesEnd::kRunsPast, at, ordinal};
            }
            ++ordinal;
        }
        return {};
    }

    template <typename Record>
    static constexpr std::uint32_t UnitsOf() {
        return static_cast<std::uint32_t>(sizeof(Record) / kUnitBytes);
    }

  private:
    ProfileEntry ProfileAt(const TableBounds& table, std::uint32_t position, int ordinal) const;

    std::span<const std::uint8_t> image_;
};

// Follows chains of fixed-size records through one table: from a first
// position, through the 32-bit link at linkOffset of each record, until
// kNoRecord. Every link must name a record of the table. Each record keeps the
// verdict of the first walk through it, so a loop ends, a chain that joins one
// already followed ends there with that chain's verdict, and all the chains of
// a table together cost no more than the table's size, however hostile.
class ChainWalker {
  public:
    ChainWalker(const BlobReader& reader, BlobTable table, std::uint32_t recordUnits,
                std::size_t linkOffset);

    // Calls visit(position) for each record not visited before; *joined tells
    // whether the chain ran into one that an earlier walk had visited.
    template <typename Visit>
    ChainEnd Walk(std::uint32_t first, Visit&& visit, bool* joined = nullptr) {
        const std::uint32_t walk = nextWalk_++;
        path_.clear();
        ChainEnd end = ChainEnd::kComplete;
        bool met = false;
        for (std::uint32_t position = first; position != kNoRecord;) {
            if (!table_ || !BlobReader::IsRecordOf(*table_, position, recordUnits_)) {
                end = ChainEnd::kOutside;
                break;
            }
            std::uint32_t& mark = marks_[(position - table_->start) / recordUnits_];
            if (mark == walk) {
                end = ChainEnd::kLoop;
                break;
            }
            if (mark != kUnseen) {
                end = static_cast<ChainEnd>(mark);
                met = true;
                break;
            }
            mark = walk;
            path_.push_back(&mark);
            visit(position);
            auto next = reader_.RecordAtByte<std::uint32_t>(PositionToByte(position) + linkOffset_);
            if (!next) {
                end = ChainEnd::kOutside;
                break;
            }
            position = *next;
        }
        for (std::uint32_t* mark : path_) {
            *mark = static_cast<std::uint32_t>(end);
        }
        if (joined != nullptr) {
            *joined = met;
        }
        return end;
    }
    ChainEnd Walk(std::uint32_t first) {
        return Walk(first, [](std::uint32_t) {});
    }

  private:
    // Marks below kUnseen are verdicts (ChainEnd values); from kFirstWalk on,
    // the number of the walk that is passing.
    static constexpr std::uint32_t kUnseen = 3;
    static constexpr std::uint32_t kFirstWalk = 4;

    const BlobReader& reader_;
    std::optional<TableBounds> table_;
    std::uint32_t recordUnits_;
    std::size_t linkOffset_;
    std::vector<std::uint32_t> marks_;
    std::vector<std::uint32_t*> path_;
    std::uint32_t nextWalk_ = kFirstWalk;
};

}  // namespace qk
