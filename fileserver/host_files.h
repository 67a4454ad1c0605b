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

#include <cstddef>
#include <cstdint>
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
    ~HostFd();
    HostFd(HostFd&& other) noexcept;
    HostFd& operator=(HostFd&& other) noexcept;
    HostFd(const HostFd&) = delete;
    HostFd& operator=(const HostFd&) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    /// Hands the descriptor to the caller.
    int release();

    /// Whether any owner holds this descriptor.
    static bool holds(int fd);

private:
    int fd_ = -1;
};

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

/// Makes or empties a file for writing, with 0666 less the umask. None when it cannot be had.
HostFd host_create_file(const std::string& path);

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
