#include "blob/version_string.h"

#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <string>

#include "tests/support/blob_decoder.h"

namespace qk::unit {
namespace {

class VersionStringTest : public ::testing::Test {
  protected:
    void SetUp() override { ResetVersionString(); }
    void TearDown() override { ResetVersionString(); }

    static std::wstring Compose() {
        wchar_t output[kVersionUnits];
        std::wmemset(output, L'#', kVersionUnits);
        EXPECT_EQ(GetVersionString(output), 0);
        return output;
    }
    static std::string Stamp() {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        char text[32];
        std::strftime(text, sizeof text, "%Y%m%d_%H%M", &local);
        return text;
    }
};

TEST_F(VersionStringTest, ReleaseThenLocalTime) {
    const struct {
        const wchar_t* release;
        const char* prefix;
    } cases[] = {{nullptr, ""}, {L"", ""}, {L"8.1", "8.1"}, {L"r\u00e9l", "r\xc3\xa9l"}};
    for (const auto& c : cases) {
        ASSERT_TRUE(SetReleaseText(c.release));
        const std::string before = Stamp();
        const std::string version = Narrow(Compose());
        const std::string after = Stamp();
        EXPECT_TRUE(version == std::string(c.prefix) + "_" + before + "_" ||
                    version == std::string(c.prefix) + "_" + after + "_")
            << version;
        EXPECT_TRUE(std::regex_match(version, std::regex(".*_[0-9]{8}_[0-9]{4}_")));
    }
}

TEST_F(VersionStringTest, ComposedOnceForTheRun) {
    ASSERT_TRUE(SetReleaseText(L"2.0"));
    // As if an earlier file of the run had composed it a few minutes ago.
    std::wcscpy(g_strVersion, L"2.0_20090303_1405_");
    EXPECT_EQ(Compose(), L"2.0_20090303_1405_");
    EXPECT_EQ(Compose(), L"2.0_20090303_1405_");
}

TEST_F(VersionStringTest, ReleaseTextClearsAnEarlierVersion) {
    std::wcscpy(g_strVersion, L"old_20000101_0000_");
    ASSERT_TRUE(SetReleaseText(L"new"));
    EXPECT_EQ(g_strVersion[0], L'\0');
    EXPECT_EQ(Compose().substr(0, 4), L"new_");
}

TEST_F(VersionStringTest, ReleaseTextBound) {
    const std::wstring longest(63, L'r');
    ASSERT_TRUE(SetReleaseText(longest.c_str()));
    EXPECT_EQ(Compose().substr(0, 64), longest + L"_");

    ResetVersionString();
    const std::wstring tooLong(64, L'r');
    EXPECT_FALSE(SetReleaseText(tooLong.c_str()));
    EXPECT_EQ(g_strRelease[0], L'\0');
}

}  // namespace
}  // namespace qk::unit
