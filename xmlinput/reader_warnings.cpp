// The warnings the reader gives once a file is read: profiles and
// applications defined twice (the first wins), applications left out for want
// of a use.

#include <string>
#include <unordered_map>

#include "model/record_places.h"
#include "text/wide_string.h"
#include "xmlinput/reader_state.h"

namespace qk {

namespace {

// Profiles (by area and name) and applications (by file, path and version) met
// so far in the run, for the warnings about one defined twice.
std::unordered_map<std::wstring, const Profile*> g_profilesSeen;
std::unordered_map<std::wstring, const Application*> g_applicationsSeen;

std::wstring Key(std::initializer_list<const wchar_t*> parts) {
    std::wstring key;
    for (const wchar_t* part : parts) {
        key += OrEmpty(part);
        key += L'\x1F';
    }
    return key;
}

}  // namespace

void FileReader::ReportDuplicates() {
    for (const Profile* profile : newProfiles_) {
        if (profile->strUsage == nullptr || profile->lpDriver == nullptr) {
            continue;
        }
        const auto [first, added] = g_profilesSeen.try_emplace(
            Key({profile->lpDriver->strName, profile->strUsage}), profile);
        if (!added && first->second != profile) {
            Report(Diagnostic::Warning("duplicate-profile", RecordPlace(profile),
                                       "profile " + Quoted(profile->strUsage) + " of area " +
                                           Quoted(profile->lpDriver->strName) +
                                           " is defined twice; uses select the first")
                       .Note(RecordPlace(first->second), "the first definition is here"));
        }
    }
    for (const Application* application : newApplications_) {
        if (application->lpUses == nullptr) {
            continue;
        }
        const auto [first, added] = g_applicationsSeen.try_emplace(
            Key({application->strFile, application->strPath, application->strVersion}),
            application);
        if (!added && first->second != application) {
            Report(Diagnostic::Warning("duplicate-application", RecordPlace(application),
                                       "application " + Quoted(OrEmpty(application->strFile)) +
                                           " is defined twice; the first one is found first")
                       .Note(RecordPlace(first->second), "the first definition is here"));
        }
    }
}

void FileReader::ReportPrunedApplications() {
    for (const Application* application : newApplications_) {
        if (application->lpUses == nullptr && application->strTitle != nullptr) {
            Report(Diagnostic::Warning("application-without-use", RecordPlace(application),
                                       "application " + Quoted(application->strTitle) +
                                           " has no valid use and is left out"));
        }
    }
}

void ResetDuplicateChecks() {
    g_profilesSeen.clear();
    g_applicationsSeen.clear();
}

}  // namespace qk
