// Pipelines: --strict turns every problem into a diagnostic on standard error and
// a failed run that keeps the old blob; SOURCE_DATE_EPOCH makes blobs
// reproducible; --help and --version answer as such options do.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

using ::testing::HasSubstr;

// A small system set with one part swapped for a broken one.
std::string Set(const std::string& properties, const std::string& values,
                const std::string& area = "Orchid") {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<customisations Format=\"1\" Content=\"Strict\">\n"
           "<properties><area Name=\"Orchid\" Privacy=\"Defined\">" +
           properties +
           "</area></properties>\n"
           "<profiles><profile Area=\"" +
           area + "\" Usage=\"Quick\">" + values +
           "</profile></profiles>\n"
           "<applications><application Title=\"Fern\" File=\"fern.exe\">"
           "<use Area=\"Orchid\">Quick</use></application></applications>\n"
           "</customisations>\n";
}

const std::string kDword = "<property Type=\"Dword\">Speed</property>";
std::string Value(const std::string& property, const std::string& text) {
    return "<value Property=\"" + property + "\">" + text + "</value>";
}

struct StrictCase {
    const char* name;
    std::string xml;
    std::vector<std::string> args;  // besides --strict -s in.xml
    const char* diagnostic;         // on standard error
    int status = 255;
};

std::vector<StrictCase> Cases() {
    return {
        {"MisspelledProperty",
         Set(kDword, Value("Speeed", "1")),
         {"-b", "good.blb"},
         "in.xml: error: Unknown Driver/PropertyID pair: - Orchid/Speeed."},
        {"UnknownType",
         Set("<property Type=\"Dwrd\">Speed</property>", ""),
         {"-b", "good.blb"},
         "in.xml: error: type not defined: - Dwrd"},
        {"DwordInWords",
         Set(kDword, Value("Speed", "sixty")),
         {"-b", "good.blb"},
         "in.xml: error: Dword value \"sixty\" is not a decimal number (value of property "
         "\"Speed\" in profile \"Quick\", area \"Orchid\")"},
        {"QwordWithAnExponent",
         Set("<property Type=\"Qword\">Size</property>", Value("Size", "1e3")),
         {"-b", "good.blb"},
         "in.xml: error: Qword value \"1e3\" is not a decimal number"},
        {"BooleanMaybe",
         Set("<property Type=\"Boolean\">On</property>", Value("On", "maybe")),
         {"-b", "good.blb"},
         "in.xml: error: Invalid Boolean value returned."},
        {"BinaryWithoutPrefix",
         Set("<property Type=\"Binary\">Ramp</property>", Value("Ramp", "01,02")),
         {"-b", "good.blb"},
         "in.xml: error: Improperly formed Hex string."},
        {"ProfileOfAnUnknownArea",
         Set(kDword, Value("Speed", "1"), "Nowhere"),
         {"-b", "good.blb"},
         "in.xml: warning: Unknown Driver: - Nowhere"},
        {"MismatchedTags",
         Set(kDword, "<value Property=\"Speed\">1</velue>"),
         {"-b", "good.blb"},
         "in.xml:4: error: Mismatched close tag"},
        {"UnwritableBlobPath",
         Set(kDword, Value("Speed", "1")),
         {"-b", "no/such/dir/x.blb"},
         "no/such/dir/x.blb: error: Unable to open bin file for writing."},
        {"UserFileWithoutTheLibrary",
         Set(kDword, Value("Speed", "1")),
         {"-u", "-b", "good.blb"},
         "error: the display-control library libvexzelxx.so cannot be "
         "loaded"},
    };
}

class Strict : public ::testing::TestWithParam<StrictCase> {};

TEST_P(Strict, EndsWithADiagnosticAndKeepsTheBlob) {
    const StrictCase& c = GetParam();
    ScratchDir dir;
    WriteFile(dir / "in.xml", c.xml);
    WriteFile(dir / "good.blb", "a blob of an earlier run");
    std::vector<std::string> args = {"--strict", "-s", "in.xml"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const RunResult strict = RunQuillard(dir.path(), args);
    EXPECT_EQ(strict.status, c.status);
    EXPECT_THAT(strict.err, HasSubstr("quillard: "));
    EXPECT_THAT(strict.err, HasSubstr(c.diagnostic));
    EXPECT_EQ(ReadFile(dir / "good.blb"), "a blob of an earlier run");
    // Without --strict the run ends as it always has: nothing on standard error
    // but the XML library's own message.
    args.erase(args.begin());
    const RunResult plain = RunQuillard(dir.path(), args);
    EXPECT_THAT(plain.err, ::testing::Not(HasSubstr("quillard: ")));
}

INSTANTIATE_TEST_SUITE_P(Cli, Strict, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<StrictCase>& param) {
                             return std::string(param.param.name);
                         });

TEST(StrictCli, ACleanRunEndsAsWithoutIt) {
    ScratchDir dir;
    const std::string example = Example("system.xml").string();
    const RunResult strict =
        RunQuillard(dir.path(), {"--strict", "-s", example, "-b", "strict.blb", "-l", "strict.log"},
                    {{"SOURCE_DATE_EPOCH", "1700000000"}});
    const RunResult plain =
        RunQuillard(dir.path(), {"-s", example, "-b", "plain.blb", "-l", "plain.log"},
                    {{"SOURCE_DATE_EPOCH", "1700000000"}});
    EXPECT_EQ(strict.status, 0);
    EXPECT_EQ(strict.err, "");
    EXPECT_EQ(ReadFile(dir / "strict.blb"), ReadFile(dir / "plain.blb"));
    std::string log = ReadFile(dir / "plain.log");
    for (std::size_t at; (at = log.find("plain.")) != std::string::npos;) {
        log.replace(at, 6, "strict.");
    }
    EXPECT_EQ(ReadFile(dir / "strict.log"), log);
}

TEST(StrictCli, SourceDateEpochMakesBlobsReproducible) {
    ScratchDir dir;
    const std::string example = Example("system.xml").string();
    for (const char* zone : {"UTC", "Asia/Tokyo", "America/Los_Angeles"}) {
        const RunResult run =
            RunQuillard(dir.path(), {"-s", example, "-b", std::string(zone).substr(0, 3) + ".blb"},
                        {{"SOURCE_DATE_EPOCH", "1700000000"}, {"TZ", zone}});
        ASSERT_EQ(run.status, 0);
    }
    EXPECT_EQ(ReadFile(dir / "UTC.blb"), ReadFile(dir / "Asi.blb"));
    EXPECT_EQ(ReadFile(dir / "UTC.blb"), ReadFile(dir / "Ame.blb"));
    std::filesystem::copy_file(dir / "UTC.blb", dir / "quillard.blb");
    EXPECT_EQ(RunQuillard(dir.path(), {"-v"}).out,
              "Version string from BIN file:- _20231114_2213_\n");
    for (const char* bad : {"-1", "12x", "", "99999999999999999999"}) {
        const RunResult run =
            RunQuillard(dir.path(), {"-s", example, "-b", "bad.blb"}, {{"SOURCE_DATE_EPOCH", bad}});
        EXPECT_EQ(run.status, std::string(bad).empty() ? 0 : 255) << bad;
        EXPECT_EQ(run.err.starts_with("ERROR, SOURCE_DATE_EPOCH="), !std::string(bad).empty())
            << bad;
    }
}

TEST(StrictCli, HelpAndVersion) {
    ScratchDir dir;
    const RunResult help = RunQuillard(dir.path(), {"--help", "-s", "whatever.xml"});
    EXPECT_EQ(help.status, 0);
    for (const char* option :
         {"-s FILE", "-p DIR", "-b FILE", "-l FILE", "--from", "--against", "--diff", "--strict",
          "--version", "SOURCE_DATE_EPOCH", "quillard.log", "Exit status"}) {
        EXPECT_THAT(help.out, HasSubstr(option));
    }
    const RunResult version = RunQuillard(dir.path(), {"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "quillard " QUILLKIT_VERSION "\n");
}

}  // namespace
}  // namespace qk::cli
