#pragma once

namespace qk {

// Validates and reads every XML file below a directory. 0 when at least one file
// was read and none failed, -1 when none was found, -2 when a file failed.
int ReadAllXmls(const char* directory, int bCountProperties);

// Size of a file in bytes; 0 when it cannot be opened.
long GetFileSizeAp(const char* path);

}  // namespace qk
