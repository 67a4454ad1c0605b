// The two sets of rules by which discs are changed: the toolkit's own, and the drive's.
#include "files/d64_private.h"

#include <algorithm>

namespace kx {

int d64_dos_mode = 0;

namespace {

/// The first free sector of the track from `first` on.
bool find_from(ImageHandle& image, int track, int first, ImagePlace& place) {
    for (int sector = first; sector < disc_sectors(track); sector++) {
        if (d64_is_free(image, {.track = track, .sector = sector})) {
            place = {.track = track, .sector = sector};
            return true;
        }
    }
    return false;
}

// The toolkit's rules: the lowest free block of tracks 1 to 35 without the directory's, always
// upwards.

bool own_next(ImageHandle& image, ImagePlace from, ImagePlace& place) {
    for (int track = from.track; track <= D64_MAP_TRACKS; track++) {
        const int first = track == from.track ? from.sector : 0;
        if (track != D64_DIR_TRACK && find_from(image, track, first, place)) {
            return true;
        }
    }
    return false;
}

bool own_first(ImageHandle& image, ImagePlace& place) {
    return own_next(image, {.track = 1, .sector = 0}, place);
}

/// Meant: any slot that is not closed, also one of a file that was never finished.
DiscEntry* own_slot(ImageHandle& image) {
    for (DiscEntry& entry : d64_disc(image).entries) {
        if (!entry.closed) {
            return &entry;
        }
    }
    return nullptr;
}

/// Meant: one byte more than a drive counts, as files extracted so far have it.
std::size_t own_last_bytes(int sector) {
    return static_cast<std::size_t>(sector);
}

// The drive's rules.

constexpr int INTERLEAVE = 10;    // sectors from a block of a file to the next
constexpr int DIR_INTERLEAVE = 3; // and of the directory

/// On the first track with a free block, going outwards from the directory: 17, 19, 16, 20...
bool drive_first(ImageHandle& image, ImagePlace& place) {
    const int tracks = d64_map_tracks(image);
    for (int distance = 1; distance <= tracks - D64_DIR_TRACK; distance++) {
        if (find_from(image, D64_DIR_TRACK - distance, 0, place) ||
            find_from(image, D64_DIR_TRACK + distance, 0, place)) {
            return true;
        }
    }
    return false;
}

/// On one track, the interleave further. What passes the track's end comes in again one sector
/// lower, where there is one lower: the drive's own arithmetic.
bool find_interleaved(ImageHandle& image, int track, int sector, int interleave,
                      ImagePlace& place) {
    int first = sector + interleave;
    if (first >= disc_sectors(track)) {
        first -= disc_sectors(track);
        first -= first > 0 ? 1 : 0;
    }
    return find_from(image, track, first, place) || find_from(image, track, 0, place);
}

/// On the same track, then away from the directory, then outwards on the directory's other side,
/// and at last on this side again. A new side starts as if behind sector 0.
bool drive_next(ImageHandle& image, ImagePlace from, ImagePlace& place) {
    const int tracks = d64_map_tracks(image);
    int track = from.track;
    int sector = from.sector;
    for (int pass = 0; pass < 3; pass++) {
        const int step = track < D64_DIR_TRACK ? -1 : 1;
        for (; track >= 1 && track <= tracks; track += step) {
            if (find_interleaved(image, track, sector, INTERLEAVE, place)) {
                return true;
            }
        }
        track = D64_DIR_TRACK - step;
        sector = 0;
    }
    return false;
}

/// Adds a block of empty slots to the directory; false when it has as many as a drive takes, when
/// its track is full, or when it does not end, whole, on that track.
bool grow_directory(ImageHandle& image) {
    D64Disc& disc = d64_disc(image);
    ImagePlace place;
    if (disc.directory.empty() || disc.directory_end != D64ChainEnd::Marked ||
        disc.entries.size() >= D64_MOST_SLOTS) {
        return false;
    }
    const ImagePlace last = disc.directory.back();
    if (last.track != D64_DIR_TRACK ||
        !find_interleaved(image, last.track, last.sector, DIR_INTERLEAVE, place)) {
        return false;
    }
    const std::uint8_t link[] = {static_cast<std::uint8_t>(place.track),
                                 static_cast<std::uint8_t>(place.sector)};
    const D64Block block = {0, D64_DIR_END};
    if (d64_write(image, block, d64_block_offset(image, place)) != 1 ||
        d64_write(image, link, d64_block_offset(image, last)) != 1) {
        return false;
    }
    d64_set_free(image, place, false);
    d64_add_slots(image, place, block);
    return true;
}

/// A slot that was scratched or never used.
DiscEntry* drive_slot(ImageHandle& image) {
    D64Disc& disc = d64_disc(image);
    const auto free = std::find_if(disc.entries.begin(), disc.entries.end(),
                                   [](const DiscEntry& entry) { return entry.raw_type == 0; });
    const auto index = static_cast<std::size_t>(free - disc.entries.begin());
    if (index >= D64_MOST_SLOTS || (free == disc.entries.end() && !grow_directory(image))) {
        return nullptr;
    }
    return &disc.entries[index];
}

/// The sector is the index of the block's last used byte, of which the first two are the link.
std::size_t drive_last_bytes(int sector) {
    return sector > 1 ? static_cast<std::size_t>(sector - 1) : 0;
}

constexpr D64Rules own_rules = {
    .find_first = own_first,
    .find_next = own_next,
    .free_slot = own_slot,
    .last_bytes = own_last_bytes,
    .drive = false,
};

} // namespace

constexpr D64Rules d64_drive_rules = {
    .find_first = drive_first,
    .find_next = drive_next,
    .free_slot = drive_slot,
    .last_bytes = drive_last_bytes,
    .drive = true,
};

const D64Rules& d64_rules(const D64Disc& disc) {
    if (disc.rules != nullptr) {
        return *disc.rules;
    }
    return d64_dos_mode != 0 ? d64_drive_rules : own_rules;
}

} // namespace kx
