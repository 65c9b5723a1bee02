#include "simulator/installed_database.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/small_blob.h"

namespace qk::sim {
namespace {

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
