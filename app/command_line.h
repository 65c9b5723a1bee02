#pragma once

namespace qk {

// Index of the first argument at or after first that equals option, or -1.
int GetCommandlineArgv(const wchar_t* option, int argc, char** argv, int first);

}  // namespace qk
