// A blob path that names something other than a regular file: a FIFO without a
// writer, a directory, a device. Every mode that reads a blob refuses it at
// once; none waits for a writer that never comes.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// While it lives, it watches a FIFO: past the deadline, a reader stuck on it
// (in open or read) is released by a writer that opens and closes it, and the
// rescue is counted: a run that needed one would have waited forever.
class FifoWatchdog {
  public:
    FifoWatchdog(fs::path fifo, std::chrono::seconds deadline)
        : thread_([this, fifo = std::move(fifo), deadline] {
              const auto end = std::chrono::steady_clock::now() + deadline;
              while (!done_) {
                  if (std::chrono::steady_clock::now() > end) {
                      // Succeeds only while a reader has the FIFO open.
                      const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
                      if (writer >= 0) {
                          close(writer);
                          rescued_ = true;
                      }
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(20));
              }
          }) {}
    ~FifoWatchdog() { Stop(); }
    bool Stop() {
        done_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return rescued_;
    }

  private:
    std::atomic<bool> done_{false};
    std::atomic<bool> rescued_{false};
    std::thread thread_;
};

enum class Kind { kFifo, kDirectory, kDevice };

struct FileKindCase {
    const char* name;
    std::vector<std::string> args;  // "bad.blb" is the odd file
    int status;
    const char* stderrLine;
};

const FileKindCase kCases[] = {
    {"From",
     {"-r", "-s", "back.xml", "--from", "bad.blb"},
     255,
     "bad.blb: error: --from: the blob file is not a regular file"},
    {"Against",
     {"-u", "-s", "user.xml", "-b", "back.xml", "--against", "bad.blb"},
     255,
     "bad.blb: error: --against: the blob file is not a regular file"},
    {"DiffFirst",
     {"--diff", "bad.blb", "good.blb"},
     2,
     "bad.blb: error: --diff: the blob file is not a regular file"},
    {"DiffSecond",
     {"--diff", "good.blb", "bad.blb"},
     2,
     "bad.blb: error: --diff: the blob file is not a regular file"},
    {"Dump", {"-o", "-b", "bad.blb"}, 255, "bad.blb: error: the blob file is not a regular file"},
};

void PrintTo(const FileKindCase& c, std::ostream* out) {
    *out << c.name;
}

class BlobFileKind : public ::testing::TestWithParam<std::tuple<FileKindCase, Kind>> {};

TEST_P(BlobFileKind, IsRefusedAtOnce) {
    const auto& [c, kind] = GetParam();
    ScratchDir dir;
    WriteFile(dir / "user.xml", ReadFile(Example("update.xml")));
    ASSERT_EQ(
        RunQuillard(dir.path(), {"-s", Example("system.xml").string(), "-b", "good.blb"}).status,
        0);
    const fs::path bad = dir / "bad.blb";
    switch (kind) {
        case Kind::kFifo:
            ASSERT_EQ(mkfifo(bad.c_str(), 0600), 0);
            break;
        case Kind::kDirectory:
            fs::create_directory(bad);
            break;
        case Kind::kDevice:
            fs::create_symlink("/dev/zero", bad);
            break;
    }
    const bool valgrind = std::getenv("QUILLKIT_CLI_VALGRIND") != nullptr;
    FifoWatchdog watchdog(bad, std::chrono::seconds(valgrind ? 60 : 5));
    const RunResult run = RunQuillard(dir.path(), c.args);
    EXPECT_FALSE(watchdog.Stop()) << "the run waited on the FIFO until it was released";
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_THAT(run.err, HasSubstr(c.stderrLine));
    EXPECT_FALSE(fs::exists(dir / "back.xml")) << "an answer was written from no blob";
}

std::string CaseName(const ::testing::TestParamInfo<std::tuple<FileKindCase, Kind>>& info) {
    static const char* const kKinds[] = {"Fifo", "Directory", "Device"};
    return std::string(std::get<0>(info.param).name) +
           kKinds[static_cast<int>(std::get<1>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(Cli, BlobFileKind,
                         ::testing::Combine(::testing::ValuesIn(kCases),
                                            ::testing::Values(Kind::kFifo, Kind::kDirectory,
                                                              Kind::kDevice)),
                         CaseName);

}  // namespace
}  // namespace qk::cli
