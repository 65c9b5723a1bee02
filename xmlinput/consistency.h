#pragma once

// Pruning after each file and the check of the dynamic-switching driver pair.

#include <vector>

#include "model/customisation.h"

namespace qk {

struct DriverPair {
    const wchar_t* first;
    const wchar_t* second;
};

// The pairs that checkXML compares; index 0 is the dynamic-switching pair.
extern DriverPair g_driverNames[1];
// Property names (pointers into the tree) of the pair's first and second driver.
extern std::vector<const wchar_t*> g_propertyNames_1;
extern std::vector<const wchar_t*> g_propertyNames_2;

// Checks the dynamic-switching driver pair: 0 passes, 1 mismatch.
int checkXML();
// 0 when the drivers match or one is missing, 1 when they differ.
int startComparison(const wchar_t* firstName, const wchar_t* secondName, int pairIndex);
// Number of properties of area; fills the name list of the pair member driverName is.
int countProperties(const Area* area, const wchar_t* driverName, int pairIndex);
// 0 when every name of list 1 is in list 2, else 1.
int matchProperties();

// Unlinks applications without a use; -1 for a null root.
int RemoveInvalidApplications(Customisations* root);
// Unlinks areas whose driver no profile and no use refers to; -1 for a null root.
int RemoveUnusedDriverArea(Customisations* root);
// Clear the texts of a record that has just been unlinked; null does nothing.
void FreeApplication(Application* application);
void FreeArea(Area* area);

// Empties the name lists (between runs in tests and fuzzers).
void ResetConsistency();

}  // namespace qk
