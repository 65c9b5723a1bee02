#include "support/tracked_memory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/fatal_exit.h"
#include "tests/support/logged_test.h"

namespace qk {
namespace {

class TrackedMemoryTest : public unit::LoggedTest {
  protected:
    void TearDown() override {
        SetHeapAllocatorForTests(nullptr);
        unit::LoggedTest::TearDown();
    }
};

TEST_F(TrackedMemoryTest, AnEmptyBlockIsStillADistinctBlock) {
    void* block = Allocate(64);
    void* empty = Allocate(0);
    EXPECT_NE(empty, nullptr);
    EXPECT_NE(empty, block);
}

TEST_F(TrackedMemoryTest, TheRegistryGrowsBy8192SlotsAtATime) {
    ResetTrackedMemory();
    for (int i = 0; i < 8192; ++i)
        Allocate(1);
    EXPECT_EQ(TimesLogged("Increase buffer size success.\n"), 1u);
    Allocate(1);  // the 8193rd block
    EXPECT_EQ(TimesLogged("Increase buffer size success.\n"), 2u);
    for (int i = 8193; i < 16384; ++i)
        Allocate(1);
    EXPECT_EQ(TimesLogged("Increase buffer size success.\n"), 2u);
    Allocate(1);  // the 16385th
    EXPECT_EQ(TimesLogged("Increase buffer size success.\n"), 3u);
    EXPECT_EQ(g_iTotalbuffers, 16385);
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

}  // namespace
}  // namespace qk
