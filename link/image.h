// Image handles: disc images as host files, or held by the target and reached through the stub.
#pragma once

#include "ini/file.h"

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace kx {

/// Kind of a disc image: 0 to 3 have 1541 geometry; 8 marks one held by the target, which uses it
/// too.
constexpr int IMAGE_KIND_D64 = 0;
constexpr int IMAGE_KIND_HELD = 8;

/// Host images are not accessed from this offset on. Odd, and kept.
constexpr std::int64_t IMAGE_ACCESS_LIMIT = 0x57057FFF;

/// Bytes of a 1541 image of 41 tracks and a half: offsets from here on are refused on the link.
constexpr std::int64_t IMAGE_HELD_LIMIT = 256 * 785;

struct ImageHandle {
    FilePtr file; // null when closed or held by the target
    bool held = false;
    int type = 0; // file type identifier; 22 is a D64
    int kind = IMAGE_KIND_D64;
    std::int64_t access_limit = IMAGE_ACCESS_LIMIT;
};

/// Sectors of the tracks before `track` (1 to 43) on a 1541 disc.
int d64_sectors_before(int track);

/// Track (from 1), sector and byte of a linear offset. 1; -1 for an offset outside the disc.
struct ImagePlace {
    int track = 1;
    int sector = 0;
    int byte = 0;
};
int image_place(std::int64_t offset, ImagePlace& place);

/// Opens the file; a held image succeeds at once. 1, or -1 with an error message.
int target_imgopen(ImageHandle& image, const std::string& path, bool writing);

/// Closes what was opened.
void target_imgclose(ImageHandle& image);

/// Bytes from or to an offset of the image. 1, or -1 when not all could be transferred.
int target_imgread(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset);
int target_imgwrite(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset);

/// `length` bytes from the image at `offset` to the file at its position, or the other way.
int target_imgreadfchunk(ImageHandle& image, std::FILE* file, std::int64_t offset, long length);
int target_imgwritefchunk(ImageHandle& image, std::FILE* file, std::int64_t offset, long length);

/// The transfers of a held image, in chunks of 256 bytes.
int kx_d64img_readblock(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset);
int kx_d64img_writeblock(ImageHandle& image, std::span<const std::uint8_t> bytes,
                         std::int64_t offset);

} // namespace kx
