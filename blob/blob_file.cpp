#include "blob/blob_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

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

// A mkstemp pattern for a hidden file beside path.
std::string TemporaryNameFor(const std::string& path) {
    return DirectoryOf(path) + "/." + BaseOf(path) + ".XXXXXX";
}

// How the blob reaches its file. Replacing through a rename would get past a
// file's write protection, so an existing file that could not be opened for
// writing is left alone; a device or pipe is written in place.
enum class WriteWay { kRefused, kInPlace, kReplaceExisting, kCreate };

// The way for path; info receives the status of an existing file.
WriteWay WayTo(const std::string& path, struct stat& info) {
    if (stat(path.c_str(), &info) != 0) {
        return WriteWay::kCreate;
    }
    if (access(path.c_str(), W_OK) != 0) {
        return WriteWay::kRefused;
    }
    return S_ISREG(info.st_mode) ? WriteWay::kReplaceExisting : WriteWay::kInPlace;
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

// The Words table, most of a blob's bytes, is final well before the other
// tables. Its whole pages go to the temporary file as soon as it is written, and
// the disk starts on them while the rest is built; WriteBinFile then writes the
// first page (the header, filled in last) and what follows, and waits only for
// those. A file that WriteBinFile would not replace through a temporary file
// (a device, a write-protected file) gets nothing early.
constexpr std::size_t kPageBytes = 4096;
constexpr std::size_t kLeastEarlyBytes = std::size_t{64} * 1024;

class EarlyFile {
  public:
    EarlyFile() = default;
    EarlyFile(const EarlyFile&) = delete;
    EarlyFile& operator=(const EarlyFile&) = delete;
    EarlyFile(EarlyFile&& other) noexcept { *this = std::move(other); }
    EarlyFile& operator=(EarlyFile&& other) noexcept {
        if (this != &other) {
            Discard();
            descriptor_ = std::exchange(other.descriptor_, -1);
            temporary_ = std::move(other.temporary_);
            path_ = std::move(other.path_);
            image_ = std::exchange(other.image_, nullptr);
            end_ = std::exchange(other.end_, 0);
        }
        return *this;
    }
    ~EarlyFile() { Discard(); }

    // Writes image[kPageBytes, end) of a blob bound for path; false (and nothing
    // left behind) when the file or a write could not be made.
    bool Write(const std::string& path, const std::uint8_t* image, std::size_t end) {
        Discard();
        temporary_ = TemporaryNameFor(path);
        descriptor_ = mkstemp(temporary_.data());
        if (descriptor_ < 0) {
            return false;
        }
        const std::size_t length = end - kPageBytes;
        if (pwrite(descriptor_, image + kPageBytes, length, kPageBytes) !=
            static_cast<ssize_t>(length)) {
            Discard();
            return false;
        }
        sync_file_range(descriptor_, kPageBytes, static_cast<off_t>(length), SYNC_FILE_RANGE_WRITE);
        path_ = path;
        image_ = image;
        end_ = end;
        return true;
    }

    // Whether this holds the early bytes of exactly this write.
    bool Holds(const std::string& path, const void* image, std::size_t count) const {
        return descriptor_ >= 0 && path == path_ && image == image_ && count >= end_;
    }
    int descriptor() const { return descriptor_; }
    const std::string& temporary() const { return temporary_; }
    std::size_t end() const { return end_; }

    // The file is now the blob's: closing and renaming it are the caller's.
    void Release() {
        descriptor_ = -1;
        temporary_.clear();
    }

    void Discard() {
        if (descriptor_ >= 0) {
            close(descriptor_);
            unlink(temporary_.c_str());
            descriptor_ = -1;
        }
        temporary_.clear();
        path_.clear();
        image_ = nullptr;
        end_ = 0;
    }

  private:
    int descriptor_ = -1;
    std::string temporary_;
    std::string path_;
    const void* image_ = nullptr;
    std::size_t end_ = 0;
};

std::string g_expectedBlobName;
EarlyFile g_earlyFile;

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

// Writes what the early file lacks: the first page and everything after its end.
// Returns the bytes of the blob that the file then holds in a row from its start.
std::size_t WriteRest(int descriptor, const std::uint8_t* bytes, std::size_t count,
                      std::size_t end) {
    if (pwrite(descriptor, bytes, kPageBytes, 0) != static_cast<ssize_t>(kPageBytes)) {
        return 0;
    }
    const std::size_t tail = count - end;
    if (tail > 0 && pwrite(descriptor, bytes + end, tail, static_cast<off_t>(end)) !=
                        static_cast<ssize_t>(tail)) {
        return end;
    }
    return count;
}

// Writes the blob to a new temporary file, or completes the early one, makes it
// durable and renames it over path.
int WriteReplacing(const char* shownName, const std::string& path, const struct stat* existing,
                   const void* bytes, std::size_t count, EarlyFile& early) {
    std::string temporary;
    std::size_t written = 0;
    bool good = false;
    if (early.Holds(path, bytes, count)) {
        const int descriptor = early.descriptor();
        const std::size_t end = early.end();
        temporary = early.temporary();
        early.Release();
        fchmod(descriptor, ModeFor(existing));
        written = WriteRest(descriptor, static_cast<const std::uint8_t*>(bytes), count, end);
        good = written == count && fsync(descriptor) == 0;
        good = close(descriptor) == 0 && good;
    } else {
        early.Discard();
        temporary = TemporaryNameFor(path);
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
        written = WriteBytes(bytes, count, file);
        good = written == count && std::fflush(file) == 0 && fsync(descriptor) == 0;
        good = std::fclose(file) == 0 && good;
    }
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

// The file a blob name stands for: names shorter than 2 characters mean the
// default file.
const char* TargetName(const char* name) {
    return name == nullptr || std::strlen(name) < 2 ? kDefaultBlobName : name;
}

}  // namespace

void ExpectBlobFile(const char* name) {
    g_earlyFile.Discard();
    g_expectedBlobName = TargetName(name);
}

void WriteFinalBytesEarly(std::size_t finished) {
    const std::size_t end = finished & ~(kPageBytes - 1);
    if (g_expectedBlobName.empty() || g_blobWriter != nullptr || g_lpBlob == nullptr ||
        end < kLeastEarlyBytes) {
        return;
    }
    const std::string path = ResolveTarget(g_expectedBlobName.c_str());
    struct stat info {};
    const WriteWay way = WayTo(path, info);
    if (way == WriteWay::kCreate || way == WriteWay::kReplaceExisting) {
        g_earlyFile.Write(path, g_lpBlob, end);
    }
}

int WriteBinFile(char* name) {
    // Whatever way this ends, bytes written early do not outlive it.
    EarlyFile early = std::move(g_earlyFile);
    g_expectedBlobName.clear();
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

    const char* target = TargetName(name);
    if (target != name && name != nullptr) {
        std::strcpy(name, kDefaultBlobName);
    }
    const std::string path = ResolveTarget(target);
    struct stat info {};
    const WriteWay way = WayTo(path, info);
    if (way == WriteWay::kRefused) {
        ProgressLog(L"FAILED: Unable to open bin file for writing.\n", 0);
        return 0;
    }
    if (way == WriteWay::kInPlace) {
        return WriteInPlace(target, path, g_lpBlob, count);
    }
    return WriteReplacing(target, path, way == WriteWay::kReplaceExisting ? &info : nullptr,
                          g_lpBlob, count, early);
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
