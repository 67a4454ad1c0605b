// Blocks of a 1541 disc: where they are, reading and writing them with changes gathered in memory,
// and the map of free ones.
#include "files/d64_private.h"

#include "ui/msg.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kx {

namespace {

std::int64_t block_start(std::int64_t offset) {
    return offset - offset % IMAGE_BLOCK_BYTES;
}

/// The map's bytes of a track; null when it is not known which of its blocks are free.
std::uint8_t* map_of(ImageHandle& image, int track) {
    D64Disc& disc = d64_disc(image);
    if (track <= D64_MAP_TRACKS || !d64_rules(disc).drive) {
        return &disc.map[static_cast<std::size_t>(track - 1) * D64_TRACK_MAP_BYTES];
    }
    const int index = track - D64_MAP_TRACKS - 1;
    return track <= d64_map_tracks(image)
               ? &disc.extended[static_cast<std::size_t>(index) * D64_TRACK_MAP_BYTES]
               : nullptr;
}

bool bit_is_set(const std::uint8_t* map, int sector) {
    return (map[1 + sector / 8] & 1 << sector % 8) != 0;
}

int count_bits(const std::uint8_t* map, int track) {
    const int sectors = disc_sectors(track);
    int count = 0;
    for (int sector = 0; sector < sectors; sector++) {
        count += bit_is_set(map, sector) ? 1 : 0;
    }
    return count;
}

/// Whether these bytes can be the map of tracks 36 to 40: counts that fit their bits, not all 0.
bool is_extended_map(std::span<const std::uint8_t> bytes) {
    bool any = false;
    for (int track = D64_MAP_TRACKS + 1; track <= D64_EXTENDED_TRACKS; track++) {
        const int index = track - D64_MAP_TRACKS - 1;
        const std::uint8_t* map = &bytes[static_cast<std::size_t>(index) * D64_TRACK_MAP_BYTES];
        if (map[0] != count_bits(map, track)) {
            return false;
        }
        any = any || map[0] != 0;
    }
    return any;
}

void find_extended_map(ImageHandle& image, D64Disc& disc) {
    disc.extended_known = true;
    if (image_size(image) < IMAGE_BLOCK_BYTES * d64_sectors_before(D64_EXTENDED_TRACKS + 1)) {
        return;
    }
    for (const std::size_t at : {D64_SPEEDDOS_AT, D64_DOLPHIN_AT}) {
        std::array<std::uint8_t, D64_EXTENDED_BYTES> bytes;
        if (d64_read(image, bytes, D64_HEADER_OFFSET + static_cast<std::int64_t>(at)) == 1 &&
            is_extended_map(bytes)) {
            disc.extended = bytes;
            disc.extended_at = at;
            return;
        }
    }
}

/// When a block is written: files' blocks and new ones of the directory first, while nothing names
/// them, then the map and the directory in the order that the change wants.
int phase(const D64Disc& before, D64Change kind, std::int64_t offset, const ImageHandle& image) {
    if (offset == D64_HEADER_OFFSET) {
        return kind == D64Change::Adds ? 1 : 2;
    }
    const bool named =
        std::any_of(before.directory.begin(), before.directory.end(),
                    [&](ImagePlace place) { return d64_block_offset(image, place) == offset; });
    return !named ? 0 : kind == D64Change::Adds ? 2 : 1;
}

/// A block that was written is a good one again, if the image keeps errors.
int clear_error(ImageHandle& image, std::int64_t offset) {
    bool error_bytes = false;
    const int tracks = d64_tracks_of_size(image_size(image), error_bytes);
    if (image.held || !error_bytes) {
        return 1;
    }
    constexpr std::uint8_t good = 1;
    std::uint8_t error = 0;
    const std::int64_t at =
        IMAGE_BLOCK_BYTES * d64_sectors_before(tracks + 1) + offset / IMAGE_BLOCK_BYTES;
    if (target_imgread(image, {&error, 1}, at) != 1) {
        return -1;
    }
    return error <= good ? 1 : target_imgwrite(image, {&good, 1}, at);
}

/// Writes what was gathered to the image, the block that is named last at last. 1, or -1 with what
/// was written already put back as far as possible.
int commit(ImageHandle& image, const D64Disc& before, D64Change kind) {
    D64Disc& disc = d64_disc(image);
    std::vector<std::pair<std::int64_t, D64Block>> old;
    bool good = true;
    for (int pass = 0; pass < 3; pass++) {
        for (const auto& [offset, block] : disc.changes) {
            if (!good || phase(before, kind, offset, image) != pass) {
                continue;
            }
            // Over the link only what means something is read back for the worst case.
            if (pass > 0 || !image.held) {
                D64Block there;
                good = target_imgread(image, there, offset) == 1;
                if (!good) {
                    continue;
                }
                old.emplace_back(offset, there);
            }
            good = target_imgwrite(image, block, offset) == 1 && clear_error(image, offset) == 1;
        }
    }
    good = good && (!image.file || image.memory || fsync(fileno(image.file.get())) == 0);
    for (std::size_t i = old.size(); !good && i > 0; i--) {
        target_imgwrite(image, old[i - 1].second, old[i - 1].first);
    }
    return good ? 1 : d64_fail_host(image, "the image could not be written");
}

/// What the named operations say; other reasons are told by their text.
const char* fixed_message(DiscReason reason) {
    switch (reason) {
    case DiscReason::NoFile:
        return "file does not exist.";
    case DiscReason::Exists:
        return "file exists.";
    case DiscReason::NoRoom:
        return "image full.";
    case DiscReason::Locked:
        return "file is locked.";
    default:
        return nullptr;
    }
}

} // namespace

int d64_fail(ImageHandle& image, DiscReason reason, const char* format, ...) {
    D64Disc& disc = d64_disc(image);
    va_list args;
    va_start(args, format);
    const std::string text = text_vprintf(format, args);
    va_end(args);
    if (disc.failure != nullptr) {
        *disc.failure = {.reason = reason, .error = 0, .text = text};
    } else if (const char* message = fixed_message(reason)) {
        msg_error("%s", message);
    } else if (d64_rules(disc).drive) {
        msg_error("%s", text.c_str());
    } else {
        msg_warning("%s", text.c_str());
    }
    return -1;
}

int d64_fail_host(ImageHandle& image, const std::string& what) {
    const int error = errno;
    if (DiscFailure* failure = d64_disc(image).failure) {
        const std::string why = error != 0 ? std::string(": ") + strerror(error) : "";
        *failure = {.reason = DiscReason::Host, .error = error, .text = what + why + "."};
    }
    return -1;
}

int disc_sectors(int track) {
    return track >= 1 && track <= D64_TRACKS
               ? d64_sectors_before(track + 1) - d64_sectors_before(track)
               : 0;
}

bool d64_is_on_disc(ImagePlace place) {
    return place.sector >= 0 && place.sector < disc_sectors(place.track);
}

int d64_block_number(ImagePlace place) {
    return d64_sectors_before(place.track) + place.sector;
}

std::int64_t d64_block_offset(const ImageHandle& image, ImagePlace place) {
    // Meant: the first four kinds have the geometry, and so has a D64 held by the target. For any
    // other every block is at 0.
    const bool has_geometry = image.kind < 4 || image.kind == IMAGE_KIND_HELD;
    return has_geometry ? IMAGE_BLOCK_BYTES * d64_block_number(place) : 0;
}

int d64_tracks_of_size(std::int64_t bytes, bool& error_bytes) {
    for (const int tracks : {D64_MAP_TRACKS, D64_EXTENDED_TRACKS, D64_TRACKS}) {
        const int blocks = d64_sectors_before(tracks + 1);
        error_bytes = bytes == (IMAGE_BLOCK_BYTES + 1) * blocks;
        if (error_bytes || bytes == IMAGE_BLOCK_BYTES * blocks) {
            return tracks;
        }
    }
    return 0;
}

int d64_read(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset) {
    if (image.disc) {
        const auto changed = image.disc->changes.find(block_start(offset));
        if (changed != image.disc->changes.end()) {
            std::copy_n(changed->second.begin() + (offset - changed->first), bytes.size(),
                        bytes.begin());
            return 1;
        }
    }
    return target_imgread(image, bytes, offset);
}

int d64_write(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset) {
    // A host file would grow.
    if (offset + static_cast<std::int64_t>(bytes.size()) > image_size(image)) {
        return -1;
    }
    D64Disc& disc = d64_disc(image);
    if (!disc.gathering) {
        return target_imgwrite(image, bytes, offset);
    }
    const std::int64_t start = block_start(offset);
    D64Block block;
    if (bytes.size() < block.size() && d64_read(image, block, start) != 1) {
        return -1;
    }
    std::copy(bytes.begin(), bytes.end(), block.begin() + (offset - start));
    disc.changes[start] = block;
    return 1;
}

ImageHandle d64_snapshot(const ImageHandle& image) {
    ImageHandle copy = image;
    if (image.disc) {
        copy.disc = std::make_shared<D64Disc>(*image.disc);
    }
    if (image.held || image.memory || !image.file) {
        return copy;
    }
    // One byte more than 42 tracks: a last block may claim it.
    const std::int64_t most = IMAGE_BLOCK_BYTES * D64_BLOCKS + 1;
    const std::int64_t size = std::clamp<std::int64_t>(image_size(image), 0, most);
    auto bytes = std::make_shared<D64Bytes>(static_cast<std::size_t>(size));
    if (target_imgread(copy, *bytes, 0) == 1) {
        copy.memory = std::move(bytes);
    }
    return copy;
}

int d64_change(ImageHandle& image, D64Change kind, const std::function<int()>& change) {
    D64Disc& disc = d64_disc(image);
    if (!d64_rules(disc).drive) {
        const int result = change();
        if (result != 1) {
            d64_read_disc(image);
        }
        return result;
    }
    D64Disc before = disc;
    disc.gathering = true;
    int result = change();
    if (result == 1) {
        result = commit(image, before, kind);
    }
    if (result != 1) {
        disc = std::move(before);
    }
    disc.gathering = false;
    disc.changes.clear();
    return result;
}

int d64_map_tracks(ImageHandle& image) {
    D64Disc& disc = d64_disc(image);
    if (!d64_rules(disc).drive) {
        return D64_MAP_TRACKS;
    }
    if (!disc.extended_known) {
        find_extended_map(image, disc);
    }
    return disc.extended_at != 0 ? D64_EXTENDED_TRACKS : D64_MAP_TRACKS;
}

bool d64_is_free(ImageHandle& image, ImagePlace place) {
    const std::uint8_t* map = map_of(image, place.track);
    return map != nullptr && bit_is_set(map, place.sector);
}

bool d64_is_shown_free(const D64Disc& disc, ImagePlace place) {
    return bit_is_set(&disc.map[static_cast<std::size_t>(place.track - 1) * D64_TRACK_MAP_BYTES],
                      place.sector);
}

void d64_set_free(ImageHandle& image, ImagePlace place, bool free) {
    std::uint8_t* map = map_of(image, place.track);
    if (map == nullptr) {
        return;
    }
    const int bit = 1 << place.sector % 8;
    std::uint8_t& byte = map[1 + place.sector / 8];
    byte = static_cast<std::uint8_t>(free ? byte | bit : byte & ~bit);
    // Meant: without the drive's rules the counts stay stale.
    if (d64_rules(d64_disc(image)).drive) {
        map[0] = static_cast<std::uint8_t>(count_bits(map, place.track));
    }
}

void d64_clear_map(ImageHandle& image) {
    for (int track = 1; track <= d64_map_tracks(image); track++) {
        std::fill_n(map_of(image, track), D64_TRACK_MAP_BYTES, std::uint8_t{0});
        for (int sector = 0; sector < disc_sectors(track); sector++) {
            d64_set_free(image, {.track = track, .sector = sector}, true);
        }
    }
}

int d64_free_by_bits(ImageHandle& image, int track) {
    const std::uint8_t* map = map_of(image, track);
    return map != nullptr ? count_bits(map, track) : 0;
}

int d64_free_by_count(ImageHandle& image, int track) {
    const std::uint8_t* map = map_of(image, track);
    return map != nullptr ? map[0] : 0;
}

int d64_free_blocks(ImageHandle& image) {
    int free = 0;
    for (int track = 1; track <= d64_map_tracks(image); track++) {
        free += track != D64_DIR_TRACK ? d64_free_by_bits(image, track) : 0;
    }
    return free;
}

int d64_counted_free_blocks(ImageHandle& image) {
    int free = 0;
    for (int track = 1; track <= d64_map_tracks(image); track++) {
        free += track != D64_DIR_TRACK ? d64_free_by_count(image, track) : 0;
    }
    return free;
}

int d64_write_map(ImageHandle& image) {
    D64Disc& disc = d64_disc(image);
    const int result = d64_write(image, std::span(disc.map).first(D64_MAP_BYTES),
                                 D64_HEADER_OFFSET + static_cast<std::int64_t>(D64_MAP_AT));
    if (result != 1 || d64_map_tracks(image) == D64_MAP_TRACKS) {
        return result;
    }
    return d64_write(image, disc.extended,
                     D64_HEADER_OFFSET + static_cast<std::int64_t>(disc.extended_at));
}

} // namespace kx
