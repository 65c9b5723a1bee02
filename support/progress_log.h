#pragma once

#include <cstdarg>
#include <cstddef>

namespace qk {

constexpr const char* kLogFileName = "quillard.log";
constexpr std::size_t kLogBufferUnits = 16384;
constexpr std::size_t kLogFormatBound = 4096;
constexpr std::size_t kLogFileNameUnits = 256;

// Logging switch: off at start, -nl clears it, -l sets it.
extern int g_bCreateLog;
// The -l name, widened; where the finished log is copied. Empty means no copy.
extern wchar_t g_strLogFile[kLogFileNameUnits];
// Shared message buffer: callers format into it, then hand it to ProgressLog.
extern wchar_t g_strLog[kLogBufferUnits];

// Appends text to quillard.log (mode 1 starts a new log). Does nothing while
// logging is off; the text is on disk when the call returns.
void ProgressLog(const wchar_t* text, int mode);

// The formatting behind LogFormat: logs format and its arguments, cut at bound.
void LogFormatted(std::size_t bound, const wchar_t* format, ...);

// Formats into g_strLog with the usual 4096-character bound and logs it (mode 0).
// While logging is off nothing is called at all: a run makes tens of thousands
// of these calls, and without -l every one of them is skipped right here.
template <typename... Arguments>
inline void LogFormat(const wchar_t* format, Arguments... arguments) {
    if (g_bCreateLog != 0) {
        LogFormatted(kLogFormatBound, format, arguments...);
    }
}

void SetCreateLog(int on);
// Stores the -l name; returns false when it does not fit.
bool SetLogFile(const wchar_t* name);

// Copies quillard.log to name (WriteOutputFile: links and modes as for the
// blob). When quillard.log could not be written in this run, or the copy fails,
// nothing is copied and a diagnostic says why.
void CopyLogTo(const char* name);

// Where each encoded line goes instead of quillard.log, for fuzzers that run
// the dump millions of times: lines are still formatted and encoded, but cost
// no system call. Null restores the file.
using LogSink = void (*)(const char* bytes, std::size_t count);
void SetLogSinkForTests(LogSink sink);

// Closes the log file and clears the log state (used between runs in tests).
void ResetProgressLog();

}  // namespace qk
