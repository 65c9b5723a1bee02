#include "support/diagnostic.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include "support/utf8_encode.h"
#include "support/write_fully.h"

namespace qk {

namespace {

DiagnosticsFormat g_format = DiagnosticsFormat::kText;
bool g_strict = false;
int g_errors = 0;
// Kept for the SARIF log, which is written whole at the end of the run.
std::vector<Diagnostic> g_kept;
// A hostile file can make a diagnostic of every attribute; past this many a
// run only counts them (as compilers stop at a number of errors).
constexpr int kMaxShown = 200;
int g_shown = 0;
int g_notShown = 0;
// The line of a run that ran out of memory, for the SARIF log at its end.
const char* g_outOfMemory = nullptr;

void WriteUnbuffered(const char* text) {
    // Straight to the descriptor: the stream could want a buffer.
    std::size_t written = 0;
    WriteFully(STDERR_FILENO, std::as_bytes(std::span(text, std::strlen(text))), written);
}

// The SARIF log of the run: out of memory, it says so as its last result, or,
// when even that cannot be built, the plain line stands instead.
void FinishSarif(const char* toolVersion) {
    try {
        if (g_outOfMemory != nullptr) {
            constexpr std::string_view kPrefix = "quillard: error: ";
            std::string_view line(g_outOfMemory);
            if (line.starts_with(kPrefix)) {
                line.remove_prefix(kPrefix.size());
            }
            if (line.ends_with('\n')) {
                line.remove_suffix(1);
            }
            g_kept.push_back(Diagnostic::Error("out-of-memory", {}, std::string(line)));
        }
        PrintDiagnosticsSarif(g_kept, toolVersion);
    } catch (const std::bad_alloc&) {
        if (g_outOfMemory != nullptr) {
            WriteUnbuffered(g_outOfMemory);
        }
    }
    g_kept.clear();
    g_outOfMemory = nullptr;
}

}  // namespace

const char* SeverityName(Severity severity) {
    switch (severity) {
        case Severity::kError:
            return "error";
        case Severity::kWarning:
            return "warning";
        case Severity::kNote:
            break;
    }
    return "note";
}

void CountNotShown(Severity severity) {
    if (severity == Severity::kError) {
        ++g_errors;
    }
    ++g_notShown;
}

void Report(const Diagnostic& diagnostic) {
    if (g_shown >= kMaxShown) {
        CountNotShown(diagnostic.severity);
        return;
    }
    if (diagnostic.severity == Severity::kError) {
        ++g_errors;
    }
    ++g_shown;
    switch (g_format) {
        case DiagnosticsFormat::kText:
            PrintDiagnosticText(diagnostic);
            break;
        case DiagnosticsFormat::kSarif:
            g_kept.push_back(diagnostic);
            break;
        case DiagnosticsFormat::kNone:
            break;
    }
}

void ReportOutOfMemory(const char* text) {
    ++g_errors;
    if (g_format == DiagnosticsFormat::kText) {
        WriteUnbuffered(text);
    } else if (g_format == DiagnosticsFormat::kSarif) {
        g_outOfMemory = text;  // the log is written at the end, when memory is back
    }
}

void SetDiagnosticsFormat(DiagnosticsFormat format) {
    g_format = format;
}

DiagnosticsFormat GetDiagnosticsFormat() {
    return g_format;
}

void SetStrict(bool on) {
    g_strict = on;
}

bool IsStrict() {
    return g_strict;
}

int ErrorsReported() {
    return g_errors;
}

bool DiagnosticsFull() {
    return g_shown >= kMaxShown;
}

void FinishDiagnostics(const char* toolVersion) {
    if (g_notShown > 0) {
        const int notShown = g_notShown;
        g_notShown = 0;
        g_shown = 0;
        try {
            Report({Severity::kNote,
                    "more-diagnostics",
                    {},
                    std::to_string(notShown) + " more diagnostics are not shown",
                    {},
                    {}});
        } catch (const std::bad_alloc&) {  // out of memory, the count is what goes
        }
    }
    if (g_format == DiagnosticsFormat::kSarif) {
        FinishSarif(toolVersion);
    }
}

void ResetDiagnostics() {
    g_format = DiagnosticsFormat::kText;
    g_strict = false;
    g_errors = 0;
    g_shown = 0;
    g_notShown = 0;
    g_kept.clear();
    g_outOfMemory = nullptr;
}

std::string Quoted(const wchar_t* text) {
    return "\"" + EncodeUtf8(text) + "\"";
}

std::string Quoted(std::string_view narrow) {
    return "\"" + std::string(narrow) + "\"";
}

std::string SystemReason(int error) {
    return std::strerror(error);
}

}  // namespace qk
