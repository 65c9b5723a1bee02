#include "xmlinput/privacy_policy.h"

#include "bridge/display_control.h"
#include "model/customisation.h"
#include "support/progress_log.h"
#include "text/wide_string.h"

namespace qk {

bool PrivacyRefuses(const wchar_t* area, AreaUse use, const wchar_t* application) {
    const bool forProfile = use == AreaUse::kProfile;
    int privacy = 0;
    const int result = Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(area, &privacy);
    if (result == kAreaNotInstalled) {
        if (forProfile) {
            LogFormat(L"ERROR, Area %ls refered by profile is missing in System blob\n", area);
        } else {
            LogFormat(L"ERROR, Area %ls refered by application %ls is missing in System blob\n",
                      area, OrEmpty(application));
        }
        return true;
    }
    if (result != 0) {
        LogFormat(L"ERROR, Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed\n");
        return true;
    }
    if (forProfile &&
        (privacy == kPrivacyProfilesOnly || privacy == kPrivacyApplicationsAndProfiles)) {
        LogFormat(
            L"ERROR, The profile overriding/modifying is not allowed by the area %ls "
            L"privacy setting\n",
            area);
        return true;
    }
    if (!forProfile &&
        (privacy == kPrivacyApplicationsOnly || privacy == kPrivacyApplicationsAndProfiles)) {
        LogFormat(L"XML ERROR, %ls Area disallows application adding/overriding \n", area);
        return true;
    }
    return false;
}

}  // namespace qk
