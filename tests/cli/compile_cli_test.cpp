// Compiling XML to a blob from end to end, as a build pipeline runs it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/cli/cli_harness.h"
#include "tests/support/blob_decoder.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(CompileCli, TheExampleSetIsLaidOutTableByTable) {
    ScratchDir dir;
    RunResult run = RunQuillard(
        dir.path(), {"-s", Example("system.xml").string(), "-s", Example("update.xml").string(),
                     "-b", "out.blb", "-l", "run.log", "-c", "4.2"});
    ASSERT_EQ(run.status, 0);
    const std::string log = ReadFile(dir / "run.log");
    EXPECT_THAT(log, HasSubstr("SUCCESS -  Drivers: HYDynamic and NOMM-HYDynamic match.\n"));
    EXPECT_THAT(log, Not(HasSubstr("ERROR")));
    EXPECT_THAT(log, Not(HasSubstr("WARNING")));

    const unit::DecodedBlob blob = unit::DecodeBlobFile((dir / "out.blb").string());
    ASSERT_TRUE(blob.ok());
    EXPECT_EQ(blob.endByte, fs::file_size(dir / "out.blb"));
    EXPECT_EQ(blob.release.substr(0, 4), L"4.2_");
    EXPECT_EQ(blob.release.size(), 4u + 13u + 1u);

    // Drivers in area order, files in command-line order.
    const std::vector<std::pair<std::wstring, std::uint32_t>> drivers = {{L"Lumen3D", 1},
                                                                         {L"HYDynamic", 3},
                                                                         {L"NOMM-HYDynamic", 5},
                                                                         {L"VideoPost", 7},
                                                                         {L"CaptureKit", 1}};
    ASSERT_EQ(blob.drivers.size(), drivers.size());
    for (std::size_t i = 0; i < drivers.size(); ++i) {
        EXPECT_EQ(blob.drivers[i].name, drivers[i].first);
        EXPECT_EQ(blob.drivers[i].privacy, drivers[i].second);
        EXPECT_EQ(blob.areas[i].driverName, drivers[i].first);
    }
    // Property chains run from the last property back to the first.
    ASSERT_EQ(blob.areas[0].chain.size(), 6u);
    EXPECT_EQ(blob.areas[0].chain.front().name, L"OverlayText");
    EXPECT_EQ(blob.areas[0].chain.back().name, L"AnisoLevel");
    EXPECT_EQ(blob.areas[0].chain.back().set, L"0,2,4,8,16");
    EXPECT_EQ(blob.areas[0].chain.back().type, 3u);
    EXPECT_EQ(blob.properties.size(), 6u + 2 + 2 + 2 + 2);

    ASSERT_EQ(blob.profiles.size(), 7u);
    const unit::DecodedProfile* sharp = blob.FindProfile(L"SharpDetail", L"Lumen3D");
    ASSERT_NE(sharp, nullptr);
    EXPECT_EQ(sharp->notes, L"Favours image quality");
    ASSERT_EQ(sharp->values.size(), 5u);
    EXPECT_EQ(sharp->values[0].propertyName, "AnisoLevel");
    EXPECT_EQ(sharp->values[0].Word(0), 16u);
    EXPECT_EQ(sharp->values[1].Word(0), 1u);  // True
    EXPECT_EQ(sharp->values[2].Text(), L"High");
    EXPECT_EQ(sharp->values[3].datum, (std::vector<std::uint8_t>{0x00, 0x40, 0x80, 0xC0, 0xFF}));
    EXPECT_EQ(sharp->values[4].Text(), L"Quality mode on");
    const unit::DecodedProfile* fast = blob.FindProfile(L"FastFrames", L"Lumen3D");
    ASSERT_NE(fast, nullptr);
    EXPECT_EQ(fast->values[3].Qword(), 0x40000000ull);

    ASSERT_EQ(blob.applications.size(), 7u);
    const unit::DecodedApplication* racer = blob.FindApplication(L"Skyline Racer");
    ASSERT_NE(racer, nullptr);
    EXPECT_EQ(racer->file, L"skyracer.exe");
    EXPECT_EQ(racer->path, L"games/skyline");
    EXPECT_EQ(racer->version, L"2.1");
    ASSERT_EQ(racer->chain.size(), 1u);
    EXPECT_EQ(racer->chain[0].profileName, L"FastFrames");
    const unit::DecodedApplication* beam = blob.FindApplication(L"Beam Caster");
    ASSERT_NE(beam, nullptr);
    EXPECT_EQ(beam->chain[0].profileDriver, L"CaptureKit");
}

TEST(CompileCli, ADirectoryMergesLikeTheSameFilesInNameOrder) {
    ScratchDir dir;
    fs::create_directories(dir / "set");
    fs::copy_file(Example("system.xml"), dir / "set" / "a.xml");
    fs::copy_file(Example("update.xml"), dir / "set" / "b.XML");
    ASSERT_EQ(RunQuillard(dir.path(), {"-p", "set", "-b", "dir.blb", "-c", "1"}).status, 0);
    ASSERT_EQ(RunQuillard(dir.path(),
                          {"-s", "set/a.xml", "-s", "set/b.XML", "-b", "files.blb", "-c", "1"})
                  .status,
              0);
    const unit::DecodedBlob fromDir = unit::DecodeBlobFile((dir / "dir.blb").string());
    const unit::DecodedBlob fromFiles = unit::DecodeBlobFile((dir / "files.blb").string());
    ASSERT_TRUE(fromDir.ok() && fromFiles.ok());
    ASSERT_EQ(fromDir.words.size(), fromFiles.words.size());
    EXPECT_EQ(fromDir.drivers.size(), fromFiles.drivers.size());
    EXPECT_EQ(fromDir.applications.size(), fromFiles.applications.size());
}

TEST(CompileCli, FailuresLeaveNoBlobAndEndWithTheirStatus) {
    struct Case {
        std::string file;
        int status;
        std::string logged;
    };
    const Case cases[] = {
        {"compile/pair_mismatch.xml", 1,
         "ERROR -  Drivers: HYDynamic and NOMM-HYDynamic have same number of properties, but "
         "different property names.\nTerminating Execution...\n"},
        {"compile/unknown_pair.xml", 0,
         "ERROR: - Unknown Driver/PropertyID pair: - Lumen3D/NoSuchThing."},
    };
    for (const auto& c : cases) {
        ScratchDir dir;
        RunResult run = RunQuillard(
            dir.path(), {"-s", TestData(c.file).string(), "-b", "out.blb", "-l", "run.log"});
        EXPECT_EQ(run.status, c.status) << c.file;
        EXPECT_FALSE(fs::exists(dir / "out.blb")) << c.file;
        // Neither end copies the log; quillard.log holds it.
        EXPECT_FALSE(fs::exists(dir / "run.log")) << c.file;
        EXPECT_THAT(ReadFile(dir / "quillard.log"), HasSubstr(c.logged)) << c.file;
    }
}

TEST(CompileCli, UserBeatsOemForTheInputAndUserBeatsOemForTheDatabase) {
    ScratchDir dir;
    const std::string file = TestData("compile/with_properties.xml").string();
    RunQuillard(dir.path(), {"-u", "-oem", "-s", file, "-b", "u.blb", "-l", "u.log"},
                {{"LD_LIBRARY_PATH", "/nonexistent"}});
    EXPECT_THAT(ReadFile(dir / "u.log"), Not(HasSubstr("in OEM xml file")));
    RunQuillard(dir.path(), {"-oem", "-s", file, "-b", "o.blb", "-l", "o.log"},
                {{"LD_LIBRARY_PATH", "/nonexistent"}});
    EXPECT_THAT(ReadFile(dir / "o.log"),
                HasSubstr("ERROR, in OEM xml file, 'properties' element is found and this is not "
                          "allowed, it will be ignored\n"));

    // The user database holds a set; the OEM database is empty.
    fs::create_directories(dir / "installed");
    ASSERT_EQ(RunQuillard(dir.path(), {"-s", file, "-b", "installed/user.blb"}).status, 0);
    const auto env = SimulatorEnv(dir.path());
    ASSERT_EQ(RunQuillard(dir.path(), {"-oem", "-user", "-r", "-s", "user.xml"}, env).status, 0);
    ASSERT_EQ(RunQuillard(dir.path(), {"-oem", "-sys", "-r", "-s", "oem.xml"}, env).status, 0);
    ASSERT_EQ(RunQuillard(dir.path(), {"-sys", "-user", "-r", "-s", "also.xml"}, env).status, 0);
    EXPECT_GT(fs::file_size(dir / "user.xml"), fs::file_size(dir / "oem.xml"));
    EXPECT_EQ(ReadFile(dir / "user.xml"), ReadFile(dir / "also.xml"));
}

}  // namespace
}  // namespace qk::cli
