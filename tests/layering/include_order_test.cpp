// The folders form layers, and a file includes only folders below its own (or
// its own folder). Reaching up, or sideways to a folder of the same rank,
// fails here with the file and line of the include.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace qk {
namespace {

namespace fs = std::filesystem;

// Rank of each layer, bottom first; folders of equal rank may not include
// each other.
const std::map<std::string, int> kRanks = {
    {"support", 0}, {"text", 1},     {"model", 2},   {"blob", 3},
    {"bridge", 4},  {"xmlinput", 5}, {"inspect", 5}, {"app", 6},
};

// Folders outside the layers: they may include any layer but app/, and no
// layer may include them (unit tests beside their code may use test support).
const std::map<std::string, bool> kOutside = {
    {"simulator", true}, {"tests", true}, {"fuzz", true}, {"bench", true}};

std::string TopFolder(const std::string& path) {
    return path.substr(0, path.find('/'));
}

// The problem with one include, or an empty text.
std::string Judge(const std::string& file, const std::string& included) {
    const std::string from = TopFolder(file);
    const std::string to = TopFolder(included);
    if (from == to || (!kRanks.contains(to) && !kOutside.contains(to))) {
        return "";
    }
    if (!kRanks.contains(from)) {
        return to == "app" ? "nothing includes app/" : "";
    }
    if (kOutside.contains(to)) {
        const bool unitTest = file.ends_with("_test.cpp");
        return unitTest && included.starts_with("tests/support/")
                   ? ""
                   : "production code includes " + to + "/";
    }
    const int fromRank = kRanks.at(from);
    const int toRank = kRanks.at(to);
    if (toRank > fromRank) {
        return from + "/ reaches up to " + to + "/";
    }
    if (toRank == fromRank) {
        return from + "/ reaches sideways to " + to + "/";
    }
    return "";
}

TEST(IncludeOrder, EveryIncludeGoesDown) {
    const fs::path root = SOURCE_DIR;
    const std::regex include(R"(^\s*#\s*include\s*"([^"]+)\")");
    int checked = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string relative = fs::relative(entry.path(), root).string();
        const std::string extension = entry.path().extension().string();
        if (!entry.is_regular_file() || (extension != ".cpp" && extension != ".h") ||
            relative.starts_with("build") || relative.starts_with(".")) {
            continue;
        }
        std::ifstream in(entry.path());
        int line = 0;
        for (std::string text; std::getline(in, text);) {
            ++line;
            std::smatch match;
            if (std::regex_search(text, match, include)) {
                ++checked;
                const std::string problem = Judge(relative, match[1]);
                EXPECT_EQ(problem, "")
                    << relative << ":" << line << ": #include \"" << match[1] << "\"";
            }
        }
    }
    EXPECT_GT(checked, 100) << "the tree was not found at " << root;
}

}  // namespace
}  // namespace qk
