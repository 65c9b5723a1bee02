#pragma once

// Test-side decoder: turns a blob image into plain structs with every text
// resolved, so a test can compare a written blob table by table with the tree
// or XML it came from. Every read goes through BlobReader; whatever does not
// check out is described in `errors` instead of being guessed at.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "blob/blob_format.h"

namespace qk::unit {

struct DecodedWord {
    std::uint32_t position;
    std::wstring text;
};

struct DecodedDriver {
    std::uint32_t position;
    std::wstring name;
    std::uint32_t privacy;
};

struct DecodedProperty {
    std::uint32_t position;
    std::uint32_t type;
    std::wstring name;
    std::wstring set;
    std::uint32_t posNext;
};

struct DecodedArea {
    std::uint32_t position;
    std::uint32_t posDriver;
    std::wstring driverName;
    // The chain from posFirstProperty: the reverse of the XML order.
    std::vector<DecodedProperty> chain;
};

struct DecodedValue {
    std::string propertyName;
    std::vector<std::uint8_t> datum;
    std::uint32_t units;
    // The 16 name bytes as stored (to check the zero fill).
    std::vector<std::uint8_t> nameField;
    // The record's bytes after the datum up to its end (padding, should be zero).
    std::vector<std::uint8_t> padding;

    std::uint32_t Word(std::size_t index) const;  // 32-bit word of the datum
    std::uint64_t Qword() const;
    std::wstring Text() const;  // UTF-32LE datum as text
};

struct DecodedProfile {
    std::uint32_t position;
    std::uint32_t posDriver;
    std::wstring driverName;
    std::wstring name;
    std::wstring notes;
    std::uint32_t firstPair;
    std::uint32_t aggregatedSize;
    std::vector<DecodedValue> values;
};

struct DecodedUse {
    std::uint32_t position;
    std::uint32_t posProfile;  // 0 or 1 when no profile was found
    std::uint32_t posNext;
    // Filled when posProfile names a Profile record.
    std::wstring profileName;
    std::wstring profileDriver;
};

struct DecodedApplication {
    std::uint32_t position;
    std::wstring title;
    std::wstring file;
    std::wstring path;
    std::wstring version;
    // The chain from posFirstUse: the reverse of the XML order.
    std::vector<DecodedUse> chain;
};

struct DecodedBlob {
    BlobHeader header{};
    std::uint64_t endByte = 0;  // 92 + 8 * (application start + size)
    std::wstring release;
    std::vector<DecodedWord> words;  // the Words table in order, position 0 included
    std::vector<DecodedDriver> drivers;
    std::vector<DecodedProperty> properties;  // table order
    std::vector<DecodedArea> areas;
    std::vector<DecodedProfile> profiles;
    std::vector<DecodedUse> uses;  // table order
    std::vector<DecodedApplication> applications;
    std::vector<std::string> errors;

    bool ok() const { return errors.empty(); }
    const DecodedDriver* FindDriver(const std::wstring& name) const;
    const DecodedProfile* FindProfile(const std::wstring& name, const std::wstring& driver) const;
    const DecodedApplication* FindApplication(const std::wstring& title) const;
};

// Decodes an image (a whole 0xFFFFF buffer or exactly a file's bytes). The
// bytes must be 4-byte aligned.
DecodedBlob DecodeBlob(std::span<const std::uint8_t> image);

// Reads a whole file into an aligned buffer; empty when it cannot be read.
std::vector<std::uint32_t> ReadBlobFileForTests(const std::string& path, std::size_t* bytes);

// Decodes a blob file.
DecodedBlob DecodeBlobFile(const std::string& path);

// A wide text as UTF-8, for readable assertion messages.
std::string Narrow(const std::wstring& text);

}  // namespace qk::unit
