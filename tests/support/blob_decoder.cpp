#include "tests/support/blob_decoder.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>

#include "blob/blob_reader.h"

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
            const wchar_t* text = reader_.TextAt(static_cast<std::uint32_t>(position));
            if (text == nullptr) {
                out_.errors.push_back(Describe("unreadable word at", out_.words.size(), position));
                return;
            }
            const std::size_t length = std::wcslen(text);
            out_.words.push_back({static_cast<std::uint32_t>(position), text});
            position += TextUnits(length);
        }
        if (position != words.end()) {
            out_.errors.push_back(Describe("last word overruns the table", 0, position));
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
        for (std::uint64_t p = table.start; p + kDriverUnits <= table.end(); p += kDriverUnits) {
            auto record = reader_.RecordAt<DriverRecord>(static_cast<std::uint32_t>(p));
            if (record->dwReserved != 0) {
                out_.errors.push_back(Describe("driver reserved word", p, record->dwReserved));
            }
            out_.drivers.push_back({static_cast<std::uint32_t>(p),
                                    Text(record->refName, "driver name", p), record->dwPrivacy});
        }
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
        for (std::uint64_t p = table.start; p + kPropertyUnits <= table.end();
             p += kPropertyUnits) {
            out_.properties.push_back(PropertyAt(static_cast<std::uint32_t>(p)));
        }
    }

    void DecodeAreas() {
        const TableBounds& table = Bounds(BlobTable::kArea);
        for (std::uint64_t p = table.start; p < table.end(); ++p) {
            auto record = reader_.RecordAt<AreaRecord>(static_cast<std::uint32_t>(p));
            DecodedArea area{static_cast<std::uint32_t>(p),
                             record->posDriver,
                             DriverNameAt(record->posDriver, "area driver", p),
                             {}};
            const ChainEnd end = reader_.WalkChain(
                record->posFirstProperty, Bounds(BlobTable::kProperty), kPropertyUnits,
                offsetof(PropertyRecord, posNext),
                [&](std::uint32_t position) { area.chain.push_back(PropertyAt(position)); });
            if (end != ChainEnd::kComplete) {
                out_.errors.push_back(
                    Describe("broken property chain of area", p, record->posFirstProperty));
            }
            out_.areas.push_back(std::move(area));
        }
    }

    void DecodeProfiles() {
        const TableBounds& table = Bounds(BlobTable::kProfile);
        std::uint64_t p = table.start;
        while (p < table.end()) {
            if (p + kProfileUnits > table.end()) {
                out_.errors.push_back(Describe("profile overruns the table", 0, p));
                return;
            }
            auto record = reader_.RecordAt<ProfileRecord>(static_cast<std::uint32_t>(p));
            DecodedProfile profile{static_cast<std::uint32_t>(p),
                                   record->posDriver,
                                   DriverNameAt(record->posDriver, "profile driver", p),
                                   Text(record->refName, "profile name", p),
                                   Text(record->refNotes, "profile notes", p),
                                   record->dwFirstPair,
                                   record->dwAggregatedSize,
                                   {}};
            if (record->dwAggregatedSize % kUnitBytes != 0 ||
                p + kProfileUnits + record->dwAggregatedSize / kUnitBytes > table.end()) {
                out_.errors.push_back(Describe("profile size", p, record->dwAggregatedSize));
                return;
            }
            if (record->dwValueCount > kMaxProfileValues) {
                out_.errors.push_back(Describe("profile value count", p, record->dwValueCount));
                return;
            }
            const std::uint64_t valuesEnd =
                p + kProfileUnits + record->dwAggregatedSize / kUnitBytes;
            std::uint64_t v = p + kProfileUnits;
            for (std::uint32_t i = 0; i < record->dwValueCount; ++i) {
                auto head = reader_.RecordAt<ValueRecordHead>(static_cast<std::uint32_t>(v));
                if (!head) {
                    out_.errors.push_back(Describe("value outside the image", p, i));
                    return;
                }
                const std::uint64_t units = ValueRecordUnits(head->dwDatumSize);
                if (v + units > valuesEnd) {
                    out_.errors.push_back(Describe("value overruns its profile", p, i));
                    return;
                }
                const std::uint8_t* bytes = reader_.data() + PositionToByte(v);
                DecodedValue value;
                value.nameField.assign(bytes, bytes + kPropertyNameBytes);
                value.propertyName.assign(head->szPropertyName,
                                          strnlen(head->szPropertyName, kPropertyNameBytes));
                if (value.propertyName.size() == kPropertyNameBytes) {
                    out_.errors.push_back(Describe("unterminated value name", p, i));
                }
                const std::uint8_t* datum = bytes + sizeof(ValueRecordHead);
                value.datum.assign(datum, datum + head->dwDatumSize);
                value.padding.assign(datum + head->dwDatumSize, bytes + units * kUnitBytes);
                value.units = static_cast<std::uint32_t>(units);
                profile.values.push_back(std::move(value));
                v += units;
            }
            if (v != valuesEnd) {
                out_.errors.push_back(Describe("aggregated size disagrees with values", p, v));
            }
            out_.profiles.push_back(std::move(profile));
            p = valuesEnd;
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
        const TableBounds& table = Bounds(BlobTable::kUse);
        for (std::uint64_t p = table.start; p < table.end(); ++p) {
            out_.uses.push_back(UseAt(static_cast<std::uint32_t>(p)));
        }
    }

    void DecodeApplications() {
        const TableBounds& table = Bounds(BlobTable::kApplication);
        if (table.units % kApplicationUnits != 0) {
            out_.errors.push_back(Describe("application table size", 0, table.units));
        }
        for (std::uint64_t p = table.start; p + kApplicationUnits <= table.end();
             p += kApplicationUnits) {
            auto record = reader_.RecordAt<ApplicationRecord>(static_cast<std::uint32_t>(p));
            DecodedApplication application{
                static_cast<std::uint32_t>(p),          Text(record->refTitle, "title", p),
                Text(record->refFile, "file", p),       Text(record->refPath, "path", p),
                Text(record->refVersion, "version", p), {}};
            if (record->dwReserved != 0) {
                out_.errors.push_back(Describe("application reserved word", p, record->dwReserved));
            }
            const ChainEnd end = reader_.WalkChain(
                record->posFirstUse, Bounds(BlobTable::kUse), kUseUnits,
                offsetof(UseRecord, posNext),
                [&](std::uint32_t position) { application.chain.push_back(UseAt(position)); });
            if (end != ChainEnd::kComplete) {
                out_.errors.push_back(
                    Describe("broken use chain of application", p, record->posFirstUse));
            }
            out_.applications.push_back(std::move(application));
        }
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
