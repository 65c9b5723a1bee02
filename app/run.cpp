#include "app/run.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/command_line.h"
#include "app/help_text.h"
#include "app/output_collision.h"
#include "blob/blob_file.h"
#include "blob/compact_builder.h"
#include "blob/version_string.h"
#include "bridge/blob_database.h"
#include "bridge/display_control.h"
#include "inspect/blob_diff.h"
#include "inspect/blob_dump.h"
#include "inspect/reverse_xml.h"
#include "model/customisation.h"
#include "model/file_kind.h"
#include "support/diagnostic.h"
#include "support/fatal_exit.h"
#include "support/input_files.h"
#include "support/out_of_memory.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "text/bounded_string.h"
#include "text/closest_name.h"
#include "text/utf8_decode.h"
#include "text/wide_string.h"
#include "xmlinput/consistency.h"
#include "xmlinput/file_reader.h"
#include "xmlinput/xml_discovery.h"

namespace qk {

namespace {

constexpr std::size_t kNameBytes = 256;
constexpr int kErrorStatus = 255;

// The end of a run that copies the log: the -l name is narrowed as it was
// given, and the log copied there, unless that is a file the run has read
// (a run that fails reading copies its log too).
void CopyLogToLogFile() {
    if (g_strLogFile[0] != L'\0') {
        const char* name = wctochar(g_strLogFile);
        if (name == nullptr || !OutputsCollide({{name}})) {
            CopyLogTo(name);
        }
    }
}

// Whether everything printed on standard output got there. When not (a full
// disk, a closed pipe), a diagnostic says so once: an error, which --strict
// turns into a failed run.
bool StandardOutputWritten() {
    static bool reported = false;
    const bool failedBefore = std::ferror(stdout) != 0;
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    if ((flushed && !failedBefore) || reported) {
        return flushed && !failedBefore;
    }
    const int cause = errno;
    reported = true;
    Report(Diagnostic::Error("cannot-write", {},
                             std::string("standard output could not be written") +
                                 (cause != 0 ? ": " + SystemReason(cause) : std::string())));
    return false;
}

class Run {
  public:
    Run(int argc, char** argv)
        : argc_(argc), argv_(argv), singleDash_(SingleDashArguments(argc, argv)) {}

    int Execute();

  private:
    int Find(const wchar_t* option, int first = 0) const {
        return GetCommandlineArgv(option, static_cast<int>(singleDash_.size()),
                                  const_cast<char**>(singleDash_.data()), first);
    }
    int FindLong(const char* option) const { return FindLongOption(option, argc_, argv_); }
    // The nth argument after a long option, or null.
    const char* LongValue(int index, int nth) const {
        return index + nth < argc_ ? argv_[index + nth] : nullptr;
    }
    // The argument after an option, or null when the option is the last one.
    const char* ValueAfter(int index) const {
        return index + 1 < static_cast<int>(singleDash_.size()) ? singleDash_[index + 1] : nullptr;
    }

    [[noreturn]] static void RefuseValue(const char* option) {
        LogFormat(L"ERROR, invalid value for option %s\n", option);
        Report(Diagnostic::Error(
            "invalid-option-value", {},
            std::string("the value of ") + option + " is too long or not valid UTF-8"));
        ExitFree();
    }
    // An option given as the last argument, without its value.
    [[noreturn]] static void MissingValue(const wchar_t* line, const char* option,
                                          const char* what) {
        ProgressLog(line, 0);
        Report(Diagnostic::Error("missing-option-value", {},
                                 std::string(option) + " needs " + what + " after it"));
        ExitFree();
    }
    // Copies a narrow option value into a 256-byte buffer, refusing what does not fit.
    static void CopyName(char* buffer, const char* value, const char* option) {
        if (apStrCpy(buffer, value, kNameBytes) == nullptr) {
            RefuseValue(option);
        }
    }

    bool ExamineLongOptions();
    void ExamineLogOption();
    void ExamineBlobOption();
    void ExamineReleaseOption();
    int CompareBlobs(int index);
    void ExamineInstalledSetOptions();
    static void ExamineSourceDateEpoch();
    // Ends the run with "ERROR, SUBJECT WHY".
    [[noreturn]] static void Refuse(const std::string& subject, const char* why);
    void AnswerFrom(const char* option, int index);
    void ReadSingleFiles();
    void ReadDirectories();
    void LogAllocationCount() const { LogFormat(L"g_iMalloced = %d\n", g_iMalloced); }
    // Ends the run (status 255, nothing written, no copy of the log) when an
    // output of the run is an input or another output.
    void RefuseCollidingOutputs() const;
    // The files the arguments name for reading, looked up without Find, whose
    // allocations the log counts.
    std::vector<const char*> NamedInputs() const;

    int argc_;
    char** argv_;
    std::vector<char*> singleDash_;
    char inputName_[kNameBytes] = {};
    char blobName_[kNameBytes] = {};
    const char* logName_ = nullptr;  // the -l value, as given
    int work_ = 0;
    int reverse_ = 0;
    int dump_ = 0;
    int placeholders_ = 0;
    int database_ = kSystemFile;
    int inputLoaded_ = 0;
    int fileStatus_ = 0;
    // The blob file that --from or --against names, answering instead of the
    // display-control library.
    std::optional<BlobDatabase> answers_;
};

// The display-control library answers again once the run is over.
struct AnswersReset {
    ~AnswersReset() { AnswerFromBlob(nullptr); }
};

void Run::ExamineLogOption() {
    const int index = Find(L"-l");
    if (index < 0) {
        return;
    }
    const char* value = ValueAfter(index);
    if (value == nullptr) {
        MissingValue(L"ERROR, Log file name not specified.", "-l", "a file name");
    }
    const wchar_t* wide = MakeWc(value);
    if (wide == nullptr || !SetLogFile(wide)) {
        RefuseValue("-l");
    }
    logName_ = value;
    // quillard.log is started anew at once: never when the run is to read it.
    if (OutputIsNamedInput(kLogFileName, NamedInputs())) {
        FreeAll();
        throw FatalExit{kErrorStatus, false};
    }
    SetCreateLog(1);
    ProgressLog(L"Launching Quillkit, Log progress selected...\n", 1);
}

void Run::ExamineBlobOption() {
    const int index = Find(L"-b");
    if (index < 0) {
        return;
    }
    const char* value = ValueAfter(index);
    if (value == nullptr) {
        MissingValue(L"ERROR, binary file name not specified.", "-b", "a file name");
    }
    CopyName(blobName_, value, "-b");
}

void Run::ExamineReleaseOption() {
    const int index = Find(L"-c");
    if (index < 0) {
        return;
    }
    const char* value = ValueAfter(index);
    if (value == nullptr) {
        SetReleaseText(nullptr);
        ProgressLog(L"ERROR, release string not specified.", 0);
        Report(Diagnostic::Error("missing-option-value", {},
                                 "-c needs a release text after it; the release text stays "
                                 "empty"));
        return;
    }
    const wchar_t* wide = MakeWc(value);
    if (wide == nullptr || !SetReleaseText(wide)) {
        RefuseValue("-c");
    }
    LogFormat(L"Release string specified: - %ls\n", g_strRelease);
}

void Run::Refuse(const std::string& subject, const char* why) {
    ProgressLog(WidenForLog(("ERROR, " + subject + " " + why + "\n").c_str()).c_str(), 0);
    Report(Diagnostic::Error("refused", {}, subject + " " + why));
    ExitFree();
}

void Run::RefuseCollidingOutputs() const {
    std::vector<PlannedOutput> outputs;
    if (reverse_ != 0) {
        // The -s values as ReadSingleFiles takes them; compared here without
        // Find, whose allocations the log counts.
        for (std::size_t index = 0; index + 1 < singleDash_.size(); ++index) {
            if (std::strcmp(singleDash_[index], "-s") == 0) {
                outputs.push_back({singleDash_[index + 1]});
            }
        }
    } else if (inputLoaded_ != 0) {
        outputs.push_back({BlobTargetName(blobName_)});
    }
    if (logName_ != nullptr) {
        // The log itself is an output too; a copy onto it changes nothing.
        outputs.insert(outputs.begin(), {kLogFileName});
        if (!SameExistingFile(logName_, kLogFileName)) {
            outputs.push_back({logName_});
        }
    }
    if (OutputsCollide(outputs)) {
        FreeAll();
        ProgressLog(L"Exiting Quillkit...\n", 0);
        throw FatalExit{kErrorStatus, false};
    }
}

std::vector<const char*> Run::NamedInputs() const {
    std::vector<const char*> inputs;
    for (std::size_t index = 0; index + 1 < singleDash_.size(); ++index) {
        const std::string_view option = singleDash_[index];
        if ((option == "-s" && reverse_ == 0) || (option == "-b" && dump_ != 0)) {
            inputs.push_back(singleDash_[index + 1]);
        }
    }
    for (const auto& [option, count] :
         {std::pair{"--from", 1}, std::pair{"--against", 1}, std::pair{"--diff", 2}}) {
        const int index = FindLong(option);
        for (int nth = 1; index >= 0 && nth <= count; ++nth) {
            if (const char* value = LongValue(index, nth)) {
                inputs.push_back(value);
            }
        }
    }
    return inputs;
}

// --diff A B: the two blobs compared; the run ends with diff's statuses.
int Run::CompareBlobs(int index) {
    const char* first = LongValue(index, 1);
    const char* second = first != nullptr ? LongValue(index, 2) : nullptr;
    int status = 2;
    if (second == nullptr) {
        ProgressLog(L"ERROR, --diff needs two blob file names.\n", 0);
        Report(Diagnostic::Error("missing-option-value", {}, "--diff needs two blob file names"));
    } else {
        RecordInputName(first);
        RecordInputName(second);
        RefuseCollidingOutputs();
        status = DiffBlobFiles(first, second);
        if (!StandardOutputWritten()) {
            status = 2;  // the differences were not shown
        }
    }
    CopyLogToLogFile();
    if (IsStrict() && ErrorsReported() > 0) {
        status = 2;  // --strict: any problem fails the run, with diff's failure status
    }
    return status;
}

void Run::AnswerFrom(const char* option, int index) {
    const char* path = LongValue(index, 1);
    if (path == nullptr) {
        Refuse(option, "needs a blob file name.");
    }
    RecordInputName(path);
    std::string problem;
    answers_ = LoadBlobDatabase(path, &problem);
    if (!answers_) {
        const std::string why = "blob file \"" + std::string(path) + "\" " + problem + ".";
        ProgressLog(
            WidenForLog(("ERROR, " + std::string(option) + ": " + why + "\n").c_str()).c_str(), 0);
        Report(Diagnostic::Error("not-a-blob", FileLocation(AddSourceName(path)),
                                 std::string(option) + ": the blob file " + problem));
        ExitFree();
    }
    AnswerFromBlob(&*answers_);
}

// --from (with -r) and --against (with -u or -oem): the installed database is
// read from a blob file instead of the display-control library.
void Run::ExamineInstalledSetOptions() {
    if (const int from = FindLong("--from"); from >= 0) {
        if (reverse_ == 0) {
            Refuse("--from", "goes with -r.");
        }
        AnswerFrom("--from", from);
    }
    if (const int against = FindLong("--against"); against >= 0) {
        if (reverse_ != 0 || !IsUserOrOem()) {
            Refuse("--against", "goes with -u or -oem, without -r.");
        }
        AnswerFrom("--against", against);
    }
}

// SOURCE_DATE_EPOCH, the one environment variable the tool reads: a whole
// number of seconds since 1970 fixes the version string's time, in UTC.
void Run::ExamineSourceDateEpoch() {
    const char* value = std::getenv("SOURCE_DATE_EPOCH");
    if (value == nullptr) {
        return;
    }
    const std::string_view digits(value);
    std::time_t seconds = 0;
    bool good = !digits.empty() && digits.size() <= 18;
    for (char digit : digits) {
        good = good && digit >= '0' && digit <= '9';
        seconds = seconds * 10 + (digit - '0');
    }
    std::tm when{};
    if (!good || gmtime_r(&seconds, &when) == nullptr || when.tm_year + 1900 > 9999) {
        Refuse("SOURCE_DATE_EPOCH=\"" + std::string(value) + "\"",
               "is not a whole number of seconds since 1970.");
    }
    SetVersionTime(seconds);
}

void Run::ReadSingleFiles() {
    int index = Find(L"-s");
    if (index < 0) {
        return;
    }
    fileStatus_ = -1;
    while (index >= 0) {
        const char* value = ValueAfter(index);
        if (value == nullptr) {
            MissingValue(L"ERROR, single file name not specified.", "-s", "a file name");
        }
        CopyName(inputName_, value, "-s");
        if (reverse_ != 0) {
            fileStatus_ = ReverseToXml(database_, placeholders_, inputName_);
        } else {
            fileStatus_ = ReadOneFile(inputName_);
            if (fileStatus_ != 0) {
                LogFormat(L"ERROR, single file XML read error: - %s\n", inputName_);
                break;
            }
            inputLoaded_ = 1;
        }
        work_ = 1;
        // The next lookup starts at the value just used, so "-s -s b.xml" reads
        // "-s" and then b.xml.
        index = Find(L"-s", index + 1);
    }
    if (fileStatus_ != 0) {
        ExitFree();
    }
}

void Run::ReadDirectories() {
    if (reverse_ != 0) {
        return;
    }
    int index = Find(L"-p");
    while (index >= 0) {
        const char* value = ValueAfter(index);
        if (value == nullptr) {
            MissingValue(L"ERROR, Path not specified.", "-p", "a directory name");
        }
        CopyName(inputName_, value, "-p");
        fileStatus_ = ReadAllXmls(inputName_, 1);
        if (fileStatus_ != 0) {
            LogFormat(L"ERROR, XML read error: - %s\n", inputName_);
            break;
        }
        inputLoaded_ = 1;
        work_ = 1;
        index = Find(L"-p", index + 1);
    }
    if (fileStatus_ != 0) {
        ExitFree();
    }
}

// Long options first: a misspelt one must not lose the safety it asked for.
bool Run::ExamineLongOptions() {
    if (const char* format = DiagnosticsFormatValue(argc_, argv_)) {
        const std::string_view name(format);
        if (name == "sarif") {
            SetDiagnosticsFormat(DiagnosticsFormat::kSarif);
        } else if (name != "text") {
            Report(
                Diagnostic::Error("unknown-option", {},
                                  "unknown diagnostics format " + Quoted(name) + " (text or sarif)")
                    .Suggest(ClosestName(name, {"text", "sarif"})));
            return false;
        }
    }
    if (const int unknown = FindUnknownLongOption(argc_, argv_); unknown >= 0) {
        const std::string_view given(argv_[unknown]);
        Report(Diagnostic::Error("unknown-option", {}, "unknown option " + Quoted(given))
                   .Suggest(ClosestName(given.substr(0, given.find('=')), LongOptionNames())));
        return false;
    }
    if (FindLong("--strict") >= 0) {
        SetStrict(true);
    }
    return true;
}

int Run::Execute() {
    if (!ExamineLongOptions()) {
        return kErrorStatus;
    }
    if (FindLong("--help") >= 0) {
        OutputUsage();
        return StandardOutputWritten() ? 0 : kErrorStatus;
    }
    if (FindLong("--version") >= 0) {
        OutputVersion();
        return StandardOutputWritten() ? 0 : kErrorStatus;
    }
    ProgressLog(L"_UNICODE NOT defined.\n", 0);
    ProgressLog(L"LAUNCHING Linux ...\n", 0);
    SetFileKind(kSystemFile);
    CreateCustomisations();
    if (argc_ <= 1) {
        return 0;
    }

    // Options are examined in this fixed order, whatever their order on the
    // command line; the order decides precedence and early exits.
    if (Find(L"-hiddenhelp") >= 0 || Find(L"/hiddenhelp") >= 0) {
        OutputHelp();
        StandardOutputWritten();
        return 0;
    }
    if (Find(L"-reload") >= 0) {
        LogFormat(L"Launching reload.\n");
        Call_ZEL_ApplicationProfiles_System_Reload();
        return 0;
    }
    if (Find(L"-nl") >= 0) {
        SetCreateLog(0);
    }
    if (Find(L"-k") >= 0) {
        work_ = 1;
    }
    if (Find(L"-r") >= 0) {
        reverse_ = 1;
        work_ = 1;
    }
    // Accepted and without effect; it is still looked up like every option, and
    // the lookup's tracked allocations are part of the count that the log shows.
    [[maybe_unused]] const int utf8 = Find(L"-utf8");
    if (Find(L"-sys") >= 0) {
        database_ = kSystemFile;
        work_ = 1;
    }
    if (Find(L"-oem") >= 0) {
        database_ = kOemFile;
        SetFileKind(kOemFile);
        work_ = 1;
    }
    if (Find(L"-user") >= 0) {
        database_ = kUserFile;
        work_ = 1;
    }
    if (Find(L"-ph") >= 0) {
        placeholders_ = 1;
        work_ = 1;
    }
    if (Find(L"-u") >= 0) {
        SetFileKind(kUserFile);
    }
    if (Find(L"-o") >= 0) {
        dump_ = 1;
        work_ = 1;
    }
    ExamineLogOption();
    ExamineBlobOption();
    if (const int diff = FindLong("--diff"); diff >= 0) {
        return CompareBlobs(diff);
    }
    if (Find(L"-v") >= 0) {
        printVersionString();
        StandardOutputWritten();
        return 0;
    }
    ExamineReleaseOption();
    ExamineSourceDateEpoch();
    ExamineInstalledSetOptions();

    if (reverse_ != 0) {
        RefuseCollidingOutputs();  // -r writes as it goes
    }
    ReadSingleFiles();
    ReadDirectories();
    if (dump_ != 0 && inputLoaded_ == 0) {
        RecordInputName(blobName_);  // -o dumps it
    }
    RefuseCollidingOutputs();
    if (work_ == 0) {
        return 0;
    }

    LogAllocationCount();
    if (inputLoaded_ != 0) {
        if (checkXML() != 0) {
            ProgressLog(L"Terminating Execution...\n", 0);
            FreeAll();
            return 1;
        }
        CreateCompact();
    }
    LogAllocationCount();
    if (inputLoaded_ != 0) {
        if (IsStrict() && ErrorsReported() > 0) {
            Report({Severity::kNote,
                    "strict",
                    {},
                    "--strict: no blob is written, for the errors above",
                    {},
                    {}});
        } else {
            WriteBinFile(blobName_);
        }
    }
    LogAllocationCount();
    if (dump_ != 0) {
        if (inputLoaded_ == 0 && LoadBlobImage(blobName_) < 0) {
            ExitFree();
        }
        PrintCompact();
    }
    LogAllocationCount();
    FreeAll();
    LogAllocationCount();
    ProgressLog(L"Exiting Quillkit...\n", 0);
    CopyLogToLogFile();
    return 0;
}

// Under --strict, a run that reported an error does not end as a success.
int StrictStatus(int status) {
    return status == 0 && IsStrict() && ErrorsReported() > 0 ? kErrorStatus : status;
}

// The run's diagnostics are complete (the SARIF log is written now). Out of
// memory, the SARIF log is lost; the run's end has been said on its own line.
struct DiagnosticsEnd {
    ~DiagnosticsEnd() {
        try {
            FinishDiagnostics(QUILLKIT_VERSION);
        } catch (const std::bad_alloc&) {
        }
    }
};

// The long options end with their failure status when memory runs out, as
// for any other failure; the single-dash modes end with status 0, or 255
// under --strict.
OutOfMemoryEnd ChooseOutOfMemoryEnd(int argc, char** argv) {
    const auto given = [argc, argv](const char* option) {
        return FindLongOption(option, argc, argv) >= 0;
    };
    if (given("--diff")) {
        return {2, "quillard: error: out of memory; the blobs are not compared (status 2)\n"};
    }
    if (given("--help") || given("--version")) {
        return {kErrorStatus, "quillard: error: out of memory (status 255)\n"};
    }
    if (given("--from") || given("--against") || given("--strict")) {
        return {kErrorStatus,
                "quillard: error: out of memory; the run ends without its output (status 255)\n"};
    }
    return kOutOfMemoryEnd;
}

}  // namespace

int RunQuillard(int argc, char** argv) {
    const AnswersReset answersReset;
    const DiagnosticsEnd diagnosticsEnd;
    // Past a file-size limit a write fails (and is reported) instead of ending
    // the process half way through.
    std::signal(SIGXFSZ, SIG_IGN);
    UseUtf8CharacterType();
    SetOutOfMemoryEnd(ChooseOutOfMemoryEnd(argc, argv));
    if (!SetMemoryAsideForTheEnd()) {
        return EndOutOfMemory();
    }
    try {
        const int status = Run(argc, argv).Execute();
        StandardOutputWritten();
        return StrictStatus(status);
    } catch (const FatalExit& exit) {
        StandardOutputWritten();
        if (exit.copyLog) {
            try {
                CopyLogToLogFile();
            } catch (const FatalExit&) {  // no memory left even for the name
            } catch (const std::bad_alloc&) {
            }
        }
        return StrictStatus(exit.status);
    } catch (const std::bad_alloc&) {
        // A standard container ran out of memory: the same end as an exhausted heap.
        return EndOutOfMemory();
    }
}

}  // namespace qk
