// The host's disc as the target may use it: within the root, without writing when that is
// forbidden, and never with a descriptor that is the servers' own.
#include "fileserver/host_files_private.h"

#include "core/active_config.h"
#include "fileserver/beneath_private.h"
#include "fileserver/fileserver.h"
#include "fileserver/request_private.h"
#include "link/serial.h"
#include "util/ascii.h"
#include "util/file.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <unistd.h>
#include <utility>

namespace kx {

namespace {

struct State {
    std::string root_name; // the setting that `root` was opened for
    HostFd root;
    std::string root_path; // its real path; empty for "/", so that a slash follows in any case
    BeneathOpen open = nullptr;
    bool force_walk = false;
    std::set<int> handles; // what host_open gave and host_close has not closed
};
State state;

// What open(2) knows, on which the target's flags are cut: it ignores the rest, openat2 does not.
constexpr int OPEN_FLAGS = O_ACCMODE | O_CREAT | O_EXCL | O_NOCTTY | O_TRUNC | O_APPEND |
                           O_NONBLOCK | O_SYNC | O_DSYNC | O_DIRECT | O_LARGEFILE | O_DIRECTORY |
                           O_NOFOLLOW | O_NOATIME | O_CLOEXEC | O_PATH | O_TMPFILE;
constexpr int ALWAYS_FLAGS = O_CLOEXEC | O_NOCTTY | O_NONBLOCK; // a pipe must not stop the opening
constexpr mode_t HANDLE_MODE = 0644;
constexpr mode_t FILE_MODE = 0666;
constexpr mode_t DIRECTORY_MODE = 0700;
constexpr int LOG_PATH_MAX = 160; // characters of a path in a log line, so that its end stays

/// What all HostFd hold. The first of them makes the set, so that it outlives them all.
std::set<int>& owned_fds() {
    static std::set<int> fds;
    return fds;
}

void log_refusal(const std::string& what, const char* reason) {
    request_note(std::string("refused: ") + reason);
    fileserver_log("KX> refused: %.*s: %s\n\r", LOG_PATH_MAX, ascii_escape(what).c_str(), reason);
}

/// 0 or -1, as the system's call gave it, with its reason noted.
int noted(int result) {
    if (result != 0) {
        request_note_errno();
    }
    return result;
}

bool has_root() {
    return !active_config.fileserver_root.empty();
}

/// Opens the root unless it is open and still there; false with errno when it cannot be. It is
/// tried again with each request: the disc may be mounted later.
bool open_root() {
    const std::string& name = active_config.fileserver_root;
    struct stat status = {};
    if (state.root && state.root_name == name && ::fstat(state.root.get(), &status) == 0 &&
        status.st_nlink > 0) {
        return true;
    }
    std::error_code error;
    state.root_name = name;
    state.root_path = std::filesystem::canonical(name, error).string();
    state.root = HostFd(::open(state.root_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!state.root) {
        errno = error ? error.value() : errno;
        return false;
    }
    state.open = state.force_walk ? beneath_open_walk : beneath_open_for(state.root.get());
    if (state.root_path == "/") {
        state.root_path.clear();
    }
    return true;
}

bool root_is_open(const std::string& path) {
    if (!open_root()) {
        log_refusal(path, "the served directory cannot be opened");
        return false;
    }
    return true;
}

/// What an absolute path is below the root; false when it does not begin with the root's own.
bool path_below_root(const std::string& path, std::string& below) {
    const std::size_t length = state.root_path.size();
    if (!path.starts_with(state.root_path) || (path.size() > length && path[length] != '/')) {
        return false;
    }
    const std::size_t start = path.find_first_not_of('/', length);
    below = start == std::string::npos ? "." : path.substr(start);
    return true;
}

/// Where the program's current directory is below the root. When it is outside or gone, the
/// program moves into the root.
std::string program_place() {
    std::error_code error;
    const std::string current = std::filesystem::current_path(error).string();
    std::string below;
    if (!error && path_below_root(current, below)) {
        return below;
    }
    if (::fchdir(state.root.get()) != 0) {
        log_refusal(current, "cannot leave it for the served directory");
    }
    return ".";
}

/// Opens a path of the target below the root. None with errno EXDEV when it leads out.
HostFd open_below_root(const char* target_path, int flags, mode_t mode) {
    const std::string path = target_path; // a zero byte within has ended it, as it does elsewhere
    if (path.empty()) {                   // and not the current directory
        errno = ENOENT;
        return HostFd();
    }
    std::string below;
    if (!path.starts_with('/')) {
        below = program_place() + "/" + path;
    } else if (!path_below_root(path, below)) {
        errno = EXDEV;
        return HostFd();
    }
    return state.open(state.root.get(), below, flags, mode);
}

/// Opens a path of the target, for the one that it asked for, which a refusal names.
HostFd open_path_for(const std::string& asked, const std::string& path, int flags, mode_t mode) {
    if (!has_root()) {
        return HostFd(::open(path.c_str(), flags, mode));
    }
    if (!root_is_open(asked)) {
        return HostFd();
    }
    HostFd fd = open_below_root(path.c_str(), flags, mode);
    if (!fd && errno == EXDEV) {
        host_log_hidden(asked);
    }
    return fd;
}

HostFd open_path(const std::string& path, int flags, mode_t mode = 0) {
    return open_path_for(path, path, flags, mode);
}

/// Opens what reading or writing cannot wait for. Standard descriptors that happened to be closed
/// are not given out either: messages would go into the file.
HostFd open_file(const std::string& path, int flags, mode_t mode, struct stat& status) {
    HostFd fd = open_path(path, flags | ALWAYS_FLAGS, mode);
    if (!fd) {
        return fd;
    }
    if (fd.get() <= STDERR_FILENO || ::fstat(fd.get(), &status) != 0 || S_ISFIFO(status.st_mode) ||
        S_ISSOCK(status.st_mode) || ::isatty(fd.get()) != 0) {
        errno = ENODEV;
        return HostFd();
    }
    return fd;
}

/// The directory that holds the last name of `path`, which goes into `name`, as mkdirat and
/// unlinkat want it.
HostFd open_parent(const char* target_path, std::string& name) {
    const std::string path = target_path;
    const std::size_t end = path.find_last_not_of('/');
    std::string parent = path.substr(0, end == std::string::npos ? 0 : end + 1);
    const std::size_t slash = parent.rfind('/');
    name = parent.substr(slash == std::string::npos ? 0 : slash + 1);
    if (name == "..") { // is looked up like all others; "." can be neither made nor removed
        name = ".";
    } else if (slash == std::string::npos) {
        parent = name.empty() ? "" : ".";
    } else {
        parent.resize(slash + 1);
    }
    return open_path_for(path, parent, O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
}

} // namespace

HostFd::HostFd(int fd) : fd_(fd) {
    std::set<int>& fds = owned_fds();
    if (fd_.is_open()) {
        fds.insert(fd);
    }
}

HostFd& HostFd::operator=(HostFd&& other) noexcept {
    release_name();
    fd_ = std::move(other.fd_);
    return *this;
}

int HostFd::release() {
    release_name();
    return fd_.release();
}

void HostFd::release_name() {
    if (fd_.is_open()) {
        owned_fds().erase(fd_.get());
    }
}

bool HostFd::holds(int fd) {
    return owned_fds().contains(fd);
}

int host_open_root() {
    return !has_root() || open_root() ? 0 : -1;
}

int host_open(const std::string& path, std::uint32_t flags) {
    const int wanted = static_cast<int>(flags) & OPEN_FLAGS;
    // Reading alone empties a file as well with O_TRUNC, and 3 is an access mode of its own.
    const int writes = O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);
    if (((wanted & O_ACCMODE) != O_RDONLY || (wanted & writes) != 0) && host_refuses_write(path)) {
        return -1;
    }
    struct stat status = {};
    HostFd fd = open_file(path, wanted, HANDLE_MODE, status);
    if (!fd) {
        return noted(-1);
    }
    const int kept = ::fcntl(fd.get(), F_GETFL);
    if ((wanted & O_NONBLOCK) == 0 && kept != -1) {
        ::fcntl(fd.get(), F_SETFL, kept & ~O_NONBLOCK);
    }
    state.handles.insert(fd.get());
    return fd.release();
}

bool host_is_handle(std::int32_t handle) {
    if (handle <= STDERR_FILENO || serial_holds(handle) || HostFd::holds(handle)) {
        return false;
    }
    if (has_root() && !state.handles.contains(handle)) {
        return false;
    }
    return ::fcntl(handle, F_GETFD) != -1;
}

int host_close(std::int32_t handle) {
    if (!host_is_handle(handle)) {
        return -1;
    }
    state.handles.erase(handle);
    return ::close(handle);
}

bool host_refuses_write(const std::string& what) {
    if (active_config.fileserver_read_only) {
        log_refusal(what, "read-only");
    }
    return active_config.fileserver_read_only;
}

HostFd host_open_file(const std::string& path, std::uint32_t& size, std::uint32_t max_size) {
    struct stat status = {};
    HostFd fd = open_file(path, O_RDONLY, 0, status);
    if (!fd) {
        noted(-1);
        return fd;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > max_size) {
        request_note(S_ISREG(status.st_mode) ? "too large" : "not a file");
        return HostFd();
    }
    request_event().file = path;
    size = static_cast<std::uint32_t>(status.st_size);
    return fd;
}

HostSave::HostSave(const std::string& path) {
    if (host_refuses_write(path)) {
        return;
    }
    aside_.reset(std::tmpfile());
    if (!aside_) {
        noted(-1);
        return;
    }
    struct stat status = {};
    HostFd file = open_file(path, O_WRONLY | O_CREAT | O_EXCL, FILE_MODE, status);
    const bool made = static_cast<bool>(file);
    if (!made && errno == EEXIST) { // or is a link, through which a file may be made: that stays
        file = open_file(path, O_WRONLY | O_CREAT, FILE_MODE, status);
    }
    noted(file ? 0 : -1);
    request_event().file = path;
    if (file) {
        const std::string link = "/proc/self/fd/" + std::to_string(file.get());
        char real[PATH_MAX];
        const ssize_t length = ::readlink(link.c_str(), real, sizeof real);
        path_.assign(real, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    if (made) { // it can be made, and will be when it is whole
        ::unlink(path_.c_str());
    }
}

int HostSave::replace() {
    const off_t size = ::lseek(fd(), 0, SEEK_END);
    const auto source = [this](std::uint64_t offset, std::span<std::uint8_t> bytes) {
        const auto at = static_cast<off_t>(offset);
        return ::pread(fd(), bytes.data(), bytes.size(), at) == static_cast<ssize_t>(bytes.size());
    };
    if (size >= 0 && file_replace(path_, static_cast<std::uint64_t>(size), source) != 0) {
        errno = file_last_error().error;
        return noted(-1);
    }
    return noted(size < 0 ? -1 : 0);
}

int host_chdir(const std::string& path) {
    if (!has_root()) {
        return noted(::chdir(path.c_str()));
    }
    const HostFd directory = open_path(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    return noted(directory ? ::fchdir(directory.get()) : -1);
}

int host_mkdir(const std::string& path) {
    if (host_refuses_write(path)) {
        return -1;
    }
    if (!has_root()) {
        return noted(::mkdir(path.c_str(), DIRECTORY_MODE));
    }
    std::string name;
    const HostFd parent = open_parent(path.c_str(), name);
    return noted(parent ? ::mkdirat(parent.get(), name.c_str(), DIRECTORY_MODE) : -1);
}

int host_rmdir(const std::string& path) {
    if (host_refuses_write(path)) {
        return -1;
    }
    if (!has_root()) {
        return noted(::rmdir(path.c_str()));
    }
    std::string name;
    const HostFd parent = open_parent(path.c_str(), name);
    return noted(parent ? ::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) : -1);
}

int host_getcwd(std::string& path, std::size_t size) {
    if (has_root()) {
        if (!root_is_open(".")) {
            return -1;
        }
        program_place();
    }
    std::error_code error;
    const std::string current = std::filesystem::current_path(error).string();
    if (error || current.size() >= size) {
        return -1;
    }
    path = current;
    return 0;
}

void host_log_hidden(const std::string& name) {
    log_refusal(name, "not in the served directory");
}

HostDirectory::~HostDirectory() {
    close();
}

bool HostDirectory::open() {
    close();
    HostFd fd = open_path(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    stream_ = fd ? ::fdopendir(fd.get()) : nullptr;
    if (stream_ == nullptr) {
        noted(-1);
        return false;
    }
    fd_ = std::move(fd);
    place_ = has_root() ? program_place() : "";
    return true;
}

void HostDirectory::close() {
    fd_.release();
    if (stream_ != nullptr) {
        ::closedir(std::exchange(stream_, nullptr));
    }
}

bool HostDirectory::read(std::string& name) {
    const dirent* entry = stream_ != nullptr ? ::readdir(stream_) : nullptr;
    if (entry == nullptr) {
        return false;
    }
    name = entry->d_name;
    return true;
}

HostStat HostDirectory::stat(const std::string& name, struct stat& status) const {
    const int flags = has_root() ? AT_SYMLINK_NOFOLLOW : 0;
    if (::fstatat(fd_.get(), name.c_str(), &status, flags) != 0) {
        return HostStat::Failed;
    }
    if (!has_root() || (!S_ISLNK(status.st_mode) && name != "..")) {
        return HostStat::Found;
    }
    // What leads away from here, from where the directory was when it was opened.
    if (!state.root) {
        return HostStat::Failed;
    }
    const HostFd entry = state.open(state.root.get(), place_ + "/" + name, O_PATH | O_CLOEXEC, 0);
    if (!entry) {
        return errno == EXDEV ? HostStat::Hidden : HostStat::Failed;
    }
    return ::fstat(entry.get(), &status) == 0 ? HostStat::Found : HostStat::Failed;
}

void host_files_reset() {
    state = {};
}

void host_files_force_walk(bool force) {
    state.force_walk = force;
}

} // namespace kx
