// Hostile and broken input, and files the tool must never write, read or leave
// behind: every case ends with a defined status and an ERROR line, and a good
// blob already at the -b path is either left whole or replaced by another whole
// blob, never destroyed.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "blob/blob_format.h"
#include "bridge/blob_database.h"
#include "tests/cli/cli_harness.h"
#include "tests/support/case_name.h"
#include "tests/support/generated_sets.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using test::kDeclaration;
using test::Repeat;
using test::SetParts;
using test::SystemSet;
using test::TextHeavySet;
using ::testing::HasSubstr;
using ::testing::Not;

std::string WithValues(int count) {
    SetParts parts;
    parts.values = Repeat("<value Property=\"Speed\">1</value>", count);
    return SystemSet(parts);
}

// Many applications with long distinct titles: more text than a blob can hold.
std::string OversizedSet() {
    SetParts parts;
    parts.applications.clear();
    const std::string padding(60, 'w');
    for (int i = 0; i < 4500; ++i) {
        const std::string id = std::to_string(i);
        parts.applications += "<application Title=\"" + padding + id + "\" File=\"" + padding + id +
                              ".exe\"><use Area=\"Orchid\">Quick</use></application>\n";
    }
    return SystemSet(parts);
}

// A hostile blob kept with the golden runs' inputs.
std::string Hostile(const char* name) {
    return ReadFile(TestData("golden/inputs") / name);
}

// The good blob with its bytes changed by change(header, bytes).
std::string Altered(const std::function<void(const BlobHeader&, std::string&)>& change) {
    std::string bytes = ExampleBlob();
    BlobHeader header{};
    std::memcpy(&header, bytes.data(), sizeof header);
    change(header, bytes);
    return bytes;
}

void PutWord(std::string& bytes, std::uint64_t at, std::uint32_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

enum class BlobAfter {
    kUnchanged,  // the run failed or only read: the good blob is byte for byte the same
    kRebuilt,    // the run compiled what it could: a new blob that decodes cleanly
};

enum class Needs {
    kNothing,
    kUnprivileged,    // run as an ordinary user: permission bits do not stop root
    kRoot,            // changes owners
    kProtectedLinks,  // root, with the kernel's protection of links in sticky directories
};

struct BadInputCase {
    const char* name;
    // Writes the case's inputs into the scratch directory.
    std::function<void(const fs::path& dir)> make;
    int status;
    const char* errorLine;  // expected in the log; empty: the run must log no ERROR at all
    BlobAfter after = BlobAfter::kUnchanged;
    // "-l run.log" is added unless the case names its own -l.
    std::vector<std::string> args = {"-s", "in.xml", "-b", "good.blb"};
    std::string blob = "good.blb";
    Needs needs = Needs::kNothing;
    std::map<std::string, std::string> env = {};
    // Expected on standard error instead of a copy of the log.
    const char* stderrLine = "";
    rlim_t fileSizeLimit = RLIM_INFINITY;
    // Anything else that must hold afterwards.
    std::function<void(const fs::path& dir, const RunResult& run)> check = {};
};

// Why the case cannot run here, or null.
const char* Unmet(Needs needs) {
    if ((needs == Needs::kRoot || needs == Needs::kProtectedLinks) && geteuid() != 0) {
        return "needs root";
    }
    if (needs == Needs::kProtectedLinks && ReadFile("/proc/sys/fs/protected_symlinks") != "1\n") {
        return "needs fs.protected_symlinks=1";
    }
    return nullptr;
}

// The files of a -p tree of count small system sets, each with an area of its own.
void WriteManySets(const fs::path& tree, int count) {
    for (int i = 0; i < count; ++i) {
        const std::string id = std::to_string(i);
        WriteFile(tree / ("customisation-set-number-" + id + ".xml"),
                  std::string(kDeclaration) +
                      "<customisations Format=\"1\"><properties><area Name=\"Area" + id +
                      "\"><property Type=\"Dword\">Speed</property></area></properties>"
                      "</customisations>\n");
    }
}

std::function<void(const fs::path&)> Writes(std::string name, std::string content) {
    return [name = std::move(name), content = std::move(content)](const fs::path& dir) {
        WriteFile(dir / name, content);
    };
}

std::vector<BadInputCase> Cases() {
    const std::string good = SystemSet();
    const std::vector<std::string> dump = {"-o", "-b", "bad.blb"};
    const std::vector<std::string> version = {"-v"};
    const std::vector<std::string> tree = {"-p", "tree", "-b", "good.blb"};
    std::vector<BadInputCase> cases = {
        {"TruncatedXml", Writes("in.xml", good.substr(0, good.size() / 2)), 255,
         "Invalid XML detected: in.xml\n"},
        {"InvalidUtf8InText",
         Writes("in.xml", SystemSet({.values = "<value Property=\"Speed\">\xFF\xFE</value>"})), 255,
         "Invalid XML detected: in.xml\n"},
        {"VeryDeepNesting",
         Writes("in.xml",
                SystemSet({.values = Repeat("<deep>", 20000) + Repeat("</deep>", 20000)})),
         0, "ERROR: - Unknown group found: - deep.\n", BlobAfter::kRebuilt},
        // More attributes than any element carries: refused before the XML
        // library, whose time grows with the square of their number.
        {"ThousandsOfAttributes",
         [](const fs::path& dir) {
             std::string attributes;
             for (int i = 0; i < 5000; ++i)
                 attributes += " A" + std::to_string(i) + "=\"v\"";
             WriteFile(
                 dir / "in.xml",
                 SystemSet({.applications = "<application Title=\"Fern\"" + attributes +
                                            "><use Area=\"Orchid\">Quick</use></application>"}));
         },
         255,
         "Invalid XML detected: in.xml\n",
         BlobAfter::kUnchanged,
         {"-s", "in.xml", "-b", "good.blb"},
         "good.blb",
         Needs::kNothing,
         {},
         "has more than 64 attributes"},
        {"OneTextWordOver16384Units",
         Writes("in.xml", SystemSet({.values = "<value Property=\"Speed\">" +
                                               std::string(17000, '7') + "</value>"})),
         0, "ERROR: - Text is not valid UTF-8 or too long, it is ignored.\n", BlobAfter::kRebuilt},
        {"TextOfManyWordsOver16384Units",
         Writes("in.xml",
                SystemSet({.applications = "<application Title=\"Fern\"><use "
                                           "Area=\"Orchid\">" +
                                           Repeat("Quick ", 3000) + "</use></application>"})),
         0, "ERROR: - maximum string length exceeded, Text item.\n", BlobAfter::kRebuilt},
        {"PropertyNameOf16Units",
         Writes("in.xml",
                SystemSet({.properties = "<property Type=\"Dword\">SixteenUnitsLong</property>"})),
         255, "ERROR: - Property name is too long: - SixteenUnitsLong\n"},
        {"ProfileOver1024Values", Writes("in.xml", WithValues(1100)), 255,
         "ERROR, CreateCompact, profile \"Quick\""},
        {"SetThatOutgrowsTheBlob", Writes("in.xml", OversizedSet()), 255,
         "ERROR, CreateCompact, the blob would outgrow its limit of 0xFFFFF bytes"},
        {"BlobInAMissingDirectory",
         Writes("in.xml", good),
         0,
         "FAILED: Unable to open bin file for writing.\n",
         BlobAfter::kUnchanged,
         {"-s", "in.xml", "-b", "no/such/dir/out.blb"}},
        {.name = "ReadOnlyBlob",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 fs::permissions(dir / "good.blb", fs::perms::owner_read);
             },
         .status = 0,
         .errorLine = "FAILED: Unable to open bin file for writing.\n",
         .needs = Needs::kUnprivileged},
        {"DumpOfAFifo",
         [](const fs::path& dir) { ASSERT_EQ(mkfifo((dir / "bad.blb").c_str(), 0600), 0); }, 255,
         "ERROR, blob file \"bad.blb\" is not a regular file.\n", BlobAfter::kUnchanged, dump,
         "good.blb"},
        {"DumpOfAnOversizedFile", Writes("bad.blb", std::string(0x100000, '\x01')), 255,
         "more than the 0xFFFFF bytes an image holds.\n", BlobAfter::kUnchanged, dump, "bad.blb"},
        {"DirectoryWithASymbolicLinkLoop",
         [good](const fs::path& dir) {
             fs::create_directories(dir / "tree/sub");
             WriteFile(dir / "tree/sub/set.xml", good);
             fs::create_directory_symlink("..", dir / "tree/sub/up");
             fs::create_directory_symlink("loop", dir / "tree/loop");
         },
         0, "", BlobAfter::kRebuilt, tree},
        {"DirectoryWithAnUnreadableFile",
         [good](const fs::path& dir) {
             fs::create_directories(dir / "tree");
             WriteFile(dir / "tree/set.xml", good);
             fs::permissions(dir / "tree/set.xml", fs::perms::none);
         },
         255, "XML Invalid!!!\n", BlobAfter::kUnchanged, tree, "good.blb", Needs::kUnprivileged},
        {"DirectoryWithAnUnreadableSubdirectory",
         [good](const fs::path& dir) {
             WriteFile(dir / "tree/a.xml", good);
             WriteFile(dir / "tree/locked/b.xml", good);
             fs::permissions(dir / "tree/locked", fs::perms::none);
         },
         255, "ERROR, folder cannot be read: - tree/locked\n", BlobAfter::kUnchanged, tree,
         "good.blb", Needs::kUnprivileged},
        // Some network and FUSE file systems list every entry with an unknown type.
        {.name = "FileSystemWithoutEntryTypes",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "tree/sub/set.xml", good);
                 fs::create_directory_symlink("..", dir / "tree/sub/up");
             },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .args = tree,
         .env = {{"LD_PRELOAD", UNKNOWN_ENTRY_TYPE_LIBRARY},
                 {"ASAN_OPTIONS", "verify_asan_link_order=0"}},
         .check =
             [](const fs::path& dir, const RunResult&) {
                 EXPECT_THAT(ReadFile(dir / "quillard.log"),
                             HasSubstr("XML file found:- tree/sub/set.xml\n"));
             }},
        {.name = "LinkInAStickyDirectoryThatTheKernelWouldNotFollow",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 fs::create_directory(dir / "shared");
                 fs::permissions(dir / "shared", fs::perms::all | fs::perms::sticky_bit);
                 fs::create_symlink("../victim.blb", dir / "shared/link.blb");
                 ASSERT_EQ(lchown((dir / "shared/link.blb").c_str(), kNobody, kNobody), 0);
             },
         .status = 0,
         .errorLine = "FAILED: Unable to open bin file for writing.\n",
         .args = {"-s", "in.xml", "-b", "shared/link.blb"},
         .blob = "victim.blb",
         .needs = Needs::kProtectedLinks},
        {.name = "ReplacedBlobKeepsOwnerGroupAndModeButNotSetId",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 ASSERT_EQ(chown((dir / "good.blb").c_str(), kNobody, kNobody), 0);
                 ASSERT_EQ(chmod((dir / "good.blb").c_str(), 06640), 0);
             },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .needs = Needs::kRoot,
         .check =
             [](const fs::path& dir, const RunResult&) {
                 struct stat info {};
                 ASSERT_EQ(stat((dir / "good.blb").c_str(), &info), 0);
                 EXPECT_EQ(info.st_uid, kNobody);
                 EXPECT_EQ(info.st_gid, kNobody);
                 EXPECT_EQ(info.st_mode & 07777, 0640u);
             }},
        {.name = "DanglingLinkIsNotReplaced",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 fs::create_symlink("nowhere.blb", dir / "dangling.blb");
             },
         .status = 0,
         .errorLine = "ERROR, WriteBinFile(): - \"dangling.blb\" is a symbolic link to a file "
                      "that does not exist; it is left as it is.\n",
         .args = {"-s", "in.xml", "-b", "dangling.blb"},
         .check =
             [](const fs::path& dir, const RunResult&) {
                 EXPECT_TRUE(fs::is_symlink(dir / "dangling.blb"));
                 EXPECT_FALSE(fs::exists(dir / "nowhere.blb"));
             }},
        {.name = "LogCopyRunsNoProgramFromThePath",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 WriteFile(dir / "evil/cp", "#!/bin/sh\ntouch injected\n");
                 fs::permissions(dir / "evil/cp", fs::perms::owner_all);
             },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .args = {"-s", "in.xml", "-b", "good.blb", "-l", "copy.log"},
         .env = {{"PATH", std::string("evil:") + std::getenv("PATH")}}},
        {.name = "LogCopyToADirectory",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 fs::create_directory(dir / "logdir");
             },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .args = {"-s", "in.xml", "-b", "good.blb", "-l", "logdir"},
         .stderrLine = "quillard: logdir: error: the progress log could not be copied here"},
        {.name = "StaleLogIsNotCopied",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 WriteFile(dir / "quillard.log", "the log of an older run\n");
                 fs::create_directory(dir / "out");
                 fs::permissions(dir / "out", fs::perms::all);
                 fs::permissions(dir / "quillard.log", fs::perms::owner_read);
                 fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec);
             },
         .status = 0,
         .errorLine = "",
         .args = {"-s", "in.xml", "-b", "out/new.blb", "-l", "out/copy.log"},
         .needs = Needs::kUnprivileged,
         .stderrLine = "quillard.log could not be written in this run",
         .check = [](const fs::path& dir,
                     const RunResult&) { EXPECT_FALSE(fs::exists(dir / "out/copy.log")); }},
        {.name = "SemicolonInAFileName",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "tree/p", good);
                 WriteFile(dir / "tree/p;q.xml", good);
                 WriteFile(dir / "q.xml", ReadFile(Example("update.xml")));
             },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .args = tree,
         .check =
             [](const fs::path& dir, const RunResult&) {
                 const std::string log = ReadFile(dir / "quillard.log");
                 EXPECT_THAT(log, HasSubstr("File #1 - tree/p;q.xml\n"));
                 EXPECT_THAT(log, Not(HasSubstr("File #2")));
             }},
        {.name = "ManyFilesInLinearMemory",
         .make =
             [](const fs::path& dir) { WriteManySets(dir / "tree", UnderValgrind() ? 200 : 4000); },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .args = tree,
         .check =
             [](const fs::path&, const RunResult& run) {
#if defined(__SANITIZE_ADDRESS__)
                 constexpr long kLimitKiB = 256 * 1024;
#else
                 constexpr long kLimitKiB = 64 * 1024;
#endif
                 if (!UnderValgrind()) {
                     EXPECT_LT(run.maxRssKiB, kLimitKiB);
                 }
             }},
        {.name = "AbandonedTemporaryFileIsRemoved",
         .make =
             [good](const fs::path& dir) {
                 WriteFile(dir / "in.xml", good);
                 WriteFile(dir / ".quillard-k3x9q2.tmp", "left by a run that was killed");
             },
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt},
        {.name = "FileSizeLimitKeepsTheOldBlob",
         .make = Writes("in.xml", TextHeavySet()),
         .status = 0,
         .errorLine = "ERROR, WriteBinFile(): - writing \"good.blb\" failed after",
         .fileSizeLimit = 640 * 1024},
        {.name = "FileSizeLimitKeepsTheOldXml",
         .make =
             [](const fs::path& dir) {
                 WriteFile(dir / "installed/system.blb", ExampleBlob());
                 WriteFile(dir / "back.xml", "an older conversion");
             },
         .status = 255,
         .errorLine = "ERROR, Unable to write XML file: - back.xml\n",
         .args = {"-r", "-sys", "-s", "back.xml"},
         .blob = "back.xml",
         .env = {{"LD_LIBRARY_PATH", (BuildDir() / "simulator").string()},
                 {"VEXZEL_SIM_DIR", "installed"}},
         .fileSizeLimit = 2048},
        {.name = "NameOf255Bytes",
         .make = Writes("in.xml", good),
         .status = 0,
         .errorLine = "",
         .after = BlobAfter::kRebuilt,
         .args = {"-s", "in.xml", "-b", std::string(255, 'a')},
         .blob = std::string(255, 'a')},
        {"DumpOfAMissingFile",
         Writes("in.xml", good),
         0,
         "",
         BlobAfter::kUnchanged,
         {"-o", "-b", "missing.blb"}},
        {"VersionWithoutABlob", Writes("in.xml", good), 0, "", BlobAfter::kUnchanged, version},
    };
    // A blob file read instead of the display-control library: one ERROR line,
    // on standard error and in the log, and no output file.
    struct OfflineCase {
        const char* name;
        std::function<std::string()> blob;  // the content of bad.blb; empty: no file
        const char* problem;
        Needs needs = Needs::kNothing;
        // Makes bad.blb something other than a file of that content.
        std::function<void(const fs::path& bad)> plant = {};
    };
    const auto linkTo = [](const char* target) {
        return [target](const fs::path& bad) { fs::create_symlink(target, bad); };
    };
    const OfflineCase offline[] = {
        {"Missing", [] { return std::string(); }, "cannot be read: No such file or directory"},
        {"Unreadable", [] { return ExampleBlob(); }, "cannot be read: Permission denied",
         Needs::kUnprivileged},
        {"Truncated", [] { return Hostile("truncated.blb"); },
         "has a table that reaches past its end"},
        {"Oversized", [] { return std::string(0x100000, '\x01'); }, "is larger than"},
        {"RandomBytes", [] { return Hostile("random.blb"); }, "is not a blob"},
        {"LoopingChain", [] { return Hostile("loop.blb"); },
         "has a chain of properties that leaves its table, loops or joins another"},
        // The walk to the next profile jumps past the table: the rest is not lost quietly.
        {"ProfileSizeRunningPastItsTable",
         [] {
             return Altered([](const BlobHeader& header, std::string& bytes) {
                 PutWord(bytes,
                         PositionToByte(header.posProfileStart) +
                             offsetof(ProfileRecord, dwAggregatedSize),
                         0xFFFFFFF8);
             });
         },
         "has a profile whose AggregatedSize is not the size of its values"},
        // No text ends: every name would read as empty.
        {"WordsWithoutTerminators",
         [] {
             return Altered([](const BlobHeader& header, std::string& bytes) {
                 for (std::uint64_t unit = 0; unit < header.nWordsUnits; ++unit) {
                     PutWord(bytes, PositionToByte(unit), 'x');
                     PutWord(bytes, PositionToByte(unit) + 4, 'x');
                 }
             });
         },
         "has a Words table that is not a sequence of whole texts"},
        // Not regular files: refused at once, never waited on.
        {"Fifo",
         {},
         "is not a regular file",
         Needs::kNothing,
         [](const fs::path& bad) { ASSERT_EQ(mkfifo(bad.c_str(), 0600), 0); }},
        {"Directory",
         {},
         "is not a regular file",
         Needs::kNothing,
         [](const fs::path& bad) { fs::create_directory(bad); }},
        {"EndlessDevice", {}, "is not a regular file", Needs::kNothing, linkTo("/dev/zero")},
        // A regular file whose read fails: an error, never a shorter file.
        {"ReadThatFails",
         {},
         "cannot be read: Input/output error",
         Needs::kNothing,
         linkTo("/proc/self/mem")},
    };
    const std::string update = ReadFile(Example("update.xml"));
    for (const OfflineCase& o : offline) {
        const auto make = [o, update](const fs::path& dir) {
            WriteFile(dir / "user.xml", update);
            if (o.plant) {
                o.plant(dir / "bad.blb");
            } else if (const std::string bytes = o.blob(); !bytes.empty()) {
                WriteFile(dir / "bad.blb", bytes);
                if (o.needs == Needs::kUnprivileged) {
                    fs::permissions(dir / "bad.blb", fs::perms::none);
                }
            }
        };
        const std::string error = std::string("blob file \"bad.blb\" ") + o.problem;
        static std::list<std::string> lines;  // the cases keep pointers to their texts
        for (const auto& [option, status, args] :
             std::vector<std::tuple<std::string, int, std::vector<std::string>>>{
                 {"--from", 255, {"-r", "-s", "back.xml", "--from", "bad.blb"}},
                 {"--against",
                  255,
                  {"-u", "-s", "user.xml", "-b", "back.xml", "--against", "bad.blb"}},
                 {"--diff", 2, {"--diff", "good.blb", "bad.blb"}}}) {
            lines.push_back("ERROR, " + option + ": " + error);
            const char* line = lines.back().c_str();
            lines.push_back("bad.blb: error: " + option + ": the blob file " + o.problem);
            const char* diagnostic = lines.back().c_str();
            cases.push_back({.name = o.name,
                             .make = make,
                             .status = status,
                             .errorLine = line,
                             .args = args,
                             .blob = option == "--diff" ? "good.blb" : "back.xml",
                             .needs = o.needs,
                             .stderrLine = diagnostic});
        }
    }
    // Names that a shell would take apart: passed through literally, never run.
    for (const std::string name : {"with space", "with \"quotes\"", "$(touch injected)",
                                   "a;touch injected", "-leading-dash", "`touch injected`"}) {
        cases.push_back({"HostileNames",
                         Writes("in.xml", good),
                         0,
                         "",
                         BlobAfter::kRebuilt,
                         {"-s", "in.xml", "-b", name + ".blb", "-l", name + ".log"},
                         name + ".blb"});
    }
    return cases;
}

void PrintTo(const BadInputCase& c, std::ostream* out) {
    *out << c.name;
}

class BadInput : public ::testing::TestWithParam<BadInputCase> {};

TEST_P(BadInput, EndsWithItsStatusAndErrorLineAndKeepsTheBlobWhole) {
    const BadInputCase& c = GetParam();
    if (const char* unmet = Unmet(c.needs)) {
        GTEST_SKIP() << unmet;
    }
    ScratchDir dir;
    WriteFile(dir / c.blob, ExampleBlob());
    c.make(dir.path());
    const std::string before = ReadFile(dir / c.blob);
    std::vector<std::string> args = c.args;
    const bool ownLog = std::find(args.begin(), args.end(), "-l") != args.end();
    if (!ownLog) {
        args.insert(args.begin(), {"-l", "run.log"});
    }
    bool ran = true;
    // A run that waits for ever (on a pipe, say) is killed: its status is then -1.
    ChildSetup setup;
    setup.fileSizeLimit = c.fileSizeLimit;
    setup.timeLimitSeconds = UnderValgrind() ? 300 : 60;
    const RunResult run = c.needs == Needs::kUnprivileged
                              ? RunQuillardUnprivileged(dir.path(), args, &ran)
                              : RunQuillardWith(dir.path(), args, c.env, setup);
    if (!ran)
        GTEST_SKIP() << "permission bits do not stop root, and it cannot run the tool as nobody";
    std::error_code ignored;
    fs::permissions(dir.path(), fs::perms::owner_all, fs::perm_options::add, ignored);

    EXPECT_EQ(run.status, c.status) << run.out << run.err;
    const std::string log = ReadFile(dir / "quillard.log");
    if (*c.errorLine != '\0') {
        EXPECT_THAT(log, HasSubstr(c.errorLine));
    } else {
        EXPECT_THAT(log, Not(HasSubstr("ERROR"))) << "a clean run reported an error";
    }
    if (*c.stderrLine != '\0') {
        EXPECT_THAT(run.err, HasSubstr(c.stderrLine));
    } else if (ownLog) {
        const std::string& name = args[args.size() - 1];
        EXPECT_EQ(ReadFile(dir / name), log) << "the log was not copied to " << name;
    }
    EXPECT_FALSE(fs::exists(dir / "injected")) << "a name was run as a command";
    const std::string after = ReadFile(dir / c.blob);
    if (c.after == BlobAfter::kUnchanged) {
        EXPECT_EQ(after.size(), before.size());
        EXPECT_TRUE(after == before) << "the blob file was changed";
    } else {
        EXPECT_NE(after, before) << "the blob was not rebuilt";
        std::string problem;
        EXPECT_TRUE(LoadBlobDatabase((dir / c.blob).string(), &problem)) << problem;
        BlobHeader header{};
        ASSERT_GE(after.size(), sizeof header);
        std::memcpy(&header, after.data(), sizeof header);
        EXPECT_EQ(
            PositionToByte(std::uint64_t{header.posApplicationStart} + header.nApplicationUnits),
            after.size())
            << "the file does not end where its tables do";
    }
    if (c.check) {
        c.check(dir.path(), run);
    }
    // Whatever went wrong, nothing is left behind but what the run was asked to write.
    for (const auto& entry : fs::recursive_directory_iterator(dir.path())) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, BadInput, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<BadInputCase>& param) {
                             return std::string(param.param.name) + std::to_string(param.index);
                         });

// A run stopped by a signal at any moment leaves the old blob or the new one,
// whole, and no temporary file; after SIGKILL the next run clears what is left.
class Interrupted : public ::testing::TestWithParam<int> {};

TEST_P(Interrupted, LeavesAWholeBlobAndNoTemporaryFile) {
    const int signal = GetParam();
    ScratchDir dir;
    WriteFile(dir / "in.xml", TextHeavySet());
    const std::string old = ExampleBlob();
    WriteFile(dir / "out.blb", old);
    const std::vector<std::string> args = {"-s", "in.xml", "-b", "out.blb"};
    // A fixed time: a run that ends in the next minute builds the same blob.
    const std::map<std::string, std::string> env = {{"SOURCE_DATE_EPOCH", "1700000000"}};
    const RunResult whole = RunQuillard(dir.path(), args, env);
    ASSERT_EQ(whole.status, 0);
    const std::string fresh = ReadFile(dir / "out.blb");
    // Under valgrind a run takes seconds: a few moments are enough there.
    const int step = UnderValgrind() ? 20000 : 1000;
    for (int delay = 0; delay < 40000; delay += step) {
        WriteFile(dir / "out.blb", old);
        RunQuillard(dir.path(), args, env, {signal, delay});
        if (signal == SIGKILL) {
            RunQuillard(dir.path(), {"-s", "in.xml", "-b", "other.blb"});
        }
        const std::string now = ReadFile(dir / "out.blb");
        EXPECT_TRUE(now == old || now == fresh) << "a broken blob after " << delay << " us";
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            EXPECT_NE(entry.path().filename().string().front(), '.')
                << entry.path() << " after " << delay << " us";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, Interrupted, ::testing::Values(SIGINT, SIGTERM, SIGHUP, SIGKILL),
                         [](const ::testing::TestParamInfo<int>& param) {
                             return std::string(sigabbrev_np(param.param));
                         });

// A file that is a pipe can be read once only: the run reads it through one
// open, keeps its text for its diagnostics, and never waits on it again.
struct PipeCase {
    const char* name;
    std::string document;
    int status;
    const char* stderrLine;  // expected on standard error; empty: nothing there
};

void PrintTo(const PipeCase& c, std::ostream* out) {
    *out << c.name;
}

class FifoInput : public ::testing::TestWithParam<PipeCase> {};

TEST_P(FifoInput, IsReadOnceAndNeverWaitedOnAgain) {
    const PipeCase& c = GetParam();
    ScratchDir dir;
    const fs::path fifo = dir / "in.xml";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // The writer waits without blocking for the run to open the pipe, writes
    // the document and closes it; it gives up when the run has ended.
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        int descriptor = -1;
        while (!ended && (descriptor = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0) {
            usleep(1000);
        }
        if (descriptor >= 0) {
            fcntl(descriptor, F_SETFL, 0);
            for (std::size_t at = 0; at < c.document.size();) {
                const ssize_t wrote =
                    write(descriptor, c.document.data() + at, c.document.size() - at);
                if (wrote <= 0) {
                    break;
                }
                at += static_cast<std::size_t>(wrote);
            }
            close(descriptor);
        }
    });
    ChildSetup setup;
    setup.timeLimitSeconds = 20;
    const RunResult run =
        RunQuillardWith(dir.path(), {"-s", "in.xml", "-b", "out.blb", "-l", "run.log"}, {}, setup);
    ended = true;
    writer.join();
    EXPECT_EQ(run.status, c.status) << "(-1: it waited until it was killed)\n" << run.err;
    if (*c.stderrLine != '\0') {
        EXPECT_THAT(run.err, HasSubstr(c.stderrLine));
    } else {
        EXPECT_EQ(run.err, "");
    }
}

std::vector<PipeCase> PipeCases() {
    return {
        {"SmallValidSet", ReadFile(Example("system.xml")), 0, ""},
        // A diagnostic after the whole file was read shows its line.
        {"SetWithALateDiagnostic", ReadFile(TestData("compile/pair_mismatch.xml")), 1,
         "<area Name=\"HYDynamic\" Privacy=\"Defined\">"},
        {"NotWellFormed", "<customisations>\n<area", 255, "not well-formed"},
    };
}

INSTANTIATE_TEST_SUITE_P(Cli, FifoInput, ::testing::ValuesIn(PipeCases()), test::CaseName());

}  // namespace
}  // namespace qk::cli
