// Image handles: host files through the C library, held images through the stub's image blocks,
// and the arithmetic from linear offsets to places on a 1541 disc.
#include "link/image_private.h"

#include "core/active_config.h"
#include "core/file_type_ids.h"
#include "link/stub.h"
#include "ui/msg.h"
#include "util/file.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kx {

namespace {

struct State {
    std::weak_ptr<std::FILE> last; // gone when its handle closes it
    bool (*fault)(bool writing) = nullptr;
};
State state;

bool fails(bool writing) {
    if (state.fault == nullptr || !state.fault(writing)) {
        return false;
    }
    errno = EIO;
    return true;
}

bool range_is_inside(std::int64_t offset, std::size_t length, std::int64_t limit) {
    return offset >= 0 && offset < limit && length <= static_cast<std::size_t>(limit - offset);
}

/// Meant: only where a read begins is compared with the limit, not where it ends.
bool may_read_at(std::int64_t offset, std::int64_t limit) {
    return offset >= 0 && offset < limit;
}

// Straight to the descriptor: what a stream could not write would wait in its buffer, and be
// written after all, over what was put back.

int host_read(std::FILE* file, std::span<std::uint8_t> bytes, std::int64_t offset) {
    while (!bytes.empty()) {
        const ssize_t done =
            fails(false) ? -1 : pread(fileno(file), bytes.data(), bytes.size(), offset);
        if (done <= 0 && !(done < 0 && errno == EINTR)) {
            return -1;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(done, 0)));
        offset += std::max<ssize_t>(done, 0);
    }
    return 1;
}

int host_write(std::FILE* file, std::span<const std::uint8_t> bytes, std::int64_t offset) {
    while (!bytes.empty()) {
        const ssize_t done =
            fails(true) ? -1 : pwrite(fileno(file), bytes.data(), bytes.size(), offset);
        if (done < 0 && errno != EINTR) {
            return -1;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(done, 0)));
        offset += std::max<ssize_t>(done, 0);
    }
    return 1;
}

bool memory_has(const ImageHandle& image, std::int64_t offset, std::size_t length) {
    return range_is_inside(offset, length, static_cast<std::int64_t>(image.memory->size()));
}

/// A held image can be reached only through the one stub that has commands for it, and it must be
/// a D64 for its offsets to have places.
bool held_is_reachable(const ImageHandle& image) {
    return image.type == FILETYPE_D64 && active_config.stub == TARGET_C64RR;
}

/// Cuts a held transfer of `length` bytes at `offset` into commands: `transfer` gets each one's
/// place, first byte and length.
template <typename Transfer>
int for_each_chunk(std::size_t length, std::int64_t offset, const char* verb, Transfer transfer) {
    if (!range_is_inside(offset, length, IMAGE_HELD_LIMIT)) {
        return -1;
    }
    std::size_t done = 0;
    for (;;) {
        const std::size_t chunk = std::min<std::size_t>(IMAGE_BLOCK_BYTES, length - done);
        const std::int64_t from = offset + static_cast<std::int64_t>(done);
        ImagePlace place;
        if (image_place(from, place) != 1) {
            return 1; // behind the disc's last byte the closing command has no place to name
        }
        msg_info("%s offs:%d == trk:%d sec:%d off:%d len:%d", verb, static_cast<int>(from),
                 place.track, place.sector, place.byte, static_cast<int>(chunk));
        if (transfer(place, done, chunk) != 1) {
            return -1;
        }
        done += chunk;
        // Meant: a length that is a multiple of 256 ends with a command of 0 bytes.
        if (chunk < IMAGE_BLOCK_BYTES) {
            return 1;
        }
    }
}

} // namespace

void image_set_fault(bool (*fault)(bool writing)) {
    state.fault = fault;
}

void image_reset() {
    state = {};
}

int image_place(std::int64_t offset, ImagePlace& place) {
    if (offset < 0 || offset >= IMAGE_HELD_LIMIT) {
        return -1;
    }
    const int block = static_cast<int>(offset / IMAGE_BLOCK_BYTES);
    int track = 1;
    while (block >= d64_sectors_before(track + 1)) {
        track++;
    }
    place = {track, block - d64_sectors_before(track),
             static_cast<int>(offset % IMAGE_BLOCK_BYTES)};
    return 1;
}

int target_imgopen(ImageHandle& image, const std::string& path, bool writing) {
    if (image.held) {
        return 1;
    }
    image.file = file_open(path, writing ? "r+b" : "rb");
    if (!image.file) {
        msg_error("failed to open image '%s' for %s.", path.c_str(),
                  writing ? "writing" : "reading");
        return -1;
    }
    state.last = image.file;
    return 1;
}

int target_imglock(ImageHandle& image, const std::string& path) {
    // Whoever had the lock before may have put a new file in the locked one's place.
    for (int tries = 0; tries < 8; tries++) {
        if (flock(fileno(image.file.get()), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            return -1;
        }
        if (image_is_file(image, path)) {
            return 1;
        }
        const bool was_last = state.last.lock() == image.file;
        image.file = file_open(path, "r+b");
        if (!image.file) {
            return -1;
        }
        if (was_last) {
            state.last = image.file;
        }
    }
    errno = EWOULDBLOCK;
    return -1;
}

bool image_is_file(const ImageHandle& image, const std::string& path) {
    struct stat opened = {};
    struct stat named = {};
    return image.file && fstat(fileno(image.file.get()), &opened) == 0 &&
           stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

std::int64_t image_size(const ImageHandle& image) {
    if (image.held) {
        return IMAGE_HELD_LIMIT;
    }
    if (image.memory) {
        return static_cast<std::int64_t>(image.memory->size());
    }
    return image.file ? file_size(image.file.get()) : 0;
}

void target_imgclose(ImageHandle& image) {
    image.file.reset();
    image.memory.reset();
}

int target_imgread(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset) {
    if (image.held) {
        return kx_d64img_readblock(image, bytes, offset);
    }
    if (image.memory) {
        if (!memory_has(image, offset, bytes.size())) {
            return -1;
        }
        std::copy_n(image.memory->begin() + offset, bytes.size(), bytes.begin());
        return 1;
    }
    if (!image.file || !may_read_at(offset, image.access_limit)) {
        return -1;
    }
    return host_read(image.file.get(), bytes, offset);
}

int target_imgwrite(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset) {
    if (image.held) {
        return kx_d64img_writeblock(image, bytes, offset);
    }
    if (image.memory) {
        if (!memory_has(image, offset, bytes.size())) {
            return -1;
        }
        std::copy(bytes.begin(), bytes.end(), image.memory->begin() + offset);
        return 1;
    }
    if (!image.file || offset < 0) {
        return -1;
    }
    return host_write(image.file.get(), bytes, offset);
}

int target_imgreadfchunk(ImageHandle& image, std::FILE* file, std::int64_t offset, long length) {
    if (length < 0 || offset < 0 || length > image_size(image) - offset) {
        return -1;
    }
    // What the target holds is read as one: its commands depend on the length.
    constexpr long PIECE = 0x10000;
    std::vector<std::uint8_t> buffer(
        static_cast<std::size_t>(image.held ? length : std::min(PIECE, length)));
    ImageHandle source = image;
    long done = 0;
    do {
        const auto piece = std::span(buffer).first(
            std::min(buffer.size(), static_cast<std::size_t>(length - done)));
        if (target_imgread(source, piece, offset + done) != 1) {
            return -1;
        }
        source.access_limit = std::numeric_limits<std::int64_t>::max(); // it has begun below it
        if (!piece.empty() && std::fwrite(piece.data(), 1, piece.size(), file) != piece.size()) {
            return -1;
        }
        done += static_cast<long>(piece.size());
    } while (done < length);
    return std::fflush(file) == 0 ? 1 : -1;
}

int target_imgwritefchunk(ImageHandle& image, std::FILE* file, std::int64_t offset, long length) {
    msg_info("target_imgwritefchunk\n");
    if (image.held) {
        msg_info("kx_d64img_writefchunk\n");
    }
    std::vector<std::uint8_t> bytes;
    if (length < 0 || file_read_bytes(file, static_cast<std::uint64_t>(length), bytes) != 0) {
        return -1;
    }
    return target_imgwrite(image, bytes, offset);
}

int kx_d64img_readblock(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset) {
    if (!held_is_reachable(image)) {
        return -1;
    }
    return for_each_chunk(bytes.size(), offset, "read",
                          [&](const ImagePlace& place, std::size_t from, std::size_t length) {
                              return stub_read_image(place, bytes.subspan(from, length));
                          });
}

int kx_d64img_writeblock(ImageHandle& image, std::span<const std::uint8_t> bytes,
                         std::int64_t offset) {
    msg_info("kx_d64img_writeblock\n");
    if (!held_is_reachable(image)) {
        return -1;
    }
    return for_each_chunk(bytes.size(), offset, "write",
                          [&](const ImagePlace& place, std::size_t from, std::size_t length) {
                              return stub_write_image(place, bytes.subspan(from, length));
                          });
}

int image_file_read(std::int64_t offset, std::span<std::uint8_t> bytes) {
    const std::shared_ptr<std::FILE> file = state.last.lock();
    if (!file || !may_read_at(offset, IMAGE_ACCESS_LIMIT)) {
        return -1;
    }
    return host_read(file.get(), bytes, offset);
}

int image_file_write(std::int64_t offset, std::span<const std::uint8_t> bytes) {
    const std::shared_ptr<std::FILE> file = state.last.lock();
    if (!file || offset < 0) {
        return -1;
    }
    return host_write(file.get(), bytes, offset);
}

} // namespace kx
