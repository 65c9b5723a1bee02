#pragma once

namespace qk {

// File kind of the XML input of the run; the same codes select the database of -r.
enum FileKind : int { kSystemFile = 0, kUserFile = 1, kOemFile = 2 };

// The file kind of the run; set only through SetFileKind.
extern int g_appProfileMode;

void SetFileKind(FileKind kind);

inline bool IsUserOrOem() {
    return g_appProfileMode == kUserFile || g_appProfileMode == kOemFile;
}

}  // namespace qk
