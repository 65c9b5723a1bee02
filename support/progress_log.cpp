#include "support/progress_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <span>
#include <string>

#include "support/diagnostic.h"
#include "support/log_line_format.h"
#include "support/output_file.h"
#include "support/utf8_encode.h"
#include "support/write_fully.h"

namespace qk {

int g_bCreateLog = 0;
wchar_t g_strLogFile[kLogFileNameUnits];
wchar_t g_strLog[kLogBufferUnits];

namespace {

int g_logDescriptor = -1;
// Set when a line of this run could not be written: quillard.log is then not
// this run's log, and is not copied.
bool g_logFailed = false;
int g_logError = 0;  // errno of the first failure
LogSink g_logSink = nullptr;

void FormatAndLog(std::size_t bound, const wchar_t* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    if (!FormatLogLine(g_strLog, bound, format, arguments) &&
        std::vswprintf(g_strLog, bound, format, again) < 0) {
        g_strLog[bound - 1] = L'\0';  // cut at the bound, never beyond it
    }
    va_end(again);
    ProgressLog(g_strLog, 0);
}

// Opens quillard.log when it is not open yet (mode 1 starts it anew); false when
// it cannot be opened.
bool OpenLogFile(int mode) {
    if (mode == 1 && g_logDescriptor >= 0) {
        close(g_logDescriptor);
        g_logDescriptor = -1;
    }
    if (g_logDescriptor < 0) {
        // One descriptor for the whole run; every line goes out in one write, so
        // the log on disk is complete after each call.
        const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (mode == 1 ? O_TRUNC : 0);
        g_logDescriptor = open(kLogFileName, flags, 0644);
        if (g_logDescriptor < 0) {
            g_logError = g_logFailed ? g_logError : errno;
            g_logFailed = true;
        }
    }
    return g_logDescriptor >= 0;
}

}  // namespace

void ProgressLog(const wchar_t* text, int mode) {
    if (g_bCreateLog == 0 || (g_logSink == nullptr && !OpenLogFile(mode))) {
        return;
    }
    // Encoded through a fixed buffer, so that a line costs no allocation (the
    // end of a run out of memory logs too); a line up to the shared buffer's
    // length goes out in one write.
    static char encoded[4 * kLogBufferUnits];
    std::size_t length = std::wcslen(text);
    while (length > 0) {
        const std::size_t units = std::min(length, kLogBufferUnits);
        const std::size_t count = EncodeUtf8To(text, units, encoded);
        text += units;
        length -= units;
        if (g_logSink != nullptr) {
            g_logSink(encoded, count);
            continue;
        }
        std::size_t written = 0;
        if (!WriteFully(g_logDescriptor, std::as_bytes(std::span(encoded, count)), written)) {
            // A full disk or a vanished file drops the line silently.
            g_logError = g_logFailed ? g_logError : errno;
            g_logFailed = true;
            return;
        }
    }
}

void LogFormatted(std::size_t bound, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatAndLog(bound, format, arguments);
    va_end(arguments);
}

void SetCreateLog(int on) {
    g_bCreateLog = on;
}

bool SetLogFile(const wchar_t* name) {
    const std::size_t length = std::wcslen(name);
    if (length >= kLogFileNameUnits) {
        return false;
    }
    std::wmemcpy(g_strLogFile, name, length + 1);
    return true;
}

namespace {

// The copy's complaints are diagnostics only: the log is finished by then.
void ReportCopyError(const char* name, const std::string& why) {
    Report(Diagnostic::Error("log-copy", FileLocation(AddSourceName(name)),
                             "the progress log could not be copied here: " + why));
}

bool IsTheLogItself(const char* name) {
    struct stat log {};
    struct stat copy {};
    return stat(kLogFileName, &log) == 0 && stat(name, &copy) == 0 && log.st_dev == copy.st_dev &&
           log.st_ino == copy.st_ino;
}

}  // namespace

void CopyLogTo(const char* name) {
    if (name == nullptr) {
        return;
    }
    if (IsTheLogItself(name)) {
        // The log is already where it was asked for, but may be cut short.
        if (g_logFailed) {
            Report(Diagnostic::Error("log-copy", FileLocation(AddSourceName(name)),
                                     "the progress log is incomplete: quillard.log could not be "
                                     "written in this run (" +
                                         SystemReason(g_logError) + ")"));
        }
        return;
    }
    if (g_logFailed) {
        ReportCopyError(name, "quillard.log could not be written in this run (" +
                                  SystemReason(g_logError) + ")");
        return;
    }
    const int log = open(kLogFileName, O_RDONLY | O_CLOEXEC);
    if (log < 0) {
        ReportCopyError(name, SystemReason(errno));
        return;
    }
    const OutputResult result = WriteOutputFile(name, {.bytes = {}, .source = log}, false);
    close(log);
    if (result.error != OutputError::kNone) {
        ReportCopyError(name, result.error == OutputError::kDanglingLink
                                  ? "it is a symbolic link to a file that does not exist"
                              : result.error == OutputError::kPathChanged
                                  ? kPathChangedReason
                                  : SystemReason(result.cause));
    }
}

void SetLogSinkForTests(LogSink sink) {
    g_logSink = sink;
}

void ResetProgressLog() {
    if (g_logDescriptor >= 0) {
        close(g_logDescriptor);
        g_logDescriptor = -1;
    }
    g_logFailed = false;
    g_logError = 0;
    g_bCreateLog = 0;
    std::wmemset(g_strLogFile, L'\0', kLogFileNameUnits);
    std::wmemset(g_strLog, L'\0', kLogBufferUnits);
}

}  // namespace qk
