#pragma once

// A customisation database read from a blob file, answering the questions that
// the display-control library answers about its installed databases: the tool
// uses it where no driver is installed (--from, --against), and the stand-in
// library is a thin shell around it.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bridge/display_control_abi.h"

namespace qk {

struct BlobProperty {
    int type = 0;
    std::wstring name;
    std::wstring set;
    bool operator==(const BlobProperty&) const = default;
};

struct BlobArea {
    std::uint32_t driverPosition = 0;
    std::wstring driver;
    int privacy = 0;
    std::vector<BlobProperty> properties;  // in list order
    bool operator==(const BlobArea&) const = default;
};

struct BlobValue {
    std::string property;  // the narrow name of the value record
    std::vector<std::uint8_t> datum;
    bool operator==(const BlobValue&) const = default;
};

struct BlobProfile {
    std::uint32_t position = 0;
    std::uint32_t driverPosition = 0;
    std::wstring driver;
    std::wstring name;
    std::wstring notes;
    std::vector<BlobValue> values;
    bool operator==(const BlobProfile&) const = default;
};

struct BlobApplication {
    std::wstring title, file, path, version;
    std::vector<std::uint32_t> useProfiles;  // profile positions, in list order
    bool operator==(const BlobApplication&) const = default;
};

struct BlobDatabase {
    std::wstring release;
    std::vector<BlobArea> areas;
    std::vector<BlobProfile> profiles;
    std::vector<BlobApplication> applications;
    // Whole content, as every reader of the blob sees it.
    bool operator==(const BlobDatabase&) const = default;

    // The library's queries, with its result codes: 0 when answered; the
    // privacy of an area that is not there is kAreaNotInstalled, the type of
    // a property that is not there -3.
    int ProfileExist(const wchar_t* area, const wchar_t* profile, unsigned char* exists) const;
    int AreaPrivacy(const wchar_t* area, int* privacy) const;
    int PropertyType(const wchar_t* area, const wchar_t* property, int* type) const;

    // Fills root with the whole database as the library does, every block from
    // allocate (zero-filled here); 0, or -4 when allocate gave nothing.
    int FillCustomisation(Customisations* root, ZelMemoryAlloc allocate) const;
};

// Decodes blob bytes; nothing, and in *problem what is wrong, when they are not
// a well-formed blob.
std::optional<BlobDatabase> DecodeBlobDatabase(std::span<const std::uint8_t> bytes,
                                               std::string* problem = nullptr);

// Reads and decodes a blob file; nothing, and in *problem what is wrong, when it
// cannot be read or is not a blob. A missing file is an empty database when
// missingIsEmpty is set (the library's view of a database never installed).
// The file is opened once, and only a regular file is read; its bytes go to
// *bytes when asked for.
std::optional<BlobDatabase> LoadBlobDatabase(const std::string& path,
                                             std::string* problem = nullptr,
                                             bool missingIsEmpty = false,
                                             std::vector<std::uint8_t>* bytes = nullptr);

}  // namespace qk
