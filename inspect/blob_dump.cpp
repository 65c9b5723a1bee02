#include "inspect/blob_dump.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "blob/blob_reader.h"
#include "blob/compact_builder.h"
#include "support/progress_log.h"

namespace qk {

namespace {

const wchar_t* Shown(const wchar_t* text) {
    return text != nullptr ? text : L"(null)";
}

const wchar_t* TableName(BlobTable table) {
    switch (table) {
        case BlobTable::kWords:
            return L"Words";
        case BlobTable::kDriver:
            return L"Driver";
        case BlobTable::kProperty:
            return L"Property";
        case BlobTable::kArea:
            return L"Area";
        case BlobTable::kProfile:
            return L"Profile";
        case BlobTable::kUse:
            return L"Use";
        case BlobTable::kApplication:
            return L"Application";
    }
    return L"?";
}

// The header's own start and size of a table, unchecked, for messages.
std::pair<std::uint32_t, std::uint32_t> RawExtent(const BlobHeader& header, BlobTable table) {
    switch (table) {
        case BlobTable::kWords:
            return {header.posWordsStart, header.nWordsUnits};
        case BlobTable::kDriver:
            return {header.posDriverStart, header.nDriverUnits};
        case BlobTable::kProperty:
            return {header.posPropertyStart, header.nPropertyUnits};
        case BlobTable::kArea:
            return {header.posAreaStart, header.nAreaUnits};
        case BlobTable::kProfile:
            return {header.posProfileStart, header.nProfileUnits};
        case BlobTable::kUse:
            return {header.posUseStart, header.nUseUnits};
        case BlobTable::kApplication:
            return {header.posApplicationStart, header.nApplicationUnits};
    }
    return {0, 0};
}

// A table fit to walk: inside the image and, for fixed-size records, a whole
// number of them. Otherwise an ERROR line and nothing. recordUnits 0 means
// records of varying size.
std::optional<TableBounds> WalkableTable(const BlobReader& reader, BlobTable table,
                                         std::uint32_t recordUnits) {
    auto header = reader.Header();
    if (!header) {
        LogFormat(L"ERROR, %ls table: the blob image has no header\n", TableName(table));
        return std::nullopt;
    }
    auto bounds = reader.Table(table);
    if (!bounds) {
        auto [start, units] = RawExtent(*header, table);
        LogFormat(L"ERROR, %ls table start=%u units=%u leaves the image\n", TableName(table), start,
                  units);
        return std::nullopt;
    }
    if (recordUnits != 0 && bounds->units % recordUnits != 0) {
        LogFormat(L"ERROR, %ls table units=%u is not a whole number of %u-unit records\n",
                  TableName(table), bounds->units, recordUnits);
        return std::nullopt;
    }
    return bounds;
}

// The text at a Words-table position: null unless the position and the
// text's terminator lie inside the Words table.
const wchar_t* TextOf(const BlobReader& reader, std::uint32_t position) {
    auto words = reader.Table(BlobTable::kWords);
    if (!words || !words->Contains(position)) {
        return nullptr;
    }
    const wchar_t* text = reader.TextAt(position);
    if (text == nullptr || position + TextUnits(std::wcslen(text)) > words->end()) {
        return nullptr;
    }
    return text;
}

template <typename Record>
std::optional<Record> RecordIn(const BlobReader& reader, BlobTable table, std::uint32_t position,
                               std::uint32_t recordUnits) {
    auto bounds = reader.Table(table);
    if (!bounds || !BlobReader::IsRecordOf(*bounds, position, recordUnits)) {
        return std::nullopt;
    }
    return reader.RecordAt<Record>(position);
}

std::optional<DriverRecord> DriverAt(const BlobReader& reader, std::uint32_t position) {
    return RecordIn<DriverRecord>(reader, BlobTable::kDriver, position, kDriverUnits);
}

const wchar_t* DriverNameAt(const BlobReader& reader, std::uint32_t position) {
    auto driver = DriverAt(reader, position);
    return driver ? TextOf(reader, driver->refName.pos) : nullptr;
}

const wchar_t* PropertyNameAt(const BlobReader& reader, std::uint32_t position) {
    auto property =
        RecordIn<PropertyRecord>(reader, BlobTable::kProperty, position, kPropertyUnits);
    return property ? TextOf(reader, property->refName.pos) : nullptr;
}

// Where the next profile starts: 4 units plus the aggregated size of its values.
std::uint64_t NextProfile(std::uint64_t position, const ProfileRecord& profile) {
    return position + kProfileUnits + profile.dwAggregatedSize / kUnitBytes;
}

// The positions of the Profile records, found by stepping through the table
// as the dump does; the walk ends where a record would leave the table.
std::vector<std::uint32_t> ProfileStarts(const BlobReader& reader) {
    std::vector<std::uint32_t> starts;
    auto table = reader.Table(BlobTable::kProfile);
    if (!table) {
        return starts;
    }
    std::uint64_t position = table->start;
    while (position + kProfileUnits <= table->end()) {
        auto profile = reader.RecordAt<ProfileRecord>(static_cast<std::uint32_t>(position));
        if (!profile) {
            break;
        }
        starts.push_back(static_cast<std::uint32_t>(position));
        position = NextProfile(position, *profile);
    }
    return starts;
}

const wchar_t* PrivacyText(std::uint32_t privacy) {
    switch (privacy) {
        case 0:
            return L"Undefined";
        case 1:
            return L"Defined";
        case 3:
            return L"ProfilesOnly";
        case 5:
            return L"ApplicationsOnly";
        case 7:
            return L"ApplicationsAndProfiles";
        default:
            return L"Error in code";
    }
}

const wchar_t* TypeText(std::uint32_t type) {
    static constexpr std::array<const wchar_t*, 7> kTypes = {
        L"Unknown", L"Binary", L"Qword", L"Dword", L"Boolean", L"Enumerated", L"Stringed"};
    return type < kTypes.size() ? kTypes[type] : L"Error in code";
}

// The log is UTF-8: a value that is no printable character is shown as '.'.
wint_t WideShown(std::uint32_t value) {
    const bool control = value < 0x20 || (value >= 0x7F && value <= 0x9F);
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (control || surrogate || value > 0x10FFFF) {
        return L'.';
    }
    return static_cast<wint_t>(value);
}

int NarrowShown(std::uint32_t value) {
    const std::uint32_t low = value & 0xFF;
    return low >= 0x20 && low < 0x7F ? static_cast<int>(low) : '.';
}

// The narrow property name of a value record (at most 16 bytes, the
// terminator optional), widened byte by byte with the same '.' rule.
std::wstring PropertyNameText(const ValueRecordHead& head) {
    std::wstring name;
    for (char byte : head.szPropertyName) {
        if (byte == '\0') {
            break;
        }
        name.push_back(static_cast<wchar_t>(NarrowShown(static_cast<unsigned char>(byte))));
    }
    return name;
}

// Follows the chains through one table, each to its end, and says how each
// ends. Every record keeps the verdict of the first walk through it, so a chain
// that joins one already followed stops there and all chains together cost no
// more than the table's size, however the links are set.
class ChainChecker {
  public:
    ChainChecker(const BlobReader& reader, BlobTable table, std::uint32_t recordUnits,
                 std::size_t linkOffset)
        : reader_(reader),
          table_(reader.Table(table)),
          recordUnits_(recordUnits),
          linkOffset_(linkOffset),
          marks_(table_ ? table_->units / recordUnits : 0, kUnseen) {}

    ChainEnd Check(std::uint32_t first) {
        const std::uint32_t walk = nextWalk_++;
        std::vector<std::uint32_t> path;
        ChainEnd end = ChainEnd::kComplete;
        for (std::uint32_t position = first; position != kNoRecord;) {
            if (!table_ || !BlobReader::IsRecordOf(*table_, position, recordUnits_)) {
                end = ChainEnd::kOutside;
                break;
            }
            const std::uint32_t record = (position - table_->start) / recordUnits_;
            if (marks_[record] == walk) {
                end = ChainEnd::kLoop;
                break;
            }
            if (marks_[record] < kFirstWalk && marks_[record] != kUnseen) {
                end = static_cast<ChainEnd>(marks_[record]);
                break;
            }
            marks_[record] = walk;
            path.push_back(record);
            auto next = reader_.WordAt(PositionToByte(position) + linkOffset_);
            if (!next) {
                end = ChainEnd::kOutside;
                break;
            }
            position = *next;
        }
        for (std::uint32_t record : path) {
            marks_[record] = static_cast<std::uint32_t>(end);
        }
        return end;
    }

  private:
    static_assert(static_cast<std::uint32_t>(ChainEnd::kComplete) == 0 &&
                  static_cast<std::uint32_t>(ChainEnd::kLoop) == 2);
    static constexpr std::uint32_t kUnseen = 3;
    static constexpr std::uint32_t kFirstWalk = 4;

    const BlobReader& reader_;
    std::optional<TableBounds> table_;
    std::uint32_t recordUnits_;
    std::size_t linkOffset_;
    std::vector<std::uint32_t> marks_;
    std::uint32_t nextWalk_ = kFirstWalk;
};

void ReportChain(ChainEnd end, const wchar_t* owner, int ordinal, const wchar_t* chain) {
    if (end == ChainEnd::kOutside) {
        LogFormat(L"ERROR, %ls=[%d] %ls chain leaves its table\n", owner, ordinal, chain);
    } else if (end == ChainEnd::kLoop) {
        LogFormat(L"ERROR, %ls=[%d] %ls chain loops; cut\n", owner, ordinal, chain);
    }
}

}  // namespace

void PrintCompact() {
    ProgressLog(L"----------------------BEGIN PRINT COMPACT-------------------------\n", 0);
    if (!CurrentImage().Header()) {
        ProgressLog(L"ERROR, there is no blob image to print\n", 0);
    } else {
        PrintWordsTable();
        PrintDriverTable();
        PrintPropertyTable();
        PrintAreaTable();
        PrintProfileTable();
        PrintUseTable();
        PrintApplicationTable();
    }
    ProgressLog(L"----------------------PRINT COMPACT DONE-------------------------\n", 0);
}

void PrintWordsTable() {
    ProgressLog(L"Words Table: ---\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kWords, 0);
    if (!table) {
        return;
    }
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end(); ++ordinal) {
        const wchar_t* text = TextOf(reader, static_cast<std::uint32_t>(position));
        if (text == nullptr) {
            LogFormat(L"ERROR, String #%d at position %u runs past the end of the Words table\n",
                      ordinal, static_cast<unsigned>(position));
            return;
        }
        LogFormat(L"...String #%d:is ----- %ls\n", ordinal, text);
        position += TextUnits(std::wcslen(text));
    }
}

void PrintDriverTable() {
    ProgressLog(L"Driver Table: ---\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kDriver, kDriverUnits);
    if (!table) {
        return;
    }
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end();
         position += kDriverUnits, ++ordinal) {
        auto driver = reader.RecordAt<DriverRecord>(static_cast<std::uint32_t>(position));
        if (!driver) {
            return;  // unreachable: the table lies inside the image
        }
        LogFormat(L"...Driver=[%d] Name=[%ls] Privacy=[%ls]\n", ordinal,
                  Shown(TextOf(reader, driver->refName.pos)), PrivacyText(driver->dwPrivacy));
    }
}

void PrintPropertyTable() {
    ProgressLog(L"Property Table: ---\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kProperty, kPropertyUnits);
    if (!table) {
        return;
    }
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end();
         position += kPropertyUnits, ++ordinal) {
        auto property = reader.RecordAt<PropertyRecord>(static_cast<std::uint32_t>(position));
        if (!property) {
            return;
        }
        std::wstring at = L"---";
        const wchar_t* next = L"---";
        if (property->posNext != kNoRecord) {
            next = PropertyNameAt(reader, property->posNext);
            if (BlobReader::IsRecordOf(*table, property->posNext, kPropertyUnits)) {
                at = std::to_wstring((property->posNext - table->start) / kPropertyUnits);
            } else {
                at = L"(null)";
            }
        }
        LogFormat(L"...Property=[%d] Name=[%ls] DataType=[%ls] Tokens=[%ls] Next=[%ls] at=[%ls]\n",
                  ordinal, Shown(TextOf(reader, property->refName.pos)), TypeText(property->dwType),
                  Shown(TextOf(reader, property->refSet.pos)), Shown(next), at.c_str());
    }
}

void PrintAreaTable() {
    const BlobReader reader = CurrentImage();
    if (auto header = reader.Header()) {
        LogFormat(L"Area Table: start=%d, end=%d---\n", static_cast<int>(header->posAreaStart),
                  static_cast<int>(header->posAreaStart + header->nAreaUnits));
    } else {
        ProgressLog(L"Area Table: ---\n", 0);
    }
    auto table = WalkableTable(reader, BlobTable::kArea, kAreaUnits);
    if (!table) {
        return;
    }
    ChainChecker chains(reader, BlobTable::kProperty, kPropertyUnits,
                        offsetof(PropertyRecord, posNext));
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end();
         position += kAreaUnits, ++ordinal) {
        auto area = reader.RecordAt<AreaRecord>(static_cast<std::uint32_t>(position));
        if (!area) {
            return;
        }
        auto driver = DriverAt(reader, area->posDriver);
        const wchar_t* first = area->posFirstProperty == kNoRecord
                                   ? nullptr
                                   : PropertyNameAt(reader, area->posFirstProperty);
        LogFormat(L"...Area=[%d] Driver=[%ls] First=[%ls] DriverIndex=[%d] DriverOffset=[%d]\n",
                  ordinal, Shown(driver ? TextOf(reader, driver->refName.pos) : nullptr),
                  Shown(first), static_cast<int>(area->posDriver),
                  driver ? static_cast<int>(driver->refName.pos) : -1);
        ReportChain(chains.Check(area->posFirstProperty), L"Area", ordinal, L"property");
    }
}

void PrintProfileTable() {
    ProgressLog(L"Profile Table: ---\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kProfile, 0);
    if (!table) {
        return;
    }
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end(); ++ordinal) {
        if (position + kProfileUnits > table->end()) {
            LogFormat(L"ERROR, Profile#[%d] at position %u does not fit in the Profile table\n",
                      ordinal, static_cast<unsigned>(position));
            return;
        }
        auto profile = reader.RecordAt<ProfileRecord>(static_cast<std::uint32_t>(position));
        if (!profile) {
            return;
        }
        const wchar_t* driver = DriverNameAt(reader, profile->posDriver);
        const wchar_t* name = TextOf(reader, profile->refName.pos);
        const wchar_t* notes = TextOf(reader, profile->refNotes.pos);
        std::uint32_t count = profile->dwValueCount;
        if (count > kMaxProfileValues) {
            LogFormat(
                L"ERROR, Profile#[%d] Name=[%ls] claims %u values, more than %u; "
                L"printed without values\n",
                ordinal, Shown(name), count, kMaxProfileValues);
            count = 0;
        }
        if (driver != nullptr && name != nullptr && notes != nullptr) {
            LogFormat(
                L"...Profile#[%d] Values=[%d] AggregatedSize(byte)=[%d] Driver=[%ls] "
                L"Name=[%ls] Notes=[%ls] 1stPairIdx=[%X]\n",
                ordinal, static_cast<int>(profile->dwValueCount),
                static_cast<int>(profile->dwAggregatedSize), driver, name, notes,
                profile->dwFirstPair);
        } else {
            ProgressLog(L"ERROR, Driver name, Profile name or notes has invalid pointer", 0);
        }
        const std::uint64_t bytes = PrintValues(count, position + kProfileUnits, table->end());
        if (count != 0 && bytes != profile->dwAggregatedSize) {
            LogFormat(L"ERROR, Profile#[%d] values take %u bytes, AggregatedSize(byte)=[%u]\n",
                      ordinal, static_cast<unsigned>(bytes), profile->dwAggregatedSize);
        }
        const std::uint64_t next = NextProfile(position, *profile);
        if (next > table->end()) {
            LogFormat(
                L"ERROR, Profile#[%d] AggregatedSize(byte)=[%u] runs past the end of the "
                L"Profile table\n",
                ordinal, profile->dwAggregatedSize);
            return;
        }
        position = next;
    }
}

std::uint64_t PrintValues(std::uint32_t count, std::uint64_t firstValue, std::uint64_t tableEnd) {
    const BlobReader reader = CurrentImage();
    const std::uint64_t endByte = std::min<std::uint64_t>(PositionToByte(tableEnd), reader.size());
    std::uint64_t recordByte = PositionToByte(firstValue);
    std::uint64_t total = 0;
    for (std::uint32_t index = 0; index < count; ++index) {
        auto head = reader.RecordAtByte<ValueRecordHead>(recordByte);
        const std::uint64_t step =
            head ? ValueRecordUnits(head->dwDatumSize) * kUnitBytes : kUnitBytes;
        if (!head || recordByte + step > endByte) {
            LogFormat(L"ERROR, value #%u at position %u leaves the Profile table\n", index,
                      static_cast<unsigned>((recordByte - kHeaderBytes) / kUnitBytes));
            break;
        }
        PrintValueDatum(recordByte, head->dwDatumSize);
        recordByte += step;
        total += step;
    }
    return total;
}

void PrintValueDatum(std::uint64_t recordByte, std::uint32_t datumSize) {
    const BlobReader reader = CurrentImage();
    auto head = reader.RecordAtByte<ValueRecordHead>(recordByte);
    const std::wstring name = head ? PropertyNameText(*head) : std::wstring(L"(null)");
    LogFormat(L"......propertyName=[%ls] Datum size=[%d]\n", name.c_str(),
              static_cast<int>(datumSize));
    if (datumSize == 0) {
        ProgressLog(L"\n", 0);
        return;
    }
    const std::uint64_t datumByte = recordByte + sizeof(ValueRecordHead);
    const std::uint64_t chunks = (std::uint64_t{datumSize} + 7) / 8;
    for (std::uint64_t chunk = 0; chunk < chunks; ++chunk) {
        // The last chunk reads up to 7 bytes past the datum; bytes past the
        // image read as zero.
        std::array<std::uint8_t, 8> bytes{};
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (auto byte = reader.RecordAtByte<std::uint8_t>(datumByte + 8 * chunk + i)) {
                bytes[i] = *byte;
            }
        }
        auto word = [&bytes](std::size_t at) {
            return static_cast<std::uint32_t>(bytes[at]) |
                   static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
                   static_cast<std::uint32_t>(bytes[at + 2]) << 16 |
                   static_cast<std::uint32_t>(bytes[at + 3]) << 24;
        };
        const std::uint32_t lo = word(0);
        const std::uint32_t mid = word(2);
        const std::uint32_t hi = word(4);
        const std::uint32_t top = hi >> 16;
        const std::uint64_t left = datumSize - 8 * chunk;
        const int k = static_cast<int>(chunk);
        if (left <= 2) {
            LogFormat(L"\n.........Location[%3d] %8X, ASCII --- %lc", k, lo, WideShown(lo));
        } else if (left <= 4) {
            LogFormat(L"\n.........Location[%3d] %8X %8X, ASCII --- %lc%lc", k, lo, mid,
                      WideShown(lo), WideShown(mid));
        } else if (left <= 6) {
            LogFormat(L"\n.........Location[%3d] %8X %8X %8X, ASCII --- %lc%lc%lc", k, lo, mid, hi,
                      WideShown(lo), WideShown(mid), WideShown(hi));
        } else {
            LogFormat(L"\n.........Location[%3d] %8X %8X %8X %8X, ASCII --- %1c%1c%1c%1c", k, lo,
                      mid, hi, top, NarrowShown(lo), NarrowShown(mid), NarrowShown(hi),
                      NarrowShown(top));
        }
    }
    ProgressLog(L"\n", 0);
}

void PrintUseTable() {
    ProgressLog(L"Use Table:\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kUse, kUseUnits);
    if (!table) {
        return;
    }
    const std::vector<std::uint32_t> profiles = ProfileStarts(reader);
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end();
         position += kUseUnits, ++ordinal) {
        auto use = reader.RecordAt<UseRecord>(static_cast<std::uint32_t>(position));
        if (!use) {
            return;
        }
        const wchar_t* profileName = nullptr;
        const wchar_t* driverName = nullptr;
        if (std::binary_search(profiles.begin(), profiles.end(), use->posProfile)) {
            if (auto profile = reader.RecordAt<ProfileRecord>(use->posProfile)) {
                profileName = TextOf(reader, profile->refName.pos);
                driverName = DriverNameAt(reader, profile->posDriver);
            }
        }
        std::wstring next = L"---";
        if (use->posNext != kNoRecord) {
            if (BlobReader::IsRecordOf(*table, use->posNext, kUseUnits)) {
                std::array<wchar_t, 32> text{};
                std::swprintf(text.data(), text.size(), L"%3d\n",
                              static_cast<int>(use->posNext - table->start));
                next = text.data();
            } else {
                next = L"(null)";
            }
        }
        LogFormat(L"...Use#[%3d] Profile=[%ls] Driver=[%ls] Next=[%ls]\n", ordinal,
                  Shown(profileName), Shown(driverName), next.c_str());
    }
}

void PrintApplicationTable() {
    ProgressLog(L"Application Table:\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kApplication, kApplicationUnits);
    if (!table) {
        return;
    }
    ChainChecker chains(reader, BlobTable::kUse, kUseUnits, offsetof(UseRecord, posNext));
    int ordinal = 0;
    for (std::uint64_t position = table->start; position < table->end();
         position += kApplicationUnits, ++ordinal) {
        auto application = reader.RecordAt<ApplicationRecord>(static_cast<std::uint32_t>(position));
        if (!application) {
            return;
        }
        std::array<wchar_t, 32> firstUse{};
        if (application->posFirstUse == kNoRecord) {
            std::wcscpy(firstUse.data(), L"---");
        } else {
            std::swprintf(firstUse.data(), firstUse.size(), L"%3d",
                          static_cast<int>(application->posFirstUse));
        }
        LogFormat(
            L"...Application#[%3d] Title=[%ls] File=[%ls] Path=[%ls] Version=[%ls] "
            L"FirstUseIndex=[%ls]\n",
            ordinal, Shown(TextOf(reader, application->refTitle.pos)),
            Shown(TextOf(reader, application->refFile.pos)),
            Shown(TextOf(reader, application->refPath.pos)),
            Shown(TextOf(reader, application->refVersion.pos)), firstUse.data());
        ReportChain(chains.Check(application->posFirstUse), L"Application", ordinal, L"use");
    }
}

}  // namespace qk
