#pragma once

#include "model/customisation.h"
#include "xmlinput/xml_load.h"

namespace qk {

// Set until a file's `properties` group has been read: while set, a further
// file stores its header again and continues the last profile and application.
extern int g_bFirstFile;

// Reads one customisation XML file and merges it into the tree. 0 on success
// (single items may have been rejected with a message), -2 when the file cannot
// be opened or is not well-formed or a property name is empty or too long, -1 for
// a property outside any area in a system file.
int ReadOneFile(const char* path);

// The same for a file that is already loaded (the directory validator loads
// each file once for its check and the reading).
int ReadLoadedFile(const char* path, LoadedXml&& loaded);

// Back to the state of a fresh run (g_bFirstFile set, lookup indexes dropped).
void ResetFileReader();

}  // namespace qk
