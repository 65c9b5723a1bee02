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

std::vector<char*> SingleDashArguments(int argc, char** argv) {
    struct LongOption {
        const char* name;
        int values;
    };
    static constexpr LongOption kLongOptions[] = {{"--diff", 2},   {"--from", 1}, {"--against", 1},
                                                  {"--strict", 0}, {"--help", 0}, {"--version", 0}};
    std::vector<char*> kept;
    for (int index = 0; index < argc; ++index) {
        int skip = -1;
        for (const LongOption& option : kLongOptions) {
            if (index > 0 && std::strcmp(option.name, argv[index]) == 0) {
                skip = option.values;
            }
        }
        if (skip < 0) {
            kept.push_back(argv[index]);
        } else {
            index += skip;
        }
    }
    return kept;
}

}  // namespace qk
