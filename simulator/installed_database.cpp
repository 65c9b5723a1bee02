#include "simulator/installed_database.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <map>

#include "blob/blob_reader.h"

namespace qk::sim {

const InstalledProfile* InstalledDatabase::ProfileAt(std::uint32_t position) const {
    for (const auto& profile : profiles) {
        if (profile.position == position) {
            return &profile;
        }
    }
    return nullptr;
}

namespace {

std::wstring Text(const BlobReader& reader, StringRef ref) {
    const wchar_t* text = reader.TextAt(ref);
    return text ? std::wstring(text) : std::wstring();
}

}  // namespace

std::optional<InstalledDatabase> DecodeInstalledDatabase(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() > kMaxImageBytes) {
        return std::nullopt;
    }
    // The reader wants aligned storage: copy into words.
    std::vector<std::uint32_t> storage((bytes.size() + 3) / 4);
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(storage.data()));
    const BlobReader reader({reinterpret_cast<const std::uint8_t*>(storage.data()), bytes.size()});
    const auto header = reader.Header();
    const auto drivers = reader.Table(BlobTable::kDriver);
    const auto areas = reader.Table(BlobTable::kArea);
    const auto profiles = reader.Table(BlobTable::kProfile);
    const auto applications = reader.Table(BlobTable::kApplication);
    if (!header || header->dwMagic != kBlobMagic || !drivers ||
        !reader.Table(BlobTable::kProperty) || !areas || !profiles ||
        !reader.Table(BlobTable::kUse) || !applications || !reader.Table(BlobTable::kWords)) {
        return std::nullopt;
    }
    InstalledDatabase database;
    database.release = Text(reader, header->refRelease);
    bool good = true;

    std::map<std::uint32_t, std::pair<std::wstring, int>> driverAt;
    reader.ForEach<DriverRecord>(*drivers, [&](const Located<DriverRecord>& driver) {
        driverAt[driver.position] = {Text(reader, driver.record.refName),
                                     static_cast<int>(driver.record.dwPrivacy)};
    });

    // A chain that leaves its table, loops or joins another is not a database.
    ChainWalker propertyChains(reader, BlobTable::kProperty, kPropertyUnits,
                               offsetof(PropertyRecord, posNext));
    reader.ForEach<AreaRecord>(*areas, [&](const Located<AreaRecord>& located) {
        const auto driver = driverAt.find(located.record.posDriver);
        std::vector<std::uint32_t> chain;
        bool joined = false;
        const ChainEnd end = propertyChains.Walk(
            located.record.posFirstProperty,
            [&](std::uint32_t position) { chain.push_back(position); }, &joined);
        if (driver == driverAt.end() || end != ChainEnd::kComplete || joined) {
            good = false;
            return;
        }
        InstalledArea area;
        area.driverPosition = located.record.posDriver;
        area.driver = driver->second.first;
        area.privacy = driver->second.second;
        // The chain runs from the last property back to the first.
        for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
            const auto property = reader.RecordAt<PropertyRecord>(*at);
            area.properties.push_back({static_cast<int>(property->dwType),
                                       Text(reader, property->refName),
                                       Text(reader, property->refSet)});
        }
        database.areas.push_back(std::move(area));
    });

    reader.ForEachProfile(*profiles, [&](const ProfileEntry& entry) {
        if (entry.tooManyValues || entry.valueOutside) {
            good = false;
            return;
        }
        InstalledProfile profile;
        profile.position = entry.position;
        profile.driverPosition = entry.record.posDriver;
        const auto driver = driverAt.find(entry.record.posDriver);
        if (driver != driverAt.end()) {
            profile.driver = driver->second.first;
        }
        profile.name = Text(reader, entry.record.refName);
        profile.notes = Text(reader, entry.record.refNotes);
        for (const ValueEntry& value : entry.values) {
            profile.values.push_back(
                {std::string(value.head.szPropertyName,
                             strnlen(value.head.szPropertyName, kPropertyNameBytes)),
                 std::vector<std::uint8_t>(value.datum.begin(), value.datum.end())});
        }
        database.profiles.push_back(std::move(profile));
    });

    ChainWalker useChains(reader, BlobTable::kUse, kUseUnits, offsetof(UseRecord, posNext));
    reader.ForEach<ApplicationRecord>(
        *applications, [&](const Located<ApplicationRecord>& located) {
            const ApplicationRecord& record = located.record;
            InstalledApplication application{Text(reader, record.refTitle),
                                             Text(reader, record.refFile),
                                             Text(reader, record.refPath),
                                             Text(reader, record.refVersion),
                                             {}};
            std::vector<std::uint32_t> chain;
            bool joined = false;
            const ChainEnd end = useChains.Walk(
                record.posFirstUse, [&](std::uint32_t position) { chain.push_back(position); },
                &joined);
            if (end != ChainEnd::kComplete || joined) {
                good = false;
                return;
            }
            for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
                application.useProfiles.push_back(reader.RecordAt<UseRecord>(*at)->posProfile);
            }
            database.applications.push_back(std::move(application));
        });
    if (!good) {
        return std::nullopt;
    }
    return database;
}

std::optional<InstalledDatabase> LoadInstalledDatabase(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return InstalledDatabase{};
    }
    std::vector<std::uint8_t> bytes;
    char chunk[65536];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
        bytes.insert(bytes.end(), chunk, chunk + in.gcount());
        if (bytes.size() > kMaxImageBytes) {
            return std::nullopt;
        }
    }
    return DecodeInstalledDatabase(bytes);
}

}  // namespace qk::sim
