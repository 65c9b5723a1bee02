#include "app/output_collision.h"

#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <string_view>

#include "support/diagnostic.h"
#include "support/input_files.h"
#include "support/progress_log.h"
#include "support/source_manager.h"
#include "text/utf8_decode.h"

namespace qk {

namespace {

// What a path names: an existing file, or a free name in a directory.
struct Identity {
    struct stat file {};
    std::string freeName;  // empty for an existing file

    bool operator==(const Identity& other) const {
        return file.st_dev == other.file.st_dev && file.st_ino == other.file.st_ino &&
               freeName == other.freeName;
    }
};

// Nothing when the path can be told neither as a file nor as a free name:
// writing there fails anyway.
std::optional<Identity> IdentityOf(const std::string& path) {
    Identity identity;
    if (stat(path.c_str(), &identity.file) == 0) {
        return identity;
    }
    if (errno != ENOENT) {
        return std::nullopt;
    }
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "."
                                  : slash == 0               ? "/"
                                                             : path.substr(0, slash);
    identity.freeName = slash == std::string::npos ? path : path.substr(slash + 1);
    if (identity.freeName.empty() || stat(directory.c_str(), &identity.file) != 0) {
        return std::nullopt;
    }
    return identity;
}

void Refuse(const std::string& output, const char* kind, const std::string& other) {
    const bool input = std::string_view(kind) == "input";
    const std::string why = "output " + Quoted(output) + " is the same file as " + kind + " " +
                            Quoted(other) + "; nothing is written";
    ProgressLog(WidenForLog(("ERROR, " + why + ".\n").c_str()).c_str(), 0);
    Report(Diagnostic::Error(input ? "output-is-input" : "output-twice",
                             FileLocation(AddSourceName(output)), why));
}

}  // namespace

bool OutputsCollide(const std::vector<PlannedOutput>& outputs) {
    std::vector<std::pair<Identity, const std::string*>> earlier;
    for (const PlannedOutput& output : outputs) {
        const std::optional<Identity> identity = IdentityOf(output.path);
        if (!identity) {
            continue;
        }
        if (identity->freeName.empty()) {
            if (const std::string* input = InputFileName(identity->file)) {
                Refuse(output.path, "input", *input);
                return true;
            }
        }
        for (const auto& [other, path] : earlier) {
            if (other == *identity) {
                Refuse(output.path, "output", *path);
                return true;
            }
        }
        earlier.emplace_back(*identity, &output.path);
    }
    return false;
}

bool SameExistingFile(const char* first, const char* second) {
    struct stat one {};
    struct stat other {};
    return stat(first, &one) == 0 && stat(second, &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

bool OutputIsNamedInput(const char* output, const std::vector<const char*>& inputs) {
    for (const char* input : inputs) {
        if (SameExistingFile(output, input)) {
            Refuse(output, "input", input);
            return true;
        }
    }
    return false;
}

}  // namespace qk
