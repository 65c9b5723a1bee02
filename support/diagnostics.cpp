#include "support/diagnostics.h"

#include <cstdio>
#include <string_view>

#include "support/utf8_encode.h"

namespace qk {

namespace {

bool g_strict = false;
std::string g_file;
std::wstring g_record;
int g_errors = 0;

struct Prefix {
    std::wstring_view text;
    Severity severity;
};

// The log's ways of starting a problem, longest first; what follows is the message.
constexpr Prefix kPrefixes[] = {
    {L"XML ERROR, ", Severity::kError}, {L"XML ERROR: ", Severity::kError},
    {L"XML ERROR", Severity::kError},   {L"ERROR: - ", Severity::kError},
    {L"ERROR, ", Severity::kError},     {L"ERROR: ", Severity::kError},
    {L"ERROR", Severity::kError},       {L"FAILED: ", Severity::kError},
    {L"FAILED", Severity::kError},      {L"WARNING: ", Severity::kWarning},
    {L"WARNING, ", Severity::kWarning}, {L"WARNING", Severity::kWarning},
};

// The message on one line: line ends become spaces, trailing blanks go.
std::wstring OneLine(std::wstring_view text) {
    std::wstring line;
    for (wchar_t unit : text) {
        line.push_back(unit == L'\n' || unit == L'\r' ? L' ' : unit);
    }
    while (!line.empty() && line.back() == L' ') {
        line.pop_back();
    }
    return line;
}

}  // namespace

void SetStrict(bool on) {
    g_strict = on;
}

bool IsStrict() {
    return g_strict;
}

void SetDiagnosticFile(const char* path) {
    g_file = path != nullptr ? path : "";
}

void SetDiagnosticRecord(std::wstring record) {
    g_record = std::move(record);
}

void ReportProblem(Severity severity, const std::wstring& message, int line) {
    if (!g_strict) {
        return;
    }
    if (severity == Severity::kError) {
        ++g_errors;
    }
    std::string out = "quillard: ";
    if (!g_file.empty()) {
        out += g_file;
        if (line > 0) {
            out += ":" + std::to_string(line);
        }
        out += ": ";
    }
    out += severity == Severity::kError ? "error: " : "warning: ";
    out += EncodeUtf8(OneLine(message).c_str());
    if (!g_record.empty()) {
        out += " (" + EncodeUtf8(g_record.c_str()) + ")";
    }
    out += "\n";
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
}

void DiagnoseLogMessage(const wchar_t* text) {
    if (!g_strict || text == nullptr) {
        return;
    }
    const std::wstring_view message(text);
    for (const Prefix& prefix : kPrefixes) {
        if (message.starts_with(prefix.text)) {
            ReportProblem(prefix.severity, std::wstring(message.substr(prefix.text.size())));
            return;
        }
    }
}

int ErrorsReported() {
    return g_errors;
}

void ResetDiagnostics() {
    g_strict = false;
    g_file.clear();
    g_record.clear();
    g_errors = 0;
}

}  // namespace qk
