#pragma once

#include "bridge/display_control_abi.h"

namespace qk {

struct BlobDatabase;

// The memory callback handed to the library: a plain heap block (not tracked).
void* ZEL_Main_Memory_Alloc(unsigned int size);
// Its counterpart for one block; the tool releases the answers all together,
// so this is kept for its documented role in the library's memory callbacks.
void ZEL_Main_Memory_Free(void** block);
// Frees every block the library took through the callback (its answers are then gone).
void ReleaseLibraryAnswers();

// Which library the bridge loads: "libvexzelxx.so" through the loader's search
// path unless a test names another file (null restores the default).
void SetDisplayControlLibrary(const char* name);

// Resolved anew by every bridge call.
extern ZelSystemReloadFn ZEL_ApplicationProfiles_System_Reload;
extern ZelProfileExistFn ZEL_ApplicationProfiles_Profile_Exist;
extern ZelDriverAreaPrivacyGetFn ZEL_ApplicationProfiles_DriverAreaPrivacy_Get;
extern ZelPropertyTypeGetFn ZEL_ApplicationProfiles_PropertyType_Get;

// Answers the queries and the fetch of the calls below from a database read from
// a blob file instead of the library (--from, --against): no library is loaded
// and nothing is printed. Null turns the library back on.
void AnswerFromBlob(const BlobDatabase* database);

// Each call loads the library, creates a control context, makes one call and
// destroys the context. -1 when the bridge itself failed (a missing library
// silently), else the library's own result.
void Call_ZEL_ApplicationProfiles_System_Reload();
int Call_ZEL_ApplicationProfiles_GetCustomization(int database, Customisations* root);
int Call_ZEL_ApplicationProfiles_Profile_Exist(const wchar_t* area, const wchar_t* profile,
                                               unsigned char* exists);
int Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(const wchar_t* area, int* privacy);
int Call_ZEL_ApplicationProfiles_PropertyType_Get(const wchar_t* area, const wchar_t* property,
                                                  int* type);

}  // namespace qk
