#include "tests/support/blob_decoder.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>

#include "blob/blob_reader.h"

#include <cstddef>

namespace qk::unit {

namespace {

std::string Describe(const char* what, std::uint64_t index, std::uint64_t value) {
    return std::string(what) + " #" + std::to_string(index) + ": " + std::to_string(value);
}

class Decoder {
  public:
    explicit Decoder(std::span<const std::uint8_t> image) : reader_(image) {}

    DecodedBlob Run() {
        auto header = reader_.Header();
        if (!header) {
            out_.errors.push_back("image shorter than the header");
            return out_;
        }
        out_.header = *header;
        if (header->dwMagic != kBlobMagic) {
            out_.errors.push_back(Describe("bad magic", 0, header->dwMagic));
        }
        if (!CheckTables()) {
            return out_;
        }
        out_.release = Text(header->refRelease, "release", 0);
        DecodeWords();
        DecodeDrivers();
        DecodeProperties();
        DecodeAreas();
        DecodeProfiles();
        DecodeUses();
        DecodeApplications();
        return out_;
    }

  private:
    bool CheckTables() {
        const BlobTable order[] = {
            BlobTable::kWords,   BlobTable::kDriver, BlobTable::kProperty,   BlobTable::kArea,
            BlobTable::kProfile, BlobTable::kUse,    BlobTable::kApplication};
        std::uint64_t expectedStart = 0;
        for (std::size_t i = 0; i < std::size(order); ++i) {
            auto bounds = reader_.Table(order[i]);
            if (!bounds) {
                out_.errors.push_back(Describe("table outside the image", i, 0));
                return false;
            }
            tables_[i] = *bounds;
            if (bounds->start != expectedStart) {
                out_.errors.push_back(
                    Describe("table does not follow the previous", i, bounds->start));
            }
            expectedStart = bounds->end();
        }
        out_.endByte = PositionToByte(expectedStart);
        return true;
    }

    const TableBounds& Bounds(BlobTable table) const {
        return tables_[static_cast<std::size_t>(table)];
    }

    std::wstring Text(StringRef ref, const char* what, std::uint64_t index) {
        const wchar_t* text = reader_.TextAt(ref);
        if (text == nullptr) {
            out_.errors.push_back(Describe(what, index, ref.pos) + " bad StringRef, length " +
                                  std::to_string(ref.len));
            return {};
        }
        return text;
    }

    void DecodeWords() {
        const TableBounds& words = Bounds(BlobTable::kWords);
        std::uint64_t position = words.start;
        while (position < words.end()) {
            const wchar_t* text = reader_.TextInWords(static_cast<std::uint32_t>(position));
            if (text == nullptr) {
                out_.errors.push_back(Describe("unreadable word at", out_.words.size(), position));
                return;
            }
            const std::size_t length = std::wcslen(text);
            out_.words.push_back({static_cast<std::uint32_t>(position), text});
            position += TextUnits(length);
        }
    }

    std::wstring DriverNameAt(std::uint32_t position, const char* what, std::uint64_t index) {
        if (!BlobReader::IsRecordOf(Bounds(BlobTable::kDriver), position, kDriverUnits)) {
            out_.errors.push_back(Describe(what, index, position) + " is no Driver record");
            return {};
        }
        auto record = reader_.RecordAt<DriverRecord>(position);
        return Text(record->refName, "driver name", index);
    }

    void DecodeDrivers() {
        const TableBounds& table = Bounds(BlobTable::kDriver);
        if (table.units % kDriverUnits != 0) {
            out_.errors.push_back(Describe("driver table size", 0, table.units));
        }
        reader_.ForEach<DriverRecord>(table, [&](const Located<DriverRecord>& driver) {
            if (driver.record.dwReserved != 0) {
                out_.errors.push_back(
                    Describe("driver reserved word", driver.position, driver.record.dwReserved));
            }
            out_.drivers.push_back({driver.position,
                                    Text(driver.record.refName, "driver name", driver.position),
                                    driver.record.dwPrivacy});
        });
    }

    DecodedProperty PropertyAt(std::uint32_t position) {
        auto record = reader_.RecordAt<PropertyRecord>(position);
        return {position, record->dwType, Text(record->refName, "property name", position),
                Text(record->refSet, "property set", position), record->posNext};
    }

    void DecodeProperties() {
        const TableBounds& table = Bounds(BlobTable::kProperty);
        if (table.units % kPropertyUnits != 0) {
            out_.errors.push_back(Describe("property table size", 0, table.units));
        }
        reader_.ForEach<PropertyRecord>(table, [&](const Located<PropertyRecord>& property) {
            out_.properties.push_back(PropertyAt(property.position));
        });
    }

    // A chain that leaves its table, loops or joins another is an error.
    template <typename Visit>
    void WalkChain(ChainWalker& chains, std::uint32_t first, const char* what, std::uint64_t owner,
                   Visit&& visit) {
        bool joined = false;
        if (chains.Walk(first, visit, &joined) != ChainEnd::kComplete || joined) {
            out_.errors.push_back(Describe(what, owner, first));
        }
    }

    void DecodeAreas() {
        ChainWalker chains(reader_, BlobTable::kProperty, kPropertyUnits,
                           offsetof(PropertyRecord, posNext));
        reader_.ForEach<AreaRecord>(Bounds(BlobTable::kArea), [&](const Located<AreaRecord>& at) {
            DecodedArea area{at.position,
                             at.record.posDriver,
                             DriverNameAt(at.record.posDriver, "area driver", at.position),
                             {}};
            WalkChain(chains, at.record.posFirstProperty, "broken property chain of area",
                      at.position,
                      [&](std::uint32_t position) { area.chain.push_back(PropertyAt(position)); });
            out_.areas.push_back(std::move(area));
        });
    }

    DecodedValue Value(const ValueEntry& entry, std::uint32_t owner, std::uint32_t index) {
        DecodedValue value;
        const auto* name = reinterpret_cast<const std::uint8_t*>(entry.head.szPropertyName);
        value.nameField.assign(name, name + kPropertyNameBytes);
        value.propertyName.assign(entry.head.szPropertyName,
                                  strnlen(entry.head.szPropertyName, kPropertyNameBytes));
        if (value.propertyName.size() == kPropertyNameBytes) {
            out_.errors.push_back(Describe("unterminated value name", owner, index));
        }
        value.datum.assign(entry.datum.begin(), entry.datum.end());
        // The padding after the datum up to the record's end.
        const std::uint64_t datumEnd = entry.byte + sizeof(ValueRecordHead) + entry.datum.size();
        for (std::uint64_t byte = datumEnd; byte < entry.byte + entry.bytes; ++byte) {
            value.padding.push_back(*reader_.RecordAtByte<std::uint8_t>(byte));
        }
        value.units = static_cast<std::uint32_t>(entry.bytes / kUnitBytes);
        return value;
    }

    void DecodeProfiles() {
        const ProfilesEnd end =
            reader_.ForEachProfile(Bounds(BlobTable::kProfile), [&](const ProfileEntry& entry) {
                const ProfileRecord& record = entry.record;
                const std::uint32_t p = entry.position;
                DecodedProfile profile{p,
                                       record.posDriver,
                                       DriverNameAt(record.posDriver, "profile driver", p),
                                       Text(record.refName, "profile name", p),
                                       Text(record.refNotes, "profile notes", p),
                                       record.dwFirstPair,
                                       record.dwAggregatedSize,
                                       {}};
                if (entry.tooManyValues) {
                    out_.errors.push_back(Describe("profile value count", p, record.dwValueCount));
                }
                if (entry.valueOutside) {
                    out_.errors.push_back(
                        Describe("value outside the table", p, entry.valueOutside->first));
                }
                for (const ValueEntry& value : entry.values) {
                    profile.values.push_back(
                        Value(value, p, static_cast<std::uint32_t>(profile.values.size())));
                }
                if (record.dwAggregatedSize % kUnitBytes != 0 ||
                    entry.ValueBytes() != record.dwAggregatedSize) {
                    out_.errors.push_back(
                        Describe("aggregated size disagrees with values", p, entry.ValueBytes()));
                }
                out_.profiles.push_back(std::move(profile));
            });
        if (end.kind != ProfilesEnd::kComplete) {
            out_.errors.push_back(Describe("profile overruns the table", 0, end.position));
        }
    }

    DecodedUse UseAt(std::uint32_t position) {
        auto record = reader_.RecordAt<UseRecord>(position);
        DecodedUse use{position, record->posProfile, record->posNext, {}, {}};
        for (const DecodedProfile& profile : out_.profiles) {
            if (profile.position == record->posProfile) {
                use.profileName = profile.name;
                use.profileDriver = profile.driverName;
                return use;
            }
        }
        if (record->posProfile > 1) {
            out_.errors.push_back(Describe("use names no profile", position, record->posProfile));
        }
        return use;
    }

    void DecodeUses() {
        reader_.ForEach<UseRecord>(Bounds(BlobTable::kUse), [&](const Located<UseRecord>& use) {
            out_.uses.push_back(UseAt(use.position));
        });
    }

    void DecodeApplications() {
        const TableBounds& table = Bounds(BlobTable::kApplication);
        if (table.units % kApplicationUnits != 0) {
            out_.errors.push_back(Describe("application table size", 0, table.units));
        }
        ChainWalker chains(reader_, BlobTable::kUse, kUseUnits, offsetof(UseRecord, posNext));
        reader_.ForEach<ApplicationRecord>(table, [&](const Located<ApplicationRecord>& at) {
            const ApplicationRecord& record = at.record;
            const std::uint32_t p = at.position;
            DecodedApplication application{p,
                                           Text(record.refTitle, "title", p),
                                           Text(record.refFile, "file", p),
                                           Text(record.refPath, "path", p),
                                           Text(record.refVersion, "version", p),
                                           {}};
            if (record.dwReserved != 0) {
                out_.errors.push_back(Describe("application reserved word", p, record.dwReserved));
            }
            WalkChain(chains, record.posFirstUse, "broken use chain of application", p,
                      [&](std::uint32_t use) { application.chain.push_back(UseAt(use)); });
            out_.applications.push_back(std::move(application));
        });
    }

    BlobReader reader_;
    TableBounds tables_[7] = {};
    DecodedBlob out_;
};

}  // namespace

std::uint32_t DecodedValue::Word(std::size_t index) const {
    std::uint32_t word = 0;
    if ((index + 1) * 4 <= datum.size()) {
        std::memcpy(&word, datum.data() + index * 4, 4);
    }
    return word;
}

std::uint64_t DecodedValue::Qword() const {
    return Word(0) | (std::uint64_t{Word(1)} << 32);
}

std::wstring DecodedValue::Text() const {
    std::wstring text(datum.size() / 4, L'\0');
    std::memcpy(text.data(), datum.data(), text.size() * 4);
    return text;
}

const DecodedDriver* DecodedBlob::FindDriver(const std::wstring& name) const {
    for (const DecodedDriver& driver : drivers) {
        if (driver.name == name) {
            return &driver;
        }
    }
    return nullptr;
}

const DecodedProfile* DecodedBlob::FindProfile(const std::wstring& name,
                                               const std::wstring& driver) const {
    for (const DecodedProfile& profile : profiles) {
        if (profile.name == name && profile.driverName == driver) {
            return &profile;
        }
    }
    return nullptr;
}

const DecodedApplication* DecodedBlob::FindApplication(const std::wstring& title) const {
    for (const DecodedApplication& application : applications) {
        if (application.title == title) {
            return &application;
        }
    }
    return nullptr;
}

DecodedBlob DecodeBlob(std::span<const std::uint8_t> image) {
    return Decoder(image).Run();
}

std::vector<std::uint32_t> ReadBlobFileForTests(const std::string& path, std::size_t* bytes) {
    std::ifstream in(path, std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<std::uint32_t> words((content.size() + 3) / 4);
    if (!content.empty()) {
        std::memcpy(words.data(), content.data(), content.size());
    }
    *bytes = content.size();
    return words;
}

DecodedBlob DecodeBlobFile(const std::string& path) {
    std::size_t bytes = 0;
    std::vector<std::uint32_t> words = ReadBlobFileForTests(path, &bytes);
    DecodedBlob blob = DecodeBlob({reinterpret_cast<const std::uint8_t*>(words.data()), bytes});
    if (blob.ok() && blob.endByte != bytes) {
        blob.errors.push_back("file size " + std::to_string(bytes) + " but tables end at " +
                              std::to_string(blob.endByte));
    }
    return blob;
}

std::string Narrow(const std::wstring& text) {
    std::string out;
    for (wchar_t unit : text) {
        const auto c = static_cast<std::uint32_t>(unit);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += "?";
        }
    }
    return out;
}

}  // namespace qk::unit
