#pragma once

// An installed customisation database as the stand-in library holds it: a blob
// file decoded through the checked blob reader into plain values.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qk::sim {

struct InstalledProperty {
    int type = 0;
    std::wstring name;
    std::wstring set;
};

struct InstalledArea {
    std::uint32_t driverPosition = 0;
    std::wstring driver;
    int privacy = 0;
    std::vector<InstalledProperty> properties;  // in list order
};

struct InstalledValue {
    std::string property;  // the narrow name of the value record
    std::vector<std::uint8_t> datum;
};

struct InstalledProfile {
    std::uint32_t position = 0;
    std::uint32_t driverPosition = 0;
    std::wstring driver;
    std::wstring name;
    std::wstring notes;
    std::vector<InstalledValue> values;
};

struct InstalledApplication {
    std::wstring title, file, path, version;
    std::vector<std::uint32_t> useProfiles;  // profile positions, in list order
};

struct InstalledDatabase {
    std::wstring release;
    std::vector<InstalledArea> areas;
    std::vector<InstalledProfile> profiles;
    std::vector<InstalledApplication> applications;

    const InstalledProfile* ProfileAt(std::uint32_t position) const;
};

// Decodes blob bytes; nothing when they are not a well-formed blob.
std::optional<InstalledDatabase> DecodeInstalledDatabase(const std::vector<std::uint8_t>& bytes);

// Reads a blob file: a missing file is an empty database; nothing for a file that
// cannot be read or decoded.
std::optional<InstalledDatabase> LoadInstalledDatabase(const std::string& path);

}  // namespace qk::sim
