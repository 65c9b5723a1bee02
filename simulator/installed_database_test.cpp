#include "simulator/installed_database.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "blob/blob_format.h"

namespace qk::sim {
namespace {

// A blob with one driver "D" whose area has one property "P", nothing else:
// Words at 0 ("", "D", "P"), Driver at 3, Property at 5, Area at 8, 9 units.
std::vector<std::uint8_t> SmallBlob() {
    std::vector<std::uint8_t> bytes(kHeaderBytes + 9 * 8, 0);
    auto word = [&](std::size_t offset, std::uint32_t value) {
        std::memcpy(bytes.data() + offset, &value, 4);
    };
    auto at = [](std::uint32_t position, std::size_t byte) { return 92 + 8 * position + byte; };
    word(0, kBlobMagic);
    word(40, 3);
    word(at(1, 0), L'D');
    word(at(2, 0), L'P');
    word(44, 3), word(48, 2);
    word(at(3, 0), 1), word(at(3, 4), 8), word(at(3, 8), 1);
    word(52, 5), word(56, 3);
    word(at(5, 0), 3), word(at(5, 4), 2), word(at(5, 8), 8), word(at(5, 12), 0);
    word(at(5, 16), 4), word(at(5, 20), kNoRecord);
    word(60, 8), word(64, 1);
    word(at(8, 0), 3), word(at(8, 4), 5);
    word(68, 9), word(76, 9), word(84, 9);
    return bytes;
}

TEST(InstalledDatabaseTest, DecodesASmallBlob) {
    const auto bytes = SmallBlob();
    const auto database = DecodeInstalledDatabase(bytes);
    ASSERT_TRUE(database);
    ASSERT_EQ(database->areas.size(), 1u);
    EXPECT_EQ(database->areas[0].driver, L"D");
    EXPECT_EQ(database->areas[0].privacy, 1);
    ASSERT_EQ(database->areas[0].properties.size(), 1u);
    EXPECT_EQ(database->areas[0].properties[0].name, L"P");
    EXPECT_EQ(database->areas[0].properties[0].type, 3);
}

TEST(InstalledDatabaseTest, EveryTruncationAndALoopingChainAreRefusedOrDecodedSafely) {
    auto bytes = SmallBlob();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        std::vector<std::uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<long>(length));
        EXPECT_FALSE(DecodeInstalledDatabase(cut)) << length;
    }
    std::uint32_t loop = 5;  // the property links to itself
    std::memcpy(bytes.data() + 92 + 8 * 5 + 20, &loop, 4);
    EXPECT_FALSE(DecodeInstalledDatabase(bytes));
    EXPECT_TRUE(LoadInstalledDatabase("/nonexistent/system.blb"));  // missing: empty
}

}  // namespace
}  // namespace qk::sim
