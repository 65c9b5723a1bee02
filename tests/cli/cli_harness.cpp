#include "tests/cli/cli_harness.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

extern char** environ;

namespace qk::cli {

ScratchDir::ScratchDir() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "quillard-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a scratch directory");
    }
    path_ = pattern;
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(path_, ignored);
}

namespace {

constexpr const char* kSetpriv = "/usr/bin/setpriv";

// Waits until the run has ended or its time is up, then kills it (its status
// is then -1, and the test fails on it).
void WaitWithinTimeLimit(pid_t pid, int seconds) {
    if (seconds <= 0) {
        return;
    }
    for (int waited = 0; waited < seconds * 100; ++waited) {
        siginfo_t info{};
        if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == pid) {
            return;
        }
        usleep(10000);
    }
    kill(pid, SIGKILL);
}

RunResult Run(const std::filesystem::path& dir, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env, bool asNobody,
              Interruption interruption = {}, const ChildSetup& setup = {}) {
    // Output goes to files, not pipes, so a chatty run can never block on a full pipe.
    ScratchDir capture;
    if (asNobody) {
        // valgrind, run as that user too, writes its log here.
        std::filesystem::permissions(capture.path(), std::filesystem::perms::all);
    }
    const std::string outName = (capture / "stdout").string();
    const std::string errName = (capture / "stderr").string();

    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string item(*entry);
        std::string key = item.substr(0, item.find('='));
        if (env.find(key) == env.end()) {
            environment.push_back(item);
        }
    }
    for (const auto& [key, value] : env) {
        if (!value.empty()) {
            environment.push_back(key + "=" + value);
        }
    }
    // A sanitizer build of the tool must not fail on Mini-XML's own leaks.
    if (env.find("LSAN_OPTIONS") == env.end() && std::getenv("LSAN_OPTIONS") == nullptr) {
        environment.push_back(std::string("LSAN_OPTIONS=suppressions=") + LSAN_SUPPRESSIONS);
    }
    std::vector<char*> envp;
    for (auto& item : environment) {
        envp.push_back(item.data());
    }
    envp.push_back(nullptr);

    std::string program = QUILLARD_PATH;
    std::vector<std::string> argStorage{program};
    // The memcheck run of this suite wraps every run of the tool; its errors end
    // the run with a status no run of the tool itself can have.
    const char* valgrind = std::getenv("QUILLKIT_CLI_VALGRIND");
    const std::string valgrindLog = (capture / "valgrind.log").string();
    if (valgrind != nullptr && *valgrind != '\0') {
        argStorage = {valgrind,
                      "--error-exitcode=" + std::to_string(kValgrindErrorStatus),
                      "--leak-check=no",
                      "-q",
                      std::string("--suppressions=") + VALGRIND_SUPPRESSIONS,
                      "--log-file=" + valgrindLog,
                      program};
        program = valgrind;
    }
    argStorage.insert(argStorage.end(), args.begin(), args.end());
    if (asNobody) {
        const std::string id = std::to_string(kNobody);
        argStorage.insert(argStorage.begin(),
                          {kSetpriv, "--reuid=" + id, "--regid=" + id, "--clear-groups", "--"});
        program = kSetpriv;
    }
    if (setup.addressSpaceKiB > 0) {
        // The shell sets the limit and becomes the tool, which starts under it.
        argStorage.insert(
            argStorage.begin(),
            {"/bin/sh", "-c",
             "ulimit -v " + std::to_string(setup.addressSpaceKiB) + " && exec \"$0\" \"$@\""});
        program = "/bin/sh";
    }
    std::vector<char*> argv;
    for (auto& item : argStorage) {
        argv.push_back(item.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    const std::string& standardOutput =
        setup.standardOutput.empty() ? outName : setup.standardOutput;
    posix_spawn_file_actions_addopen(&actions, 1, standardOutput.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errName.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addchdir_np(&actions, dir.c_str());

    RunResult result;
    pid_t pid = 0;
    // The child inherits the limit, which this process holds only while it starts it.
    struct rlimit previousLimit {};
    getrlimit(RLIMIT_FSIZE, &previousLimit);
    if (setup.fileSizeLimit != RLIM_INFINITY) {
        struct rlimit limit = previousLimit;
        limit.rlim_cur = setup.fileSizeLimit;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    setrlimit(RLIMIT_FSIZE, &previousLimit);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        throw std::runtime_error("cannot start " + program);
    }
    if (interruption.signal != 0) {
        usleep(static_cast<useconds_t>(interruption.afterMicroseconds));
        kill(pid, interruption.signal);
    }
    int wstatus = 0;
    struct rusage usage {};
    WaitWithinTimeLimit(pid, setup.timeLimitSeconds);
    while (wait4(pid, &wstatus, 0, &usage) < 0) {
    }
    result.maxRssKiB = usage.ru_maxrss;
    if (WIFEXITED(wstatus)) {
        result.status = WEXITSTATUS(wstatus);
    }
    if (valgrind != nullptr && *valgrind != '\0' && result.status == kValgrindErrorStatus) {
        ADD_FAILURE() << "memory errors in quillard:\n" << ReadFile(valgrindLog);
    }
    result.out = ReadFile(outName);
    result.err = ReadFile(errName);
    return result;
}

}  // namespace

RunResult RunQuillard(const std::filesystem::path& dir, const std::vector<std::string>& args,
                      const std::map<std::string, std::string>& env, Interruption interruption) {
    return Run(dir, args, env, false, interruption);
}

RunResult RunQuillardUnprivileged(const std::filesystem::path& dir,
                                  const std::vector<std::string>& args, bool* ran) {
    *ran = true;
    if (geteuid() != 0) {
        return Run(dir, args, {}, false);
    }
    if (access(kSetpriv, X_OK) != 0) {
        *ran = false;
        return {};
    }
    std::error_code failed;
    const auto give = [&failed](const std::filesystem::path& path) {
        if (lchown(path.c_str(), kNobody, kNobody) != 0) {
            failed = std::error_code(errno, std::generic_category());
        }
    };
    give(dir);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        give(entry.path());
    }
    if (failed) {
        *ran = false;
        return {};
    }
    return Run(dir, args, {}, true);
}

std::filesystem::path TestData(const std::string& name) {
    return std::filesystem::path(TEST_DATA_DIR) / name;
}

std::filesystem::path Example(const std::string& name) {
    return std::filesystem::path(EXAMPLES_DIR) / name;
}

std::filesystem::path BuildDir() {
    return std::filesystem::path(BUILD_DIR);
}

std::map<std::string, std::string> SimulatorEnv(const std::filesystem::path& dir,
                                                const std::string& without) {
    const std::filesystem::path library = BuildDir() / "simulator";
    return {{"LD_LIBRARY_PATH",
             (without.empty() ? library : library / ("without-" + without)).string()},
            {"VEXZEL_SIM_DIR", (dir / "installed").string()}};
}

RunResult RunQuillardWith(const std::filesystem::path& dir, const std::vector<std::string>& args,
                          const std::map<std::string, std::string>& env, const ChildSetup& setup) {
    return Run(dir, args, env, false, {}, setup);
}

bool UnderValgrind() {
    const char* valgrind = std::getenv("QUILLKIT_CLI_VALGRIND");
    return valgrind != nullptr && *valgrind != '\0';
}

const std::string& ExampleBlob() {
    static const std::string bytes = [] {
        ScratchDir dir;
        const RunResult run =
            RunQuillard(dir.path(), {"-s", Example("system.xml").string(), "-b", "example.blb"});
        if (run.status != 0) {
            throw std::runtime_error("the example set does not compile");
        }
        return ReadFile(dir / "example.blb");
    }();
    return bytes;
}

std::string AddressSpaceLimitUnusable() {
#if defined(__SANITIZE_ADDRESS__)
    return "the sanitizers reserve more address space than any limit leaves";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return "the sanitizers reserve more address space than any limit leaves";
#endif
#endif
    if (UnderValgrind()) {
        return "valgrind needs more address space than any limit leaves";
    }
    return {};
}

}  // namespace qk::cli
