#include "blob/blob_file.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "app/progress_log.h"
#include "app/tracked_memory.h"
#include "blob/compact_builder.h"
#include "blob/string_table.h"
#include "text/utf8.h"
#include "xmlinput/xml_discovery.h"

namespace qk {

namespace {

BlobWriter g_blobWriter = nullptr;

std::size_t WriteBytes(const void* bytes, std::size_t count, std::FILE* file) {
    return g_blobWriter ? g_blobWriter(bytes, count, file) : std::fwrite(bytes, 1, count, file);
}

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

// A symbolic link is followed, so the link stays and its target is replaced.
std::string ResolveTarget(const char* name) {
    struct stat info {};
    if (lstat(name, &info) == 0 && S_ISLNK(info.st_mode)) {
        std::unique_ptr<char, FreeDeleter> real(realpath(name, nullptr));
        if (real) {
            return real.get();
        }
    }
    return name;
}

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BaseOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Mode a new file would get from fopen, or the existing file's own.
mode_t ModeFor(const struct stat* existing) {
    if (existing != nullptr) {
        return existing->st_mode & 07777;
    }
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

int WriteInPlace(const char* shownName, const std::string& path, const void* bytes,
                 std::size_t count) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        ProgressLog(L"FAILED: Unable to open bin file for writing.\n", 0);
        return 0;
    }
    const std::size_t written = WriteBytes(bytes, count, file);
    std::fclose(file);
    LogFormat(L"BLOB file:- \"%s\" of size %d\n", shownName, static_cast<int>(written));
    return static_cast<int>(written);
}

int WriteReplacing(const char* shownName, const std::string& path, const struct stat* existing,
                   const void* bytes, std::size_t count) {
    std::string temporary = DirectoryOf(path) + "/." + BaseOf(path) + ".XXXXXX";
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0) {
        ProgressLog(L"FAILED: Unable to open bin file for writing.\n", 0);
        return 0;
    }
    std::FILE* file = fdopen(descriptor, "wb");
    if (file == nullptr) {
        close(descriptor);
        unlink(temporary.c_str());
        ProgressLog(L"FAILED: Unable to open bin file for writing.\n", 0);
        return 0;
    }
    fchmod(descriptor, ModeFor(existing));
    const std::size_t written = WriteBytes(bytes, count, file);
    bool good = written == count && std::fflush(file) == 0 && fsync(descriptor) == 0;
    good = std::fclose(file) == 0 && good;
    if (!good) {
        unlink(temporary.c_str());
        LogFormat(
            L"ERROR, WriteBinFile(): - writing \"%s\" failed after %d of %d bytes; "
            L"the file is left as it was.\n",
            shownName, static_cast<int>(written), static_cast<int>(count));
        return 0;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        LogFormat(
            L"ERROR, WriteBinFile(): - unable to replace \"%s\"; the file is left as it "
            L"was.\n",
            shownName);
        return 0;
    }
    LogFormat(L"BLOB file:- \"%s\" of size %d\n", shownName, static_cast<int>(written));
    return static_cast<int>(written);
}

// The write's scratch buffer: a zero-filled mapping that is never touched, so
// taking it costs neither a memset nor page faults.
class ScratchMapping {
  public:
    ScratchMapping()
        : start_(mmap(nullptr, kMaxImageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                      -1, 0)) {}
    ~ScratchMapping() {
        if (start_ != MAP_FAILED) {
            munmap(start_, kMaxImageBytes);
        }
    }
    ScratchMapping(const ScratchMapping&) = delete;
    ScratchMapping& operator=(const ScratchMapping&) = delete;
    explicit operator bool() const { return start_ != MAP_FAILED; }

  private:
    void* start_;
};

}  // namespace

int WriteBinFile(char* name) {
    const ScratchMapping scratch;
    if (!scratch) {
        ProgressLog(L"ERROR, WriteBinFile(): - Unable to allocate memory.\n", 0);
        ExitFree();
    }
    LogFormat(L"WriteBinFile(): - filename = %s\n", name != nullptr ? name : "");
    if (g_lpBlob == nullptr || g_lpApplicationPtr == nullptr || g_lpApplicationPtr < g_lpBlob) {
        ProgressLog(L"ERROR, WriteBinFile(): - no blob has been built.\n", 0);
        return 0;
    }
    // The image stays unchanged until the sweep, so its bytes are written as they
    // stand; a copy in the scratch buffer would only touch another megabyte. The
    // buffer is still taken, so that a machine without that much memory to spare
    // ends here as it always has.
    const auto count = static_cast<std::size_t>(g_lpApplicationPtr - g_lpBlob);

    const char* target = name;
    if (name == nullptr || std::strlen(name) < 2) {
        if (name != nullptr) {
            std::strcpy(name, kDefaultBlobName);
        }
        target = kDefaultBlobName;
    }
    const std::string path = ResolveTarget(target);
    struct stat info {};
    const bool exists = stat(path.c_str(), &info) == 0;
    // Replacing through a rename would get past a file's write protection; a
    // file that could not be opened for writing is left alone.
    if (exists && access(path.c_str(), W_OK) != 0) {
        ProgressLog(L"FAILED: Unable to open bin file for writing.\n", 0);
        return 0;
    }
    if (exists && !S_ISREG(info.st_mode)) {
        return WriteInPlace(target, path, g_lpBlob, count);
    }
    return WriteReplacing(target, path, exists ? &info : nullptr, g_lpBlob, count);
}

long LoadBlobImage(const char* path) {
    auto* image = static_cast<std::uint8_t*>(Allocate(static_cast<std::uint32_t>(kMaxImageBytes)));
    SetCurrentImage(image);
    if (path == nullptr) {
        return 0;
    }
    const long size = GetFileSizeAp(path);
    if (size > static_cast<long>(kMaxImageBytes)) {
        LogFormat(
            L"ERROR, blob file \"%s\" has %ld bytes, more than the 0xFFFFF bytes an image "
            L"holds.\n",
            path, size);
        return -1;
    }
    if (size <= 0) {
        // The dump and -v still run over the zero image; the log says why it is empty.
        LogFormat(L"ERROR, blob file \"%s\" is missing or empty; the image is all zero.\n", path);
        return size;
    }
    auto* bytes = static_cast<std::uint8_t*>(Allocate(static_cast<std::uint32_t>(size) + 1));
    std::FILE* file = std::fopen(path, "rb");
    if (file != nullptr) {
        // A file that shrank since its size was taken leaves the rest zero.
        const std::size_t got = std::fread(bytes, 1, static_cast<std::size_t>(size), file);
        std::fclose(file);
        std::memcpy(image, bytes, got);
    }
    return size;
}

int printVersionString() {
    LoadBlobImage(kDefaultBlobName);
    StringRef release = {0, 0};
    if (auto header = CurrentImage().Header()) {
        release = header->refRelease;
    }
    PrintStrings(release.pos, release.len, L"Version string: - ");
    // A position beyond the signed range names no text, like one beyond 0x3FFFF.
    const wchar_t* text = release.pos <= kMaxTextPosition
                              ? GetWordsViaOffset(static_cast<std::int32_t>(release.pos))
                              : nullptr;
    // The release must be a whole text of the Words table, as its reference says.
    if (text == nullptr || CurrentImage().TextAt(release) == nullptr) {
        LogFormat(L"ERROR, blob file \"%s\" holds no readable version string.\n", kDefaultBlobName);
    }
    const std::string line = "Version string from BIN file:- " + EncodeUtf8(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
    return 0;
}

void SetBlobWriterForTests(BlobWriter writer) {
    g_blobWriter = writer;
}

}  // namespace qk
