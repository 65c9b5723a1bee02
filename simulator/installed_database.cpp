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
    const auto properties = reader.Table(BlobTable::kProperty);
    const auto areas = reader.Table(BlobTable::kArea);
    const auto profiles = reader.Table(BlobTable::kProfile);
    const auto uses = reader.Table(BlobTable::kUse);
    const auto applications = reader.Table(BlobTable::kApplication);
    if (!header || header->dwMagic != kBlobMagic || !drivers || !properties || !areas ||
        !profiles || !uses || !applications || !reader.Table(BlobTable::kWords)) {
        return std::nullopt;
    }
    InstalledDatabase database;
    database.release = Text(reader, header->refRelease);

    std::map<std::uint32_t, std::pair<std::wstring, int>> driverAt;
    for (std::uint64_t p = drivers->start; p + kDriverUnits <= drivers->end(); p += kDriverUnits) {
        const auto record = reader.RecordAt<DriverRecord>(static_cast<std::uint32_t>(p));
        driverAt[static_cast<std::uint32_t>(p)] = {Text(reader, record->refName),
                                                   static_cast<int>(record->dwPrivacy)};
    }

    for (std::uint64_t p = areas->start; p + kAreaUnits <= areas->end(); p += kAreaUnits) {
        const auto record = reader.RecordAt<AreaRecord>(static_cast<std::uint32_t>(p));
        const auto driver = driverAt.find(record->posDriver);
        if (driver == driverAt.end()) {
            return std::nullopt;
        }
        InstalledArea area;
        area.driverPosition = record->posDriver;
        area.driver = driver->second.first;
        area.privacy = driver->second.second;
        std::vector<std::uint32_t> chain;
        const ChainEnd end =
            reader.WalkChain(record->posFirstProperty, *properties, kPropertyUnits,
                             offsetof(PropertyRecord, posNext),
                             [&](std::uint32_t position) { chain.push_back(position); });
        if (end != ChainEnd::kComplete) {
            return std::nullopt;
        }
        // The chain runs from the last property back to the first.
        for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
            const auto property = reader.RecordAt<PropertyRecord>(*at);
            area.properties.push_back({static_cast<int>(property->dwType),
                                       Text(reader, property->refName),
                                       Text(reader, property->refSet)});
        }
        database.areas.push_back(std::move(area));
    }

    std::uint64_t p = profiles->start;
    while (p + kProfileUnits <= profiles->end()) {
        const auto record = reader.RecordAt<ProfileRecord>(static_cast<std::uint32_t>(p));
        if (record->dwValueCount > kMaxProfileValues) {
            return std::nullopt;
        }
        InstalledProfile profile;
        profile.position = static_cast<std::uint32_t>(p);
        profile.driverPosition = record->posDriver;
        const auto driver = driverAt.find(record->posDriver);
        if (driver != driverAt.end()) {
            profile.driver = driver->second.first;
        }
        profile.name = Text(reader, record->refName);
        profile.notes = Text(reader, record->refNotes);
        std::uint64_t q = p + kProfileUnits;
        for (std::uint32_t i = 0; i < record->dwValueCount; ++i) {
            const auto head = reader.RecordAt<ValueRecordHead>(static_cast<std::uint32_t>(q));
            if (!head || q >= profiles->end()) {
                return std::nullopt;
            }
            const std::uint64_t units = ValueRecordUnits(head->dwDatumSize);
            if (q + units > profiles->end()) {
                return std::nullopt;
            }
            InstalledValue value;
            value.property.assign(head->szPropertyName,
                                  strnlen(head->szPropertyName, kPropertyNameBytes));
            const std::uint8_t* datum = reader.data() + PositionToByte(q) + sizeof(ValueRecordHead);
            value.datum.assign(datum, datum + head->dwDatumSize);
            profile.values.push_back(std::move(value));
            q += units;
        }
        database.profiles.push_back(std::move(profile));
        p += kProfileUnits + record->dwAggregatedSize / kUnitBytes;
    }

    for (std::uint64_t a = applications->start; a + kApplicationUnits <= applications->end();
         a += kApplicationUnits) {
        const auto record = reader.RecordAt<ApplicationRecord>(static_cast<std::uint32_t>(a));
        InstalledApplication application{Text(reader, record->refTitle),
                                         Text(reader, record->refFile),
                                         Text(reader, record->refPath),
                                         Text(reader, record->refVersion),
                                         {}};
        std::vector<std::uint32_t> chain;
        const ChainEnd end =
            reader.WalkChain(record->posFirstUse, *uses, kUseUnits, offsetof(UseRecord, posNext),
                             [&](std::uint32_t position) { chain.push_back(position); });
        if (end != ChainEnd::kComplete) {
            return std::nullopt;
        }
        for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
            application.useProfiles.push_back(reader.RecordAt<UseRecord>(*at)->posProfile);
        }
        database.applications.push_back(std::move(application));
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
