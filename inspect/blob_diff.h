#pragma once

// --diff: two blob files compared by content, not by position.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qk {

struct Customisations;
struct BlobDatabase;

// The differences between two customisation trees, one line each (without line
// end), in a stable order: the version string, areas, properties, profiles,
// values, applications, uses; within each, by name. A line starts with "-" (only
// in the first), "+" (only in the second) or "~" (changed: old and new shown).
// Records are named by their names (area, profile, property, application file).
std::vector<std::string> DiffCustomisations(const Customisations& first,
                                            const Customisations& second);

// The one line of two blobs whose content shows no difference but whose bytes
// differ (what no record shows: a reserved word, a text no record names): the
// blobs are not the same, and --diff never calls them equal.
std::string SameContentLine(const std::vector<std::uint8_t>& first,
                            const std::vector<std::uint8_t>& second);

// The lines --diff prints for two decoded blobs and their bytes: none only
// when the bytes are the same. Nothing when memory ran out.
std::optional<std::vector<std::string>> DiffBlobs(const BlobDatabase& first,
                                                  const std::vector<std::uint8_t>& firstBytes,
                                                  const BlobDatabase& second,
                                                  const std::vector<std::uint8_t>& secondBytes);

// Compares two blob files and prints the differences to standard output. 0 when
// they are equal, byte for byte, 1 when they differ, 2 when a file cannot be read or is not a
// blob (an ERROR line on standard error and in the log).
int DiffBlobFiles(const char* first, const char* second);

}  // namespace qk
