#pragma once

// Byte layout of a blob image: constants and record layouts only, no I/O.
// Every integer is a little-endian 32-bit word; positions count 8-byte units
// from the end of the 92-byte header.

#include <bit>
#include <cstddef>
#include <cstdint>

#include "model/string_ref.h"

namespace qk {

static_assert(std::endian::native == std::endian::little,
              "blob records are laid out little-endian");
static_assert(sizeof(wchar_t) == 4, "wide text is 4-byte code units");

constexpr std::uint32_t kBlobMagic = 0x454A5742;  // "BWJE" on disk
constexpr std::size_t kHeaderBytes = 92;
constexpr std::size_t kUnitBytes = 8;
constexpr std::size_t kMaxImageBytes = 0xFFFFF;  // the whole image, header included
constexpr std::uint32_t kNoRecord = 0xFFFFFFFF;  // end of a chain
constexpr std::uint32_t kMaxTextPosition = 0x3FFFF;
constexpr std::uint32_t kMaxProfileValues = 1024;
constexpr std::uint32_t kMaxBinaryBytes = 4096;
constexpr std::size_t kPropertyNameBytes = 16;  // narrow name, at most 15 characters

struct BlobHeader {
    std::uint32_t dwMagic;
    std::uint32_t dwFormat;
    std::uint32_t dwReserved[5];
    StringRef refRelease;
    std::uint32_t posWordsStart;
    std::uint32_t nWordsUnits;
    std::uint32_t posDriverStart;
    std::uint32_t nDriverUnits;
    std::uint32_t posPropertyStart;
    std::uint32_t nPropertyUnits;
    std::uint32_t posAreaStart;
    std::uint32_t nAreaUnits;
    std::uint32_t posProfileStart;
    std::uint32_t nProfileUnits;
    std::uint32_t posUseStart;
    std::uint32_t nUseUnits;
    std::uint32_t posApplicationStart;
    std::uint32_t nApplicationUnits;
};
static_assert(sizeof(BlobHeader) == kHeaderBytes);

struct DriverRecord {
    StringRef refName;
    std::uint32_t dwPrivacy;
    std::uint32_t dwReserved;
};
struct PropertyRecord {
    std::uint32_t dwType;
    StringRef refName;
    StringRef refSet;
    std::uint32_t posNext;
};
struct AreaRecord {
    std::uint32_t posDriver;
    std::uint32_t posFirstProperty;
};
struct ProfileRecord {
    std::uint32_t posDriver;
    StringRef refName;
    StringRef refNotes;
    std::uint32_t dwFirstPair;
    std::uint32_t dwAggregatedSize;
    std::uint32_t dwValueCount;
};
// The head of a value record; the datum follows it.
struct ValueRecordHead {
    char szPropertyName[kPropertyNameBytes];
    std::uint32_t dwDatumSize;
};
struct UseRecord {
    std::uint32_t posProfile;
    std::uint32_t posNext;
};
struct ApplicationRecord {
    StringRef refTitle;
    StringRef refFile;
    StringRef refPath;
    StringRef refVersion;
    std::uint32_t posFirstUse;
    std::uint32_t dwReserved;
};

static_assert(sizeof(DriverRecord) == 16 && sizeof(PropertyRecord) == 24 &&
              sizeof(AreaRecord) == 8 && sizeof(ProfileRecord) == 32 &&
              sizeof(ValueRecordHead) == 20 && sizeof(UseRecord) == 8 &&
              sizeof(ApplicationRecord) == 40);

// The seven tables, in the order they follow each other in the image.
enum class BlobTable { kWords, kDriver, kProperty, kArea, kProfile, kUse, kApplication };

// Where the header keeps each table's start and size, and the table's name.
struct TableFields {
    std::uint32_t BlobHeader::*start;
    std::uint32_t BlobHeader::*units;
    const wchar_t* name;
};
constexpr TableFields kTableFields[] = {
    {&BlobHeader::posWordsStart, &BlobHeader::nWordsUnits, L"Words"},
    {&BlobHeader::posDriverStart, &BlobHeader::nDriverUnits, L"Driver"},
    {&BlobHeader::posPropertyStart, &BlobHeader::nPropertyUnits, L"Property"},
    {&BlobHeader::posAreaStart, &BlobHeader::nAreaUnits, L"Area"},
    {&BlobHeader::posProfileStart, &BlobHeader::nProfileUnits, L"Profile"},
    {&BlobHeader::posUseStart, &BlobHeader::nUseUnits, L"Use"},
    {&BlobHeader::posApplicationStart, &BlobHeader::nApplicationUnits, L"Application"},
};
constexpr const TableFields& FieldsOf(BlobTable table) {
    return kTableFields[static_cast<int>(table)];
}

constexpr std::uint32_t kDriverUnits = 2;
constexpr std::uint32_t kPropertyUnits = 3;
constexpr std::uint32_t kAreaUnits = 1;
constexpr std::uint32_t kProfileUnits = 4;
constexpr std::uint32_t kUseUnits = 1;
constexpr std::uint32_t kApplicationUnits = 5;

// Units taken by a text of n characters with its terminator.
constexpr std::uint64_t TextUnits(std::uint64_t characters) {
    return characters / 2 + 1;
}
// Units taken by a value record whose datum has this many bytes.
constexpr std::uint64_t ValueRecordUnits(std::uint64_t datumBytes) {
    return (datumBytes + 19) / 8 + 1;
}
// Byte offset in the image of a position.
constexpr std::uint64_t PositionToByte(std::uint64_t position) {
    return kHeaderBytes + kUnitBytes * position;
}

}  // namespace qk
