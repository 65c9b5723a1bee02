#include "blob/blob_check.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <map>
#include <set>
#include <vector>

#include "model/customisation.h"
#include "model/type_names.h"

namespace qk {

namespace {

constexpr std::uint32_t kMaxCodePoint = 0x10FFFF;

// The checks in the order a reader meets what they guard; each returns the
// first problem it finds, or null.
class BlobCheck {
  public:
    explicit BlobCheck(const BlobReader& reader) : reader_(reader) {}

    const char* Run() {
        const char* problem = Header();
        for (auto step : {&BlobCheck::Words, &BlobCheck::Drivers, &BlobCheck::Properties,
                          &BlobCheck::Areas, &BlobCheck::Profiles, &BlobCheck::Applications}) {
            if (problem != nullptr) {
                break;
            }
            problem = (this->*step)();
        }
        return problem;
    }

  private:
    const char* Header() {
        auto header = reader_.Header();
        if (!header) {
            return "is shorter than a blob's header";
        }
        header_ = *header;
        if (header_.dwMagic != kBlobMagic) {
            return "is not a blob (it does not start with a blob's mark)";
        }
        for (int table = 0; table <= static_cast<int>(BlobTable::kApplication); ++table) {
            auto bounds = reader_.Table(static_cast<BlobTable>(table));
            if (!bounds) {
                return "has a table that reaches past its end (is it cut short?)";
            }
            bounds_[table] = *bounds;
        }
        if (header_.dwFormat != 1) {
            return "is of a format other than 1";
        }
        if (std::any_of(std::begin(header_.dwReserved), std::end(header_.dwReserved),
                        [](std::uint32_t word) { return word != 0; })) {
            return "has a reserved field that does not hold its fixed value";
        }
        // Words at 0, each table where the one before ends, the file where the
        // last one ends: no byte that no table accounts for.
        std::uint64_t end = 0;
        for (const TableBounds& bounds : bounds_) {
            if (bounds.start != end) {
                return "has tables that do not follow one another to its end";
            }
            end = bounds.end();
        }
        if (PositionToByte(end) != reader_.size()) {
            return "has tables that do not follow one another to its end";
        }
        const std::pair<BlobTable, std::uint32_t> fixed[] = {
            {BlobTable::kDriver, kDriverUnits},
            {BlobTable::kProperty, kPropertyUnits},
            {BlobTable::kArea, kAreaUnits},
            {BlobTable::kUse, kUseUnits},
            {BlobTable::kApplication, kApplicationUnits}};
        for (const auto& [table, units] : fixed) {
            if (Bounds(table).units % units != 0) {
                return "has a table that is not a whole number of its records";
            }
        }
        return nullptr;
    }

    // Every unit of the Words table belongs to one whole text: its characters,
    // its terminator and, after an even number of characters, a zero pad.
    const char* Words() {
        const TableBounds words = Bounds(BlobTable::kWords);
        textStarts_.assign(words.units, false);
        for (std::uint64_t position = words.start; position < words.end();) {
            const auto at = static_cast<std::uint32_t>(position);
            const wchar_t* text = reader_.TextInWords(at);
            if (text == nullptr) {
                return "has a Words table that is not a sequence of whole texts";
            }
            const std::size_t length = std::wcslen(text);
            if (position == words.start && length != 0) {
                return "has a Words table that does not start with the empty text";
            }
            if (length % 2 == 0 && text[length + 1] != L'\0') {
                return "has a Words table that is not a sequence of whole texts";
            }
            if (std::any_of(text, text + length, [](wchar_t unit) {
                    return static_cast<std::uint32_t>(unit) > kMaxCodePoint;
                })) {
                return "has a text with a character beyond Unicode";
            }
            textStarts_[at - words.start] = true;
            position += TextUnits(length);
        }
        return IsText(header_.refRelease) ? nullptr : kNoText;
    }

    const char* Drivers() {
        const char* problem = nullptr;
        reader_.ForEach<DriverRecord>(Bounds(BlobTable::kDriver), [&](const auto& driver) {
            if (problem != nullptr) {
                return;
            }
            if (!IsText(driver.record.refName)) {
                problem = kNoText;
            } else if (PrivacyName(static_cast<std::int32_t>(driver.record.dwPrivacy)) == nullptr) {
                problem = "has a driver with an unknown privacy code";
            } else if (driver.record.dwReserved != 0) {
                problem = kReserved;
            }
        });
        return problem;
    }

    const char* Properties() {
        const char* problem = nullptr;
        reader_.ForEach<PropertyRecord>(Bounds(BlobTable::kProperty), [&](const auto& property) {
            if (problem != nullptr) {
                return;
            }
            const PropertyRecord& record = property.record;
            if (!IsText(record.refName) || !IsText(record.refSet)) {
                problem = kNoText;
            } else if (record.dwType > kTypeString) {
                problem = "has a property with an unknown type code";
            }
        });
        return problem;
    }

    // The n-th area belongs to the n-th driver, and its chain runs through
    // the next properties of the table, from its last back to its first.
    const char* Areas() {
        const TableBounds drivers = Bounds(BlobTable::kDriver);
        const TableBounds areas = Bounds(BlobTable::kArea);
        if (areas.units / kAreaUnits != drivers.units / kDriverUnits) {
            return "has areas that are not paired with the drivers in order";
        }
        ChainWalker chains(reader_, BlobTable::kProperty, kPropertyUnits,
                           offsetof(PropertyRecord, posNext));
        std::uint64_t next = Bounds(BlobTable::kProperty).start;
        const char* problem = nullptr;
        reader_.ForEach<AreaRecord>(areas, [&](const Located<AreaRecord>& area) {
            if (problem != nullptr) {
                return;
            }
            const std::uint32_t driver = area.record.posDriver;
            if (!BlobReader::IsRecordOf(drivers, driver, kDriverUnits)) {
                problem = "has an area whose driver is not a record of its Driver table";
                return;
            }
            if (driver != drivers.start + kDriverUnits * static_cast<std::uint64_t>(area.ordinal)) {
                problem = "has areas that are not paired with the drivers in order";
                return;
            }
            std::vector<std::uint32_t> chain;
            bool joined = false;
            const ChainEnd end = chains.Walk(
                area.record.posFirstProperty, [&](std::uint32_t at) { chain.push_back(at); },
                &joined);
            if (end != ChainEnd::kComplete || joined) {
                problem = "has a chain of properties that leaves its table, loops or joins another";
                return;
            }
            std::map<std::string, std::uint32_t>& names = areaProperties_[driver];
            for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
                if (*at != next) {
                    problem = kPropertyOrder;
                    return;
                }
                next += kPropertyUnits;
                const PropertyRecord property = *reader_.RecordAt<PropertyRecord>(*at);
                // The first property of a narrow name is the one its values name.
                names.try_emplace(NarrowPropertyName(reader_.TextAt(property.refName)),
                                  property.dwType);
            }
        });
        if (problem == nullptr && next != Bounds(BlobTable::kProperty).end()) {
            return kPropertyOrder;
        }
        return problem;
    }

    const char* Profiles() {
        const TableBounds drivers = Bounds(BlobTable::kDriver);
        const char* problem = nullptr;
        const auto refuse = [&problem](const char* found) {
            if (problem == nullptr) {
                problem = found;
            }
        };
        const ProfilesEnd end =
            reader_.ForEachProfile(Bounds(BlobTable::kProfile), [&](const ProfileEntry& entry) {
                const ProfileRecord& record = entry.record;
                if (entry.tooManyValues) {
                    refuse("has a profile that claims more than 1024 values");
                } else if (entry.valueOutside) {
                    refuse("has a value record that reaches past the Profile table");
                } else if (entry.ValueBytes() != record.dwAggregatedSize) {
                    refuse("has a profile whose AggregatedSize is not the size of its values");
                } else if (record.dwFirstPair != kNoRecord) {
                    refuse(kReserved);
                } else if (!BlobReader::IsRecordOf(drivers, record.posDriver, kDriverUnits)) {
                    refuse("has a profile whose driver is not a record of its Driver table");
                } else if (!IsText(record.refName) || !IsText(record.refNotes)) {
                    refuse(kNoText);
                }
                if (problem == nullptr) {
                    for (const ValueEntry& value : entry.values) {
                        refuse(Value(value, areaProperties_[record.posDriver]));
                    }
                }
                profiles_.insert(entry.position);
            });
        if (problem == nullptr && end.kind != ProfilesEnd::kComplete) {
            return "has a profile that reaches past the Profile table";
        }
        return problem;
    }

    // A value names a property of its profile's area by a whole narrow name
    // and holds a datum of that property's type; every byte it does not use is
    // zero.
    const char* Value(const ValueEntry& value,
                      const std::map<std::string, std::uint32_t>& properties) const {
        const char* name = value.head.szPropertyName;
        const std::size_t length = strnlen(name, kPropertyNameBytes);
        if (length == kPropertyNameBytes ||
            std::any_of(name + length, name + kPropertyNameBytes, [](char c) { return c != 0; })) {
            return "has a value record whose property name is not a whole name";
        }
        const auto property = properties.find(std::string(name, length));
        if (property == properties.end()) {
            return "has a value whose property is not one of its area's";
        }
        const std::span<const std::uint8_t> datum = value.datum;
        const std::size_t size = datum.size();
        std::uint32_t word = 0;
        std::memcpy(&word, datum.data(), std::min<std::size_t>(size, sizeof word));
        bool fits = false;
        switch (property->second) {
            case kTypeBinary:
                fits = size <= kMaxBinaryBytes;
                break;
            case kTypeQword:
                fits = size == 8;
                break;
            case kTypeDword:
                fits = size == 4;
                break;
            case kTypeBoolean:
                fits = size == 4 && word <= 1;
                break;
            case kTypeEnumerated:
            case kTypeString:
                fits = size % 4 == 0 && TextUnitsFit(datum);
                break;
            default:
                break;
        }
        if (!fits) {
            return "has a value whose datum does not suit its property's type";
        }
        const std::uint64_t used = sizeof(ValueRecordHead) + size;
        for (std::uint64_t byte = used; byte < value.bytes; ++byte) {
            if (*reader_.RecordAtByte<std::uint8_t>(value.byte + byte) != 0) {
                return "has a value record whose padding is not zero";
            }
        }
        return nullptr;
    }

    // A text datum: characters of Unicode, none of them the zero that would
    // end it early.
    static bool TextUnitsFit(std::span<const std::uint8_t> datum) {
        for (std::size_t at = 0; at + 4 <= datum.size(); at += 4) {
            std::uint32_t unit = 0;
            std::memcpy(&unit, datum.data() + at, sizeof unit);
            if (unit == 0 || unit > kMaxCodePoint) {
                return false;
            }
        }
        return true;
    }

    // Uses select a profile (0: the use named none, 1: none matched); the use
    // chains run through the table like the property chains.
    const char* Applications() {
        const char* problem = nullptr;
        reader_.ForEach<UseRecord>(Bounds(BlobTable::kUse), [&](const Located<UseRecord>& use) {
            const std::uint32_t profile = use.record.posProfile;
            if (problem == nullptr && profile > 1 && !profiles_.contains(profile)) {
                problem = "has a use whose profile is not a record of its Profile table";
            }
        });
        if (problem != nullptr) {
            return problem;
        }
        ChainWalker chains(reader_, BlobTable::kUse, kUseUnits, offsetof(UseRecord, posNext));
        std::uint64_t next = Bounds(BlobTable::kUse).start;
        reader_.ForEach<ApplicationRecord>(
            Bounds(BlobTable::kApplication), [&](const Located<ApplicationRecord>& application) {
                if (problem != nullptr) {
                    return;
                }
                const ApplicationRecord& record = application.record;
                if (!IsText(record.refTitle) || !IsText(record.refFile) ||
                    !IsText(record.refPath) || !IsText(record.refVersion)) {
                    problem = kNoText;
                    return;
                }
                if (record.dwReserved != 0) {
                    problem = kReserved;
                    return;
                }
                std::vector<std::uint32_t> chain;
                bool joined = false;
                const ChainEnd end = chains.Walk(
                    record.posFirstUse, [&](std::uint32_t at) { chain.push_back(at); }, &joined);
                if (end != ChainEnd::kComplete || joined) {
                    problem = "has a chain of uses that leaves its table, loops or joins another";
                    return;
                }
                for (auto at = chain.rbegin(); at != chain.rend(); ++at, next += kUseUnits) {
                    if (*at != next) {
                        problem = kUseOrder;
                        return;
                    }
                }
            });
        if (problem == nullptr && next != Bounds(BlobTable::kUse).end()) {
            return kUseOrder;
        }
        return problem;
    }

    // A reference names one whole text of the Words table, from its first
    // character, with its exact length.
    bool IsText(StringRef ref) const {
        const TableBounds words = Bounds(BlobTable::kWords);
        return words.Contains(ref.pos) && textStarts_[ref.pos - words.start] &&
               reader_.TextAt(ref) != nullptr;
    }

    const TableBounds& Bounds(BlobTable table) const { return bounds_[static_cast<int>(table)]; }

    static constexpr const char* kNoText =
        "has a text reference that names no whole text of the Words table";
    static constexpr const char* kReserved =
        "has a reserved field that does not hold its fixed value";
    static constexpr const char* kPropertyOrder =
        "has properties that are not the areas' chains in table order";
    static constexpr const char* kUseOrder =
        "has uses that are not the applications' chains in table order";

    const BlobReader& reader_;
    BlobHeader header_{};
    TableBounds bounds_[7]{};
    std::vector<bool> textStarts_;
    // By driver position: the narrow names of the area's properties, with their types.
    std::map<std::uint32_t, std::map<std::string, std::uint32_t>> areaProperties_;
    std::set<std::uint32_t> profiles_;
};

}  // namespace

const char* BlobImageProblem(const BlobReader& reader) {
    return BlobCheck(reader).Run();
}

std::string NarrowPropertyName(const std::wstring& name) {
    std::string narrow;
    for (wchar_t unit : name) {
        if (static_cast<std::uint32_t>(unit) < 0x80) {
            narrow.push_back(static_cast<char>(unit));
        }
    }
    return narrow;
}

}  // namespace qk
