#pragma once

#include <sys/resource.h>

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace qk::cli {

using test::ReadFile;
using test::WriteFile;

struct RunResult {
    int status = -1;  // exit status, or -1 when the tool did not exit normally
    std::string out;
    std::string err;
    long maxRssKiB = 0;  // peak resident memory
};

// A signal sent to the run after a delay (none when signal is 0).
struct Interruption {
    int signal = 0;
    int afterMicroseconds = 0;
};

// A fresh scratch directory, removed with its content at the end of the test.
class ScratchDir {
  public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// The unprivileged user that runs the tool where permission bits must count.
constexpr uid_t kNobody = 65534;

// True when every run goes through valgrind (QUILLKIT_CLI_VALGRIND): runs take
// seconds there, and tests take fewer of them.
bool UnderValgrind();

// The blob compiled from the example set, compiled once.
const std::string& ExampleBlob();

// With QUILLKIT_CLI_VALGRIND naming valgrind, every run goes through its
// memcheck, and a run with memory errors ends with this status (and a test failure).
constexpr int kValgrindErrorStatus = 99;

// Runs the built quillard with args in dir, without a shell. env entries are set
// (an empty value unsets the variable) on top of the test's own environment.
RunResult RunQuillard(const std::filesystem::path& dir, const std::vector<std::string>& args,
                      const std::map<std::string, std::string>& env = {},
                      Interruption interruption = {});

// Permission bits do not stop root. Run as root, this gives dir and its content
// to the unprivileged user "nobody" and runs the tool as that user (through
// setpriv), so that read-only and unreadable files stop it as they stop any
// user; run as anyone else it is RunQuillard. Returns false in *ran when root
// cannot drop its privileges here.
RunResult RunQuillardUnprivileged(const std::filesystem::path& dir,
                                  const std::vector<std::string>& args, bool* ran);

// The environment that has the tool load the stand-in display-control library
// (or its variant built without the entry `without`), serving the databases in
// dir/installed.
std::map<std::string, std::string> SimulatorEnv(const std::filesystem::path& dir,
                                                const std::string& without = "");

std::filesystem::path TestData(const std::string& name);
std::filesystem::path Example(const std::string& name);
std::filesystem::path BuildDir();

// What a run's process gets besides its arguments: its standard output sent to
// a file of the test's choosing (/dev/full, say) instead of being captured,
// limits on the size of the files it writes and on its address space, and a
// time after which it is killed (its status is then -1).
struct ChildSetup {
    std::string standardOutput;  // empty: captured into RunResult::out
    rlim_t fileSizeLimit = RLIM_INFINITY;
    long addressSpaceKiB = 0;  // 0: no limit on the address space
    int timeLimitSeconds = 0;  // 0: the run may take as long as it takes
};

RunResult RunQuillardWith(const std::filesystem::path& dir, const std::vector<std::string>& args,
                          const std::map<std::string, std::string>& env, const ChildSetup& setup);

// Why runs of the tool cannot take an address-space limit in this build or run
// (sanitizers, valgrind); empty when they can.
std::string AddressSpaceLimitUnusable();

}  // namespace qk::cli
