#pragma once

// --strict: every problem that the run reports also goes to standard error as
// one diagnostic, "quillard: FILE[:LINE]: error: MESSAGE" (or "warning:"), and
// any error fails the run. Without --strict nothing here prints anything.

#include <string>

namespace qk {

enum class Severity { kWarning, kError };

void SetStrict(bool on);
bool IsStrict();

// The file that diagnostics name (the XML file being read, the blob being
// written); null for none.
void SetDiagnosticFile(const char* path);
// The record that diagnostics are about, for example a profile's value; empty
// for none.
void SetDiagnosticRecord(std::wstring record);

// A problem that the log does not show (a value text that is not quite its
// type, a parse error of the XML library): a diagnostic only. line 0: none.
void ReportProblem(Severity severity, const std::wstring& message, int line = 0);

// Each message the run logs: one that starts with ERROR, XML ERROR, FAILED or
// WARNING becomes a diagnostic.
void DiagnoseLogMessage(const wchar_t* text);

// The errors reported so far.
int ErrorsReported();

// Forgets the mode and everything reported (between runs in tests).
void ResetDiagnostics();

}  // namespace qk
