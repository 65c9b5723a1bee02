#pragma once

// No output of a run is written over one of its inputs or over another of its
// outputs. Files are compared by device and inode, so a hard link, a symbolic
// link or another spelling of a name is the same file; a name that does not
// exist yet is its directory plus the name.

#include <string>
#include <vector>

namespace qk {

struct PlannedOutput {
    std::string path;
};

// True when an output is the same file as an input the run has read or named
// (support/input_files.h) or as an output before it, after an "ERROR, ..."
// line in the log and a diagnostic that name both.
bool OutputsCollide(const std::vector<PlannedOutput>& outputs);

// True when output names the same existing file as one of the named inputs,
// after the same ERROR line and diagnostic.
bool OutputIsNamedInput(const char* output, const std::vector<const char*>& inputs);

// True when both paths name the same existing file.
bool SameExistingFile(const char* first, const char* second);

}  // namespace qk
