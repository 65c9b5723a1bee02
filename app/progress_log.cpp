#include "app/progress_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <span>
#include <string>

#include "app/output_file.h"
#include "text/utf8.h"

namespace qk {

int g_bCreateLog = 0;
wchar_t g_strLogFile[kLogFileNameUnits];
wchar_t g_strLog[kLogBufferUnits];

namespace {

int g_logDescriptor = -1;
// Set when a line of this run could not be written: quillard.log is then not
// this run's log, and is not copied.
bool g_logFailed = false;
std::string g_encoded;
LogSink g_logSink = nullptr;

void WriteAll(int descriptor, const char* bytes, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t wrote = write(descriptor, bytes + done, count - done);
        if (wrote < 0) {
            if (errno == EINTR) {
                continue;
            }
            g_logFailed = true;  // a full disk or a vanished file drops the line silently
            return;
        }
        done += static_cast<std::size_t>(wrote);
    }
}

void FormatAndLog(std::size_t bound, const wchar_t* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    if (!FormatLogLine(g_strLog, bound, format, arguments) &&
        (UseUtf8CharacterType(), std::vswprintf(g_strLog, bound, format, again) < 0)) {
        g_strLog[bound - 1] = L'\0';  // cut at the bound, never beyond it
    }
    va_end(again);
    ProgressLog(g_strLog, 0);
}

}  // namespace

namespace {

// Output of the quick formatter: stops taking units at the bound, as vswprintf
// does.
class LineWriter {
  public:
    LineWriter(wchar_t* out, std::size_t bound) : out_(out), room_(bound - 1) {}

    void Put(wchar_t unit) {
        if (used_ < room_) {
            out_[used_++] = unit;
        }
    }
    void Pad(std::size_t width, std::size_t length) {
        for (; length < width; ++length) {
            Put(L' ');
        }
    }
    void Number(bool negative, unsigned long long magnitude, unsigned base, bool upper,
                std::size_t width) {
        wchar_t digits[24];
        std::size_t count = 0;
        const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
        do {
            digits[count++] = static_cast<wchar_t>(set[magnitude % base]);
            magnitude /= base;
        } while (magnitude != 0);
        Pad(width, count + (negative ? 1 : 0));
        if (negative) {
            Put(L'-');
        }
        while (count > 0) {
            Put(digits[--count]);
        }
    }
    void Finish() { out_[used_] = L'\0'; }

  private:
    wchar_t* out_;
    std::size_t room_;
    std::size_t used_ = 0;
};

}  // namespace

bool FormatLogLine(wchar_t* out, std::size_t bound, const wchar_t* format, va_list arguments) {
    if (bound == 0) {
        return false;
    }
    LineWriter line(out, bound);
    for (const wchar_t* at = format; *at != L'\0'; ++at) {
        if (*at != L'%') {
            line.Put(*at);
            continue;
        }
        ++at;
        if (*at == L'%') {
            line.Put(L'%');
            continue;
        }
        std::size_t width = 0;
        if (*at >= L'1' && *at <= L'9') {
            while (*at >= L'0' && *at <= L'9') {
                width = width * 10 + static_cast<std::size_t>(*at - L'0');
                ++at;
            }
        }
        int longs = 0;
        while (*at == L'l' && longs < 2) {
            ++longs;
            ++at;
        }
        switch (*at) {
            case L'd': {
                long long value = longs == 0   ? va_arg(arguments, int)
                                  : longs == 1 ? va_arg(arguments, long)
                                               : va_arg(arguments, long long);
                const bool negative = value < 0;
                const unsigned long long magnitude =
                    negative ? 0ULL - static_cast<unsigned long long>(value)
                             : static_cast<unsigned long long>(value);
                line.Number(negative, magnitude, 10, false, width);
                break;
            }
            case L'u':
            case L'X':
            case L'x': {
                const unsigned long long value = longs == 0 ? va_arg(arguments, unsigned)
                                                 : longs == 1
                                                     ? va_arg(arguments, unsigned long)
                                                     : va_arg(arguments, unsigned long long);
                line.Number(false, value, *at == L'u' ? 10 : 16, *at == L'X', width);
                break;
            }
            case L's': {
                if (longs == 1) {
                    const auto* text = va_arg(arguments, const wchar_t*);
                    if (text == nullptr) {
                        return false;
                    }
                    const std::size_t length = width > 0 ? std::wcslen(text) : 0;
                    line.Pad(width, length);
                    for (; *text != L'\0'; ++text) {
                        line.Put(*text);
                    }
                } else if (longs == 0) {
                    // Narrow text decodes with the character type; only ASCII is
                    // taken here, the rest goes the long way.
                    const auto* text = va_arg(arguments, const char*);
                    if (text == nullptr) {
                        return false;
                    }
                    const std::size_t length = width > 0 ? std::strlen(text) : 0;
                    for (const char* c = text; *c != '\0'; ++c) {
                        if (static_cast<unsigned char>(*c) >= 0x80) {
                            return false;
                        }
                    }
                    line.Pad(width, length);
                    for (; *text != '\0'; ++text) {
                        line.Put(static_cast<wchar_t>(*text));
                    }
                } else {
                    return false;
                }
                break;
            }
            case L'c':
                if (longs != 1) {
                    return false;
                }
                line.Pad(width, 1);
                line.Put(static_cast<wchar_t>(va_arg(arguments, wint_t)));
                break;
            default:
                return false;
        }
    }
    // A text cut at the bound is what the caller leaves after vswprintf too.
    line.Finish();
    return true;
}

namespace {

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
    // The buffer only grows, so a line costs no allocation and no clearing.
    const std::size_t length = std::wcslen(text);
    if (g_encoded.size() < 4 * length) {
        g_encoded.resize(4 * length);
    }
    const std::size_t count = EncodeUtf8To(text, length, g_encoded.data());
    if (g_logSink != nullptr) {
        g_logSink(g_encoded.data(), count);
    } else {
        WriteAll(g_logDescriptor, g_encoded.data(), count);
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

// The copy's complaints go to standard error: the log is finished by then.
void ReportCopyError(const char* name, const char* why) {
    std::fprintf(stderr, "ERROR, the progress log could not be copied to \"%s\": %s\n", name, why);
}

bool IsTheLogItself(const char* name) {
    struct stat log {};
    struct stat copy {};
    return stat(kLogFileName, &log) == 0 && stat(name, &copy) == 0 && log.st_dev == copy.st_dev &&
           log.st_ino == copy.st_ino;
}

}  // namespace

void CopyLogTo(const char* name) {
    if (name == nullptr || IsTheLogItself(name)) {
        return;  // the log is already where it was asked for
    }
    if (g_logFailed) {
        ReportCopyError(name, "quillard.log could not be written in this run");
        return;
    }
    const int log = open(kLogFileName, O_RDONLY | O_CLOEXEC);
    if (log < 0) {
        ReportCopyError(name, std::strerror(errno));
        return;
    }
    const OutputResult result = WriteOutputFile(name, {.bytes = {}, .source = log}, false);
    close(log);
    if (result.error != OutputError::kNone) {
        ReportCopyError(name, result.error == OutputError::kDanglingLink
                                  ? "it is a symbolic link to a file that does not exist"
                                  : std::strerror(result.cause));
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
    g_bCreateLog = 0;
    std::wmemset(g_strLogFile, L'\0', kLogFileNameUnits);
    std::wmemset(g_strLog, L'\0', kLogBufferUnits);
}

}  // namespace qk
