// Image handles: disc images as host files, or held by the target and reached through the stub.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kx {

/// Kind of a disc image: 0 to 3 have 1541 geometry; 8 marks one held by the target, which uses it
/// too.
constexpr int IMAGE_KIND_D64 = 0;
constexpr int IMAGE_KIND_HELD = 8;

/// Host images are not read from this offset on.
/// Meant: it is odd.
constexpr std::int64_t IMAGE_ACCESS_LIMIT = 0x57057FFF;

/// Bytes of a block, which is a sector of a 1541 disc.
constexpr std::int64_t IMAGE_BLOCK_BYTES = 256;

/// Tracks of a 1541 disc with the same number of sectors, up to and including `last`.
struct ImageZone {
    int last;
    int sectors;
};
constexpr ImageZone image_zones[] = {{17, 21}, {24, 19}, {30, 18}, {42, 17}};

/// Sectors of the tracks before `track` (1 to 43) on a 1541 disc; 0 for any other track.
constexpr int d64_sectors_before(int track) {
    int sectors = 0;
    int first = 1;
    for (const ImageZone& zone : image_zones) {
        sectors += zone.sectors * std::clamp(track - first, 0, zone.last - first + 1);
        first = zone.last + 1;
    }
    return track <= first ? sectors : 0;
}

/// Bytes of a 1541 image of 41 tracks: offsets from here on are refused on the link.
constexpr std::int64_t IMAGE_HELD_LIMIT = IMAGE_BLOCK_BYTES * d64_sectors_before(42);

/// A place on a 1541 disc.
struct ImagePlace {
    int track = 0; // from 1; 0 for none
    int sector = 0;
    int byte = 0; // within the sector
    bool operator==(const ImagePlace&) const = default;
};

/// What the file system of a 1541 image keeps of it.
struct D64Disc;

/// Copies of a handle share all that is behind a pointer.
struct ImageHandle {
    std::shared_ptr<std::FILE> file; // null when closed or held by the target
    bool held = false;
    int type = 0; // file type identifier
    int kind = IMAGE_KIND_D64;
    std::int64_t access_limit = IMAGE_ACCESS_LIMIT;
    // The image's bytes when it is worked on in memory; `file` is then left alone.
    std::shared_ptr<std::vector<std::uint8_t>> memory = nullptr;
    std::shared_ptr<D64Disc> disc = nullptr; // from the first reading of the directory on
};

/// Track (from 1), sector and byte of a linear offset. 1; -1, and `place` untouched, for an
/// offset below 0 or from IMAGE_HELD_LIMIT on.
int image_place(std::int64_t offset, ImagePlace& place);

/// Opens the file; a held image succeeds at once. 1, or -1 with an error message and the handle
/// closed. A file opened here is the one that memory access goes to in image mode, until another
/// one is opened or this one is closed.
int target_imgopen(ImageHandle& image, const std::string& path, bool writing);

/// Locks a file that was opened for writing, at `path`: nobody else can then do the same. When the
/// name has come to lead to another file meanwhile, that one is opened and locked. 1, or -1 with
/// errno, which is EWOULDBLOCK when somebody else has the lock. On a file system without locks
/// everybody gets it. The lock goes with the handle's file.
int target_imglock(ImageHandle& image, const std::string& path);

/// Whether `path` leads to the image's file.
bool image_is_file(const ImageHandle& image, const std::string& path);

/// Bytes of the image: of a held one those that can be reached, 0 when none is open.
std::int64_t image_size(const ImageHandle& image);

/// Closes what was opened.
void target_imgclose(ImageHandle& image);

/// Bytes from or to an offset of the image. 1, or -1 when not all could be transferred: also for
/// an image that is not open, for a held one that is no D64, and for reading from the access limit
/// on. An image in memory does not grow.
int target_imgread(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset);
int target_imgwrite(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset);

/// `length` bytes from the image at `offset` to the file at its position, or the other way. 1;
/// -1, and nothing sent to the target, for a negative length or a file that ends too early. A host
/// file's bytes go a piece at a time: a copy that fails half-way leaves a part in the file.
int target_imgreadfchunk(ImageHandle& image, std::FILE* file, std::int64_t offset, long length);
int target_imgwritefchunk(ImageHandle& image, std::FILE* file, std::int64_t offset, long length);

/// The transfers of a held image: a command for each 256 bytes and one for what remains, which is
/// also sent when nothing does. 1, or -1; a range that leaves the disc sends nothing.
int kx_d64img_readblock(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset);
int kx_d64img_writeblock(ImageHandle& image, std::span<const std::uint8_t> bytes,
                         std::int64_t offset);

/// Bytes of the image file opened last; 1, or -1 when there is none or not all were transferred.
int image_file_read(std::int64_t offset, std::span<std::uint8_t> bytes);
int image_file_write(std::int64_t offset, std::span<const std::uint8_t> bytes);

} // namespace kx
