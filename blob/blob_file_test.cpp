#include "blob/blob_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/blob_test.h"
#include "tests/support/files.h"

namespace qk::unit {
namespace {

namespace fs = std::filesystem;

using test::ReadFile;
using test::WriteFile;

std::vector<std::string> DirectoryEntries() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(".")) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class BlobFileTest : public BlobTest {
  protected:
    void SetUp() override {
        BlobTest::SetUp();
        SetHeader(L"8.1_20090303_1405_");
        Area* area = AddArea(L"Render");
        Property* dword = AddProperty(area, kTypeDword, L"Dw");
        Profile* profile = AddProfile(area, L"fast");
        AddWords(profile, dword, {3});
        AddUse(AddApplication(L"Viewer"), L"fast", area);
        CreateCompact();
        image_.assign(reinterpret_cast<const char*>(g_lpBlob),
                      static_cast<std::size_t>(g_lpApplicationPtr - g_lpBlob));
    }
    int Write(const char* name) {
        std::vector<char> buffer(256, '\0');
        std::strcpy(buffer.data(), name);
        const int written = WriteBinFile(buffer.data());
        written_name_ = buffer.data();
        return written;
    }
    std::string PrintedVersion() {
        testing::internal::CaptureStdout();
        EXPECT_EQ(printVersionString(), 0);
        return testing::internal::GetCapturedStdout();
    }

    std::string image_;
    std::string written_name_;
};

TEST_F(BlobFileTest, WritesExactlyTheImage) {
    const BlobHeader* header = reinterpret_cast<const BlobHeader*>(g_lpBlob);
    const int expected =
        static_cast<int>(92 + 8 * (header->posApplicationStart + header->nApplicationUnits));
    EXPECT_EQ(Write("out.blb"), expected);
    EXPECT_EQ(ReadFile("out.blb"), image_);
    EXPECT_EQ(image_.size(), static_cast<std::size_t>(expected));
    const std::string log = Log();
    EXPECT_NE(log.find("WriteBinFile(): - filename = out.blb\nBLOB file:- \"out.blb\" of size " +
                       std::to_string(expected) + "\n"),
              std::string::npos);
    EXPECT_EQ(DirectoryEntries(), (std::vector<std::string>{"out.blb", "quillard.log"}));
    DecodedBlob blob = DecodeBlobFile("out.blb");
    EXPECT_TRUE(blob.ok()) << blob.errors.front();
}

TEST_F(BlobFileTest, ShortNamesFallBackToTheDefault) {
    for (const char* name : {"x", ""}) {
        SCOPED_TRACE(name);
        fs::remove("quillard.blb");
        EXPECT_EQ(Write(name), static_cast<int>(image_.size()));
        EXPECT_EQ(written_name_, "quillard.blb");
        EXPECT_EQ(ReadFile("quillard.blb"), image_);
        EXPECT_FALSE(fs::exists(name));
        EXPECT_NE(Log().find("WriteBinFile(): - filename = " + std::string(name) +
                             "\nBLOB file:- \"quillard.blb\" of size "),
                  std::string::npos);
    }
    EXPECT_TRUE(Write("ab") > 0);
    EXPECT_TRUE(fs::exists("ab"));
}

TEST_F(BlobFileTest, ReplacesALongerFileAndKeepsItsMode) {
    WriteFile("out.blb", std::string(image_.size() * 3, 'z'));
    fs::permissions("out.blb",
                    fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    EXPECT_EQ(Write("out.blb"), static_cast<int>(image_.size()));
    EXPECT_EQ(ReadFile("out.blb"), image_);
    EXPECT_EQ(fs::status("out.blb").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
}

TEST_F(BlobFileTest, SymbolicLinkKeepsPointingAtTheReplacedFile) {
    fs::create_directory("real");
    WriteFile("real/target.blb", "old");
    fs::create_symlink("real/target.blb", "link.blb");
    EXPECT_EQ(Write("link.blb"), static_cast<int>(image_.size()));
    EXPECT_TRUE(fs::is_symlink("link.blb"));
    EXPECT_EQ(ReadFile("real/target.blb"), image_);
}

TEST_F(BlobFileTest, NonRegularTargetIsWrittenInPlace) {
    // A character device stays a device: it is never replaced.
    EXPECT_EQ(Write("/dev/null"), static_cast<int>(image_.size()));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(BlobFileTest, LoadMakesTheFileTheCurrentImage) {
    ASSERT_GT(Write("out.blb"), 0);
    ResetCompactBuilder();
    EXPECT_EQ(LoadBlobImage("out.blb"), static_cast<long>(image_.size()));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(g_lpBlob), image_.size()), image_);
    EXPECT_EQ(g_lpBlob[image_.size()], 0);
    EXPECT_STREQ(GetWordsViaOffset(static_cast<std::int32_t>(FindStrings(L"Viewer").pos)),
                 L"Viewer");

    EXPECT_EQ(LoadBlobImage("missing.blb"), 0);
    EXPECT_EQ(CurrentImage().Header()->dwMagic, 0u);
}

TEST_F(BlobFileTest, OversizedFileIsRefused) {
    WriteFile("big.blb", image_ + std::string(kMaxImageBytes, 'x'));
    EXPECT_EQ(LoadBlobImage("big.blb"), -1);
    EXPECT_EQ(CurrentImage().Header()->dwMagic, 0u);
    EXPECT_NE(Log().find("ERROR, blob file \"big.blb\" has " +
                         std::to_string(image_.size() + kMaxImageBytes) +
                         " bytes, more than the 0xFFFFF bytes an image holds.\n"),
              std::string::npos);
    WriteFile("exact.blb", image_ + std::string(kMaxImageBytes - image_.size(), '\0'));
    EXPECT_EQ(LoadBlobImage("exact.blb"), static_cast<long>(kMaxImageBytes));
}

TEST_F(BlobFileTest, VersionOfTheDefaultBlob) {
    ASSERT_GT(Write("quillard.blb"), 0);
    const StringRef release = FindStrings(L"8.1_20090303_1405_");
    ResetCompactBuilder();
    EXPECT_EQ(PrintedVersion(), "Version string from BIN file:- 8.1_20090303_1405_\n");
    EXPECT_NE(Log().find("Version string: - : - offset:- " + std::to_string(release.pos) +
                         ", length:- 76, content:- 8.1_20090303_1405_\n"),
              std::string::npos);
}

TEST_F(BlobFileTest, VersionOfEveryTruncatedBlobIsAPrefixOrEmpty) {
    const std::string full = "8.1_20090303_1405_";
    for (std::size_t length = image_.size(); length > 0; --length) {
        WriteFile("quillard.blb", image_.substr(0, length));
        const std::string printed = PrintedVersion();
        const std::string head = "Version string from BIN file:- ";
        ASSERT_EQ(printed.substr(0, head.size()), head) << length;
        const std::string text = printed.substr(head.size(), printed.size() - head.size() - 1);
        EXPECT_EQ(full.substr(0, text.size()), text) << "length " << length;
        EXPECT_EQ(printed.back(), '\n');
    }
}

TEST_F(BlobFileTest, AVersionThatIsNotWholeIsReportedInTheLog) {
    const std::string error =
        "ERROR, blob file \"quillard.blb\" holds no readable version string.\n";
    const std::size_t releaseByte = PositionToByte(FindStrings(L"8.1_20090303_1405_").pos);
    const struct {
        const char* name;
        std::string bytes;
        bool missing;
        bool clean;  // no ERROR line: a whole version string, or no file at all
    } cases[] = {
        {"missing", "", true, true},
        {"empty", "", false, true},
        {"header only", image_.substr(0, 92), false, false},
        {"cut in the release", image_.substr(0, releaseByte + 8), false, false},
        {"whole", image_, false, true},
    };
    for (const auto& c : cases) {
        ProgressLog(L"", 1);
        std::filesystem::remove("quillard.blb");
        if (!c.missing)
            WriteFile("quillard.blb", c.bytes);
        const std::string printed = PrintedVersion();
        const std::string log = Log();
        EXPECT_EQ(log.find(error) == std::string::npos, c.clean) << c.name << "\n" << log;
        EXPECT_EQ(printed.find("8.1_") != std::string::npos, c.clean && !c.bytes.empty()) << c.name;
    }
}

}  // namespace
}  // namespace qk::unit
