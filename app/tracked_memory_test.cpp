#include "app/tracked_memory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "app/fatal_exit.h"
#include "tests/support/logged_test.h"

namespace qk {
namespace {

class TrackedMemoryTest : public unit::LoggedTest {
  protected:
    void TearDown() override {
        SetHeapAllocatorForTests(nullptr);
        unit::LoggedTest::TearDown();
    }
    static std::size_t Count(const std::string& text, const std::string& what) {
        std::size_t count = 0;
        for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
            ++count;
        }
        return count;
    }
};

TEST_F(TrackedMemoryTest, BlocksAreZeroFilledAndRegisteredInOrder) {
    ResetTrackedMemory();
    auto* block = static_cast<unsigned char*>(Allocate(64));
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(block[i], 0);
    void* empty = Allocate(0);
    EXPECT_NE(empty, nullptr);
    EXPECT_NE(empty, block);
    ASSERT_EQ(g_iTotalbuffers, 2);
    EXPECT_EQ(g_pAllBuffers[0], block);
    EXPECT_EQ(g_pAllBuffers[1], empty);
    EXPECT_EQ(g_iMalloced, 2);
}

TEST_F(TrackedMemoryTest, TheRegistryGrowsBy8192SlotsAtATime) {
    ResetTrackedMemory();
    for (int i = 0; i < 8192; ++i)
        Allocate(1);
    EXPECT_EQ(Count(Log(), "Increase buffer size success.\n"), 1u);
    Allocate(1);  // the 8193rd block
    EXPECT_EQ(Count(Log(), "Increase buffer size success.\n"), 2u);
    for (int i = 8193; i < 16384; ++i)
        Allocate(1);
    EXPECT_EQ(Count(Log(), "Increase buffer size success.\n"), 2u);
    Allocate(1);  // the 16385th
    EXPECT_EQ(Count(Log(), "Increase buffer size success.\n"), 3u);
    EXPECT_EQ(g_iTotalbuffers, 16385);
}

TEST_F(TrackedMemoryTest, TheSweepFreesEveryBlockButKeepsTheCounts) {
    ResetTrackedMemory();
    Allocate(8);
    Allocate(8);
    FreeAll();
    EXPECT_EQ(g_pAllBuffers[0], nullptr);
    EXPECT_EQ(g_pAllBuffers[1], nullptr);
    EXPECT_EQ(g_iMalloced, 2);
    EXPECT_EQ(g_iTotalbuffers, 2);
    void* later = Allocate(8);
    EXPECT_EQ(g_pAllBuffers[2], later);
    EXPECT_NE(Log().find("DONE, FreeAll()\n"), std::string::npos);
}

TEST_F(TrackedMemoryTest, AnExhaustedHeapEndsTheRunWithStatusZero) {
    ResetTrackedMemory();
    Allocate(8);
    SetHeapAllocatorForTests([](std::size_t, std::size_t) -> void* { return nullptr; });
    try {
        Allocate(8);
        FAIL() << "no exit";
    } catch (const FatalExit& exit) {
        EXPECT_EQ(exit.status, 0);
    }
    EXPECT_EQ(g_pAllBuffers[0], nullptr);
    EXPECT_EQ(g_iMalloced, 1);
    const std::string log = Log();
    EXPECT_NE(log.find("ERROR, Unable to allocate memory, EXIT PROGRAM\nDONE, FreeAll()\n"),
              std::string::npos);
}

TEST_F(TrackedMemoryTest, TheErrorExitLogsFreesAndEndsWith255) {
    ResetTrackedMemory();
    Allocate(8);
    try {
        ExitFree();
    } catch (const FatalExit& exit) {
        EXPECT_EQ(exit.status, 255);
    }
    EXPECT_EQ(g_pAllBuffers[0], nullptr);
    EXPECT_NE(Log().find("ExitFree Called on ERROR.DONE, FreeAll()\ng_iMalloced = 1\n"
                         "Exiting Quillkit...\n"),
              std::string::npos);
}

TEST_F(TrackedMemoryTest, TheErrorExitCopiesTheLogWhenANameWasGiven) {
    ASSERT_TRUE(SetLogFile(L"copy of log.txt"));
    EXPECT_THROW(ExitFree(), FatalExit);
    std::FILE* copy = std::fopen("copy of log.txt", "r");
    ASSERT_NE(copy, nullptr);
    std::fclose(copy);
}

}  // namespace
}  // namespace qk
