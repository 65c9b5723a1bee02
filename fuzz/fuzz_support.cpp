#include "fuzz/fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "blob/compact_builder.h"
#include "blob/string_table.h"
#include "blob/version_string.h"
#include "bridge/display_control.h"
#include "inspect/blob_dump.h"
#include "model/customisation.h"
#include "model/file_kind.h"
#include "support/diagnostic.h"
#include "support/fatal_exit.h"
#include "support/input_files.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "xmlinput/consistency.h"
#include "xmlinput/file_reader.h"
#include "xmlinput/name_lookup.h"

namespace qk::fuzz {

namespace {

std::filesystem::path g_workDir;

void RemoveWorkDir() {
    std::error_code ignored;
    std::filesystem::remove_all(g_workDir, ignored);
}

void EnterWorkDir() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "quillkit-fuzz-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        std::abort();
    g_workDir = pattern;
    std::filesystem::current_path(g_workDir);
    std::atexit(RemoveWorkDir);
    // Every line is formatted and encoded as for the file, then dropped: a
    // random blob can make the dump log a hundred thousand lines, and a system
    // call for each would leave little time for fuzzing.
    SetLogSinkForTests([](const char*, std::size_t) {});
    UseUtf8CharacterType();  // as every run of the tool does at its start
    // Library messages and -v lines would only drown the fuzzer's own output.
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        std::abort();
}

// The work directory becomes the current one, so the paths the fuzzer was given
// (corpora, inputs, artifact prefixes) are made absolute first.
void MakePathArgumentsAbsolute(int argc, char** argv) {
    static std::vector<std::string> storage;
    storage.reserve(static_cast<std::size_t>(argc));
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        std::string prefix;
        for (const char* option : {"-artifact_prefix=", "-exact_artifact_path="}) {
            if (argument.rfind(option, 0) == 0)
                prefix = option;
        }
        if (prefix.empty() && argument.rfind('-', 0) == 0)
            continue;
        std::string path = argument.substr(prefix.size());
        if (path.empty() || path.front() == '/')
            continue;
        const bool directoryPrefix = path.back() == '/';
        path = std::filesystem::absolute(path).string();
        if (directoryPrefix && path.back() != '/')
            path += '/';
        storage.push_back(prefix + path);
        argv[i] = storage.back().data();
    }
}

}  // namespace

void ResetRun() {
    if (g_workDir.empty())
        EnterWorkDir();
    ResetProgressLog();
    ResetTrackedMemory();
    // Millions of runs: diagnostics are counted, not printed, and files forgotten.
    ResetDiagnostics();
    SetDiagnosticsFormat(DiagnosticsFormat::kNone);
    ResetSourceManager();
    ResetInputFiles();
    ResetFileReader();
    ResetNameLookup();
    ResetConsistency();
    ResetStringTable();
    ResetCompactBuilder();
    ResetVersionString();
    ReleaseLibraryAnswers();
    SetFileKind(kSystemFile);
    SetCreateLog(1);
    ProgressLog(L"", 1);
    CreateCustomisations();
}

const char* WriteInput(const std::uint8_t* data, std::size_t size, const char* name) {
    std::FILE* file = std::fopen(name, "wb");
    if (file == nullptr)
        std::abort();
    if (size > 0 && std::fwrite(data, 1, size, file) != size)
        std::abort();
    std::fclose(file);
    return name;
}

void CheckFatalExit(int status) {
    if (status != 0 && status != 255)
        __builtin_trap();
}

void CompileXml(const std::uint8_t* data, std::size_t size, int fileKind) {
    ResetRun();
    SetFileKind(static_cast<FileKind>(fileKind));
    const char* path = WriteInput(data, size, "input.xml");
    try {
        if (ReadOneFile(path) != 0)
            return;
        if (checkXML() != 0)
            return;
        CreateCompact();
        PrintCompact();
    } catch (const FatalExit& exit) {
        CheckFatalExit(exit.status);
    } catch (const std::bad_alloc&) {
    }
    ReleaseLibraryAnswers();
}

}  // namespace qk::fuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    qk::fuzz::MakePathArgumentsAbsolute(*argc, *argv);
    qk::fuzz::ResetRun();
    return 0;
}
