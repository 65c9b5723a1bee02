#include "xmlinput/privacy_policy.h"

#include "bridge/display_control.h"
#include "model/customisation.h"
#include "model/file_kind.h"
#include "model/type_names.h"
#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "text/wide_string.h"

namespace qk {

namespace {

void Diagnose(bool report, const Diagnostic& diagnostic) {
    if (report) {
        Report(diagnostic);
    }
}

}  // namespace

bool PrivacyRefuses(const wchar_t* area, AreaUse use, const wchar_t* application,
                    SourceLocation where, bool report) {
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
        Diagnose(report,
                 Diagnostic::Error("area-not-installed", where,
                                   "area " + Quoted(area) + " is not in the installed system set"));
        return true;
    }
    if (result != 0) {
        LogFormat(L"ERROR, Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed\n");
        Diagnose(report,
                 Diagnostic::Error("installed-set-unavailable", where,
                                   "cannot check area " + Quoted(area) +
                                       " against the installed system set: the display-control "
                                       "library did not answer"));
        return true;
    }
    const bool refused =
        forProfile
            ? privacy == kPrivacyProfilesOnly || privacy == kPrivacyApplicationsAndProfiles
            : privacy == kPrivacyApplicationsOnly || privacy == kPrivacyApplicationsAndProfiles;
    if (!refused) {
        return false;
    }
    if (forProfile) {
        LogFormat(
            L"ERROR, The profile overriding/modifying is not allowed by the area %ls "
            L"privacy setting\n",
            area);
    } else {
        LogFormat(L"XML ERROR, %ls Area disallows application adding/overriding \n", area);
    }
    Diagnose(
        report,
        Diagnostic::Error("privacy-refuses", where,
                          std::string(forProfile ? "a profile may not add to or change"
                                                 : "an application may not use") +
                              " area " + Quoted(area) + " in a" +
                              (g_appProfileMode == kOemFile ? "n OEM" : " user") + " file")
            .Note({}, "area " + Quoted(area) + " has privacy " +
                          Quoted(OrEmpty(PrivacyName(privacy))) + " in the installed system set"));
    return true;
}

}  // namespace qk
