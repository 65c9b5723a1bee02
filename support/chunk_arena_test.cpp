// Blocks carved from shared chunks must still behave as separate zero-filled
// blocks: aligned, not overlapping, in registry order, all released by the sweep.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/tracked_memory.h"

namespace qk {
namespace {

class TrackedArenaTest : public ::testing::Test {
  protected:
    void SetUp() override { ResetTrackedMemory(); }
    void TearDown() override { ResetTrackedMemory(); }
};

TEST_F(TrackedArenaTest, ManySmallAndSomeLargeBlocksStaySeparate) {
    // Sizes that cross many chunk boundaries, with large blocks in between.
    std::vector<std::pair<unsigned char*, std::uint32_t>> blocks;
    for (std::uint32_t i = 0; i < 30000; ++i) {
        const std::uint32_t size = i % 5000 == 4999 ? 1u << 20 : 1 + (i * 37) % 200;
        auto* block = static_cast<unsigned char*>(Allocate(size));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u);
        for (std::uint32_t at = 0; at < size; at += 61) {
            ASSERT_EQ(block[at], 0) << "block " << i;
        }
        std::memset(block, static_cast<int>(i % 251), size);
        blocks.emplace_back(block, size);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto [block, size] = blocks[i];
        EXPECT_EQ(g_pAllBuffers[i], block);
        ASSERT_EQ(block[0], i % 251) << "block " << i << " was overwritten";
        ASSERT_EQ(block[size - 1], i % 251) << "block " << i << " was overwritten";
    }
    EXPECT_EQ(g_iMalloced, 30000);
    FreeAll();
    for (int slot = 0; slot < g_iTotalbuffers; ++slot) {
        ASSERT_EQ(g_pAllBuffers[slot], nullptr);
    }
    // Blocks after a sweep come from fresh chunks and are zero-filled again.
    auto* later = static_cast<unsigned char*>(Allocate(64));
    EXPECT_EQ(std::vector<unsigned char>(later, later + 64), std::vector<unsigned char>(64, 0));
    EXPECT_EQ(g_pAllBuffers[30000], later);
}

}  // namespace
}  // namespace qk
