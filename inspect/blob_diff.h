#pragma once

// --diff: two blob files compared by content, not by position.

#include <string>
#include <vector>

namespace qk {

struct Customisations;

// The differences between two customisation trees, one line each (without line
// end), in a stable order: the version string, areas, properties, profiles,
// values, applications, uses; within each, by name. A line starts with "-" (only
// in the first), "+" (only in the second) or "~" (changed: old and new shown).
// Records are named by their names (area, profile, property, application file).
std::vector<std::string> DiffCustomisations(const Customisations& first,
                                            const Customisations& second);

// Compares two blob files and prints the differences to standard output. 0 when
// they are equal, 1 when they differ, 2 when a file cannot be read or is not a
// blob (an ERROR line on standard error and in the log).
int DiffBlobFiles(const char* first, const char* second);

}  // namespace qk
