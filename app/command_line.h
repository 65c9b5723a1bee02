#pragma once

#include <string_view>
#include <vector>

namespace qk {

// Index of the first argument at or after first that equals option, or -1.
int GetCommandlineArgv(const wchar_t* option, int argc, char** argv, int first);

// Index of the first argument that equals a long option ("--name"), or -1.
int FindLongOption(const char* option, int argc, char** argv);

// The first argument that looks like a long option ("--name") but is none of
// the tool's own, or -1. Values of options (-s --odd.xml) are no options.
int FindUnknownLongOption(int argc, char** argv);

// The value of --diagnostics-format=VALUE (or of "--diagnostics-format VALUE"),
// or null when the option is not given.
const char* DiagnosticsFormatValue(int argc, char** argv);

// The long options' names, for the hint of a misspelt one.
std::vector<std::string_view> LongOptionNames();

// The arguments without the tool's own long options and their values: the
// single-dash options are looked up among these, so a long option changes
// neither what they find nor the allocations that the log counts.
std::vector<char*> SingleDashArguments(int argc, char** argv);

}  // namespace qk
