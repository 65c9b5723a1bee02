#pragma once

#include "model/customisation.h"

namespace qk {

// Set until a file's `properties` group has been read: while set, a further
// file stores its header again and continues the last profile and application.
extern int g_bFirstFile;

// Reads one customisation XML file and merges it into the tree. 0 on success
// (single items may have been rejected with a message), -2 when the file cannot
// be opened or is not well-formed or a property name is empty or too long, -1 for
// a property outside any area in a system file.
int ReadOneFile(const char* path);

// Fill operations: store a private copy of the value (also entered in the word
// list) in the field that the attribute name selects.
void FillCustomisationStrings(const wchar_t* name, const wchar_t* value);
void FillDriver(Driver* driver, const wchar_t* name, const wchar_t* value);
void FillProperty(Property* property, const wchar_t* name, const wchar_t* value);
void FillProfile(Profile* profile, const wchar_t* name, const wchar_t* value);
void FillApplication(Application* application, const wchar_t* name, const wchar_t* value);

// 1 when the stored header attribute exists and equals value exactly, else 0.
int CompareCustomisation(const wchar_t* name, const wchar_t* value);

// Back to the state of a fresh run (g_bFirstFile set, lookup indexes dropped).
void ResetFileReader();

}  // namespace qk
