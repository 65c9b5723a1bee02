#pragma once

// The files a run reads, known by device and inode, so that no output is ever
// written over one of them, whatever name or link the output is given by.

#include <sys/stat.h>

#include <string>

namespace qk {

// Records a file being read (the XML reader records every file it opens).
void RecordInputFile(const char* path, const struct stat& info);
// Records a file named as an input (a blob of --from, --against, --diff, or
// the blob -o dumps) that exists now; one that does not is no file to protect.
void RecordInputName(const char* path);

// The path under which the file was first recorded, or null when no input is that file.
const std::string* InputFileName(const struct stat& info);

// Forgets every file (between runs in tests).
void ResetInputFiles();

}  // namespace qk
