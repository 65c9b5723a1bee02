#pragma once

// -p: finding the XML files below a directory, checking each file's shape and
// handing it to the reader.

namespace qk {

// Validates and reads every XML file below a directory. 0 when at least one file
// was read and none failed, -1 when none was found, -2 when a file failed.
int ReadAllXmls(const char* directory, int bCountProperties);

// Appends the paths of the XML files in and below directory to list (null when
// empty), each followed by ';', and adds their number to count. Entries are
// taken in byte order of their names; sub-directories stand where they sort.
// -1 when the directory cannot be opened or count is still below 1, else 0.
int FindXmlFiles(const char* directory, char*& list, int& count);

// A tracked copy of the index-th name of the list (from 1) in name, and 0; -1
// when the index is below 1, the list is null or empty or holds fewer names.
int ExtractFileName(const char* list, int index, char*& name);

// Size of a file in bytes; 0 when it cannot be opened.
long GetFileSizeAp(const char* path);

// 0 for a file of valid shape for the current file kind; -1 for an invalid file
// or one that cannot be opened; -2 for a file that is not well-formed XML.
int ValidateXmlProfile(const char* path, int bCountProperties);

}  // namespace qk
