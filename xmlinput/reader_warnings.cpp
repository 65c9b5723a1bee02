// The warnings the reader gives once a file is read: profiles and
// applications defined twice (the first wins), applications left out for want
// of a use.

#include <cwchar>
#include <string_view>
#include <unordered_map>

#include "model/record_places.h"
#include "text/wide_string.h"
#include "xmlinput/reader_state.h"

namespace qk {

namespace {

// Profiles (by name, then area) and applications (by file, then path and
// version) met so far in the run, for the warnings about one defined twice. The
// keys are views of the tree's own texts, which live as long as the run.
std::unordered_multimap<std::wstring_view, const Profile*> g_profilesSeen;
std::unordered_multimap<std::wstring_view, const Application*> g_applicationsSeen;

bool Same(const wchar_t* a, const wchar_t* b) {
    return std::wcscmp(OrEmpty(a), OrEmpty(b)) == 0;
}

// The record met first that equals record (same, by the comparison), or null
// after noting record as met.
template <typename Record, typename Equal>
const Record* FirstLike(std::unordered_multimap<std::wstring_view, const Record*>& seen,
                        const wchar_t* key, const Record* record, Equal same) {
    const auto [from, to] = seen.equal_range(OrEmpty(key));
    for (auto it = from; it != to; ++it) {
        if (it->second != record && same(*it->second)) {
            return it->second;
        }
    }
    seen.emplace(OrEmpty(key), record);
    return nullptr;
}

}  // namespace

void FileReader::ReportDuplicates() {
    for (const Profile* profile : newProfiles_) {
        if (profile->strUsage == nullptr || profile->lpDriver == nullptr) {
            continue;
        }
        const Profile* first =
            FirstLike(g_profilesSeen, profile->strUsage, profile, [profile](const Profile& other) {
                return other.lpDriver != nullptr &&
                       Same(other.lpDriver->strName, profile->lpDriver->strName);
            });
        if (first != nullptr) {
            Report(Diagnostic::Warning("duplicate-profile", RecordPlace(profile),
                                       "profile " + Quoted(profile->strUsage) + " of area " +
                                           Quoted(profile->lpDriver->strName) +
                                           " is defined twice; uses select the first")
                       .Note(RecordPlace(first), "the first definition is here"));
        }
    }
    for (const Application* application : newApplications_) {
        if (application->lpUses == nullptr) {
            continue;
        }
        const Application* first =
            FirstLike(g_applicationsSeen, application->strFile, application,
                      [application](const Application& other) {
                          return Same(other.strPath, application->strPath) &&
                                 Same(other.strVersion, application->strVersion);
                      });
        if (first != nullptr) {
            Report(Diagnostic::Warning("duplicate-application", RecordPlace(application),
                                       "application " + Quoted(OrEmpty(application->strFile)) +
                                           " is defined twice; the first one is found first")
                       .Note(RecordPlace(first), "the first definition is here"));
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
