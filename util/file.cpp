// Opening, measuring, reading and safely replacing files.
#include "util/file.h"

#include "util/fd.h"
#include "util/signals.h"
#include "util/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

namespace fs = std::filesystem;

struct State {
    Failure last;
};
State state;

/// Records why `step` failed. Always -1, and errno is the error.
int fail(const char* step, int error = errno) {
    state.last = {step, FailureKind::System, error};
    errno = error;
    return -1;
}

// Opening ------------------------------------------------------------------------------------

int flags_of_mode(std::string_view mode) {
    const bool update = mode.find('+') != std::string_view::npos;
    if (mode.starts_with('r')) {
        return update ? O_RDWR : O_RDONLY;
    }
    return (update ? O_RDWR : O_WRONLY) | O_CREAT | (mode.starts_with('a') ? O_APPEND : O_TRUNC);
}

/// Opens without waiting for the other end of a FIFO or for a modem's carrier; what is read and
/// written then may wait as ever. Closed, with errno, when that fails or it is a directory.
Fd open_at_once(const std::string& path, int flags, mode_t mode = 0666) {
    Fd fd(::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode));
    struct stat status = {};
    if (fd.is_open() && fstat(fd.get(), &status) == 0 && S_ISDIR(status.st_mode)) {
        fd.reset(); // it opens for reading, and tells only at the first read what it is
        errno = EISDIR;
    }
    if (fd.is_open()) {
        (void)fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    }
    return fd;
}

/// Where a chain of symbolic links ends, whether a file is there or not.
std::string follow_links(fs::path path) {
    std::error_code error;
    for (int links = 0; links < 40 && fs::is_symlink(path, error); links++) {
        path = path.parent_path() / fs::read_symlink(path, error);
    }
    return path;
}

// Replacing ----------------------------------------------------------------------------------

enum class Outcome {
    Replaced,
    Busy,       // somebody else replaces it right now
    NotAllowed, // no other file may take its place
    Failed,
};

/// Records why a step that needs rights which the file's own do not give failed.
Outcome refuse(const char* step) {
    fail(step);
    return errno == EACCES || errno == EPERM || errno == EBUSY || errno == EXDEV
               ? Outcome::NotAllowed
               : Outcome::Failed;
}

/// The new file, beside the one that it will replace. Its name depends on that one's alone, so
/// that what a killed process left behind is used again; only the holder of its lock may touch it.
/// It is removed again unless it was renamed to where it belongs.
struct Temporary {
    std::string path;
    Fd fd; // locked, once it is taken

    explicit Temporary(const fs::path& target) {
        // The ending keeps a temporary of "x.ini" from being taken for a configuration. Files whose
        // names are cut to the same one take turns.
        constexpr std::size_t name_max = 128;
        const std::string name = target.filename().string().substr(0, name_max);
        path = target.parent_path() / ("." + name + ".kxnew");
    }
    ~Temporary() {
        if (fd.is_open() && !path.empty()) { // before the lock goes
            const int error = errno;
            unlink(path.c_str());
            errno = error;
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
};

/// A new file, or the one that is there. EWOULDBLOCK when that is renamed in between.
Fd open_temporary(const std::string& path, bool& is_new) {
    Fd fd = open_at_once(path, O_RDWR | O_CREAT | O_EXCL, 0600);
    is_new = fd.is_open();
    if (!is_new && errno == EEXIST) {
        fd = open_at_once(path, O_RDWR | O_NOFOLLOW);
        errno = !fd.is_open() && errno == ENOENT ? EWOULDBLOCK : errno;
    }
    return fd;
}

/// Opens, locks and empties the temporary: `Replaced` for done. A file of somebody else's under
/// its name, who could go on writing to it, and one with another name (a link), are removed first.
Outcome take(Temporary& temporary) {
    bool is_new = false;
    Fd fd = open_temporary(temporary.path, is_new);
    if (!fd.is_open()) {
        return errno == EWOULDBLOCK ? Outcome::Busy : refuse("create");
    }
    struct stat opened = {};
    struct stat named = {};
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || fstat(fd.get(), &opened) != 0) {
        return errno == EWOULDBLOCK ? Outcome::Busy : refuse("lock");
    }
    if (lstat(temporary.path.c_str(), &named) != 0 || opened.st_dev != named.st_dev ||
        opened.st_ino != named.st_ino) {
        return Outcome::Busy; // it was renamed before we had the lock
    }
    // Not every file system gives a new file to whoever makes it.
    const bool is_ours = is_new || opened.st_uid == geteuid();
    if (!is_ours || !S_ISREG(opened.st_mode) || opened.st_nlink != 1) {
        return unlink(temporary.path.c_str()) == 0 ? Outcome::Busy : refuse("create");
    }
    temporary.fd = std::move(fd);
    // One that was left behind may have been readable for all already.
    (void)!fchmod(temporary.fd.get(), 0600);
    return ftruncate(temporary.fd.get(), 0) == 0 ? Outcome::Replaced : refuse("create");
}

/// Gives the new file the owner of the one that it will replace. False when that may not be.
bool set_owner(int fd, const struct stat* old) {
    struct stat now = {};
    return old == nullptr ||
           (fstat(fd, &now) == 0 && now.st_uid == old->st_uid && now.st_gid == old->st_gid) ||
           fchown(fd, old->st_uid, old->st_gid) == 0;
}

/// Gives the new file the permissions of the one that it will replace, or those of any new file
/// when there is none. False when an old file's cannot be given.
bool set_permissions(int fd, const struct stat* old) {
    if (old != nullptr) {
        return fchmod(fd, old->st_mode & 07777) == 0;
    }
    const mode_t mask = umask(0); // it can only be read by setting it
    umask(mask);
    // Refused where all files belong to the one who mounted them, as on a USB stick: then they
    // have the permissions that the mount gives them.
    (void)!fchmod(fd, 0666 & ~mask);
    return true;
}

/// Makes a renaming last. The file is replaced already: where a directory cannot be opened or
/// synced, it depends on the file system when that will survive a power cut.
void sync_directory(const fs::path& directory) {
    const Fd fd(
        ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.is_open()) {
        (void)!fsync(fd.get());
    }
}

struct Content {
    std::uint64_t size;
    const FileSource& source;
    bool only_new = false; // nothing may be in its place yet
};

/// 0, or -1 with errno; EIO where the source fails.
int write_content(int fd, const Content& content) {
    std::array<std::uint8_t, 0x10000> buffer;
    for (std::uint64_t at = 0; at < content.size;) {
        const auto piece =
            std::span(buffer).first(std::min<std::uint64_t>(buffer.size(), content.size - at));
        if (!content.source(at, piece)) {
            errno = EIO;
            return -1;
        }
        if (fd_write_all(fd, piece) != 0) {
            return -1;
        }
        at += piece.size();
    }
    return 0;
}

/// 0, or -1 with errno, EEXIST where something has the name.
int rename_to_new(const char* from, const char* to) {
    const int result = renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
    if (result == 0 || (errno != EINVAL && errno != ENOSYS)) {
        return result;
    }
    // Not every file system knows of that; a second name is never given to what is there.
    return link(from, to) == 0 ? unlink(from) : -1;
}

/// `old` is null where there is no file yet.
Outcome replace_by_renaming(const fs::path& target, const struct stat* old,
                            const Content& content) {
    Temporary temporary(target);
    const Outcome taken = take(temporary);
    if (taken != Outcome::Replaced) {
        return taken;
    }
    const int fd = temporary.fd.get();
    if (!set_owner(fd, old)) { // first: a change of owner may take permissions away
        return refuse("permissions");
    }
    if (write_content(fd, content) != 0) {
        fail("write");
        return Outcome::Failed;
    }
    if (!set_permissions(fd, old)) {
        return refuse("permissions");
    }
    if (fsync(fd) != 0) {
        fail("sync");
        return Outcome::Failed;
    }
    const auto move = content.only_new ? rename_to_new : std::rename;
    if (move(temporary.path.c_str(), target.c_str()) != 0) {
        return refuse("rename");
    }
    temporary.path.clear();
    sync_directory(target.parent_path());
    return Outcome::Replaced;
}

/// Writes over the old content, `old_size` bytes. The room is reserved first, so that a full disc
/// is found out before anything is lost.
int write_in_place(Fd file, off_t old_size, const Content& content) {
    const auto size = static_cast<off_t>(content.size);
    const int error = size > 0 ? posix_fallocate(file.get(), 0, size) : 0;
    if (error != 0) {
        (void)!ftruncate(file.get(), old_size); // a part of the room may have been added at the end
        return fail("write", error);
    }
    if (write_content(file.get(), content) != 0 || ftruncate(file.get(), size) != 0) {
        return fail("write");
    }
    return fsync(file.get()) == 0 && file.close() == 0 ? 0 : fail("sync");
}

/// For what has no old content to lose: devices and FIFOs.
int write_straight(const std::string& path, const Content& content) {
    Fd fd = open_at_once(path, O_WRONLY);
    if (!fd.is_open()) {
        return fail("open");
    }
    return write_content(fd.get(), content) == 0 && fd.close() == 0 ? 0 : fail("write");
}

/// Replaces a regular file, or makes one where `old` is null, in turns with other processes.
int replace_regular(const std::string& path, const struct stat* old, const Content& content) {
    // A read-only file in a writable directory could be replaced, but its owner does not want it:
    // opening it tells whether it may be written.
    Fd old_file = old != nullptr ? open_at_once(path, O_RDWR) : Fd();
    if (old != nullptr && !old_file.is_open()) {
        return fail("open");
    }
    const fs::path target = follow_links(path);
    constexpr int tries = 6000; // for half a minute
    constexpr timespec pause = {.tv_sec = 0, .tv_nsec = 5000000};
    for (int i = 0; i < tries; i++) {
        const SignalsHeld held; // until the pause ends
        const Outcome outcome = replace_by_renaming(target, old, content);
        if (outcome == Outcome::NotAllowed && old != nullptr) {
            return write_in_place(std::move(old_file), old->st_size, content);
        }
        if (outcome != Outcome::Busy) {
            return outcome == Outcome::Replaced ? 0 : -1;
        }
        nanosleep(&pause, nullptr);
    }
    return fail("lock", EWOULDBLOCK);
}

FileSource source_of(std::span<const std::uint8_t> content) {
    return [content](std::uint64_t offset, std::span<std::uint8_t> bytes) {
        std::ranges::copy(content.subspan(offset, bytes.size()), bytes.begin());
        return true;
    };
}

constexpr int NO_NAMELESS = 1; // the file system has no files without a name

/// A file that gets its name when it is whole: nothing is left of it when the program is killed.
int create_nameless(const std::string& path, std::span<const std::uint8_t> content, FileSync sync) {
    const fs::path directory = fs::path(path).parent_path();
    Fd fd(
        ::open(directory.empty() ? "." : directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666));
    if (!fd.is_open()) {
        return NO_NAMELESS;
    }
    if (fd_write_all(fd.get(), content) != 0) {
        return fail("write");
    }
    if (sync == FileSync::Now && fsync(fd.get()) != 0) {
        return fail("sync");
    }
    const std::string nameless = text_printf("/proc/self/fd/%d", fd.get());
    if (linkat(AT_FDCWD, nameless.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        return errno == EEXIST ? fail("create") : NO_NAMELESS;
    }
    if (sync == FileSync::Now) {
        sync_directory(directory);
    }
    return 0;
}

} // namespace

const Failure& file_last_error() {
    return state.last;
}

void file_reset() {
    state = {};
}

FilePtr file_open(const std::string& path, const char* mode) {
    Fd fd = open_at_once(path, flags_of_mode(mode));
    FilePtr file(fd.is_open() ? fdopen(fd.get(), mode) : nullptr);
    if (file == nullptr) {
        fail("open");
        return nullptr;
    }
    (void)fd.release(); // the stream's now
    return file;
}

bool file_can_write(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0) { // not opened: the reader of a pipe would see its end
        if (S_ISDIR(status.st_mode)) {
            errno = EISDIR;
        } else if (access(path.c_str(), W_OK) == 0) {
            return true;
        }
        fail("open");
        return false;
    }
    if (errno != ENOENT || path.empty()) {
        fail("open");
        return false;
    }
    // Nothing is made to see whether it can be: a kill would leave it there.
    const fs::path directory = fs::path(follow_links(path)).parent_path(); // of a link to nothing
    if (access(directory.empty() ? "." : (directory / "").c_str(), W_OK | X_OK) != 0) {
        fail("create");
        return false;
    }
    return true;
}

long file_size(std::FILE* file) {
    const long position = std::ftell(file);
    if (position < 0 || std::fseek(file, 0, SEEK_END) != 0) {
        return fail("seek");
    }
    const long size = std::ftell(file);
    return std::fseek(file, position, SEEK_SET) == 0 && size >= 0 ? size : fail("seek");
}

long file_read(std::FILE* file, std::span<std::uint8_t> bytes) {
    const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), file);
    return std::ferror(file) == 0 ? static_cast<long>(got) : fail("read");
}

int file_read_bytes(std::FILE* file, std::uint64_t length, std::vector<std::uint8_t>& bytes) {
    constexpr std::uint64_t PIECE = 0x10000;
    bytes.clear();
    try {
        while (bytes.size() < length) {
            const std::size_t have = bytes.size();
            const std::size_t wanted = std::min(PIECE, length - have);
            bytes.resize(have + wanted);
            const std::size_t got = std::fread(&bytes[have], 1, wanted, file);
            if (got != wanted) {
                bytes.resize(have + got);
                state.last = {"read", FailureKind::Ended, 0};
                return std::ferror(file) != 0 ? fail("read") : -1;
            }
        }
    } catch (const std::bad_alloc&) {
        return fail("read", ENOMEM);
    }
    return 0;
}

int file_replace(const std::string& path, std::uint64_t size, const FileSource& source) {
    const Content content = {size, source};
    struct stat old = {};
    const bool exists = stat(path.c_str(), &old) == 0;
    if (!exists && errno != ENOENT) {
        return fail("find");
    }
    try {
        return exists && !S_ISREG(old.st_mode)
                   ? write_straight(path, content)
                   : replace_regular(path, exists ? &old : nullptr, content);
    } catch (const std::bad_alloc&) {
        return fail("create", ENOMEM);
    }
}

int file_replace(const std::string& path, std::span<const std::uint8_t> content) {
    return file_replace(path, content.size(), source_of(content));
}

int file_create(const std::string& path, std::span<const std::uint8_t> content, FileSync sync) {
    const int created = create_nameless(path, content, sync);
    if (created != NO_NAMELESS) {
        return created;
    }
    const FileSource source = source_of(content);
    try {
        return replace_regular(path, nullptr, {content.size(), source, true});
    } catch (const std::bad_alloc&) {
        return fail("create", ENOMEM);
    }
}

int file_replace(const std::string& path, std::string_view content) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
    return file_replace(path, std::span(bytes, content.size()));
}

} // namespace kx
