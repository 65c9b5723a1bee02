#pragma once

namespace qk {

struct Customisations;

void Call_ZEL_ApplicationProfiles_System_Reload();
int Call_ZEL_ApplicationProfiles_GetCustomization(int database, Customisations* root);
int Call_ZEL_ApplicationProfiles_Profile_Exist(const wchar_t* area, const wchar_t* profile,
                                               unsigned char* exists);
int Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(const wchar_t* area, int* privacy);
int Call_ZEL_ApplicationProfiles_PropertyType_Get(const wchar_t* area, const wchar_t* property,
                                                  int* type);

}  // namespace qk
