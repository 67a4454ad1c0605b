// The host's disc as the target may use it. Every path and every descriptor that comes from the
// target goes through here, so that the settings `fileserver_root` and `fileserver_read_only` of
// the active configuration hold for all servers alike.
//
// With a root set, a path counts from the host's current directory when that lies in the root and
// from the root otherwise; an absolute path is one inside the root by the root's own name. What
// leads out of it, by "..", by a link or otherwise, is refused; so is everything when the root
// itself cannot be opened. What is refused fails as a file that is not there and leaves a log
// line.
#pragma once

#include "util/fd.h"
#include "util/file.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <string>
#include <sys/stat.h>

namespace kx {

/// Owner of a descriptor that the servers use themselves. As long as it lives the target cannot
/// name the descriptor as a handle.
class HostFd {
public:
    HostFd() : HostFd(-1) {}
    explicit HostFd(int fd); // takes it over; -1 for none
    ~HostFd() { release_name(); }
    HostFd(HostFd&& other) noexcept = default;
    HostFd& operator=(HostFd&& other) noexcept;

    int get() const { return fd_.get(); }
    explicit operator bool() const { return fd_.is_open(); }

    /// Hands the descriptor to the caller.
    int release();

    /// Whether any owner holds this descriptor.
    static bool holds(int fd);

private:
    void release_name(); // the target may have the descriptor from here on

    Fd fd_;
};

/// Opens the root, when there is one: 0, or -1 with errno. Each request does so by itself.
int host_open_root();

/// Opens for the target, with its flags as open(2) numbers them; a new file gets 0644 less the
/// umask. The descriptor, which is the target's from here on, or -1. Pipes, sockets and terminals
/// fail: they would stop the server.
int host_open(const std::string& path, std::uint32_t flags);

/// Whether the target may use the descriptor as a handle: an open one, but not 0, 1, 2, a serial
/// line's or one that the servers use themselves. With a root set, only what `host_open` gave.
bool host_is_handle(std::int32_t handle);

/// Closes a handle: 0 or -1.
int host_close(std::int32_t handle);

/// Whether `fileserver_read_only` forbids writing; logs the refusal of `what` when it does.
bool host_refuses_write(const std::string& what);

/// Opens a regular file for reading. None when it cannot be had or has more than `max_size` bytes.
HostFd host_open_file(const std::string& path, std::uint32_t& size,
                      std::uint32_t max_size = 0xFFFFFFFF);

/// A file that the target saves. What comes is kept aside, so that a save that is cut short leaves
/// the file as it was, or none where there was none.
class HostSave {
public:
    /// Finds out whether the file can be made, with 0666 less the umask, or written: false when
    /// not. What is there stays until `replace`.
    explicit HostSave(const std::string& path);
    HostSave(const HostSave&) = delete;
    HostSave& operator=(const HostSave&) = delete;
    explicit operator bool() const { return !path_.empty(); }

    /// Where the bytes go meanwhile.
    int fd() const { return ::fileno(aside_.get()); }

    /// Puts what came in the file's place, whole. 0, or -1 when that cannot be, and then the file
    /// is as before.
    int replace();

private:
    std::string path_; // absolute, without links
    FilePtr aside_;
};

/// As chdir, mkdir (0700) and rmdir: 0 or -1. The change of directory lasts, for the whole
/// program.
int host_chdir(const std::string& path);
int host_mkdir(const std::string& path);
int host_rmdir(const std::string& path);

/// The current directory into `path`: 0; -1 when it has gone or takes more than `size` bytes with
/// its zero byte.
int host_getcwd(std::string& path, std::size_t size);

/// Logs that the root keeps a name from the target: for a search that found nothing else.
void host_log_hidden(const std::string& name);

/// What `HostDirectory::stat` found out.
enum class HostStat { Found, Failed, Hidden };

/// A directory being read.
class HostDirectory {
public:
    HostDirectory() = default;
    ~HostDirectory();
    HostDirectory(const HostDirectory&) = delete;
    HostDirectory& operator=(const HostDirectory&) = delete;

    /// Starts over with the current directory; false when it cannot be read. One that was open
    /// before is closed first.
    bool open();
    void close();

    /// The next name in the host's order, "." and ".." among them; false at the end, and when
    /// nothing is open.
    bool read(std::string& name);

    /// The status of an entry, by its link's target. Hidden: the root keeps it from the target.
    HostStat stat(const std::string& name, struct stat& status) const;

private:
    HostFd fd_; // of stream_, which closes it
    DIR* stream_ = nullptr;
    std::string place_; // below the root, when there is one
};

/// Forgets the root and which handles the target has opened.
void host_files_reset();

/// For tests: keeps paths in the root as where the kernel cannot, from the next opening of the root
/// to the next reset.
void host_files_force_walk(bool force);

} // namespace kx
