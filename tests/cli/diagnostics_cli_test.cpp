// Typical mistakes, each in a file of its own at a known line and column: the
// first diagnostic must name that place (GNU columns: tab stops every 8), its
// severity and the hint, with a caret under the column; the exit status is
// checked with and without --strict.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"
#include "tests/support/case_name.h"
#include "tests/support/generated_sets.h"
#include "tests/support/utf16_bytes.h"

namespace qk::cli {
namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The lines of a correct system set (tests/data/diagnostics/set.xml); cases
// replace one of them (numbered from 1).
const std::vector<std::string> kSet = Lines(ReadFile(TestData("diagnostics/set.xml")));

std::string SetWith(int line, const std::string& text, const char* lastLine = nullptr) {
    std::string out;
    for (int number = 1; number <= static_cast<int>(kSet.size()); ++number) {
        if (lastLine != nullptr && number == static_cast<int>(kSet.size())) {
            out += std::string(lastLine) + "\n";
        } else if (number != line) {
            out += kSet[number - 1] + "\n";
        } else if (!text.empty()) {
            out += text + "\n";
        }
    }
    return out;
}

enum class Kind { kSystem, kSystemUtf16, kDirectory, kUserAgainstBlob, kOptionsOnly };

struct Mistake {
    const char* name;
    int line;  // the line of kSet replaced
    std::string text;
    std::string where;  // "set.xml:L:C: error" as the first diagnostic begins
    const char* hint;   // the "did you mean" text, or ""
    int status;         // without --strict
    Kind kind = Kind::kSystem;
    const char* lastLine = nullptr;  // replaces the set's last line
};

const std::vector<Mistake>& Mistakes() {
    static const std::vector<Mistake> mistakes = {
        {"MisspeltElement", 13, "\t\t\t<vlaue Property=\"Smoothing\">1</vlaue>",
         "set.xml:13:25: error", "value", 0},
        {"MisspeltAttribute", 13, "\t\t\t<value Propery=\"Smoothing\">1</value>",
         "set.xml:13:32: error", "Property", 0},
        {"MisspeltProperty", 13, "\t\t\t<value Property=\"Smothing\">1</value>",
         "set.xml:13:42: error", "Smoothing", 0},
        {"MisspeltPropertyInUtf16", 13, "\t\t\t<value Property=\"Smothing\">1</value>",
         "set.xml:13:42: error", "Smoothing", 0, Kind::kSystemUtf16},
        {"MisspeltAreaOfProfile", 12, "\t\t<profile Area=\"Lumen3d\" Usage=\"Quiet\">",
         "set.xml:12:32: error", "Lumen3D", 0},
        {"MisspeltProfileInUse", 18, "\t\t\t<use Area=\"Lumen3D\">Quite</use>",
         "set.xml:18:45: error", "Quiet", 0},
        {"MisspeltType", 5, "\t\t\t<property Type=\"Dwrod\">Smoothing</property>",
         "set.xml:5:41: error", "Dword", 255},
        {"MisspeltPrivacy", 4, "\t\t<area Name=\"Lumen3D\" Privacy=\"Defnied\">",
         "set.xml:4:47: error", "Defined", 0},
        {"BadDword", 13, "\t\t\t<value Property=\"Smoothing\">0xZZ</value>", "set.xml:13:53: error",
         "", 0},
        {"BadQword", 13, "\t\t\t<value Property=\"Size\">0x1G</value>", "set.xml:13:48: error", "",
         0},
        {"BadBoolean", 13, "\t\t\t<value Property=\"Shown\">true</value>", "set.xml:13:49: error",
         "True", 0},
        {"BadBinary", 13, "\t\t\t<value Property=\"Ramp\">0xZZ,0x01</value>",
         "set.xml:13:48: error", "", 0},
        {"DuplicateProfile", 14,
         "\t\t</profile>\n\t\t<profile Area=\"Lumen3D\" Usage=\"Quiet\"><value "
         "Property=\"Smoothing\">2</value></profile>",
         "set.xml:15:17: warning", "", 0},
        {"DuplicateApplication", 19,
         "\t\t</application>\n\t\t<application Title=\"Sketch\" File=\"sketch.exe\"><use "
         "Area=\"Lumen3D\">Quiet</use></application>",
         "set.xml:20:17: warning", "", 0},
        {"PrivacyBeforeName", 4, "\t\t<area Privacy=\"ProfilesOnly\" Name=\"Lumen3D\">",
         "set.xml:4:23: warning", "", 0},
        {"MismatchedTags", 13, "\t\t\t<value Property=\"Smoothing\">1</vlaue>",
         "set.xml:13:54: error", "", 255},
        {"UnclosedRoot", 21, "", "set.xml:2:1: error", "", 255},
        {"MissingGreaterThan", 12, "\t\t<profile Area=\"Lumen3D\" Usage=\"Quiet\"",
         "set.xml:12:54: error", "", 255},
        {"BareLessThan", 13, "\t\t\t<value Property=\"Smoothing\">1 < 2</value>",
         "set.xml:13:55: error", "", 255},
        {"WrongRoot", 2, "<customizations Format=\"1\" Content=\"Mistakes\">", "set.xml:2:1: error",
         "customisations", 0, Kind::kSystem, "</customizations>"},
        {"DirectoryFileRefused", 2, "<customisations Format=\"1.0\" Content=\"Mistakes\">",
         "dir/set.xml:2:1: error", "", 255, Kind::kDirectory},
        {"UserFilePrivacy", 4, "\t\t<area Name=\"Lumen3D\" Privacy=\"ProfilesOnly\">",
         "user.xml:3:34: error", "", 0, Kind::kUserAgainstBlob},
        {"DriverPairMismatch", 9,
         "\t\t</area>\n\t\t<area Name=\"HYDynamic\"><property Type=\"Dword\">A</property></area>"
         "\n\t\t<area Name=\"NOMM-HYDynamic\"><property Type=\"Dword\">B</property></area>",
         "set.xml:10:17: error", "", 1},
        // A text of many words: the diagnostics on it stay a few lines of a
        // few hundred characters, however long the text.
        {"ProfileInUseOfManyWords", 18,
         "\t\t\t<use Area=\"Lumen3D\">" + test::Repeat("w ", 12000) + "</use>",
         "set.xml:18:45: error", "", 0},
        {"ElementNameOf5000Letters", 13, "\t\t\t<" + std::string(5000, 'n') + "/>",
         "set.xml:13:25: error", "", 0},
        {"MisspeltLongOption", 0, "", "error: unknown option \"--stirct\"", "--strict", 255,
         Kind::kOptionsOnly},
    };
    return mistakes;
}

class Diagnostics : public ::testing::TestWithParam<Mistake> {};

TEST_P(Diagnostics, NamesThePlaceTheSeverityAndTheHint) {
    const Mistake& m = GetParam();
    for (const bool strict : {false, true}) {
        ScratchDir dir;
        std::vector<std::string> args;
        switch (m.kind) {
            case Kind::kSystem:
                WriteFile(dir / "set.xml", SetWith(m.line, m.text, m.lastLine));
                args = {"-s", "set.xml", "-b", "out.blb"};
                break;
            case Kind::kSystemUtf16:
                // Columns count characters, whatever the encoding.
                WriteFile(dir / "set.xml", test::Utf16WithMark(SetWith(m.line, m.text)));
                args = {"-s", "set.xml", "-b", "out.blb"};
                break;
            case Kind::kDirectory:
                std::filesystem::create_directory(dir / "dir");
                WriteFile(dir / "dir" / "set.xml", SetWith(m.line, m.text));
                args = {"-p", "dir", "-b", "out.blb"};
                break;
            case Kind::kUserAgainstBlob: {
                WriteFile(dir / "set.xml", SetWith(m.line, m.text));
                ASSERT_EQ(RunQuillard(dir.path(), {"-s", "set.xml", "-b", "system.blb"}).status, 0);
                WriteFile(dir / "user.xml",
                          "<?xml version=\"1.0\"?>\n<customisations Format=\"1\">\n"
                          "\t<profiles><profile Area=\"Lumen3D\" Usage=\"Mine\"><value "
                          "Property=\"Smoothing\">2</value></profile></profiles>\n"
                          "\t<applications><application Title=\"Mine\" File=\"mine.exe\"><use "
                          "Area=\"Lumen3D\">Quiet</use></application></applications>\n"
                          "</customisations>\n");
                args = {"-u", "-s", "user.xml", "-b", "user.blb", "--against", "system.blb"};
                break;
            }
            case Kind::kOptionsOnly:
                args = {"--stirct", "-s", "set.xml"};
                break;
        }
        if (strict) {
            args.insert(args.begin(), "--strict");
        }
        const RunResult run = RunQuillard(dir.path(), args);
        const std::vector<std::string> lines = Lines(run.err);
        ASSERT_FALSE(lines.empty()) << m.name << ": no diagnostic";
        const bool isError = m.where.find("error") != std::string::npos;
        const int wanted = strict && isError && m.status == 0 ? 255 : m.status;
        EXPECT_EQ(run.status, wanted) << m.name << (strict ? " with --strict" : "") << "\n"
                                      << run.err;
        for (const std::string& line : lines) {
            EXPECT_LT(line.size(), 1500u) << m.name << ": a diagnostic line too long to read";
        }
        EXPECT_EQ(lines[0].rfind("quillard: " + m.where, 0), 0u) << m.name << "\n" << run.err;
        if (*m.hint != '\0') {
            EXPECT_NE(lines[0].find(std::string("did you mean \"") + m.hint + "\"?"),
                      std::string::npos)
                << m.name << "\n"
                << lines[0];
        }
        if (m.kind == Kind::kOptionsOnly) {
            EXPECT_EQ(lines.size(), 1u) << "one diagnostic, nothing else done:\n" << run.err;
            EXPECT_FALSE(std::filesystem::exists(dir / "quillard.blb"));
            continue;
        }
        // The caret stands under the column that the first line names.
        ASSERT_GE(lines.size(), 3u) << run.err;
        const std::size_t bar = lines[2].find('|');
        const std::size_t caret = lines[2].find('^');
        const std::size_t column =
            std::stoul(m.where.substr(m.where.rfind(':', m.where.rfind(':') - 1) + 1));
        EXPECT_EQ(caret - bar - 1, column) << m.name << "\n" << run.err;
    }
}

INSTANTIATE_TEST_SUITE_P(Mistakes, Diagnostics, ::testing::ValuesIn(Mistakes()), test::CaseName());

// What compiles cleanly says nothing at all.
TEST(DiagnosticsClean, TheExamplesPrintNothingOnStandardError) {
    ScratchDir dir;
    const RunResult run =
        RunQuillard(dir.path(), {"--strict", "-s", Example("system.xml").string(), "-s",
                                 Example("update.xml").string(), "-b", "out.blb"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

// A SARIF log names each file by an absolute URI, with the bytes a URI cannot
// hold escaped and the ones it can left as they are.
TEST(DiagnosticsSarif, NamesTheFileByItsUri) {
    ScratchDir dir;
    WriteFile(dir / "my set~1.xml", SetWith(13, "\t\t\t<vlaue Property=\"Smoothing\">1</vlaue>"));
    const RunResult run = RunQuillard(
        dir.path(), {"--diagnostics-format=sarif", "-s", "my set~1.xml", "-b", "o.blb"});
    EXPECT_NE(run.err.find("\"uri\":\"file://" + dir.path().string() + "/my%20set~1.xml\""),
              std::string::npos)
        << run.err;
}

}  // namespace
}  // namespace qk::cli
