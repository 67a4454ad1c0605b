// Opening paths that cannot lead out of a directory: by openat2, or by a walk of our own.
#include "fileserver/beneath_private.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kx {

namespace {

constexpr int LINKS_MAX = 40; // on one way, as the kernel has it
constexpr int TRIES_MAX = 16; // of a way on which others are renaming directories

HostFd fail(int error) {
    errno = error;
    return HostFd();
}

/// Takes the first name off `path`. A path that ends in a slash ends in ".": what is before it
/// must be a directory.
std::string take_name(std::string& path) {
    const std::size_t slash = path.find('/');
    std::string name = path.substr(0, slash);
    if (slash == std::string::npos) {
        path.clear();
        return name;
    }
    path.erase(0, path.find_first_not_of('/', slash));
    if (path.empty()) {
        path = ".";
    }
    return name;
}

/// Where the link `name` leads; empty when it is none.
std::string link_target(int dir, const std::string& name) {
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(dir, name.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

} // namespace

HostFd beneath_open_kernel(int root, const std::string& path, int flags, mode_t mode) {
    // openat2 has an error for what open ignores: flags beside O_PATH, a mode that is not used.
    if ((flags & O_PATH) != 0) {
        flags &= O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    } else {
        flags |= O_LARGEFILE;
    }
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    open_how how = {};
    how.flags = static_cast<unsigned>(flags);
    how.mode = creates ? mode : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    long fd = -1;
    for (int tries = 0; tries < TRIES_MAX; tries++) {
        fd = ::syscall(SYS_openat2, root, path.c_str(), &how, sizeof how);
        if (fd >= 0 || errno != EAGAIN) {
            break;
        }
    }
    return HostFd(static_cast<int>(fd));
}

HostFd beneath_open_walk(int root, const std::string& path, int flags, mode_t mode) {
    std::vector<HostFd> entered; // the directories below the root on the way, so that ".." is ours
    std::string rest = path;
    const bool follows_last =
        (flags & O_NOFOLLOW) == 0 && (flags & (O_CREAT | O_EXCL)) != (O_CREAT | O_EXCL);
    for (int links = 0; links <= LINKS_MAX;) {
        const bool absolute = rest.starts_with('/');
        const std::string name = take_name(rest);
        const bool last = rest.empty();
        if (absolute || (name == ".." && entered.empty())) {
            return fail(EXDEV);
        }
        if (name == "..") {
            entered.pop_back();
            rest = last ? "." : rest;
            continue;
        }
        if (name == "." && !last) {
            continue;
        }
        const int dir = entered.empty() ? root : entered.back().get();
        const std::string target = last && !follows_last ? "" : link_target(dir, name);
        if (!target.empty()) {
            rest.insert(0, last ? target : target + "/");
            links++;
            continue;
        }
        // A link that takes the name's place meanwhile fails: neither opening follows one.
        if (last) {
            return HostFd(::openat(dir, name.c_str(), flags | O_NOFOLLOW, mode));
        }
        HostFd next(::openat(dir, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next) {
            return next;
        }
        entered.push_back(std::move(next));
    }
    return fail(ELOOP);
}

BeneathOpen beneath_open_for(int root) {
    return beneath_open_kernel(root, ".", O_PATH | O_CLOEXEC, 0) ? beneath_open_kernel
                                                                 : beneath_open_walk;
}

} // namespace kx
