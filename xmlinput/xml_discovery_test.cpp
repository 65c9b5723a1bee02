#include "xmlinput/xml_discovery.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "model/file_kind.h"
#include "tests/support/files.h"
#include "tests/support/logged_test.h"

namespace qk {
namespace {

namespace fs = std::filesystem;
using test::WriteFile;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
const std::string kProperties =
    "<properties><area Name=\"Heron\" Privacy=\"Defined\">\n"
    "<property Type=\"Dword\">Depth</property></area></properties>\n";
const std::string kProfiles =
    "<profiles><profile Area=\"Heron\" Usage=\"Calm\" Notes=\"\">\n"
    "<value Property=\"Depth\">0x2</value></profile></profiles>\n";
const std::string kApplications =
    "<applications><application Title=\"Sail\" File=\"sail.bin\" Path=\"\" Version=\"\">\n"
    "<use Area=\"Heron\">Calm</use></application></applications>\n";

std::string Document(const std::string& body, const std::string& header = "Format=\"1\"") {
    return kDeclaration + "<customisations " + header + ">\n" + body + "</customisations>\n";
}

class XmlDiscoveryTest : public unit::LoggedTest {
  protected:
    void TearDown() override {
        SetFileKind(kSystemFile);
        unit::LoggedTest::TearDown();
    }
    // The list of a scan and its count; "-1" for the list when the scan fails.
    static std::pair<std::string, int> Scan(const char* directory) {
        std::vector<std::string> files;
        const int result = FindXmlFiles(directory, files);
        std::string list;
        for (const std::string& file : files) {
            list += file + ";";
        }
        return {result != 0 ? "-1" : list, static_cast<int>(files.size())};
    }
};

TEST_F(XmlDiscoveryTest, ScansFindXmlFilesInByteOrder) {
    struct Case {
        const char* what;
        std::vector<const char*> files;
        const char* directory;
        const char* list;
        int count;
    };
    const Case cases[] = {
        {"extension in any case, only at the end",
         {"a.XML", "b.Xml", "c.xml.bak", ".xml", "xml", "d.xmL", "e.txt", "fxml", "g.xm"},
         "d",
         "d/.xml;d/a.XML;d/b.Xml;d/d.xmL;",
         4},
        {"sub-directories stand where they sort",
         {"b.xml", "a/z.xml", "a/deeper/y.xml", "C.xml", "c/notes.txt"},
         "d",
         "d/C.xml;d/a/deeper/y.xml;d/a/z.xml;d/b.xml;",
         4},
        {"only in a sub-directory", {"empty/", "inner/only.xml"}, "d", "d/inner/only.xml;", 1},
        {"trailing slash kept", {"a.xml"}, "d/", "d//a.xml;", 1},
        {"empty directory", {}, "d", "-1", 0},
        {"empty sub-directory", {"inner/"}, "d", "-1", 0},
        {"no XML file", {"a.txt"}, "d", "-1", 0},
        {"missing directory", {}, "absent", "-1", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        fs::remove_all("d");
        fs::create_directories("d");
        for (const char* file : c.files) {
            if (std::string(file).ends_with("/")) {
                fs::create_directories(fs::path("d") / file);
            } else {
                WriteFile(fs::path("d") / file, "x");
            }
        }
        EXPECT_EQ(Scan(c.directory), std::make_pair(std::string(c.list), c.count));
    }
    EXPECT_TRUE(
        Logged("folder found:- d/a\nfolder found:- d/a/deeper\n"
               "XML file found:- d/a/deeper/y.xml\nXML file found:- d/a/z.xml\n"));
}

TEST_F(XmlDiscoveryTest, SymbolicLinksAreSkipped) {
    WriteFile("d/real.xml", "x");
    fs::create_symlink("real.xml", "d/link.xml");
    fs::create_directory_symlink(".", "d/loop");
    EXPECT_EQ(Scan("d"), std::make_pair(std::string("d/real.xml;"), 1));
}

TEST_F(XmlDiscoveryTest, ValidationFollowsTheShapeRules) {
    struct Case {
        const char* what;
        int kind;
        int countProperties;
        std::string xml;
        int result;
        const char* logged;
    };
    const std::string all = kProperties + kProfiles + kApplications;
    const std::string noProperties = kProfiles + kApplications;
    const Case cases[] = {
        {"system file", kSystemFile, 1, Document(kProperties), 0, ""},
        {"without declaration", kSystemFile, 1,
         "<customisations Format=\"1\">\n" + all + "</customisations>\n", -1, ""},
        {"comment before customisations", kSystemFile, 1,
         kDeclaration + "<!-- by hand -->\n<customisations Format=\"1\">\n" + all +
             "</customisations>\n",
         -1, "ERROR, unknown node found: - !-- by hand --\n"},
        {"Format 1.0", kSystemFile, 1, Document(all, "Format=\"1.0\""), -1, ""},
        {"Format empty", kSystemFile, 1, Document(all, "Format=\"\""), -1, ""},
        {"Format missing", kSystemFile, 1, Document(all, "Content=\"Set\""), -1, ""},
        {"Format 12", kSystemFile, 1, Document(all, "Content=\"Set\" Format=\"12\""), 0, ""},
        {"every unknown element, case-sensitive", kSystemFile, 1,
         Document(all + "<Profile/><two><three/></two>\n"), -1,
         "ERROR, unknown node found: - Profile\nERROR, unknown node found: - two\n"
         "ERROR, unknown node found: - three\n"},
        {"system without property", kSystemFile, 1, Document(noProperties), -1, ""},
        {"system, properties not counted", kSystemFile, 0, Document(noProperties), 0, ""},
        {"user without property", kUserFile, 1, Document(noProperties), -1, ""},
        {"OEM without property", kOemFile, 1, Document(noProperties), 0, ""},
        {"user with everything", kUserFile, 1, Document(all), 0, ""},
        {"user with applications only", kUserFile, 1, Document(kApplications), 0, ""},
        {"user, properties without profiles", kUserFile, 1, Document(kProperties + kApplications),
         -1, ""},
        {"user without applications", kUserFile, 1, Document(kProperties + kProfiles), -1, ""},
        {"OEM without applications", kOemFile, 1, Document(kProfiles), -1, ""},
        {"OEM, properties without profiles", kOemFile, 1, Document(kProperties + kApplications), -1,
         ""},
        // Not counting properties makes every file count as having some.
        {"OEM, not counted, without profiles", kOemFile, 0, Document(kApplications), -1, ""},
        {"user, not counted, without property", kUserFile, 0, Document(noProperties), 0, ""},
        {"not well-formed", kSystemFile, 1, Document(all).substr(0, 120), -2,
         "Invalid XML detected: check.xml\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SetFileKind(static_cast<FileKind>(c.kind));
        WriteFile("check.xml", c.xml);
        ProgressLog(L"", 1);
        EXPECT_EQ(ValidateXmlProfile("check.xml", c.countProperties), c.result);
        EXPECT_EQ(Log(), c.logged);
    }
    EXPECT_EQ(ValidateXmlProfile("absent.xml", 1), -1);
}

}  // namespace
}  // namespace qk
