// Hostile and broken input: every case ends with a defined status and an ERROR
// line, and a good blob already at the -b path is either left whole or replaced
// by another whole blob, never destroyed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "blob/blob_decode_for_tests.h"
#include "tests/cli/cli_harness.h"
#include "tests/support/utf16_bytes.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char kNoVersion[] =
    "ERROR, blob file \"quillard.blb\" holds no readable version string.\n";
constexpr const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// A small system set; parts can be swapped for hostile ones.
struct SetParts {
    std::string properties =
        "<property Type=\"Dword\">Speed</property>"
        "<property Type=\"Binary\">Pattern</property>";
    std::string values = "<value Property=\"Speed\">7</value>";
    std::string applications =
        "<application Title=\"Fern\" File=\"fern.exe\"><use Area=\"Orchid\">Quick</use>"
        "</application>";
    std::string profileAttributes = "Area=\"Orchid\" Usage=\"Quick\"";
};

std::string SystemSet(const SetParts& parts = {}) {
    return std::string(kDeclaration) +
           "<customisations Format=\"1\" Content=\"Hostile\">\n"
           "<properties><area Name=\"Orchid\" Privacy=\"Defined\">" +
           parts.properties +
           "</area></properties>\n"
           "<profiles><profile " +
           parts.profileAttributes + ">" + parts.values +
           "</profile></profiles>\n"
           "<applications>" +
           parts.applications + "</applications>\n</customisations>\n";
}

std::string Repeat(const std::string& piece, int times) {
    std::string out;
    for (int i = 0; i < times; ++i)
        out += piece;
    return out;
}

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

std::string RandomBytes(std::size_t size) {
    std::mt19937 generator(20240611);
    std::string out(size, '\0');
    for (char& c : out)
        c = static_cast<char>(generator() & 0xFF);
    return out;
}

// The blob every case starts from at its -b path, compiled once.
const std::string& GoodBlob() {
    static const std::string bytes = [] {
        ScratchDir dir;
        const RunResult run =
            RunQuillard(dir.path(), {"-s", Example("system.xml").string(), "-b", "good.blb"});
        if (run.status != 0)
            throw std::runtime_error("the example set does not compile");
        return ReadFile(dir / "good.blb");
    }();
    return bytes;
}

enum class BlobAfter {
    kUnchanged,  // the run failed or only read: the good blob is byte for byte the same
    kRebuilt,    // the run compiled what it could: a new blob that decodes cleanly
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
    bool needsUnprivileged = false;  // run as an ordinary user: permission bits do not stop root
};

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
        {"CutJustBeforeTheLastBracket", Writes("in.xml", good.substr(0, good.rfind('>'))), 255,
         "Invalid XML detected: in.xml\n"},
        {"Utf16WithoutAByteOrderMark", Writes("in.xml", test::Utf16Bytes(good)), 255,
         "Invalid XML detected: in.xml\n"},
        {"InvalidUtf8InAnAttribute",
         Writes("in.xml",
                SystemSet({.profileAttributes = "Area=\"Orchid\" Usage=\"Qu\xC3\x28k\""})),
         255, "Invalid XML detected: in.xml\n"},
        {"InvalidUtf8InText",
         Writes("in.xml", SystemSet({.values = "<value Property=\"Speed\">\xFF\xFE</value>"})), 255,
         "Invalid XML detected: in.xml\n"},
        {"VeryDeepNesting",
         Writes("in.xml",
                SystemSet({.values = Repeat("<deep>", 20000) + Repeat("</deep>", 20000)})),
         0, "ERROR: - Unknown group found: - deep.\n", BlobAfter::kRebuilt},
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
         0, "ERROR: - Unknown application attributes: - A4999\n", BlobAfter::kRebuilt},
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
         .needsUnprivileged = true},
        {"DumpOfAnEmptyFile", Writes("bad.blb", ""), 0,
         "ERROR, blob file \"bad.blb\" is missing or empty; the image is all zero.\n",
         BlobAfter::kUnchanged, dump, "bad.blb"},
        {"DumpOfATruncatedBlob",
         [](const fs::path& dir) {
             WriteFile(dir / "bad.blb", GoodBlob().substr(0, GoodBlob().size() / 2));
         },
         0, "chain leaves its table\n", BlobAfter::kUnchanged, dump, "bad.blb"},
        {"DumpOfAnOversizedFile", Writes("bad.blb", std::string(0x100000, '\x01')), 255,
         "more than the 0xFFFFF bytes an image holds.\n", BlobAfter::kUnchanged, dump, "bad.blb"},
        {"DumpOfRandomBytes", Writes("bad.blb", RandomBytes(4096)), 0, "leaves the image\n",
         BlobAfter::kUnchanged, dump, "bad.blb"},
        {"VersionOfAnEmptyFile", Writes("quillard.blb", ""), 0, kNoVersion, BlobAfter::kUnchanged,
         version, "quillard.blb"},
        {"VersionOfATruncatedBlob",
         [](const fs::path& dir) { WriteFile(dir / "quillard.blb", GoodBlob().substr(0, 40)); }, 0,
         kNoVersion, BlobAfter::kUnchanged, version, "quillard.blb"},
        {"VersionOfRandomBytes", Writes("quillard.blb", RandomBytes(4096)), 0, kNoVersion,
         BlobAfter::kUnchanged, version, "quillard.blb"},
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
         255, "XML Invalid!!!\n", BlobAfter::kUnchanged, tree, "good.blb", true},
    };
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
    ScratchDir dir;
    WriteFile(dir / c.blob, GoodBlob());
    c.make(dir.path());
    const std::string before = ReadFile(dir / c.blob);
    std::vector<std::string> args = c.args;
    const bool ownLog = std::find(args.begin(), args.end(), "-l") != args.end();
    if (!ownLog) {
        args.insert(args.begin(), {"-l", "run.log"});
    }
    bool ran = true;
    const RunResult run = c.needsUnprivileged ? RunQuillardUnprivileged(dir.path(), args, &ran)
                                              : RunQuillard(dir.path(), args);
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
    if (ownLog) {
        const std::string& name = args[args.size() - 1];
        EXPECT_EQ(ReadFile(dir / name), log) << "the log was not copied to " << name;
        EXPECT_FALSE(fs::exists(dir / "injected")) << "a name was run as a command";
    }
    const std::string after = ReadFile(dir / c.blob);
    if (c.after == BlobAfter::kUnchanged) {
        EXPECT_EQ(after.size(), before.size());
        EXPECT_TRUE(after == before) << "the blob file was changed";
    } else {
        const unit::DecodedBlob blob = unit::DecodeBlobFile((dir / c.blob).string());
        EXPECT_TRUE(blob.ok()) << "the rebuilt blob does not decode";
        EXPECT_EQ(blob.endByte, after.size());
    }
    // Whatever went wrong, nothing is left behind but what the run was asked to write.
    for (const auto& entry : fs::directory_iterator(dir.path())) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, BadInput, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<BadInputCase>& param) {
                             return std::string(param.param.name) + std::to_string(param.index);
                         });

}  // namespace
}  // namespace qk::cli
