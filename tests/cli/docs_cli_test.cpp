// Every example in the README, the guides and the manual page is run here, so the
// documents cannot fall out of date.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

fs::path SourceDir() {
    return Example("").parent_path().parent_path();
}

std::string Document(const std::string& relative) {
    return ReadFile(SourceDir() / relative);
}

// The body of the first fenced block of the given language after a marker text.
std::string FencedBlock(const std::string& document, const std::string& language,
                        const std::string& after = "") {
    const std::size_t from = after.empty() ? 0 : document.find(after);
    const std::string fence = "```" + language + "\n";
    const std::size_t open = document.find(fence, from == std::string::npos ? 0 : from);
    if (open == std::string::npos) {
        return "";
    }
    const std::size_t start = open + fence.size();
    return document.substr(start, document.find("```", start) - start);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty())
            lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream in(line);
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

// The README's first session names the checkout "$src" and the tool's build
// build-release/; here they are the source and the build under test.
std::string Resolve(const std::string& word) {
    const std::string build = "\"$src\"/build-release/";
    if (word.rfind(build, 0) == 0)
        return (BuildDir() / word.substr(build.size())).string();
    const std::string source = "\"$src\"/";
    if (word.rfind(source, 0) == 0)
        return (SourceDir() / word.substr(source.size())).string();
    return word;
}

// Runs one documented command line in dir: leading VAR=value words become the
// environment, "quillard" or the README's "$src"/build-release/quillard the built tool.
RunResult RunDocumented(const fs::path& dir, const std::string& line) {
    std::vector<std::string> words = Words(line);
    std::map<std::string, std::string> env;
    while (!words.empty() && words.front().find('=') != std::string::npos) {
        const std::string& word = words.front();
        env[word.substr(0, word.find('='))] = Resolve(word.substr(word.find('=') + 1));
        words.erase(words.begin());
    }
    EXPECT_TRUE(!words.empty() &&
                (words[0] == "quillard" || Resolve(words[0]) == (BuildDir() / "quillard").string()))
        << line;
    words.erase(words.begin());
    return RunQuillard(dir, words, env);
}

// The session starts in a scratch directory, so following it leaves nothing in
// the checkout: its set-up lines are checked here, its tool runs run.
TEST(DocsCli, TheReadmeFirstSessionWorks) {
    ScratchDir dir;
    const std::vector<std::string> lines =
        Lines(FencedBlock(Document("README.md"), "sh", "## A first session"));
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(Words(lines[0])[0], "src=$PWD");
    EXPECT_THAT(lines[1], HasSubstr("cd \"$(mktemp -d)\""));
    for (std::size_t i = 2; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (line.rfind("cp ", 0) == 0) {
            for (const std::string& word : Words(line)) {
                const fs::path from = Resolve(word);
                if (word != "cp" && word != ".")
                    fs::copy_file(from, dir / from.filename());
            }
            continue;
        }
        if (line.rfind("mkdir", 0) == 0) {
            fs::create_directories(dir / "installed");
            fs::copy_file(dir / "system.blb", dir / "installed" / "system.blb");
            continue;
        }
        RunResult run = RunDocumented(dir.path(), line);
        EXPECT_EQ(run.status, 0) << line << "\n" << run.out << run.err;
    }
    EXPECT_THAT(ReadFile(dir / "dump.log"), HasSubstr("PRINT COMPACT DONE"));
    EXPECT_THAT(ReadFile(dir / "build.log"), Not(HasSubstr("ERROR")));
    // The XML written back compiles again.
    RunResult again = RunQuillard(dir.path(), {"-s", "system-back.xml", "-b", "again.blb"});
    EXPECT_EQ(again.status, 0);
    EXPECT_TRUE(fs::exists(dir / "again.blb"));
}

TEST(DocsCli, TheCustomisationGuideExampleCompilesCleanly) {
    const std::string guide = Document("docs/customisation-xml.md");
    ScratchDir dir;
    WriteFile(dir / "tweaks.xml", FencedBlock(guide, "xml"));
    const std::string command = "quillard -s tweaks.xml -b tweaks.blb -l tweaks.log";
    ASSERT_THAT(guide, HasSubstr("`" + command + "`"));
    RunResult run = RunDocumented(dir.path(), command);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(ReadFile(dir / "tweaks.log"), Not(HasSubstr("ERROR")));
    EXPECT_TRUE(fs::exists(dir / "tweaks.blb"));
}

// The hex bytes of an annotated dump: what stands before "|" on each line, after
// the offset.
std::vector<std::uint8_t> DumpBytes(const std::string& dump) {
    std::vector<std::uint8_t> bytes;
    for (const std::string& line : Lines(dump)) {
        std::vector<std::string> words = Words(line.substr(0, line.find('|')));
        for (std::size_t i = 1; i < words.size(); ++i) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(words[i], nullptr, 16)));
        }
    }
    return bytes;
}

TEST(DocsCli, TheAnnotatedBlobIsWhatTheToolWrites) {
    const std::string guide = Document("docs/blob-format.md");
    ScratchDir dir;
    WriteFile(dir / "tiny.xml", FencedBlock(guide, "xml", "## The smallest blob"));
    const std::string command = "quillard -s tiny.xml -b tiny.blb -c 1";
    ASSERT_THAT(guide, HasSubstr("`" + command + "`"));
    ASSERT_EQ(RunDocumented(dir.path(), command).status, 0);
    const std::string blob = ReadFile(dir / "tiny.blb");
    const std::vector<std::uint8_t> documented = DumpBytes(FencedBlock(guide, "text"));
    ASSERT_EQ(documented.size(), blob.size());
    // The version string "1_YYYYMMDD_HHMM_" starts at position 2; its time
    // characters (2 to 14) differ from run to run.
    const std::size_t timeFirst = 92 + 8 * 2 + 4 * 2;
    const std::size_t timeEnd = 92 + 8 * 2 + 4 * 15;
    for (std::size_t i = 0; i < blob.size(); ++i) {
        if (i >= timeFirst && i < timeEnd)
            continue;
        EXPECT_EQ(static_cast<std::uint8_t>(blob[i]), documented[i]) << "byte " << i;
    }
}

TEST(DocsCli, TheManualPageExamplesRun) {
    std::string page = Document("docs/quillard.1");
    page = page.substr(page.find(".SH EXAMPLES"));
    page = page.substr(0, page.find(".SH FILES"));
    ScratchDir dir;
    fs::copy_file(Example("system.xml"), dir / "system.xml");
    fs::copy_file(Example("update.xml"), dir / "update.xml");
    fs::copy_file(TestData("docs/user1.xml"), dir / "user1.xml");
    fs::copy_file(TestData("docs/user2.xml"), dir / "user2.xml");
    fs::create_directories(dir / "profiles.d");
    fs::copy_file(Example("system.xml"), dir / "profiles.d" / "system.xml");
    fs::create_directories(dir / "installed");
    ASSERT_EQ(RunQuillard(dir.path(), {"-s", "system.xml", "-b", "installed/system.blb"}).status,
              0);
    const auto env = SimulatorEnv(dir.path());

    int examples = 0;
    for (std::string line : Lines(page)) {
        if (line.rfind(".B quillard", 0) != 0)
            continue;
        line = line.substr(3);
        for (std::size_t at; (at = line.find("\\-")) != std::string::npos;)
            line.erase(at, 1);
        std::vector<std::string> words = Words(line);
        words.erase(words.begin());
        RunResult run = RunQuillard(dir.path(), words, env);
        // --diff ends with 1 when the blobs differ.
        EXPECT_EQ(run.status, words[0] == "--diff" ? 1 : 0) << line << "\n" << run.out;
        ++examples;
    }
    EXPECT_EQ(examples, 10);
    EXPECT_TRUE(fs::exists(dir / "user.blb"));
    EXPECT_TRUE(fs::exists(dir / "system-back.xml"));
    EXPECT_THAT(ReadFile(dir / "dump.log"), HasSubstr("PRINT COMPACT DONE"));
}

// xmllint's verdict on a file against the schema: true when it validates.
bool Validates(const fs::path& file) {
    const std::string command = "xmllint --noout --schema '" +
                                (SourceDir() / "docs/customisation.xsd").string() + "' '" +
                                file.string() + "' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

TEST(DocsCli, TheSchemaTakesEveryDocumentedFileAndRefusesMistakes) {
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "xmllint (libxml2-utils) is not installed";
    }
    ScratchDir dir;
    std::vector<fs::path> files = {Example("system.xml"), Example("update.xml"),
                                   TestData("docs/user1.xml"), TestData("docs/user2.xml")};
    for (const char* document : {"docs/customisation-xml.md", "docs/blob-format.md"}) {
        const fs::path block = dir / (fs::path(document).stem().string() + ".xml");
        WriteFile(block, FencedBlock(Document(document), "xml"));
        files.push_back(block);
    }
    for (const fs::path& file : files) {
        EXPECT_TRUE(Validates(file)) << file;
    }
    const std::string example = ReadFile(Example("system.xml"));
    const struct {
        const char* what;
        std::string from;
        std::string to;
    } mistakes[] = {
        {"a wrong Type", "Type=\"Dword\"", "Type=\"DWord\""},
        {"a misspelled element", "<profiles>", "<profils>"},
    };
    for (const auto& mistake : mistakes) {
        std::string broken = example;
        broken.replace(broken.find(mistake.from), mistake.from.size(), mistake.to);
        if (mistake.from == "<profiles>") {
            broken.replace(broken.find("</profiles>"), 11, "</profils>");
        }
        WriteFile(dir / "broken.xml", broken);
        EXPECT_FALSE(Validates(dir / "broken.xml")) << mistake.what;
    }
}

}  // namespace
}  // namespace qk::cli
