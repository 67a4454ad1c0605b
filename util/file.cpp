// Opening, measuring and safely replacing files.
#include "util/file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

namespace fs = std::filesystem;

/// A new file, removed again unless it was renamed to where it belongs.
struct Temporary {
    std::string path;
    FilePtr file; // null when the directory takes no new file

    explicit Temporary(const fs::path& directory) : path(directory / ".kxnew.XXXXXX") {
        const int fd = mkostemp(path.data(), O_CLOEXEC);
        if (fd < 0) {
            path.clear();
            return;
        }
        file.reset(fdopen(fd, "wb"));
        if (file == nullptr) {
            close(fd);
        }
    }
    ~Temporary() {
        if (!path.empty()) {
            unlink(path.c_str());
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
};

bool write_all(std::FILE* file, const std::string& content) {
    return std::fwrite(content.data(), 1, content.size(), file) == content.size() &&
           std::fflush(file) == 0;
}

/// A file system over a network may tell of a failed write only here.
bool close_checked(FilePtr file) {
    return std::fclose(file.release()) == 0;
}

/// Where a chain of symbolic links ends, whether a file is there or not.
std::string follow_links(fs::path path) {
    std::error_code error;
    for (int links = 0; links < 40 && fs::is_symlink(path, error); links++) {
        path = path.parent_path() / fs::read_symlink(path, error);
    }
    return path;
}

/// Gives the file at `fd` the owner and permissions of the file that it will replace, or those
/// of any new file when there is none. False when an old file's cannot be given.
bool set_status(int fd, const struct stat* old) {
    if (old == nullptr) {
        const mode_t mask = umask(0); // it can only be read by setting it
        umask(mask);
        // Refused where all files belong to the one who mounted them, as on a USB stick: then
        // they have the permissions that the mount gives them.
        (void)!fchmod(fd, 0666 & ~mask);
        return true;
    }
    struct stat now = {};
    if (fstat(fd, &now) != 0) {
        return false;
    }
    // The owner first: a change of owner may take permissions away.
    const bool same_owner = now.st_uid == old->st_uid && now.st_gid == old->st_gid;
    return (same_owner || fchown(fd, old->st_uid, old->st_gid) == 0) &&
           fchmod(fd, old->st_mode & 07777) == 0;
}

/// Writes over the old content, `old_size` bytes. The room is reserved first, so that a full disc
/// is found out before anything is lost.
int write_in_place(FilePtr file, off_t old_size, const std::string& content) {
    const int fd = fileno(file.get());
    const auto size = static_cast<off_t>(content.size());
    if (size > 0 && posix_fallocate(fd, 0, size) != 0) {
        (void)!ftruncate(fd, old_size); // a part of the room may have been added at the end
        return -1;
    }
    const bool written =
        write_all(file.get(), content) && ftruncate(fd, size) == 0 && fsync(fd) == 0;
    return close_checked(std::move(file)) && written ? 0 : -1;
}

/// For what has no old content to lose: devices and pipes.
int write_straight(const std::string& path, const std::string& content) {
    FilePtr file = file_open(path, "wb");
    if (file == nullptr) {
        return -1;
    }
    const bool written = write_all(file.get(), content);
    return close_checked(std::move(file)) && written ? 0 : -1;
}

} // namespace

FilePtr file_open(const std::string& path, const char* mode) {
    FilePtr file(std::fopen(path.c_str(), (std::string(mode) + "e").c_str()));
    struct stat status = {};
    // A directory can be opened for reading, and tells only at the first read that it is one.
    if (file != nullptr && (fstat(fileno(file.get()), &status) != 0 || S_ISDIR(status.st_mode))) {
        return nullptr;
    }
    return file;
}

bool file_can_write(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0) { // not opened: the reader of a pipe would see its end
        return !S_ISDIR(status.st_mode) && access(path.c_str(), W_OK) == 0;
    }
    const std::string target = follow_links(path); // of a link to nothing
    const bool can_make = file_open(target, "wbx") != nullptr;
    if (can_make) {
        unlink(target.c_str());
    }
    return can_make;
}

long file_size(std::FILE* file) {
    const long position = std::ftell(file);
    if (position < 0 || std::fseek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const long size = std::ftell(file);
    return std::fseek(file, position, SEEK_SET) == 0 ? size : -1;
}

int file_read_bytes(std::FILE* file, std::uint64_t length, std::vector<std::uint8_t>& bytes) {
    constexpr std::uint64_t PIECE = 0x10000;
    bytes.clear();
    while (bytes.size() < length) {
        const std::size_t have = bytes.size();
        const std::size_t wanted = std::min(PIECE, length - have);
        bytes.resize(have + wanted);
        const std::size_t got = std::fread(&bytes[have], 1, wanted, file);
        if (got != wanted) {
            bytes.resize(have + got);
            return -1;
        }
    }
    return 0;
}

int file_replace(const std::string& path, const std::string& content) {
    struct stat old = {};
    const bool exists = stat(path.c_str(), &old) == 0;
    if (!exists && errno != ENOENT) {
        return -1;
    }
    if (exists && !S_ISREG(old.st_mode)) {
        return write_straight(path, content);
    }
    // A read-only file in a writable directory could be replaced, but its owner does not want it:
    // opening it tells whether it may be written.
    FilePtr old_file = exists ? file_open(path, "rb+") : nullptr;
    if (exists && old_file == nullptr) {
        return -1;
    }
    const fs::path target = follow_links(path);
    Temporary temporary(target.parent_path());
    if (temporary.file != nullptr &&
        set_status(fileno(temporary.file.get()), exists ? &old : nullptr)) {
        if (!write_all(temporary.file.get(), content) || fsync(fileno(temporary.file.get())) != 0 ||
            !close_checked(std::move(temporary.file))) {
            return -1;
        }
        if (std::rename(temporary.path.c_str(), target.c_str()) == 0) {
            temporary.path.clear();
            return 0;
        }
    }
    // No new file can take the old one's place: the directory is not ours, or the file is a mount
    // point, or belongs to somebody else.
    return old_file != nullptr ? write_in_place(std::move(old_file), old.st_size, content) : -1;
}

} // namespace kx
