#pragma once

namespace qk {

// Reads one customisation XML file and merges it into the tree. 0 on success
// (single items may have been rejected with a message), -2 when the file cannot
// be opened or is not well-formed or a property name is empty or too long, -1 for
// a property outside any area in a system file.
int ReadOneFile(const char* path);

}  // namespace qk
