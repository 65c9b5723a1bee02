// Runs of the tool as data: tests/data/golden/cases.txt lists each run (its input
// files, what is installed, the arguments), and tests/data/golden/<case>/ holds
// what it must give, byte for byte: status, standard output and error, and every
// file the run writes (log, blob, XML). SOURCE_DATE_EPOCH fixes the version
// string. QUILLKIT_UPDATE_GOLDEN=1 writes what the runs give as the new
// expectation (look at the difference before committing it).
//
// A case is a block of lines:
//   case NAME
//   copy PATH...         files of the source tree, copied in under their names
//   copyto PATH NAME     a file of the source tree, copied in as NAME
//   write NAME TEXT      a file holding TEXT ("\n" for a line end)
//   env NAME VALUE       an environment variable of the runs
//   install XML...       XML files compiled into installed/system.blb
//   prepare ARGS         a run of the tool whose results are not compared
//   library [ENTRY]      the stand-in library (or its variant without ENTRY)
//   fail ENTRY,...       library entries made to fail
//   run ARGS             the run that is compared

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"
#include "tests/support/case_name.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;

struct GoldenCase {
    std::string name;
    std::vector<std::vector<std::string>> steps;  // each: directive, then its words
};

fs::path GoldenDir() {
    return TestData("golden");
}

std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream in(line);
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

std::vector<GoldenCase> Cases() {
    std::vector<GoldenCase> cases;
    std::ifstream in(GoldenDir() / "cases.txt");
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> words = Words(line);
        if (words.empty() || words[0].starts_with("#")) {
            continue;
        }
        if (words[0] == "case") {
            cases.push_back({words.at(1), {}});
        } else if (!cases.empty()) {
            cases.back().steps.push_back(words);
        }
    }
    return cases;
}

// Every file below dir, by its path relative to dir.
std::map<std::string, std::string> Files(const fs::path& dir) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        if (entry.is_regular_file()) {
            files[fs::relative(entry.path(), dir).string()] = ReadFile(entry.path());
        }
    }
    return files;
}

std::string Unescaped(const std::vector<std::string>& words, std::size_t from) {
    std::string text;
    for (std::size_t i = from; i < words.size(); ++i) {
        text += (i > from ? " " : "") + words[i];
    }
    for (std::size_t at; (at = text.find("\\n")) != std::string::npos;) {
        text.replace(at, 2, "\n");
    }
    return text;
}

class Golden : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, GivesWhatItGaveBefore) {
    const GoldenCase& c = GetParam();
    ScratchDir dir;
    const fs::path source = Example("").parent_path().parent_path();
    std::map<std::string, std::string> env = {{"SOURCE_DATE_EPOCH", "1700000000"},
                                              {"LD_LIBRARY_PATH", "/nonexistent"}};
    RunResult run;
    std::map<std::string, std::string> before;
    for (const std::vector<std::string>& step : c.steps) {
        const std::string& directive = step[0];
        const std::vector<std::string> args(step.begin() + 1, step.end());
        if (directive == "copy") {
            for (const std::string& path : args) {
                fs::copy(source / path, dir / fs::path(path).filename(),
                         fs::copy_options::recursive);
            }
        } else if (directive == "copyto") {
            fs::create_directories((dir / args.at(1)).parent_path());
            fs::copy(source / args.at(0), dir / args.at(1));
        } else if (directive == "env") {
            env.insert_or_assign(args.at(0), args.at(1));
        } else if (directive == "write") {
            WriteFile(dir / args.at(0), Unescaped(step, 2));
        } else if (directive == "install") {
            fs::create_directories(dir / "installed");
            std::vector<std::string> compile = {"-b", "installed/system.blb"};
            for (const std::string& xml : args) {
                compile.insert(compile.end(), {"-s", xml});
            }
            ASSERT_EQ(RunQuillard(dir.path(), compile, env).status, 0);
        } else if (directive == "prepare") {
            RunQuillard(dir.path(), args, env);
        } else if (directive == "library") {
            const auto library = SimulatorEnv(dir.path(), args.empty() ? "" : args[0]);
            env.insert_or_assign("LD_LIBRARY_PATH", library.at("LD_LIBRARY_PATH"));
            env.insert_or_assign("VEXZEL_SIM_DIR", "installed");
        } else if (directive == "fail") {
            env.insert_or_assign("VEXZEL_SIM_FAIL", args.at(0));
        } else if (directive == "run") {
            before = Files(dir.path());
            run = RunQuillard(dir.path(), args, env);
        } else {
            FAIL() << "unknown directive " << directive;
        }
    }
    // What the run gave: its status and output, and the files it wrote.
    std::map<std::string, std::string> got = {{"status", std::to_string(run.status) + "\n"}};
    if (!run.out.empty()) {
        got["stdout"] = run.out;
    }
    if (!run.err.empty()) {
        got["stderr"] = run.err;
    }
    for (const auto& [name, bytes] : Files(dir.path())) {
        if (!before.contains(name) || before.at(name) != bytes) {
            got["files/" + name] = bytes;
        }
    }
    const fs::path expected = GoldenDir() / c.name;
    if (const char* update = std::getenv("QUILLKIT_UPDATE_GOLDEN"); update && *update == '1') {
        fs::remove_all(expected);
        for (const auto& [name, bytes] : got) {
            WriteFile(expected / name, bytes);
        }
        return;
    }
    const std::map<std::string, std::string> want = Files(expected);
    for (const auto& [name, bytes] : want) {
        EXPECT_TRUE(got.contains(name)) << name << " was not written";
    }
    for (const auto& [name, bytes] : got) {
        if (!want.contains(name)) {
            ADD_FAILURE() << name << " was written, and is not expected";
        } else {
            EXPECT_TRUE(bytes == want.at(name))
                << name << " differs from " << (expected / name)
                << (bytes.size() < 2000 ? "; it holds:\n" + bytes : "");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, Golden, ::testing::ValuesIn(Cases()), test::CaseName());

}  // namespace
}  // namespace qk::cli
