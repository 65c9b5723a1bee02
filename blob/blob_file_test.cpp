#include "blob/blob_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "blob/blob_test_support.h"
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

std::size_t WriteHalf(const void* bytes, std::size_t count, std::FILE* file) {
    return std::fwrite(bytes, 1, count / 2, file);
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
    void TearDown() override {
        SetBlobWriterForTests(nullptr);
        BlobTest::TearDown();
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

TEST_F(BlobFileTest, FailedWriteLeavesTheOldBlobWhole) {
    const std::string old = "an older blob";
    WriteFile("out.blb", old);
    SetBlobWriterForTests(WriteHalf);
    EXPECT_EQ(Write("out.blb"), 0);
    EXPECT_EQ(ReadFile("out.blb"), old);
    EXPECT_EQ(DirectoryEntries(), (std::vector<std::string>{"out.blb", "quillard.log"}));
    EXPECT_NE(Log().find("ERROR, WriteBinFile(): - writing \"out.blb\" failed after " +
                         std::to_string(image_.size() / 2) + " of " +
                         std::to_string(image_.size()) + " bytes; the file is left as it was.\n"),
              std::string::npos);
    EXPECT_EQ(Log().find("BLOB file:-"), std::string::npos);
}

// A blob whose Words table spans many pages: its bytes go out while the other
// tables are built, and the file must still be exactly the image, with no
// temporary file left, whether WriteBinFile then writes the expected file or not.
class EarlyBlobFileTest : public BlobTest {
  protected:
    void Build(const char* expected) {
        SetHeader(L"8.1_20090303_1405_");
        Area* area = AddArea(L"Render");
        Property* dword = AddProperty(area, kTypeDword, L"Dw");
        Profile* profile = AddProfile(area, L"fast");
        AddWords(profile, dword, {3});
        for (int i = 0; i < 800; ++i) {
            const std::wstring title =
                L"Harbour Lantern Signal Viewer number " + std::to_wstring(i);
            AddUse(AddApplication(title.c_str()), L"fast", area);
        }
        ExpectBlobFile(expected);
        CreateCompact();
        image_.assign(reinterpret_cast<const char*>(g_lpBlob),
                      static_cast<std::size_t>(g_lpApplicationPtr - g_lpBlob));
        ASSERT_GT(image_.size(), std::size_t{128} * 1024);
    }
    int Write(const char* name) {
        std::vector<char> buffer(256, '\0');
        std::strcpy(buffer.data(), name);
        return WriteBinFile(buffer.data());
    }
    std::string image_;
};

TEST_F(EarlyBlobFileTest, TheExpectedFileIsExactlyTheImage) {
    WriteFile("out.blb", "an older blob");
    Build("out.blb");
    EXPECT_EQ(DirectoryEntries().size(), 3u);  // the temporary file holds the Words table
    EXPECT_EQ(Write("out.blb"), static_cast<int>(image_.size()));
    EXPECT_EQ(ReadFile("out.blb"), image_);
    EXPECT_EQ(DirectoryEntries(), (std::vector<std::string>{"out.blb", "quillard.log"}));
}

TEST_F(EarlyBlobFileTest, AnotherFileGetsTheWholeImageAndTheEarlyBytesGo) {
    Build("out.blb");
    EXPECT_EQ(Write("other.blb"), static_cast<int>(image_.size()));
    EXPECT_EQ(ReadFile("other.blb"), image_);
    EXPECT_EQ(DirectoryEntries(), (std::vector<std::string>{"other.blb", "quillard.log"}));
}

TEST_F(EarlyBlobFileTest, ADeviceGetsNothingEarly) {
    fs::create_symlink("/dev/null", "device.blb");
    Build("device.blb");
    for (const auto& entry : fs::directory_iterator("/dev")) {
        EXPECT_NE(entry.path().filename().string().rfind(".null.", 0), 0u) << entry.path();
    }
    EXPECT_EQ(Write("device.blb"), static_cast<int>(image_.size()));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
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
    const std::string empty =
        "ERROR, blob file \"quillard.blb\" is missing or empty; the image is all zero.\n";
    const struct {
        const char* name;
        std::string bytes;
        bool missing;
        bool whole;
    } cases[] = {
        {"missing", "", true, false},
        {"empty", "", false, false},
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
        EXPECT_EQ(log.find(error) == std::string::npos, c.whole) << c.name << "\n" << log;
        EXPECT_EQ(log.find(empty) != std::string::npos, c.bytes.empty()) << c.name;
        EXPECT_EQ(printed.find("8.1_") != std::string::npos, c.whole) << c.name;
    }
}

}  // namespace
}  // namespace qk::unit
