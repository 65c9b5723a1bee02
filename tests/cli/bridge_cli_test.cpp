// The display-control library as quillard meets it, through the stand-in library
// the build makes: the bridge's messages, user and OEM files checked against an
// installed set, and the reverse conversion back to XML.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "tests/cli/cli_harness.h"
#include "tests/support/blob_decoder.h"
#include "tests/support/utf16_bytes.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// A scratch directory with examples/system.xml installed as the system database.
class InstalledSet : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(dir_ / "installed");
        ASSERT_EQ(RunQuillard(dir_.path(),
                              {"-s", Example("system.xml").string(), "-b", "installed/system.blb"})
                      .status,
                  0);
    }
    RunResult Run(const std::vector<std::string>& args, const std::string& fail = "",
                  const std::string& variant = "") {
        auto env = SimulatorEnv(dir_.path(), variant);
        env["VEXZEL_SIM_FAIL"] = fail;
        return RunQuillard(dir_.path(), args, env);
    }
    ScratchDir dir_;
};

// Each message and result is checked per bridge call in the unit tests; here only
// what the tool makes of them: messages on standard output, the run's status.
TEST_F(InstalledSet, BridgeMessagesReachStandardOutput) {
    struct Case {
        std::vector<std::string> args;
        std::string fail;
        std::string variant;
        int status;
        std::string out;
    };
    const std::vector<std::string> reload = {"-reload"};
    const std::vector<std::string> reverse = {"-r", "-sys", "-s", "out.xml"};
    const Case cases[] = {
        {reload, "", "", 0, ""},
        {reload, "", "ZEL_ApplicationProfiles_System_Reload", 0,
         "Fail to get ZEL_APPLICATIONPROFILES_SYSTEM_RELOAD handle!"},
        {reload, "ZEL_Main_Control_Create", "", 0, "ZEL Initialization error!"},
        {reload, "ZEL_ApplicationProfiles_System_Reload,ZEL_Main_Control_Destroy", "", 0,
         "ZEL_ApplicationProfiles_System_Reload failed.ZEL Destroy error!"},
        {reverse, "", "ZEL_ApplicationProfiles_GetCustomization", 255,
         "Fail to get ZEL_ApplicationProfiles_GetCustomization handle!"},
        {reverse, "ZEL_ApplicationProfiles_GetCustomization", "", 255,
         "ZEL_ApplicationProfiles_GetCustomization failed."},
        {reverse, "ZEL_Main_Control_Destroy", "", 0, "ZEL Destroy error!"},
    };
    for (const auto& c : cases) {
        fs::remove(dir_ / "out.xml");
        RunResult run = Run(c.args, c.fail, c.variant);
        EXPECT_EQ(run.status, c.status) << c.fail << c.variant;
        EXPECT_EQ(run.out, c.out) << c.fail << c.variant;
        EXPECT_EQ(fs::exists(dir_ / "out.xml"), c.status == 0 && c.args == reverse);
    }
}

// The three queries of a user run: each attribute of the profile asks for the
// area's privacy, and so does the use while the area stays refused; the value
// asks for its property's type; the use asks whether the system profile exists.
TEST_F(InstalledSet, EveryQueryMessageInAUserRun) {
    const std::string privacy = "ZEL_ApplicationProfiles_DriverAreaPrivacy_Get";
    const std::string type = "ZEL_ApplicationProfiles_PropertyType_Get";
    const std::string exist = "ZEL_ApplicationProfiles_Profile_Exist";
    auto thrice = [](const std::string& text) { return text + text + text; };
    struct Case {
        std::string fail;
        std::string variant;
        std::string out;
    };
    const Case cases[] = {
        {"", "", ""},
        {"", privacy, thrice("Fail to get ZEL_APPLICATIONPROFILES_DRIVERAREA_GET handle!")},
        {privacy, "", thrice(privacy + " failed.")},
        {"", type, "Fail to get ZEL_APPLICATIONPROFILES_PROPERTYTYPE handle!"},
        {type, "", type + " failed."},
        {"", exist,
         "Fail to get ZEL_APPLICATIONPROFILES_PROFILE_EXIST handle!" + exist + " failed!"},
        {exist, "", exist + " failed." + exist + " failed!"},
        {"ZEL_Main_Control_Create", "", thrice("ZEL Initialization error!")},
        {"ZEL_Main_Control_Destroy", "", thrice("ZEL Destroy error!") + "ZEL Destroy error!"},
    };
    for (const auto& c : cases) {
        RunResult run =
            Run({"-u", "-s", TestData("bridge/user_queries.xml").string(), "-b", "user.blb"},
                c.fail, c.variant);
        EXPECT_EQ(run.status, 0) << c.fail << c.variant;
        EXPECT_EQ(run.out, c.out) << c.fail << c.variant;
    }
}

TEST_F(InstalledSet, WithoutTheLibraryEveryCallFailsSilently) {
    RunResult reverse = RunQuillard(dir_.path(), {"-r", "-sys", "-s", "out.xml"},
                                    {{"LD_LIBRARY_PATH", "/nonexistent"}});
    EXPECT_EQ(reverse.status, 255);
    EXPECT_EQ(reverse.out, "");
    EXPECT_FALSE(fs::exists(dir_ / "out.xml"));
}

TEST_F(InstalledSet, UserAndOemFilesAreCheckedAgainstTheInstalledSet) {
    for (const char* kind : {"-u", "-oem"}) {
        SCOPED_TRACE(kind);
        RunResult run = Run({kind, "-s", TestData("bridge/user_privacy.xml").string(), "-b",
                             "user.blb", "-l", "user.log"});
        ASSERT_EQ(run.status, 0);
        const std::string log = ReadFile(dir_ / "user.log");
        for (const char* line : {
                 "ERROR, The profile overriding/modifying is not allowed by the area HYDynamic "
                 "privacy setting\n",
                 "ERROR, The profile overriding/modifying is not allowed by the area VideoPost "
                 "privacy setting\n",
                 "ERROR, Area Ghost refered by profile is missing in System blob\n",
                 "XML ERROR, NOMM-HYDynamic Area disallows application adding/overriding \n",
                 "XML ERROR, VideoPost Area disallows application adding/overriding \n",
                 "ERROR, Area Ghost refered by application lost.exe is missing in System blob\n",
                 "XML ERROR, Application Nowhere use doesn't refer to an existing area HYDynamic "
                 "profile NoSuchProfile\n",
             }) {
            EXPECT_THAT(log, HasSubstr(line));
        }
        EXPECT_THAT(run.out, HasSubstr("ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed."));

        const unit::DecodedBlob blob = unit::DecodeBlobFile((dir_ / "user.blb").string());
        ASSERT_TRUE(blob.ok());
        // Only the area something still refers to stays; its properties come with the
        // types of the installed set.
        ASSERT_EQ(blob.drivers.size(), 1u);
        EXPECT_EQ(blob.drivers[0].name, L"Lumen3D");
        ASSERT_EQ(blob.properties.size(), 2u);
        EXPECT_EQ(blob.properties[0].name, L"AnisoLevel");
        EXPECT_EQ(blob.properties[0].type, 3u);
        EXPECT_EQ(blob.properties[1].name, L"OverlayText");
        EXPECT_EQ(blob.properties[1].type, 6u);
        const unit::DecodedProfile* mine = blob.FindProfile(L"MyCrisp", L"Lumen3D");
        ASSERT_NE(mine, nullptr);
        EXPECT_EQ(mine->values.size(), 2u);
        // A use of an installed profile brings a placeholder profile without values.
        const unit::DecodedProfile* placeholder = blob.FindProfile(L"FastFrames", L"Lumen3D");
        ASSERT_NE(placeholder, nullptr);
        EXPECT_TRUE(placeholder->values.empty());
        ASSERT_EQ(blob.applications.size(), 2u);
        EXPECT_EQ(blob.applications[0].title, L"Racer Too");
        EXPECT_EQ(blob.applications[1].title, L"Sharp Too");
    }
}

// A decoded blob as text, positions left out: what a round trip must keep.
std::string Canonical(const unit::DecodedBlob& blob) {
    std::ostringstream out;
    for (const auto& area : blob.areas) {
        out << "area " << unit::Narrow(area.driverName);
        for (const auto& driver : blob.drivers) {
            if (driver.position == area.posDriver)
                out << " privacy " << driver.privacy;
        }
        out << "\n";
        for (const auto& property : area.chain) {
            out << "  property " << property.type << " " << unit::Narrow(property.name) << " ["
                << unit::Narrow(property.set) << "]\n";
        }
    }
    for (const auto& profile : blob.profiles) {
        out << "profile " << unit::Narrow(profile.driverName) << "/" << unit::Narrow(profile.name)
            << " [" << unit::Narrow(profile.notes) << "]\n";
        for (const auto& value : profile.values) {
            out << "  value " << value.propertyName << " =";
            for (auto byte : value.datum)
                out << " " << int(byte);
            out << "\n";
        }
    }
    for (const auto& application : blob.applications) {
        out << "application " << unit::Narrow(application.title) << "|"
            << unit::Narrow(application.file) << "|" << unit::Narrow(application.path) << "|"
            << unit::Narrow(application.version) << "\n";
        for (const auto& use : application.chain) {
            out << "  use " << unit::Narrow(use.profileDriver) << "/"
                << unit::Narrow(use.profileName) << "\n";
        }
    }
    return out.str();
}

TEST_F(InstalledSet, EachDatabaseSurvivesTheRoundTrip) {
    struct Case {
        std::string option;  // file kind of the compile
        std::string database;
        std::string file;
        std::string source;
    };
    const Case cases[] = {
        {"", "-sys", "system.blb", Example("system.xml").string()},
        {"-u", "-user", "user.blb", TestData("docs/user1.xml").string()},
        {"-oem", "-oem", "oem.blb", TestData("docs/user2.xml").string()},
    };
    for (const auto& c : cases) {
        std::vector<std::string> compile = {"-s", c.source, "-b", "first.blb"};
        if (!c.option.empty())
            compile.insert(compile.begin(), c.option);
        ASSERT_EQ(Run(compile).status, 0) << c.database;
        if (c.file != "system.blb")
            fs::copy_file(dir_ / "first.blb", dir_ / "installed" / c.file);
        ASSERT_EQ(Run({"-r", c.database, "-s", "back.xml"}).status, 0) << c.database;
        std::vector<std::string> again = {"-s", "back.xml", "-b", "again.blb"};
        if (!c.option.empty())
            again.insert(again.begin(), c.option);
        ASSERT_EQ(Run(again).status, 0) << c.database;
        const unit::DecodedBlob first = unit::DecodeBlobFile((dir_ / "first.blb").string());
        const unit::DecodedBlob second = unit::DecodeBlobFile((dir_ / "again.blb").string());
        ASSERT_TRUE(first.ok() && second.ok()) << c.database;
        EXPECT_FALSE(first.profiles.empty()) << c.database;
        EXPECT_EQ(Canonical(first), Canonical(second)) << c.database;
        fs::remove(dir_ / "back.xml");
    }
}

TEST_F(InstalledSet, TheReverseConversionWritesTheDocumentExactly) {
    ASSERT_EQ(Run({"-s", TestData("bridge/escaping.xml").string(), "-b", "installed/system.blb",
                   "-c", "7"})
                  .status,
              0);
    ASSERT_EQ(Run({"-r", "-s", "out.xml"}).status, 0);
    const std::string document = ReadFile(dir_ / "out.xml");
    const std::string expectedStart = test::Utf16WithMark(
        "<?xml version=\"1.0\" encoding=\"utf-16\"?>\n<customisations Format=\"1\" Release=\"7_");
    ASSERT_EQ(document.substr(0, expectedStart.size()), expectedStart);
    const std::string rest = test::Utf16Bytes(
        "_\">\n"
        "\t<properties>\n"
        "\t\t<area Name=\"Fx&amp;Co\" Privacy=\"Defined\">\n"
        "\t\t\t<property Type=\"String\" Set=\"a&lt;b\">Label</property>\n"
        "\t\t</area>\n"
        "\t</properties>\n"
        "\t<profiles>\n"
        "\t\t<profile Area=\"Fx&amp;Co\" Usage=\"Say &quot;hi&quot;\" "
        "Notes=\"1 &lt; 2 &gt; 0\">\n"
        "\t\t\t<value Property=\"Label\">Tom &amp; Jerry</value>\n"
        "\t\t</profile>\n"
        "\t</profiles>\n"
        "\t<applications>\n"
        "\t\t<application Title=\"&lt;Quoted&gt;\" File=\"q&amp;a.exe\">\n"
        "\t\t\t<use Area=\"Fx&amp;Co\">Say &quot;hi&quot;</use>\n"
        "\t\t</application>\n"
        "\t</applications>\n"
        "</customisations>\n");
    // The 13 characters of the time stamp stand between the two.
    ASSERT_EQ(document.size(), expectedStart.size() + 2 * 13 + rest.size());
    EXPECT_EQ(document.substr(expectedStart.size() + 26), rest);
    // And what it wrote compiles back to the same texts.
    ASSERT_EQ(Run({"-s", "out.xml", "-b", "again.blb"}).status, 0);
    EXPECT_EQ(Canonical(unit::DecodeBlobFile((dir_ / "again.blb").string())),
              Canonical(unit::DecodeBlobFile((dir_ / "installed/system.blb").string())));
}

TEST_F(InstalledSet, PlaceholdersShowAreasWithoutPropertiesAndProfilesWithoutValues) {
    // A user set whose only profile is a placeholder for an installed one.
    WriteFile(dir_ / "placeholder.xml",
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<customisations Format=\"1\">\n"
              "\t<applications>\n\t\t<application Title=\"Fan\" File=\"fan.exe\">\n"
              "\t\t\t<use Area=\"Lumen3D\">FastFrames</use>\n\t\t</application>\n"
              "\t</applications>\n</customisations>\n");
    ASSERT_EQ(Run({"-u", "-s", "placeholder.xml", "-b", "installed/user.blb"}).status, 0);
    ASSERT_EQ(Run({"-r", "-user", "-s", "plain.xml"}).status, 0);
    ASSERT_EQ(Run({"-r", "-user", "-ph", "-s", "full.xml"}).status, 0);
    const std::string plain = ReadFile(dir_ / "plain.xml");
    const std::string full = ReadFile(dir_ / "full.xml");
    EXPECT_THAT(plain, Not(HasSubstr(test::Utf16Bytes("<properties>"))));
    EXPECT_THAT(plain, Not(HasSubstr(test::Utf16Bytes("<profiles>"))));
    EXPECT_THAT(plain,
                HasSubstr(test::Utf16Bytes("\t\t\t<use Area=\"Lumen3D\">FastFrames</use>\n")));
    EXPECT_THAT(full, HasSubstr(test::Utf16Bytes(
                          "\t<properties>\n\t\t<area Name=\"Lumen3D\" Privacy=\"Defined\">\n"
                          "\t\t</area>\n\t</properties>\n")));
    EXPECT_THAT(full, HasSubstr(test::Utf16Bytes(
                          "\t<profiles>\n\t\t<profile Area=\"Lumen3D\" Usage=\"FastFrames\">\n"
                          "\t\t</profile>\n\t</profiles>\n")));
}

TEST_F(InstalledSet, AnEmptyDatabaseGivesTheSmallestDocument) {
    ASSERT_EQ(Run({"-r", "-oem", "-s", "oem.xml"}).status, 0);
    EXPECT_EQ(ReadFile(dir_ / "oem.xml"),
              test::Utf16WithMark(
                  "<?xml version=\"1.0\" encoding=\"utf-16\"?>\n<customisations Format=\"1\" "
                  "Release=\"\">\n</customisations>\n"));
}

}  // namespace
}  // namespace qk::cli
