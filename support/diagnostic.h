#pragma once

// What went wrong: every problem the run finds becomes one diagnostic, raised
// where the fault is found with its place, and printed on standard error as a
// compiler prints it (text), as one SARIF log at the end of the run, or not at
// all. The progress log keeps its own lines; diagnostics only add to standard
// error.

#include <string>
#include <string_view>
#include <vector>

#include "support/source_manager.h"

namespace qk {

enum class Severity { kError, kWarning, kNote };

// "error", "warning" or "note", as both printers name them.
const char* SeverityName(Severity severity);

struct DiagnosticNote {
    SourceLocation where;
    std::string message;  // UTF-8
};

struct Diagnostic {
    Severity severity = Severity::kError;
    // A stable name of the kind of problem, for machines (SARIF's rule id).
    const char* rule = "";
    SourceLocation where;
    std::string message;  // UTF-8, in the user's words
    // The name that was probably meant: "did you mean" follows the message.
    std::string suggestion;
    std::vector<DiagnosticNote> notes;

    static Diagnostic Error(const char* rule, SourceLocation where, std::string message) {
        return {Severity::kError, rule, where, std::move(message), {}, {}};
    }
    static Diagnostic Warning(const char* rule, SourceLocation where, std::string message) {
        return {Severity::kWarning, rule, where, std::move(message), {}, {}};
    }
    Diagnostic&& Suggest(std::string name) && {
        suggestion = std::move(name);
        return std::move(*this);
    }
    Diagnostic&& Note(SourceLocation place, std::string text) && {
        notes.push_back({place, std::move(text)});
        return std::move(*this);
    }
};

// Reports one diagnostic in the chosen format; an error is counted. Past 200
// diagnostics a run only counts them, and says how many at its end.
void Report(const Diagnostic& diagnostic);
// True once no more diagnostics are shown: a caller may skip finding a place.
bool DiagnosticsFull();
// Counts a diagnostic that is not shown, as Report does once they are full.
void CountNotShown(Severity severity);
// Reports the diagnostic that make() builds or, once no more are shown, only
// counts it: for a report that a hostile file can repeat once per word, whose
// place and message cost time with the size of the file.
template <typename Make>
void ReportLazily(Severity severity, Make&& make) {
    if (DiagnosticsFull()) {
        CountNotShown(severity);
    } else {
        Report(make());
    }
}

enum class DiagnosticsFormat { kText, kSarif, kNone };
void SetDiagnosticsFormat(DiagnosticsFormat format);
DiagnosticsFormat GetDiagnosticsFormat();

// --strict: any error fails the run and no blob is written.
void SetStrict(bool on);
bool IsStrict();
int ErrorsReported();

// The end of a run out of memory: counted as an error, and the fixed text
// written to standard error without allocating (in every format but none).
void ReportOutOfMemory(const char* text);

// Ends the diagnostics of a run: the SARIF format writes its log now.
void FinishDiagnostics(const char* toolVersion);

// Forgets the mode and everything reported (between runs in tests).
void ResetDiagnostics();

// Quotes a text for a message: "text" (wide texts are encoded as UTF-8).
std::string Quoted(const wchar_t* text);
std::string Quoted(std::string_view narrow);

// The system's words for errno's value, for "cannot open ...: REASON".
std::string SystemReason(int error);

// The two printers (text as compilers print it; SARIF 2.1.0).
void PrintDiagnosticText(const Diagnostic& diagnostic);
void PrintDiagnosticsSarif(const std::vector<Diagnostic>& diagnostics, const char* toolVersion);

}  // namespace qk
