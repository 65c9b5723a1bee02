#include "app/command_line.h"

#include <cstring>

#include "text/bounded_string.h"
#include "text/wide_string.h"

namespace qk {

int GetCommandlineArgv(const wchar_t* option, int argc, char** argv, int first) {
    for (int index = first < 0 ? argc : first; index < argc; ++index) {
        // Narrowed anew for every comparison: the allocation count the run logs
        // grows with the command line, as users of the log know it.
        if (apStrCmp(wctochar(option), argv[index]) == 0) {
            return index;
        }
    }
    return -1;
}

int FindLongOption(const char* option, int argc, char** argv) {
    for (int index = 1; index < argc; ++index) {
        if (std::strcmp(option, argv[index]) == 0) {
            return index;
        }
    }
    return -1;
}

namespace {

struct LongOption {
    const char* name;
    int values;
};

constexpr LongOption kLongOptions[] = {
    {"--diff", 2}, {"--from", 1},    {"--against", 1},           {"--strict", 0},
    {"--help", 0}, {"--version", 0}, {"--diagnostics-format", 1}};
constexpr std::string_view kFormatPrefix = "--diagnostics-format=";

// The number of values that the long option at argv[index] takes, or -1 when
// it is none of the tool's own.
int LongOptionValues(const char* argument) {
    for (const LongOption& option : kLongOptions) {
        if (std::strcmp(option.name, argument) == 0) {
            return option.values;
        }
    }
    return std::string_view(argument).starts_with(kFormatPrefix) ? 0 : -1;
}

bool TakesValue(const char* argument) {
    for (const char* option : {"-l", "-b", "-c", "-s", "-p"}) {
        if (std::strcmp(option, argument) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int FindUnknownLongOption(int argc, char** argv) {
    for (int index = 1; index < argc; ++index) {
        const std::string_view argument(argv[index]);
        if (TakesValue(argv[index])) {
            ++index;
            continue;
        }
        const int values = LongOptionValues(argv[index]);
        if (values >= 0) {
            index += values;
        } else if (argument.size() > 2 && argument.starts_with("--")) {
            return index;
        }
    }
    return -1;
}

const char* DiagnosticsFormatValue(int argc, char** argv) {
    for (int index = 1; index < argc; ++index) {
        const std::string_view argument(argv[index]);
        if (argument.starts_with(kFormatPrefix)) {
            return argv[index] + kFormatPrefix.size();
        }
        if (argument == "--diagnostics-format") {
            return index + 1 < argc ? argv[index + 1] : "";
        }
    }
    return nullptr;
}

std::vector<std::string_view> LongOptionNames() {
    std::vector<std::string_view> names;
    for (const LongOption& option : kLongOptions) {
        names.emplace_back(option.name);
    }
    return names;
}

std::vector<char*> SingleDashArguments(int argc, char** argv) {
    std::vector<char*> kept;
    for (int index = 0; index < argc; ++index) {
        const int skip = index > 0 ? LongOptionValues(argv[index]) : -1;
        if (skip < 0) {
            kept.push_back(argv[index]);
        } else {
            index += skip;
        }
    }
    return kept;
}

}  // namespace qk
