#pragma once

// Name checks of header texts, lookups by name in the customisation tree and
// the tails of its lists.
//
// Lookups answer exactly as a walk from the list head would (exact comparison,
// first match wins) but through hash indexes, so a large set reads in linear
// time. The indexes follow the tree through the Note... functions below: the
// reader calls them whenever it names a linked record, and whoever unlinks or
// clears records calls InvalidateNameLookups(), after which the next lookup
// rebuilds from the lists.

#include "model/customisation.h"

namespace qk {

// Character-class tests of narrow (UTF-8) texts: 0 passes, -1 fails. An empty or
// null text fails every test.
int isInteger(const char* text);  // digits only, no sign
// Not called by the tool itself (their verdicts on header texts were never
// used); kept for their documented role among the name checks.
int isLetters(const char* text);
int isNumbers(const char* text);          // digits and points, anywhere
int isValidNameString(const char* text);  // only the first byte: not a space

// Driver of the first area whose driver has this name; null with a warning.
Driver* FindDriver(const wchar_t* name);
// The first area whose driver has this name; null with a warning.
Area* FindArea(const wchar_t* name);
// The first named property of that name in the areas of that driver, in list
// order. A miss in a system run logs and ends the run with status 0 (FatalExit,
// no teardown); in a user or OEM run it returns null silently.
Property* FindProperty(const wchar_t* driverName, const wchar_t* propertyName);
// 1 when some profile's strUsage equals name, else 0; logs nothing.
int FindUseName(const wchar_t* name);

// Tails of the lists; null when the list or its owner is missing.
Area* GetLastValidArea();
Driver* GetLastValidDriver(Area* area);
Property* GetLastValidProperty(Area* area);
Profile* GetLastValidProfile();
Value* GetLastValidValue(Profile* profile);
Application* GetLastValidApplication();
Use* GetLastValidUse(Application* application);

// Index upkeep. area is linked and its driver has just been given its name.
void NoteAreaNamed(Area* area);
// property, linked in owner's list, has just been (re)named; oldName is the name
// it had before, or null.
void NotePropertyNamed(Area* owner, Property* property, const wchar_t* oldName);
// A linked profile's strUsage changed from oldName (or null) to newName.
void NoteProfileNamed(const wchar_t* oldName, const wchar_t* newName);
// Records were unlinked, cleared or renamed behind the indexes' back.
void InvalidateNameLookups();
// Forgets every index (between runs in tests and fuzzers).
void ResetNameLookup();

}  // namespace qk
