#include "bridge/blob_database.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <map>
#include <utility>

#include "blob/blob_check.h"
#include "blob/blob_reader.h"
#include "model/customisation.h"
#include "support/out_of_memory.h"
#include "support/regular_file_read.h"

namespace qk {

namespace {

std::wstring Text(const BlobReader& reader, StringRef ref) {
    const wchar_t* text = reader.TextAt(ref);
    return text ? std::wstring(text) : std::wstring();
}

constexpr const char* kTooLarge = "is larger than the 1048575 bytes a blob may have";

// The caller's memory callback gave nothing; the fill fails with an error code.
struct OutOfMemory {};

// The blocks of a filled tree, all from the caller's memory callback.
class TreeMemory {
  public:
    explicit TreeMemory(ZelMemoryAlloc allocate) : allocate_(allocate) {}

    void* Block(std::size_t bytes) const {
        if (bytes > 0xFFFFFFFFu) {
            throw OutOfMemory{};
        }
        void* block = allocate_(static_cast<unsigned>(bytes));
        if (block == nullptr) {
            ReleaseMemorySetAside();  // throwing takes memory too
            throw OutOfMemory{};
        }
        std::memset(block, 0, bytes);
        return block;
    }
    template <typename T>
    T* New() const {
        return static_cast<T*>(Block(sizeof(T)));
    }
    wchar_t* Text(const std::wstring& text) const {
        auto* copy = static_cast<wchar_t*>(Block((text.size() + 1) * sizeof(wchar_t)));
        std::wmemcpy(copy, text.c_str(), text.size() + 1);
        return copy;
    }

  private:
    ZelMemoryAlloc allocate_;
};

template <typename T>
void Append(T*& head, T*& tail, T* item) {
    (tail ? tail->lpNext : head) = item;
    tail = item;
}

// The records of a chain from its first to its last, or nothing when the chain
// leaves its table, loops or joins another. A chain is stored from its last
// record back to its first.
std::optional<std::vector<std::uint32_t>> ChainInListOrder(ChainWalker& walker,
                                                           std::uint32_t first) {
    std::vector<std::uint32_t> chain;
    bool joined = false;
    const ChainEnd end = walker.Walk(
        first, [&](std::uint32_t position) { chain.push_back(position); }, &joined);
    if (end != ChainEnd::kComplete || joined) {
        return std::nullopt;
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

const BlobArea* FindArea(const BlobDatabase& database, const wchar_t* name) {
    for (const BlobArea& area : database.areas) {
        if (area.driver == name) {
            return &area;
        }
    }
    return nullptr;
}

void Fill(const BlobDatabase& database, Customisations* root, const TreeMemory& memory) {
    root->strFormat = memory.Text(L"1");
    root->strRelease = memory.Text(database.release);
    Area* lastArea = nullptr;
    for (const BlobArea& installed : database.areas) {
        auto* area = memory.New<Area>();
        area->lpDriver = memory.New<Driver>();
        area->lpDriver->strName = memory.Text(installed.driver);
        area->lpDriver->iPrivacy = installed.privacy;
        Property* lastProperty = nullptr;
        for (const BlobProperty& property : installed.properties) {
            auto* record = memory.New<Property>();
            record->iType = property.type;
            record->strName = memory.Text(property.name);
            record->strSet = memory.Text(property.set);
            Append(area->lpProperties, lastProperty, record);
        }
        Append(root->lpAreas, lastArea, area);
    }
    const auto areaOf = [&](std::uint32_t driverPosition) -> Area* {
        Area* area = root->lpAreas;
        for (const BlobArea& installed : database.areas) {
            if (installed.driverPosition == driverPosition) {
                return area;
            }
            area = area->lpNext;
        }
        return nullptr;
    };
    Profile* lastProfile = nullptr;
    for (const BlobProfile& installed : database.profiles) {
        auto* profile = memory.New<Profile>();
        Area* area = areaOf(installed.driverPosition);
        if (area != nullptr) {
            profile->lpDriver = area->lpDriver;
        } else if (!installed.driver.empty()) {
            profile->lpDriver = memory.New<Driver>();
            profile->lpDriver->strName = memory.Text(installed.driver);
        }
        profile->strUsage = memory.Text(installed.name);
        profile->strNotes = memory.Text(installed.notes);
        Value* lastValue = nullptr;
        for (const BlobValue& installedValue : installed.values) {
            auto* value = memory.New<Value>();
            // Room for a terminator after text data, which carries none of its own.
            value->lpData = memory.Block(installedValue.datum.size() + sizeof(wchar_t));
            if (!installedValue.datum.empty()) {
                std::memcpy(value->lpData, installedValue.datum.data(),
                            installedValue.datum.size());
            }
            value->iDataLength = static_cast<std::uint32_t>(installedValue.datum.size());
            for (Property* property = area ? area->lpProperties : nullptr; property != nullptr;
                 property = property->lpNext) {
                if (NarrowPropertyName(property->strName) == installedValue.property) {
                    value->lpProperty = property;
                    break;
                }
            }
            Append(profile->lpValues, lastValue, value);
        }
        Append(root->lpProfiles, lastProfile, profile);
        profile->iBlobPos = installed.position;
    }
    Application* lastApplication = nullptr;
    for (const BlobApplication& installed : database.applications) {
        auto* application = memory.New<Application>();
        application->strTitle = memory.Text(installed.title);
        application->strFile = memory.Text(installed.file);
        application->strPath = memory.Text(installed.path);
        application->strVersion = memory.Text(installed.version);
        Use* lastUse = nullptr;
        for (std::uint32_t position : installed.useProfiles) {
            auto* use = memory.New<Use>();
            for (Profile* profile = root->lpProfiles; profile != nullptr;
                 profile = profile->lpNext) {
                if (profile->iBlobPos == position) {
                    use->strProfile = memory.Text(profile->strUsage);
                    use->lpDriver = profile->lpDriver;
                    break;
                }
            }
            Append(application->lpUses, lastUse, use);
        }
        Append(root->lpApplications, lastApplication, application);
    }
}

}  // namespace

int BlobDatabase::ProfileExist(const wchar_t* area, const wchar_t* profile,
                               unsigned char* exists) const {
    *exists = 0;
    for (const BlobProfile& candidate : profiles) {
        if (candidate.driver == area && candidate.name == profile) {
            *exists = 1;
        }
    }
    return 0;
}

int BlobDatabase::AreaPrivacy(const wchar_t* area, int* privacy) const {
    const BlobArea* found = FindArea(*this, area);
    if (found == nullptr) {
        return kAreaNotInstalled;
    }
    *privacy = found->privacy;
    return 0;
}

int BlobDatabase::PropertyType(const wchar_t* area, const wchar_t* property, int* type) const {
    for (const BlobArea& candidate : areas) {
        if (candidate.driver != area) {
            continue;
        }
        for (const BlobProperty& known : candidate.properties) {
            if (known.name == property) {
                *type = known.type;
                return 0;
            }
        }
    }
    return -3;  // no such driver/property pair
}

int BlobDatabase::FillCustomisation(Customisations* root, ZelMemoryAlloc allocate) const {
    try {
        Fill(*this, root, TreeMemory(allocate));
    } catch (const OutOfMemory&) {
        return kFetchOutOfMemory;  // the blocks taken so far stay with the caller's allocator
    }
    return 0;
}

std::optional<BlobDatabase> DecodeBlobDatabase(std::span<const std::uint8_t> bytes,
                                               std::string* problem) {
    std::string ignored;
    std::string& why = problem != nullptr ? *problem : ignored;
    if (bytes.size() > kMaxImageBytes) {
        why = kTooLarge;
        return std::nullopt;
    }
    // The reader wants aligned storage: copy into words.
    std::vector<std::uint32_t> storage((bytes.size() + 3) / 4);
    if (!bytes.empty()) {
        std::memcpy(storage.data(), bytes.data(), bytes.size());
    }
    const BlobReader reader({reinterpret_cast<const std::uint8_t*>(storage.data()), bytes.size()});
    // Nothing is decoded from a blob that does not check out as a whole: a
    // part of it, or names read as empty, would answer as if they were the set.
    if (const char* found = BlobImageProblem(reader)) {
        why = found;
        return std::nullopt;
    }
    const auto header = reader.Header();
    const auto drivers = reader.Table(BlobTable::kDriver);
    const auto areas = reader.Table(BlobTable::kArea);
    const auto profiles = reader.Table(BlobTable::kProfile);
    const auto applications = reader.Table(BlobTable::kApplication);
    if (!header || !drivers || !areas || !profiles || !applications) {
        why = "has a table that reaches past its end (is it cut short?)";
        return std::nullopt;
    }
    BlobDatabase database;
    database.release = Text(reader, header->refRelease);
    // The first thing found wrong; the walks go on but the result is refused.
    why.clear();
    const auto refuse = [&why](const char* found) {
        if (why.empty()) {
            why = found;
        }
    };

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
        const auto chain = ChainInListOrder(propertyChains, located.record.posFirstProperty);
        if (driver == driverAt.end()) {
            refuse("has an area whose driver is not a record of its Driver table");
            return;
        }
        if (!chain) {
            refuse("has a chain of properties that leaves its table, loops or joins another");
            return;
        }
        BlobArea area;
        area.driverPosition = located.record.posDriver;
        area.driver = driver->second.first;
        area.privacy = driver->second.second;
        for (std::uint32_t position : *chain) {
            const auto property = reader.RecordAt<PropertyRecord>(position);
            area.properties.push_back({static_cast<int>(property->dwType),
                                       Text(reader, property->refName),
                                       Text(reader, property->refSet)});
        }
        database.areas.push_back(std::move(area));
    });

    reader.ForEachProfile(*profiles, [&](const ProfileEntry& entry) {
        if (entry.tooManyValues) {
            refuse("has a profile that claims more than 1024 values");
            return;
        }
        if (entry.valueOutside) {
            refuse("has a value record that reaches past the Profile table");
            return;
        }
        BlobProfile profile;
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
            BlobApplication application{Text(reader, record.refTitle),
                                        Text(reader, record.refFile),
                                        Text(reader, record.refPath),
                                        Text(reader, record.refVersion),
                                        {}};
            const auto chain = ChainInListOrder(useChains, record.posFirstUse);
            if (!chain) {
                refuse("has a chain of uses that leaves its table, loops or joins another");
                return;
            }
            for (std::uint32_t position : *chain) {
                application.useProfiles.push_back(reader.RecordAt<UseRecord>(position)->posProfile);
            }
            database.applications.push_back(std::move(application));
        });
    if (!why.empty()) {
        return std::nullopt;
    }
    return database;
}

std::optional<BlobDatabase> LoadBlobDatabase(const std::string& path, std::string* problem,
                                             bool missingIsEmpty,
                                             std::vector<std::uint8_t>* bytes) {
    std::string ignored;
    std::string& why = problem != nullptr ? *problem : ignored;
    RegularFileRead file = ReadRegularFile(path.c_str(), kMaxImageBytes);
    switch (file.problem) {
        case FileReadProblem::kNone: {
            auto database = DecodeBlobDatabase(file.bytes, &why);
            if (bytes != nullptr) {
                *bytes = std::move(file.bytes);
            }
            return database;
        }
        case FileReadProblem::kCannotOpen:
            if (file.cause == ENOENT && missingIsEmpty) {
                return BlobDatabase{};
            }
            why = std::string("cannot be read: ") + std::strerror(file.cause);
            break;
        case FileReadProblem::kNotRegular:
            why = "is not a regular file";
            break;
        case FileReadProblem::kTooLarge:
            why = kTooLarge;
            break;
        case FileReadProblem::kReadFailed:
            why = std::string("cannot be read: ") + std::strerror(file.cause);
            break;
    }
    return std::nullopt;
}

}  // namespace qk
