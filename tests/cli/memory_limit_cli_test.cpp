// Memory exhaustion is an answer, not a crash: every mode runs under a rising
// series of address-space limits, from too small to start the tool at all to
// enough for the whole run. At each limit the run must end with one of the
// mode's statuses (never a signal), say on standard error why it did not
// finish, never call two different blobs equal, and leave each output either
// as it was or complete.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"
#include "tests/support/case_name.h"
#include "tests/support/generated_sets.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// A user update over the generated system set.
constexpr const char kUpdate[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<customisations Format=\"1\" Content=\"Generated update\">\n"
    "<profiles><profile Area=\"Orchid\" Usage=\"Evening\">"
    "<value Property=\"Speed\">12</value></profile></profiles>\n"
    "<applications><application Title=\"Lantern\" File=\"lantern.exe\">"
    "<use Area=\"Orchid\">Evening</use></application></applications>\n"
    "</customisations>\n";

// What an output file holds before a run: a run must leave it so or complete.
constexpr const char kPrevious[] = "previous content";

struct ModeCase {
    std::string name;
    std::vector<std::string> args;
    int doneStatus;        // the status of the run without a limit
    int exhaustedStatus;   // the status of a run that runs out of memory
    std::string output;    // the file the run writes, if any
    bool library = false;  // the stand-in display-control library answers
    // What standard error says when memory ran out.
    std::string said = "quillard: error: out of memory";
};

const std::vector<ModeCase> kModes = {
    {"Compile", {"-p", "set", "-b", "out.blb"}, 0, 0, "out.blb"},
    {"CompileLogged", {"-p", "set", "-b", "out.blb", "-l", "run.log"}, 0, 0, "out.blb"},
    {"CompileStrict", {"--strict", "-p", "set", "-b", "out.blb"}, 0, 255, "out.blb"},
    {"CompileSarif",
     {"--diagnostics-format=sarif", "-p", "set", "-b", "out.blb", "-o"},
     0,
     0,
     "out.blb",
     false,
     // in the log, or alone when even the log could not be built
     "out of memory; the run ends without a blob (status 0)"},
    {"Reverse", {"-r", "-sys", "-s", "out.xml"}, 0, 0, "out.xml", true},
    {"ReverseFrom", {"-r", "-s", "out.xml", "--from", "heavy.blb"}, 0, 255, "out.xml"},
    {"Against",
     {"-u", "-s", "update.xml", "--against", "heavy.blb", "-b", "out.blb"},
     0,
     255,
     "out.blb"},
    {"Diff", {"--diff", "light.blb", "heavy.blb"}, 1, 2, ""},
    {"Version", {"-v"}, 0, 0, ""},
    {"LongVersion", {"--version"}, 0, 255, ""},
    {"Help", {"--help"}, 0, 255, ""},
};

void PrintTo(const ModeCase& mode, std::ostream* out) {
    *out << mode.name;
}

class MemoryLimit : public ::testing::TestWithParam<ModeCase> {};

constexpr long kFirstLimitKiB = 2048;
constexpr long kStepKiB = 128;
constexpr long kLastLimitKiB = 512 * 1024;

TEST_P(MemoryLimit, EndsWithAnAnswerAtEveryLimit) {
    if (const std::string why = AddressSpaceLimitUnusable(); !why.empty()) {
        GTEST_SKIP() << why;
    }
    const ModeCase& mode = GetParam();
    ScratchDir dir;
    std::map<std::string, std::string> env = {{"SOURCE_DATE_EPOCH", "1700000000"}};
    WriteFile(dir / "set/heavy.xml", test::TextHeavySet());
    WriteFile(dir / "update.xml", kUpdate);
    for (const std::vector<std::string>& compile :
         {std::vector<std::string>{"-p", "set", "-b", "heavy.blb"},
          std::vector<std::string>{"-s", "update.xml", "-b", "light.blb"}}) {
        const RunResult made = RunQuillard(dir.path(), compile, env);
        ASSERT_EQ(made.status, 0) << made.err;
    }
    fs::create_directories(dir / "installed");
    fs::copy_file(dir / "heavy.blb", dir / "installed/system.blb");
    fs::copy_file(dir / "heavy.blb", dir / "quillard.blb");
    if (mode.library) {
        env.merge(SimulatorEnv(dir.path()));
    }

    const auto run = [&](long limitKiB) {
        if (!mode.output.empty()) {
            WriteFile(dir / mode.output, kPrevious);
        }
        ChildSetup setup;
        setup.addressSpaceKiB = limitKiB;
        return RunQuillardWith(dir.path(), mode.args, env, setup);
    };
    const RunResult reference = run(0);
    ASSERT_EQ(reference.status, mode.doneStatus) << reference.err;
    const std::string expected = mode.output.empty() ? "" : ReadFile(dir / mode.output);
    ASSERT_NE(expected, kPrevious);

    long limit = kFirstLimitKiB;
    for (; limit <= kLastLimitKiB; limit += kStepKiB) {
        SCOPED_TRACE("address space " + std::to_string(limit) + " KiB");
        const RunResult limited = run(limit);
        ASSERT_GE(limited.status, 0) << "ended by a signal\n" << limited.err;
        const std::string written = mode.output.empty() ? "" : ReadFile(dir / mode.output);
        if (!mode.output.empty()) {
            EXPECT_TRUE(written == kPrevious || written == expected)
                << mode.output << " is half written (" << written.size() << " bytes)";
        }
        if (limited.status == reference.status && limited.out == reference.out &&
            limited.err == reference.err && written == expected) {
            break;  // enough memory for the whole run
        }
        if (limited.err.find("error while loading shared libraries") != std::string::npos) {
            continue;  // too small for the tool to start at all
        }
        EXPECT_EQ(limited.status, mode.exhaustedStatus) << limited.err;
        EXPECT_THAT(limited.err, HasSubstr(mode.said));
        if (::testing::Test::HasFailure()) {
            break;  // one limit's story is enough
        }
    }
    EXPECT_LE(limit, kLastLimitKiB) << "no limit was enough";
}

INSTANTIATE_TEST_SUITE_P(Modes, MemoryLimit, ::testing::ValuesIn(kModes), test::CaseName());

}  // namespace
}  // namespace qk::cli
