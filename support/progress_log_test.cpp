#include "support/progress_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/logged_test.h"

namespace qk {
namespace {

class ProgressLogTest : public unit::LoggedTest {};

TEST_F(ProgressLogTest, NothingIsWrittenWhileLoggingIsOff) {
    ResetProgressLog();
    std::filesystem::remove(kLogFileName);
    ProgressLog(L"dropped\n", 0);
    ProgressLog(L"dropped\n", 1);
    LogFormat(L"%d\n", 1);
    EXPECT_FALSE(std::filesystem::exists(kLogFileName));
}

std::string g_sunk;

TEST_F(ProgressLogTest, ASinkTakesTheEncodedLinesInsteadOfTheFile) {
    ProgressLog(L"on file\n", 1);
    g_sunk.clear();
    SetLogSinkForTests([](const char* bytes, std::size_t count) { g_sunk.append(bytes, count); });
    LogFormat(L"caf\u00e9 %d\n", 7);
    ProgressLog(L"next", 1);  // a new log does not touch the file either
    SetLogSinkForTests(nullptr);
    EXPECT_EQ(g_sunk, "caf\xC3\xA9 7\nnext");
    EXPECT_EQ(Log(), "on file\n");
}

// A line goes through a fixed buffer of kLogBufferUnits units at a time; lines
// at and past its edges come out whole, multi-byte characters included.
TEST_F(ProgressLogTest, LinesOfAnyLengthAreLoggedWhole) {
    for (const std::size_t units : {std::size_t{0}, kLogBufferUnits - 1, kLogBufferUnits,
                                    kLogBufferUnits + 1, 3 * kLogBufferUnits + 5}) {
        SCOPED_TRACE(units);
        std::wstring line;
        std::string expected;
        for (std::size_t i = 0; i < units; ++i) {
            line.push_back(i % 3 == 0 ? L'\u00e9' : L'a');
            expected += i % 3 == 0 ? "\xC3\xA9" : "a";
        }
        ProgressLog(line.c_str(), 1);
        EXPECT_EQ(Log(), expected);
    }
}

TEST_F(ProgressLogTest, ModeOneStartsANewLogAndLinesCarryTheirOwnEnds) {
    ProgressLog(L"old\n", 0);
    ProgressLog(L"Launching\n", 1);
    ProgressLog(L"ExitFree Called on ERROR.", 0);
    LogFormat(L"g_iMalloced = %d\n", 12);
    EXPECT_EQ(Log(), "Launching\nExitFree Called on ERROR.g_iMalloced = 12\n");
}

TEST_F(ProgressLogTest, AnExistingLogIsTruncatedByModeOneOnly) {
    ResetProgressLog();
    {
        std::FILE* file = std::fopen(kLogFileName, "w");
        std::fputs("earlier run\n", file);
        std::fclose(file);
    }
    SetCreateLog(1);
    ProgressLog(L"appended\n", 0);
    EXPECT_EQ(Log(), "earlier run\nappended\n");
    ProgressLog(L"fresh\n", 1);
    EXPECT_EQ(Log(), "fresh\n");
}

TEST_F(ProgressLogTest, TheLogIsUtf8WithoutByteOrderMark) {
    const wchar_t text[] = {L'C', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xD800, L'!', L'\n', 0};
    ProgressLog(text, 0);
    EXPECT_EQ(Log(), "C\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD!\n");
    LogFormat(L"%s|%ls\n", "na\xC3\xAFve", L"x");
    EXPECT_NE(Log().find("na\xC3\xAFve|x\n"), std::string::npos);
}

TEST_F(ProgressLogTest, FormattedMessagesAreCutAtTheirBound) {
    const std::wstring longText(5000, L'a');
    LogFormat(L"%ls", longText.c_str());
    EXPECT_EQ(Log(), std::string(4095, 'a'));
}

TEST_F(ProgressLogTest, TheCopyTakesEveryNameLiterally) {
    ProgressLog(L"line\n", 0);
    const char* names[] = {"with space.log", "quote\".log", "$(touch pwned).log",
                           "a;b.log",        "-dash.log",   "it's.log"};
    for (const char* name : names) {
        CopyLogTo(name);
        EXPECT_EQ(unit::LoggedTest::Log(), "line\n");
        std::FILE* copy = std::fopen(name, "r");
        ASSERT_NE(copy, nullptr) << name;
        char buffer[16] = {};
        EXPECT_NE(std::fgets(buffer, sizeof buffer, copy), nullptr);
        std::fclose(copy);
        EXPECT_STREQ(buffer, "line\n") << name;
    }
    EXPECT_FALSE(std::filesystem::exists("pwned"));
}

TEST_F(ProgressLogTest, LogFileNamesMustFit) {
    EXPECT_TRUE(SetLogFile(std::wstring(255, L'n').c_str()));
    EXPECT_FALSE(SetLogFile(std::wstring(256, L'n').c_str()));
    EXPECT_EQ(std::wstring(g_strLogFile), std::wstring(255, L'n'));
}

}  // namespace
}  // namespace qk
