#pragma once

// Builds a blob image unit by unit, so a test controls every byte of it.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "blob/blob_format.h"

namespace qk::test {

struct ImageWriter {
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(kHeaderBytes, 0);
    BlobHeader header{};

    ImageWriter() {
        header.dwMagic = kBlobMagic;
        header.dwFormat = 1;
    }

    std::uint32_t Units() const {
        return static_cast<std::uint32_t>((bytes.size() - kHeaderBytes) / kUnitBytes);
    }
    std::uint32_t Put(const void* data, std::size_t size) {
        const std::uint32_t position = Units();
        bytes.insert(bytes.end(), static_cast<const std::uint8_t*>(data),
                     static_cast<const std::uint8_t*>(data) + size);
        bytes.resize(bytes.size() + (kUnitBytes - size % kUnitBytes) % kUnitBytes, 0);
        return position;
    }
    template <typename Record>
    std::uint32_t Put(const Record& record) {
        return Put(&record, sizeof record);
    }
    StringRef Text(const std::wstring& text) {
        const auto size = static_cast<std::uint32_t>((text.size() + 1) * sizeof(wchar_t));
        return {Put(text.c_str(), size), size};
    }
    void Value(const char* name, const void* datum, std::uint32_t size) {
        std::vector<std::uint8_t> record(sizeof(ValueRecordHead) + size, 0);
        std::memcpy(record.data(), name, std::strlen(name));
        std::memcpy(record.data() + kPropertyNameBytes, &size, sizeof size);
        if (size != 0) {
            std::memcpy(record.data() + sizeof(ValueRecordHead), datum, size);
        }
        Put(record.data(), record.size());
    }
    // [from, here) becomes a table.
    void Table(std::uint32_t& start, std::uint32_t& units, std::uint32_t from) {
        start = from;
        units = Units() - from;
    }
    // Every table after the Words table that has no units yet starts here.
    void EmptyTablesHere() {
        std::uint32_t* const tables[][2] = {
            {&header.posDriverStart, &header.nDriverUnits},
            {&header.posPropertyStart, &header.nPropertyUnits},
            {&header.posAreaStart, &header.nAreaUnits},
            {&header.posProfileStart, &header.nProfileUnits},
            {&header.posUseStart, &header.nUseUnits},
            {&header.posApplicationStart, &header.nApplicationUnits},
        };
        for (const auto& [start, units] : tables) {
            if (*units == 0) {
                *start = Units();
            }
        }
    }
    std::vector<std::uint8_t> Bytes() const {
        std::vector<std::uint8_t> all = bytes;
        std::memcpy(all.data(), &header, sizeof header);
        return all;
    }
    // The same as the content of a file.
    std::string File() const {
        const std::vector<std::uint8_t> all = Bytes();
        return {all.begin(), all.end()};
    }
};

}  // namespace qk::test
