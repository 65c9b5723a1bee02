#pragma once

// -p: finding the XML files below a directory, checking each file's shape and
// handing it to the reader.

#include <string>
#include <vector>

namespace qk {

// The XML files that a -p scan found, in the order they are read.
struct XmlFileList {
    std::vector<std::string> paths;
    // The paths, each followed by ';', as the log shows them (only their first
    // 16 KiB, and only while logging).
    std::wstring shown;
};

// Validates and reads every XML file below a directory. 0 when at least one file
// was read and none failed, -1 when none was found, -2 when a file failed.
int ReadAllXmls(const char* directory, int bCountProperties);

// Appends the paths of the XML files in and below directory to files. Entries
// are taken in byte order of their names; sub-directories stand where they
// sort; links, devices and pipes are passed over with a warning. -1 when the
// directory cannot be opened or files is still empty; -2 when a folder below
// it cannot be read (an ERROR: its files would be missing); else 0.
int FindXmlFiles(const char* directory, std::vector<std::string>& files);

// A tracked copy of the index-th path of the list (from 1) in name, and 0; -1
// when the index is below 1 or the list holds fewer paths.
int ExtractFileName(const XmlFileList& list, int index, char*& name);

// 0 for a file of valid shape for the current file kind; -1 for an invalid file
// or one that cannot be opened; -2 for a file that is not well-formed XML.
int ValidateXmlProfile(const char* path, int bCountProperties);

}  // namespace qk
