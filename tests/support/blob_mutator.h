#pragma once

// Single-field corruptions of a good blob: every 32-bit field of the header
// and of each record (words of text, driver, property, area, profile, value,
// use, application), each set to the values that break readers most often.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "blob/blob_format.h"
#include "model/customisation.h"
#include "model/type_names.h"

namespace qk::test {

struct BlobField {
    std::size_t byte;  // of the field's 32-bit word
    std::string what;
    // Values that make another well-formed blob, which may be taken with
    // another answer: another code of a code, another character of a text.
    std::function<bool(std::uint32_t)> otherBlob = [](std::uint32_t) { return false; };
};

inline std::uint32_t WordAt(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

inline std::vector<std::uint8_t> WithWord(std::vector<std::uint8_t> bytes, std::size_t at,
                                          std::uint32_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
    return bytes;
}

// The corruptions of a field: 0, 1, the largest value and the one below it,
// one off its true value either way, and a position and a byte count just
// past the image's end.
inline std::vector<std::uint32_t> Corruptions(std::uint32_t truth, std::size_t imageBytes) {
    const auto pastEnd = static_cast<std::uint32_t>((imageBytes - kHeaderBytes) / kUnitBytes);
    std::vector<std::uint32_t> values = {
        0,          1,           0xFFFFFFFF,
        0xFFFFFFFE, truth - 1,   truth + 1,
        pastEnd,    pastEnd + 1, static_cast<std::uint32_t>(imageBytes)};
    std::erase(values, truth);
    return values;
}

// Every field of a good blob (as the builder writes it: its layout is trusted).
inline std::vector<BlobField> BlobFields(const std::vector<std::uint8_t>& blob) {
    std::vector<BlobField> fields;
    BlobHeader header{};
    std::memcpy(&header, blob.data(), sizeof header);
    const auto at = [](std::uint64_t position) { return PositionToByte(position); };
    const auto add = [&fields](std::size_t byte, std::string what) {
        fields.push_back({byte, std::move(what)});
    };
    const auto ref = [&add](std::size_t byte, const std::string& what) {
        add(byte, what + " text position");
        add(byte + 4, what + " text length");
    };
    const auto character = [](std::uint32_t value) { return value != 0 && value <= 0x10FFFF; };

    for (std::size_t byte = 0; byte < kHeaderBytes; byte += 4) {
        add(byte, "header word " + std::to_string(byte / 4));
    }
    // Words: characters may become other characters; terminators and pads stay zero.
    for (std::uint64_t position = 0; position < header.nWordsUnits;) {
        std::size_t length = 0;
        while (WordAt(blob, at(position) + 4 * length) != 0) {
            ++length;
        }
        const std::string what = "text at " + std::to_string(position);
        for (std::size_t i = 0; i < length; ++i) {
            fields.push_back({at(position) + 4 * i, what + " character", character});
        }
        add(at(position) + 4 * length, what + " terminator");
        if (length % 2 == 0) {
            add(at(position) + 4 * length + 4, what + " padding");
        }
        position += TextUnits(length);
    }
    for (std::uint32_t n = 0; n < header.nDriverUnits / kDriverUnits; ++n) {
        const std::size_t byte = at(header.posDriverStart + kDriverUnits * n);
        const std::string what = "driver " + std::to_string(n);
        ref(byte, what + " name");
        fields.push_back({byte + 8, what + " privacy", [](std::uint32_t value) {
                              return PrivacyName(static_cast<std::int32_t>(value)) != nullptr;
                          }});
        add(byte + 12, what + " reserved");
    }
    for (std::uint32_t n = 0; n < header.nPropertyUnits / kPropertyUnits; ++n) {
        const std::size_t byte = at(header.posPropertyStart + kPropertyUnits * n);
        const std::string what = "property " + std::to_string(n);
        fields.push_back(
            {byte, what + " type", [](std::uint32_t value) { return value <= kTypeString; }});
        ref(byte + 4, what + " name");
        ref(byte + 12, what + " set");
        add(byte + 20, what + " next");
    }
    for (std::uint32_t n = 0; n < header.nAreaUnits; ++n) {
        const std::size_t byte = at(header.posAreaStart + n);
        add(byte, "area " + std::to_string(n) + " driver");
        add(byte + 4, "area " + std::to_string(n) + " first property");
    }
    // Each value's type, by its narrow name, from the properties of its area.
    std::vector<std::pair<std::string, std::uint32_t>> types;
    for (std::uint32_t n = 0; n < header.nPropertyUnits / kPropertyUnits; ++n) {
        const std::size_t byte = at(header.posPropertyStart + kPropertyUnits * n);
        std::string name;
        for (std::size_t c = at(WordAt(blob, byte + 4)); WordAt(blob, c) != 0; c += 4) {
            name.push_back(static_cast<char>(WordAt(blob, c)));
        }
        types.emplace_back(name, WordAt(blob, byte));
    }
    const auto typeOf = [&types](const char* name) {
        for (const auto& [known, type] : types) {
            if (known == name) {
                return type;
            }
        }
        return std::uint32_t{kTypeUnknown};
    };
    int ordinal = 0;
    for (std::uint64_t position = header.posProfileStart;
         position < std::uint64_t{header.posProfileStart} + header.nProfileUnits; ++ordinal) {
        const std::size_t byte = at(position);
        const std::string what = "profile " + std::to_string(ordinal);
        add(byte, what + " driver");
        ref(byte + 4, what + " name");
        ref(byte + 12, what + " notes");
        add(byte + 20, what + " first pair");
        add(byte + 24, what + " aggregated size");
        add(byte + 28, what + " value count");
        std::size_t value = byte + sizeof(ProfileRecord);
        for (std::uint32_t v = 0; v < WordAt(blob, byte + 28); ++v) {
            const std::string valueWhat = what + " value " + std::to_string(v);
            for (std::size_t word = 0; word < kPropertyNameBytes; word += 4) {
                add(value + word, valueWhat + " name");
            }
            const std::uint32_t size = WordAt(blob, value + kPropertyNameBytes);
            const std::uint32_t type = typeOf(reinterpret_cast<const char*>(&blob[value]));
            // A Binary datum may grow into its zero padding: another value.
            fields.push_back({value + kPropertyNameBytes, valueWhat + " datum size",
                              [type, size](std::uint32_t other) {
                                  return type == kTypeBinary &&
                                         ValueRecordUnits(other) == ValueRecordUnits(size);
                              }});
            const std::size_t datum = value + sizeof(ValueRecordHead);
            // Binary, Qword and Dword data have no wrong value; Boolean has two
            // right ones, text data are characters.
            if (type == kTypeBoolean) {
                fields.push_back(
                    {datum, valueWhat + " datum", [](std::uint32_t flag) { return flag <= 1; }});
            } else if (type == kTypeEnumerated || type == kTypeString) {
                for (std::size_t c = 0; c < size; c += 4) {
                    fields.push_back({datum + c, valueWhat + " character", character});
                }
            }
            const std::size_t end = value + ValueRecordUnits(size) * kUnitBytes;
            for (std::size_t pad = (datum + size + 3) / 4 * 4; pad < end; pad += 4) {
                add(pad, valueWhat + " padding");
            }
            value = end;
        }
        position += kProfileUnits + WordAt(blob, byte + 24) / kUnitBytes;
    }
    for (std::uint32_t n = 0; n < header.nUseUnits; ++n) {
        const std::size_t byte = at(header.posUseStart + n);
        // 0 and 1 are the uses that select no profile.
        fields.push_back({byte, "use " + std::to_string(n) + " profile",
                          [](std::uint32_t value) { return value <= 1; }});
        add(byte + 4, "use " + std::to_string(n) + " next");
    }
    for (std::uint32_t n = 0; n < header.nApplicationUnits / kApplicationUnits; ++n) {
        const std::size_t byte = at(header.posApplicationStart + kApplicationUnits * n);
        const std::string what = "application " + std::to_string(n);
        ref(byte, what + " title");
        ref(byte + 8, what + " file");
        ref(byte + 16, what + " path");
        ref(byte + 24, what + " version");
        add(byte + 32, what + " first use");
        add(byte + 36, what + " reserved");
    }
    return fields;
}

}  // namespace qk::test
