#include "app/progress_log.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdint>
#include <cwchar>
#include <string>

#include "text/utf8.h"

extern char** environ;

namespace qk {

int g_bCreateLog = 0;
wchar_t g_strLogFile[kLogFileNameUnits];
wchar_t g_strLog[kLogBufferUnits];

namespace {

// Narrow texts in log messages (file names, XML names) are UTF-8; the wide
// formatter decodes "%s" arguments with the process's character type, so it
// is set to UTF-8 before main runs.
[[maybe_unused]] const bool kUtf8CharacterType = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;

int g_logDescriptor = -1;
std::string g_encoded;

void WriteAll(int descriptor, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t wrote = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (wrote < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;  // a full disk or a vanished file drops the line silently
        }
        done += static_cast<std::size_t>(wrote);
    }
}

void FormatAndLog(std::size_t bound, const wchar_t* format, va_list arguments) {
    if (std::vswprintf(g_strLog, bound, format, arguments) < 0) {
        g_strLog[bound - 1] = L'\0';  // cut at the bound, never beyond it
    }
    ProgressLog(g_strLog, 0);
}

}  // namespace

void ProgressLog(const wchar_t* text, int mode) {
    if (g_bCreateLog == 0) {
        return;
    }
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
            return;
        }
    }
    EncodeUtf8(text, g_encoded);
    WriteAll(g_logDescriptor, g_encoded);
}

void LogFormat(const wchar_t* format, ...) {
    if (g_bCreateLog == 0) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    FormatAndLog(kLogFormatBound, format, arguments);
    va_end(arguments);
}

void LogFormatLong(const wchar_t* format, ...) {
    if (g_bCreateLog == 0) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    FormatAndLog(kLogBufferUnits, format, arguments);
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

void CopyLogTo(const char* name) {
    // cp is started directly, never through a shell, so the name is taken literally.
    const char* arguments[] = {"cp", "--", kLogFileName, name, nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, "cp", nullptr, nullptr, const_cast<char**>(arguments), environ) != 0) {
        return;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
}

void ResetProgressLog() {
    if (g_logDescriptor >= 0) {
        close(g_logDescriptor);
        g_logDescriptor = -1;
    }
    g_bCreateLog = 0;
    std::wmemset(g_strLogFile, L'\0', kLogFileNameUnits);
    std::wmemset(g_strLog, L'\0', kLogBufferUnits);
}

}  // namespace qk
