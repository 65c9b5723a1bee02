#include "support/output_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "support/write_fully.h"

namespace qk {

namespace {

// A file descriptor that closes itself.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { Reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void Reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_;
};

// Temporary names: ".quillard-" + 6 characters + ".tmp", short enough beside
// any name the file system takes. A name exists only while its file is being
// put in place, and the writing process holds a lock on it meanwhile; one
// whose lock is free was left by a process that died, and is removed.
constexpr std::string_view kTemporaryPrefix = ".quillard-";
constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr std::size_t kTemporaryRandom = 6;

std::string TemporaryName() {
    static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char random[kTemporaryRandom] = {};
    if (getrandom(random, sizeof random, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof random)) {
        // Uniqueness comes from O_EXCL and the retries; this only spreads the names.
        static unsigned counter = 0;
        const unsigned seed = static_cast<unsigned>(getpid()) * 2654435761U + counter++;
        for (std::size_t i = 0; i < sizeof random; ++i) {
            random[i] = static_cast<unsigned char>(seed >> (4 * i));
        }
    }
    std::string name(kTemporaryPrefix);
    for (unsigned char byte : random) {
        name.push_back(kLetters[byte % (sizeof kLetters - 1)]);
    }
    name.append(kTemporarySuffix);
    return name;
}

bool IsTemporaryName(std::string_view name) {
    return name.size() == kTemporaryPrefix.size() + kTemporaryRandom + kTemporarySuffix.size() &&
           name.starts_with(kTemporaryPrefix) && name.ends_with(kTemporarySuffix);
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether name in directory is, itself and not through a link, the file known as expected.
bool SameFileAt(int directory, const char* name, const struct stat& expected) {
    struct stat now {};
    return fstatat(directory, name, &now, AT_SYMLINK_NOFOLLOW) == 0 && SameFile(now, expected);
}

// Whether name in directory names nothing at all.
bool NothingAt(int directory, const char* name) {
    struct stat now {};
    return fstatat(directory, name, &now, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

// Removes the temporary files that dead writers left in a directory.
void RemoveAbandonedTemporaries(int directory) {
    const int listing = dup(directory);
    if (listing < 0) {
        return;
    }
    DIR* entries = fdopendir(listing);
    if (entries == nullptr) {
        close(listing);
        return;
    }
    rewinddir(entries);
    while (const dirent* entry = readdir(entries)) {
        if (!IsTemporaryName(entry->d_name)) {
            continue;
        }
        const Descriptor file(openat(directory, entry->d_name,
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        // Another user's name is never touched: in a shared directory it may
        // be theirs, in use, or bait.
        struct stat info {};
        if (file && fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) &&
            info.st_uid == geteuid() && flock(file.get(), LOCK_EX | LOCK_NB) == 0 &&
            SameFileAt(directory, entry->d_name, info)) {
            unlinkat(directory, entry->d_name, 0);
        }
    }
    closedir(entries);
}

// Holds back the signals that would end the process while a temporary name
// exists, so that it is always either renamed or removed; they are delivered
// once the name is gone.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t held;
        sigfillset(&held);
        for (int synchronous : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
            sigdelset(&held, synchronous);
        }
        sigprocmask(SIG_BLOCK, &held, &previous_);
    }
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t previous_;
};

bool WriteAll(int fd, const OutputContent& content, std::size_t& written) {
    written = 0;
    if (content.source < 0) {
        return WriteFully(fd, content.bytes, written);
    }
    if (lseek(content.source, 0, SEEK_SET) != 0) {
        return false;
    }
    std::byte piece[65536];
    for (;;) {
        const ssize_t got = read(content.source, piece, sizeof piece);
        if (got == 0) {
            return true;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (!WriteFully(fd, std::span(piece, static_cast<std::size_t>(got)), written)) {
            return false;
        }
    }
}

// The name under which the kernel shows an open descriptor.
std::string DescriptorPath(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

// Where a regular file opened through a link really is, as the kernel resolved
// it; empty when that cannot be told.
std::string ResolvedPath(const char* path, int fd) {
    const std::string self = DescriptorPath(fd);
    char target[PATH_MAX + 1];
    const ssize_t length = readlink(self.c_str(), target, PATH_MAX);
    if (length > 0 && target[0] == '/') {
        return std::string(target, static_cast<std::size_t>(length));
    }
    // No /proc (a bare chroot): the link is resolved by name.
    if (char* real = realpath(path, nullptr)) {
        std::string resolved(real);
        std::free(real);
        return resolved;
    }
    return {};
}

struct Placement {
    std::string directory;
    std::string name;
};

Placement PlacementOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return {".", path};
    }
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// The new file takes the old one's owner, group and permission bits, as far
// as this process may give them; set-user and set-group ID are not carried over.
void TakeOwnershipAndMode(int fd, const struct stat& old) {
    if (fchown(fd, old.st_uid, old.st_gid) != 0) {
        [[maybe_unused]] const int ignored = fchown(fd, static_cast<uid_t>(-1), old.st_gid);
    }
    fchmod(fd, old.st_mode & 0777);
}

// Puts the new content in the place of one file: the regular file that was
// opened (old), or nothing (a new file). Everything happens relative to the
// directory's descriptor, and the name is checked against what was opened just
// before it is replaced, so that a path changed meanwhile (a link put in its
// place, a directory moved) sends no byte anywhere else.
class Replacement {
  public:
    Replacement(Placement placement, const struct stat* old, bool durable)
        : placement_(std::move(placement)), old_(old), durable_(durable) {}

    OutputResult Write(const OutputContent& content) {
        directory_.Reset(open(placement_.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!directory_) {
            return Failed(OutputError::kCannotOpen);
        }
        if (!StillInPlace()) {
            return Changed();
        }
        const std::optional<OutputResult> unnamed = WriteUnnamed(content);
        const OutputResult result = unnamed ? *unnamed : WriteNamed(content);
        if (result.error == OutputError::kNone) {
            if (durable_) {
                fsync(directory_.get());
            }
            RemoveAbandonedTemporaries(directory_.get());
        }
        return result;
    }

  private:
    OutputResult Failed(OutputError error, std::size_t written = 0) const {
        return {error, written, errno};
    }
    static OutputResult Changed(std::size_t written = 0) {
        return {OutputError::kPathChanged, written, 0};
    }

    // Whether the name still stands for what was opened: the old file itself,
    // or, for a new file, nothing.
    bool StillInPlace() const {
        const char* name = placement_.name.c_str();
        return old_ != nullptr ? SameFileAt(directory_.get(), name, *old_)
                               : NothingAt(directory_.get(), name);
    }

    // Fills fd, a file that does not stand in the path's place yet, with the content.
    OutputResult Fill(int fd, const OutputContent& content) const {
        if (old_ != nullptr) {
            TakeOwnershipAndMode(fd, *old_);
        }
        std::size_t written = 0;
        if (!WriteAll(fd, content, written) || (durable_ && fsync(fd) != 0)) {
            return Failed(OutputError::kWriteFailed, written);
        }
        return {OutputError::kNone, written, 0};
    }

    // The usual way: an unnamed file, linked in once complete. Nothing when
    // the file system has no unnamed files or the file cannot be linked: the
    // named way is then taken.
    std::optional<OutputResult> WriteUnnamed(const OutputContent& content) {
        const Descriptor file(
            openat(directory_.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
        if (!file) {
            if (errno == EACCES || errno == EPERM || errno == EROFS || errno == ENOSPC ||
                errno == EDQUOT) {
                return Failed(OutputError::kCannotOpen);
            }
            return std::nullopt;
        }
        flock(file.get(), LOCK_EX);
        const OutputResult filled = Fill(file.get(), content);
        if (filled.error != OutputError::kNone) {
            return filled;
        }
        const SignalsHeld held;
        // A new file takes its name at once, where a link never overwrites;
        // an old one is replaced through a temporary name.
        if (old_ == nullptr) {
            if (Link(file.get(), placement_.name)) {
                return filled;
            }
            if (errno == EEXIST) {
                return Changed(filled.written);
            }
        }
        for (int attempt = 0; attempt < 100; ++attempt) {
            const std::string temporary = TemporaryName();
            if (Link(file.get(), temporary)) {
                return PutInPlace(temporary, file.get(), filled.written);
            }
            if (errno != EEXIST) {
                break;
            }
        }
        // Linking an unnamed file needs /proc or the privilege to link by
        // descriptor; without either, the named way remains.
        return std::nullopt;
    }

    bool Link(int fd, const std::string& name) const {
        const std::string self = DescriptorPath(fd);
        if (linkat(AT_FDCWD, self.c_str(), directory_.get(), name.c_str(), AT_SYMLINK_FOLLOW) ==
            0) {
            return true;
        }
        if (errno == EEXIST) {
            return false;
        }
        return linkat(fd, "", directory_.get(), name.c_str(), AT_EMPTY_PATH) == 0;
    }

    // The way for file systems without unnamed files: a named temporary file,
    // locked while it exists, with the ending signals held back.
    OutputResult WriteNamed(const OutputContent& content) {
        const SignalsHeld held;
        std::string temporary;
        Descriptor file;
        for (int attempt = 0; attempt < 100 && !file; ++attempt) {
            temporary = TemporaryName();
            file.Reset(openat(directory_.get(), temporary.c_str(),
                              O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0666));
            if (!file && errno != EEXIST) {
                break;
            }
        }
        if (!file) {
            return Failed(OutputError::kCannotOpen);
        }
        flock(file.get(), LOCK_EX);
        const OutputResult filled = Fill(file.get(), content);
        if (filled.error != OutputError::kNone) {
            RemoveTemporary(temporary, file.get());
            return filled;
        }
        return PutInPlace(temporary, file.get(), filled.written);
    }

    // Removes a temporary name, if it is still the file this run made.
    void RemoveTemporary(const std::string& temporary, int fd) const {
        struct stat own {};
        if (fstat(fd, &own) == 0 && SameFileAt(directory_.get(), temporary.c_str(), own)) {
            unlinkat(directory_.get(), temporary.c_str(), 0);
        }
    }

    // The complete file, named temporary, takes the path's place, if the
    // path still stands for what was opened.
    OutputResult PutInPlace(const std::string& temporary, int fd, std::size_t written) const {
        const int directory = directory_.get();
        const char* name = placement_.name.c_str();
        int cause = 0;
        if (old_ == nullptr) {
            // Nothing may have appeared at the name meanwhile: it is taken
            // only if free.
            if (renameat2(directory, temporary.c_str(), directory, name, RENAME_NOREPLACE) == 0) {
                return {OutputError::kNone, written, 0};
            }
            cause = errno;
            if (cause == EINVAL || cause == ENOSYS) {
                if (linkat(directory, temporary.c_str(), directory, name, 0) == 0) {
                    unlinkat(directory, temporary.c_str(), 0);
                    return {OutputError::kNone, written, 0};
                }
                cause = errno;
            }
            RemoveTemporary(temporary, fd);
            return cause == EEXIST ? Changed(written)
                                   : OutputResult{OutputError::kReplaceFailed, written, cause};
        }
        if (!StillInPlace()) {
            RemoveTemporary(temporary, fd);
            return Changed(written);
        }
        if (renameat(directory, temporary.c_str(), directory, name) != 0) {
            cause = errno;
            RemoveTemporary(temporary, fd);
            return {OutputError::kReplaceFailed, written, cause};
        }
        return {OutputError::kNone, written, 0};
    }

    Placement placement_;
    const struct stat* old_;
    bool durable_;
    Descriptor directory_;
};

OutputResult WriteInPlace(int fd, const OutputContent& content) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags >= 0) {
        fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    }
    std::size_t written = 0;
    if (!WriteAll(fd, content, written)) {
        return {OutputError::kWriteFailed, written, errno};
    }
    return {OutputError::kNone, written, 0};
}

// Opens an existing path for writing as any program would, with O_CREAT, so
// that every check the kernel makes for that open applies, the protection of
// files and pipes in shared sticky directories included; never truncating. A
// pipe without a reader is not waited for here.
int OpenExisting(const char* path) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_NOCTTY | O_CLOEXEC;
    const int fd = open(path, kFlags | O_NONBLOCK, 0666);
    if (fd < 0 && errno == ENXIO) {
        return open(path, kFlags, 0666);
    }
    return fd;
}

// Where the regular file opened through path stands: the path itself, or the
// file a link there leads to. Nothing when the path no longer leads to it.
std::optional<Placement> PlacementOfOpened(const char* path, int fd, const struct stat& opened) {
    struct stat here {};
    if (lstat(path, &here) != 0) {
        return std::nullopt;
    }
    if (!S_ISLNK(here.st_mode)) {
        return SameFile(here, opened) ? std::optional(PlacementOf(path)) : std::nullopt;
    }
    struct stat through {};
    if (stat(path, &through) != 0 || !SameFile(through, opened)) {
        return std::nullopt;
    }
    const std::string resolved = ResolvedPath(path, fd);
    return resolved.empty() ? std::nullopt : std::optional(PlacementOf(resolved));
}

}  // namespace

OutputResult WriteOutputFile(const char* path, const OutputContent& content, bool durable) {
    struct stat seen {};
    if (stat(path, &seen) != 0) {
        const int cause = errno;
        if (cause != ENOENT) {
            return {OutputError::kCannotOpen, 0, cause};
        }
        struct stat link {};
        if (lstat(path, &link) == 0 && S_ISLNK(link.st_mode)) {
            return {OutputError::kDanglingLink, 0, cause};
        }
        Placement placement = PlacementOf(path);
        if (placement.name.empty()) {
            return {OutputError::kCannotOpen, 0, EISDIR};
        }
        return Replacement(std::move(placement), nullptr, durable).Write(content);
    }
    const Descriptor target(OpenExisting(path));
    if (!target) {
        return {OutputError::kCannotOpen, 0, errno};
    }
    struct stat info {};
    if (fstat(target.get(), &info) != 0) {
        return {OutputError::kCannotOpen, 0, errno};
    }
    if (!SameFile(info, seen)) {
        // The file went between the look and the open, and the open may have
        // made an empty one of this process's own in its place: it goes too.
        struct stat here {};
        if (S_ISREG(info.st_mode) && info.st_size == 0 && info.st_uid == geteuid() &&
            lstat(path, &here) == 0 && SameFile(here, info)) {
            unlink(path);
        }
        return {OutputError::kPathChanged, 0, 0};
    }
    if (!S_ISREG(info.st_mode)) {
        return WriteInPlace(target.get(), content);
    }
    std::optional<Placement> placement = PlacementOfOpened(path, target.get(), info);
    if (!placement) {
        return {OutputError::kPathChanged, 0, 0};
    }
    return Replacement(std::move(*placement), &info, durable).Write(content);
}

}  // namespace qk
