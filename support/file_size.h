#pragma once

namespace qk {

// Size of a file in bytes; 0 when it cannot be opened.
long GetFileSizeAp(const char* path);

}  // namespace qk
