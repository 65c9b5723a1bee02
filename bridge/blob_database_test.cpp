#include "bridge/blob_database.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/small_blob.h"

namespace qk {
namespace {

TEST(BlobDatabaseTest, DecodesASmallBlob) {
    const auto bytes = sim::SmallBlob();
    const auto database = DecodeBlobDatabase(bytes);
    ASSERT_TRUE(database);
    ASSERT_EQ(database->areas.size(), 1u);
    EXPECT_EQ(database->areas[0].driver, L"D");
    EXPECT_EQ(database->areas[0].privacy, 1);
    ASSERT_EQ(database->areas[0].properties.size(), 1u);
    EXPECT_EQ(database->areas[0].properties[0].name, L"P");
    EXPECT_EQ(database->areas[0].properties[0].type, 3);
}

TEST(BlobDatabaseTest, EveryTruncationAndALoopingChainAreRefusedOrDecodedSafely) {
    auto bytes = sim::SmallBlob();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        std::vector<std::uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<long>(length));
        EXPECT_FALSE(DecodeBlobDatabase(cut)) << length;
    }
    std::uint32_t loop = 5;  // the property links to itself
    std::memcpy(bytes.data() + 92 + 8 * 5 + 20, &loop, 4);
    EXPECT_FALSE(DecodeBlobDatabase(bytes));
    EXPECT_TRUE(LoadBlobDatabase("/nonexistent/system.blb", nullptr, true));  // missing: empty
}

}  // namespace
}  // namespace qk
