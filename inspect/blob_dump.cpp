#include "inspect/blob_dump.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "blob/blob_image.h"
#include "blob/blob_reader.h"
#include "model/customisation.h"
#include "model/type_names.h"
#include "support/progress_log.h"

namespace qk {

namespace {

const wchar_t* Shown(const wchar_t* text) {
    return text != nullptr ? text : L"(null)";
}

// A table fit to walk: inside the image and, for fixed-size records, a whole
// number of them. Otherwise an ERROR line and nothing. recordUnits 0 means
// records of varying size.
std::optional<TableBounds> WalkableTable(const BlobReader& reader, BlobTable table,
                                         std::uint32_t recordUnits) {
    const wchar_t* name = FieldsOf(table).name;
    TableBounds bounds{};
    switch (reader.Check(table, recordUnits, bounds)) {
        case TableProblem::kNone:
            return bounds;
        case TableProblem::kNoHeader:
            LogFormat(L"ERROR, %ls table: the blob image has no header\n", name);
            break;
        case TableProblem::kLeavesImage: {
            const BlobHeader header = *reader.Header();
            LogFormat(L"ERROR, %ls table start=%u units=%u leaves the image\n", name,
                      header.*FieldsOf(table).start, header.*FieldsOf(table).units);
            break;
        }
        case TableProblem::kNotWholeRecords:
            LogFormat(L"ERROR, %ls table units=%u is not a whole number of %u-unit records\n", name,
                      bounds.units, recordUnits);
            break;
    }
    return std::nullopt;
}

const wchar_t* DriverNameAt(const BlobReader& reader, std::uint32_t position) {
    auto driver = reader.RecordIn<DriverRecord>(BlobTable::kDriver, position);
    return driver ? reader.TextInWords(driver->refName.pos) : nullptr;
}

const wchar_t* PropertyNameAt(const BlobReader& reader, std::uint32_t position) {
    auto property = reader.RecordIn<PropertyRecord>(BlobTable::kProperty, position);
    return property ? reader.TextInWords(property->refName.pos) : nullptr;
}

const wchar_t* PrivacyText(std::uint32_t privacy) {
    const wchar_t* name = PrivacyName(static_cast<std::int32_t>(privacy));
    return name != nullptr ? name : L"Error in code";
}

const wchar_t* TypeText(std::uint32_t type) {
    if (type == kTypeUnknown) {
        return L"Unknown";
    }
    if (type == kTypeString) {
        return L"Stringed";  // as the dump has always spelled it
    }
    const wchar_t* name = TypeName(static_cast<std::int32_t>(type));
    return name != nullptr ? name : L"Error in code";
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
        const wchar_t* text = reader.TextInWords(static_cast<std::uint32_t>(position));
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
    reader.ForEach<DriverRecord>(*table, [&](const Located<DriverRecord>& driver) {
        LogFormat(L"...Driver=[%d] Name=[%ls] Privacy=[%ls]\n", driver.ordinal,
                  Shown(reader.TextInWords(driver.record.refName.pos)),
                  PrivacyText(driver.record.dwPrivacy));
    });
}

void PrintPropertyTable() {
    ProgressLog(L"Property Table: ---\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kProperty, kPropertyUnits);
    if (!table) {
        return;
    }
    reader.ForEach<PropertyRecord>(*table, [&](const Located<PropertyRecord>& property) {
        const PropertyRecord& record = property.record;
        std::wstring at = L"---";
        const wchar_t* next = L"---";
        if (record.posNext != kNoRecord) {
            next = PropertyNameAt(reader, record.posNext);
            if (BlobReader::IsRecordOf(*table, record.posNext, kPropertyUnits)) {
                at = std::to_wstring((record.posNext - table->start) / kPropertyUnits);
            } else {
                at = L"(null)";
            }
        }
        LogFormat(L"...Property=[%d] Name=[%ls] DataType=[%ls] Tokens=[%ls] Next=[%ls] at=[%ls]\n",
                  property.ordinal, Shown(reader.TextInWords(record.refName.pos)),
                  TypeText(record.dwType), Shown(reader.TextInWords(record.refSet.pos)),
                  Shown(next), at.c_str());
    });
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
    ChainWalker chains(reader, BlobTable::kProperty, kPropertyUnits,
                       offsetof(PropertyRecord, posNext));
    reader.ForEach<AreaRecord>(*table, [&](const Located<AreaRecord>& area) {
        const AreaRecord& record = area.record;
        auto driver = reader.RecordIn<DriverRecord>(BlobTable::kDriver, record.posDriver);
        const wchar_t* first = record.posFirstProperty == kNoRecord
                                   ? nullptr
                                   : PropertyNameAt(reader, record.posFirstProperty);
        LogFormat(L"...Area=[%d] Driver=[%ls] First=[%ls] DriverIndex=[%d] DriverOffset=[%d]\n",
                  area.ordinal, Shown(driver ? reader.TextInWords(driver->refName.pos) : nullptr),
                  Shown(first), static_cast<int>(record.posDriver),
                  driver ? static_cast<int>(driver->refName.pos) : -1);
        ReportChain(chains.Walk(record.posFirstProperty), L"Area", area.ordinal, L"property");
    });
}

void PrintProfileTable() {
    ProgressLog(L"Profile Table: ---\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kProfile, 0);
    if (!table) {
        return;
    }
    const ProfilesEnd end = reader.ForEachProfile(*table, [&](const ProfileEntry& profile) {
        const ProfileRecord& record = profile.record;
        const wchar_t* driver = DriverNameAt(reader, record.posDriver);
        const wchar_t* name = reader.TextInWords(record.refName.pos);
        const wchar_t* notes = reader.TextInWords(record.refNotes.pos);
        if (profile.tooManyValues) {
            LogFormat(
                L"ERROR, Profile#[%d] Name=[%ls] claims %u values, more than %u; "
                L"printed without values\n",
                profile.ordinal, Shown(name), record.dwValueCount, kMaxProfileValues);
        }
        if (driver != nullptr && name != nullptr && notes != nullptr) {
            LogFormat(
                L"...Profile#[%d] Values=[%d] AggregatedSize(byte)=[%d] Driver=[%ls] "
                L"Name=[%ls] Notes=[%ls] 1stPairIdx=[%X]\n",
                profile.ordinal, static_cast<int>(record.dwValueCount),
                static_cast<int>(record.dwAggregatedSize), driver, name, notes, record.dwFirstPair);
        } else {
            ProgressLog(L"ERROR, Driver name, Profile name or notes has invalid pointer", 0);
        }
        const std::uint64_t bytes = PrintValues(profile);
        if (!profile.tooManyValues && record.dwValueCount != 0 &&
            bytes != record.dwAggregatedSize) {
            LogFormat(L"ERROR, Profile#[%d] values take %u bytes, AggregatedSize(byte)=[%u]\n",
                      profile.ordinal, static_cast<unsigned>(bytes), record.dwAggregatedSize);
        }
    });
    if (end.kind == ProfilesEnd::kHeaderDoesNotFit) {
        LogFormat(L"ERROR, Profile#[%d] at position %u does not fit in the Profile table\n",
                  end.ordinal, static_cast<unsigned>(end.position));
    } else if (end.kind == ProfilesEnd::kRunsPast) {
        LogFormat(
            L"ERROR, Profile#[%d] AggregatedSize(byte)=[%u] runs past the end of the "
            L"Profile table\n",
            end.ordinal, reader.RecordAt<ProfileRecord>(end.position)->dwAggregatedSize);
    }
}

std::uint64_t PrintValues(const ProfileEntry& profile) {
    for (const ValueEntry& value : profile.values) {
        PrintValueDatum(value.byte, value.head.dwDatumSize);
    }
    if (profile.valueOutside) {
        const auto [index, byte] = *profile.valueOutside;
        LogFormat(L"ERROR, value #%u at position %u leaves the Profile table\n", index,
                  static_cast<unsigned>((byte - kHeaderBytes) / kUnitBytes));
    }
    return profile.ValueBytes();
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
    // The positions of the Profile records, found by stepping through the table
    // as the dump does.
    std::vector<std::uint32_t> profiles;
    if (auto profileTable = reader.Table(BlobTable::kProfile)) {
        reader.ForEachProfile(*profileTable, [&profiles](const ProfileEntry& profile) {
            profiles.push_back(profile.position);
        });
    }
    reader.ForEach<UseRecord>(*table, [&](const Located<UseRecord>& use) {
        const UseRecord& record = use.record;
        const wchar_t* profileName = nullptr;
        const wchar_t* driverName = nullptr;
        if (std::binary_search(profiles.begin(), profiles.end(), record.posProfile)) {
            if (auto profile = reader.RecordAt<ProfileRecord>(record.posProfile)) {
                profileName = reader.TextInWords(profile->refName.pos);
                driverName = DriverNameAt(reader, profile->posDriver);
            }
        }
        std::wstring next = L"---";
        if (record.posNext != kNoRecord) {
            if (BlobReader::IsRecordOf(*table, record.posNext, kUseUnits)) {
                std::array<wchar_t, 32> text{};
                std::swprintf(text.data(), text.size(), L"%3d\n",
                              static_cast<int>(record.posNext - table->start));
                next = text.data();
            } else {
                next = L"(null)";
            }
        }
        LogFormat(L"...Use#[%3d] Profile=[%ls] Driver=[%ls] Next=[%ls]\n", use.ordinal,
                  Shown(profileName), Shown(driverName), next.c_str());
    });
}

void PrintApplicationTable() {
    ProgressLog(L"Application Table:\n", 0);
    const BlobReader reader = CurrentImage();
    auto table = WalkableTable(reader, BlobTable::kApplication, kApplicationUnits);
    if (!table) {
        return;
    }
    ChainWalker chains(reader, BlobTable::kUse, kUseUnits, offsetof(UseRecord, posNext));
    reader.ForEach<ApplicationRecord>(*table, [&](const Located<ApplicationRecord>& application) {
        const ApplicationRecord& record = application.record;
        std::array<wchar_t, 32> firstUse{};
        if (record.posFirstUse == kNoRecord) {
            std::wcscpy(firstUse.data(), L"---");
        } else {
            std::swprintf(firstUse.data(), firstUse.size(), L"%3d",
                          static_cast<int>(record.posFirstUse));
        }
        LogFormat(
            L"...Application#[%3d] Title=[%ls] File=[%ls] Path=[%ls] Version=[%ls] "
            L"FirstUseIndex=[%ls]\n",
            application.ordinal, Shown(reader.TextInWords(record.refTitle.pos)),
            Shown(reader.TextInWords(record.refFile.pos)),
            Shown(reader.TextInWords(record.refPath.pos)),
            Shown(reader.TextInWords(record.refVersion.pos)), firstUse.data());
        ReportChain(chains.Walk(record.posFirstUse), L"Application", application.ordinal, L"use");
    });
}

}  // namespace qk
