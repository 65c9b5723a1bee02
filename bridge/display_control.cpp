// Placeholder until the bridge lands: behaves as if the library were missing.
#include "bridge/display_control.h"

namespace qk {

void Call_ZEL_ApplicationProfiles_System_Reload() {}
int Call_ZEL_ApplicationProfiles_GetCustomization(int, Customisations*) { return -1; }
int Call_ZEL_ApplicationProfiles_Profile_Exist(const wchar_t*, const wchar_t*, unsigned char*) {
    return -1;
}
int Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(const wchar_t*, int*) { return -1; }
int Call_ZEL_ApplicationProfiles_PropertyType_Get(const wchar_t*, const wchar_t*, int*) {
    return -1;
}

}  // namespace qk
