// Files of the host.
#include "tools/host.h"

#include "tools/global.h"
#include "tools/report.h"
#include "util/ascii.h"
#include "util/fd.h"
#include "util/file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::size_t PIECE = 65536;

std::string shown_path(const std::string& path, const char* standard) {
    return path == "-" ? standard : path;
}

/// Throws away what stands before `offset`. False when reading failed.
bool skip(std::FILE* file, std::uint64_t offset) {
    if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0) {
        return true;
    }
    std::vector<std::uint8_t> piece(PIECE);
    while (offset > 0) {
        const std::size_t wanted = std::min<std::uint64_t>(offset, piece.size());
        const long count = file_read(file, std::span(piece).first(wanted));
        if (count <= 0) {
            return count == 0;
        }
        offset -= static_cast<std::uint64_t>(count);
    }
    return true;
}

/// Until the file has bytes, or none will come: a FIFO's writer may be still to come.
void wait_for_bytes(int fd) {
    pollfd ready = {.fd = fd, .events = POLLIN, .revents = 0};
    poll(&ready, 1, -1);
}

/// 0, -1 with errno.
int read_pieces(std::FILE* file, std::uint64_t length, std::vector<std::uint8_t>& bytes) {
    while (bytes.size() < length) {
        const std::size_t had = bytes.size();
        bytes.resize(had + std::min<std::uint64_t>(length - had, PIECE));
        const long count = file_read(file, std::span(bytes).subspan(had));
        bytes.resize(had + static_cast<std::size_t>(std::max(count, 0L)));
        if (count <= 0) {
            return static_cast<int>(count);
        }
    }
    return 0;
}

} // namespace

int host_read(const std::string& path, std::vector<std::uint8_t>& bytes) {
    const int status = host_read_part(path, 0, HOST_FILE_MAX + 1, bytes);
    if (status == 0 && bytes.size() > HOST_FILE_MAX) {
        return report_fail(KxError::HostFile, path + ": above 64 MiB, too large");
    }
    return status;
}

int host_read_part(const std::string& path, std::uint64_t offset, std::uint64_t length,
                   std::vector<std::uint8_t>& bytes) {
    bytes.clear();
    const bool standard = path == "-";
    const FilePtr file(standard ? fdopen(dup(STDIN_FILENO), "rb")
                                : file_open(path, "rb").release());
    if (file != nullptr) {
        wait_for_bytes(fileno(file.get()));
    }
    if (file == nullptr || !skip(file.get(), offset) ||
        read_pieces(file.get(), length, bytes) != 0) {
        return host_fail(shown_path(path, "standard input"),
                         standard ? errno : file_last_error().error);
    }
    return 0;
}

int host_open(const std::string& path, FilePtr& file) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) {
        file = file_open(path, "rb");
        return file != nullptr ? 0 : host_fail(path, file_last_error().error);
    }
    std::vector<std::uint8_t> bytes;
    if (const int status = host_read(path, bytes)) {
        return status;
    }
    file.reset(std::tmpfile());
    const bool copied = file != nullptr &&
                        std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
                        std::fflush(file.get()) == 0;
    return copied ? 0 : host_fail(path, errno);
}

int host_copy(const std::string& path) {
    const bool standard = path == "-";
    const FilePtr file = standard ? nullptr : file_open(path, "rb");
    if (!standard && file == nullptr) {
        return host_fail(path, file_last_error().error);
    }
    const int from = standard ? STDIN_FILENO : fileno(file.get());
    wait_for_bytes(from);
    std::vector<std::uint8_t> piece(PIECE);
    for (;;) {
        const ssize_t count = read(from, piece.data(), piece.size());
        if (count == 0) {
            return 0;
        }
        if (count < 0 && errno != EINTR) {
            return host_fail(shown_path(path, "standard input"), errno);
        }
        const auto taken = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        if (fd_write_all(STDOUT_FILENO, std::span(piece).first(taken)) != 0) {
            return host_fail("standard output", errno);
        }
    }
}

int host_may_write(const std::string& path, bool replace) {
    struct stat status = {};
    if (path == "-") {
        return 0;
    }
    if (!replace && lstat(path.c_str(), &status) == 0) { // also a link to nothing
        if (S_ISLNK(status.st_mode)) {
            stat(path.c_str(), &status);
        }
        if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) {
            return host_fail(path, EEXIST);
        }
    }
    return file_can_write(path) ? 0 : host_fail(path, file_last_error().error);
}

int host_write(const std::string& path, std::span<const std::uint8_t> bytes, bool replace) {
    if (path == "-") {
        std::fflush(stdout);
        return fd_write_all(STDOUT_FILENO, bytes) == 0 ? 0 : host_fail("standard output", errno);
    }
    const bool is_new =
        access(path.c_str(), F_OK) != 0; // looked at first: what comes since is kept
    if (const int status = host_may_write(path, replace)) {
        return status;
    }
    if (globals.dry_run) {
        report_held_off();
        return 0;
    }
    return (is_new && !replace ? file_create(path, bytes) : file_replace(path, bytes)) == 0
               ? 0
               : host_fail(path, file_last_error().error);
}

int host_fail(const std::string& path, int error) {
    if (error == EEXIST) {
        return report_fail(KxError::Exists, path + " exists", "-f replaces it");
    }
    const KxError code = error == ENOENT ? KxError::NotFound : KxError::HostFile;
    return report_fail(code, host_why(path, error));
}

std::string host_why(const std::string& path, int error) {
    return path + ": " + std::strerror(error);
}

std::string host_name(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

std::string host_ending(const std::string& path) {
    const std::string name = host_name(path);
    const std::size_t dot = name.find_last_of('.');
    std::string ending = dot == std::string::npos ? "" : name.substr(dot + 1);
    std::ranges::transform(ending, ending.begin(), ascii_to_lower);
    return ending;
}

} // namespace kx
