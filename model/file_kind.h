#pragma once

namespace qk {

// File kind of the XML input of the run; the same codes select the database of -r.
enum FileKind : int { kSystemFile = 0, kUserFile = 1, kOemFile = 2 };

extern int g_appProfileMode;

inline bool IsUserOrOem() {
    return g_appProfileMode == kUserFile || g_appProfileMode == kOemFile;
}

}  // namespace qk
