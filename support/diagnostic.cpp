#include "support/diagnostic.h"

#include <cstdio>
#include <cstring>

#include "support/utf8_encode.h"

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

void ReportOutOfMemory() {
    ++g_errors;
    static constexpr char kText[] =
        "quillard: error: out of memory; the run ends without a blob (status 0)\n";
    if (g_format != DiagnosticsFormat::kNone) {
        std::fwrite(kText, 1, sizeof kText - 1, stderr);
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
        Report({Severity::kNote,
                "more-diagnostics",
                {},
                std::to_string(notShown) + " more diagnostics are not shown",
                {},
                {}});
    }
    if (g_format == DiagnosticsFormat::kSarif) {
        PrintDiagnosticsSarif(g_kept, toolVersion);
        g_kept.clear();
    }
}

void ResetDiagnostics() {
    g_format = DiagnosticsFormat::kText;
    g_strict = false;
    g_errors = 0;
    g_shown = 0;
    g_notShown = 0;
    g_kept.clear();
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
