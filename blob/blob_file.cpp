#include "blob/blob_file.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <string>

#include "blob/compact_builder.h"
#include "blob/string_table.h"
#include "support/diagnostic.h"
#include "support/output_file.h"
#include "support/progress_log.h"
#include "support/regular_file_read.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"

namespace qk {

const char* BlobTargetName(const char* name) {
    return name == nullptr || std::strlen(name) < 2 ? kDefaultBlobName : name;
}

int WriteBinFile(char* name) {
    LogFormat(L"WriteBinFile(): - filename = %s\n", name != nullptr ? name : "");
    if (g_lpBlob == nullptr || g_lpApplicationPtr == nullptr || g_lpApplicationPtr < g_lpBlob) {
        ProgressLog(L"ERROR, WriteBinFile(): - no blob has been built.\n", 0);
        return 0;
    }
    const auto count = static_cast<std::size_t>(g_lpApplicationPtr - g_lpBlob);
    const char* target = BlobTargetName(name);
    if (target != name && name != nullptr) {
        std::strcpy(name, kDefaultBlobName);
    }
    const OutputResult result =
        WriteOutputFile(target, {.bytes = std::as_bytes(std::span(g_lpBlob, count))}, true);
    const auto report = [target](const std::string& why) {
        Report(Diagnostic::Error("cannot-write", FileLocation(AddSourceName(target)),
                                 "the blob is not written: " + why));
    };
    switch (result.error) {
        case OutputError::kNone:
            LogFormat(L"BLOB file:- \"%s\" of size %d\n", target, static_cast<int>(result.written));
            return static_cast<int>(result.written);
        case OutputError::kCannotOpen:
            ProgressLog(L"FAILED: Unable to open bin file for writing.\n", 0);
            report(SystemReason(result.cause));
            break;
        case OutputError::kDanglingLink:
            LogFormat(
                L"ERROR, WriteBinFile(): - \"%s\" is a symbolic link to a file that does not "
                L"exist; it is left as it is.\n",
                target);
            report("it is a symbolic link to a file that does not exist");
            break;
        case OutputError::kWriteFailed:
            LogFormat(
                L"ERROR, WriteBinFile(): - writing \"%s\" failed after %d of %d bytes; "
                L"the file is left as it was.\n",
                target, static_cast<int>(result.written), static_cast<int>(count));
            report("writing failed (" + SystemReason(result.cause) +
                   "); the file is left as it was");
            break;
        case OutputError::kPathChanged:
            LogFormat(
                L"ERROR, WriteBinFile(): - \"%s\" changed while the blob was written; nothing "
                L"is written.\n",
                target);
            report(std::string(kPathChangedReason));
            break;
        case OutputError::kReplaceFailed:
            LogFormat(
                L"ERROR, WriteBinFile(): - unable to replace \"%s\"; the file is left as it "
                L"was.\n",
                target);
            report("replacing the file failed (" + SystemReason(result.cause) +
                   "); the file is left as it was");
            break;
    }
    return 0;
}

long LoadBlobImage(const char* path) {
    auto* image = static_cast<std::uint8_t*>(Allocate(static_cast<std::uint32_t>(kMaxImageBytes)));
    SetCurrentImage(image);
    if (path == nullptr) {
        return 0;
    }
    // One open that never waits, of a regular file only: a FIFO without a
    // writer would hold the run forever, and a second open may meet another file.
    const RegularFileRead file = ReadRegularFile(path, kMaxImageBytes);
    switch (file.problem) {
        case FileReadProblem::kNone:
            break;
        case FileReadProblem::kTooLarge: {
            const auto size = static_cast<long>(file.size);
            LogFormat(
                L"ERROR, blob file \"%s\" has %ld bytes, more than the 0xFFFFF bytes an image "
                L"holds.\n",
                path, size);
            Report(Diagnostic::Error("not-a-blob", FileLocation(AddSourceName(path)),
                                     "the file has " + std::to_string(size) +
                                         " bytes, more than the 1048575 a blob holds"));
            return -1;
        }
        case FileReadProblem::kNotRegular:
            LogFormat(L"ERROR, blob file \"%s\" is not a regular file.\n", path);
            Report(Diagnostic::Error("not-a-blob", FileLocation(AddSourceName(path)),
                                     "the blob file is not a regular file"));
            return -1;
        case FileReadProblem::kCannotOpen:
        case FileReadProblem::kReadFailed:
            // A missing or unreadable file: the image stays zero.
            Report(Diagnostic::Error(
                "cannot-read", FileLocation(AddSourceName(path)),
                "cannot read the blob: " + SystemReason(file.cause) + "; an empty image is used"));
            return 0;
    }
    std::memcpy(image, file.bytes.data(), file.bytes.size());
    return static_cast<long>(file.bytes.size());
}

int printVersionString() {
    const long size = LoadBlobImage(kDefaultBlobName);
    StringRef release = {0, 0};
    if (auto header = CurrentImage().Header()) {
        release = header->refRelease;
    }
    PrintStrings(release.pos, release.len, L"Version string: - ");
    // A position beyond the signed range names no text, like one beyond 0x3FFFF.
    const wchar_t* text = release.pos <= kMaxTextPosition
                              ? GetWordsViaOffset(static_cast<std::int32_t>(release.pos))
                              : nullptr;
    // The release must be a whole text of the Words table, as its reference says;
    // without a file there is simply no version string.
    if (size > 0 && (text == nullptr || CurrentImage().TextAt(release) == nullptr)) {
        LogFormat(L"ERROR, blob file \"%s\" holds no readable version string.\n", kDefaultBlobName);
        Report(Diagnostic::Error("not-a-blob", FileLocation(AddSourceName(kDefaultBlobName)),
                                 "the blob holds no readable version string"));
    }
    const std::string line = "Version string from BIN file:- " + EncodeUtf8(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
    return 0;
}

}  // namespace qk
