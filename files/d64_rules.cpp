// The two sets of rules by which discs are changed: the toolkit's own, and the drive's.
#include "files/d64_private.h"

namespace kx {

int d64_dos_mode = 0;

namespace {

/// The first free sector of the track from `first` on.
bool find_from(int track, int first, D64Place& place) {
    for (int sector = first; sector < d64_sectors(track); sector++) {
        if (d64_is_free({track, sector})) {
            place = {track, sector};
            return true;
        }
    }
    return false;
}

// The toolkit's rules: the lowest free block of tracks 1 to 35 without the directory's, always
// upwards.

bool own_next(D64Place from, D64Place& place) {
    for (int track = from.track; track <= D64_MAP_TRACKS; track++) {
        const int first = track == from.track ? from.sector : 0;
        if (track != D64_DIR_TRACK && find_from(track, first, place)) {
            return true;
        }
    }
    return false;
}

bool own_first(D64Place& place) {
    return own_next({1, 0}, place);
}

/// Any slot that is not closed: also one of a file that was never finished.
D64Entry* own_slot(ImageHandle&) {
    for (D64Entry& entry : d64_state.entries) {
        if (!entry.closed) {
            return &entry;
        }
    }
    return nullptr;
}

/// One byte more than a drive counts; this is meant, as files extracted so far have it.
std::size_t own_last_bytes(int sector) {
    return static_cast<std::size_t>(sector);
}

// The drive's rules.

constexpr int INTERLEAVE = 10;    // sectors from a block of a file to the next
constexpr int DIR_INTERLEAVE = 3; // and of the directory

/// On the first track with a free block, going outwards from the directory: 17, 19, 16, 20...
bool dos_first(D64Place& place) {
    for (int distance = 1; distance <= D64_MAP_TRACKS - D64_DIR_TRACK; distance++) {
        if (find_from(D64_DIR_TRACK - distance, 0, place) ||
            find_from(D64_DIR_TRACK + distance, 0, place)) {
            return true;
        }
    }
    return false;
}

/// On one track, the interleave further. What passes the track's end comes in again one sector
/// lower, where there is one lower: the drive's own arithmetic.
bool find_interleaved(int track, int sector, int interleave, D64Place& place) {
    int first = sector + interleave;
    if (first >= d64_sectors(track)) {
        first -= d64_sectors(track);
        first -= first > 0 ? 1 : 0;
    }
    return find_from(track, first, place) || find_from(track, 0, place);
}

/// On the same track, then away from the directory, then outwards on the directory's other side,
/// and at last on this side again. A new side starts as if behind sector 0.
bool dos_next(D64Place from, D64Place& place) {
    int track = from.track;
    int sector = from.sector;
    for (int pass = 0; pass < 3; pass++) {
        const int step = track < D64_DIR_TRACK ? -1 : 1;
        for (; track >= 1 && track <= D64_MAP_TRACKS; track += step) {
            if (find_interleaved(track, sector, INTERLEAVE, place)) {
                return true;
            }
        }
        track = D64_DIR_TRACK - step;
        sector = 0;
    }
    return false;
}

/// The place of the directory's last block, the one that its last slot is in.
D64Place last_dir_block(const ImageHandle& image) {
    for (int sector = 1; !d64_state.entries.empty() && sector < d64_sectors(D64_DIR_TRACK);
         sector++) {
        const std::int64_t start = d64_block_offset(image, {D64_DIR_TRACK, sector});
        const std::int64_t slot = d64_state.entries.back().slot_offset - start;
        if (slot >= 0 && slot < static_cast<std::int64_t>(D64_BLOCK_BYTES)) {
            return {D64_DIR_TRACK, sector};
        }
    }
    return {};
}

/// Marks header and directory as used: a damaged map may offer them as free.
void keep_dir_blocks(const ImageHandle& image) {
    for (int sector = 0; sector < d64_sectors(D64_DIR_TRACK); sector++) {
        const D64Place place = {D64_DIR_TRACK, sector};
        if (place == D64_HEADER || d64_holds_slots(image, place)) {
            d64_set_free(place, false);
        }
    }
}

/// Adds a block of empty slots to the directory; false when its track is full, or when the
/// directory ends on another one.
bool grow_directory(ImageHandle& image) {
    const D64Place last = last_dir_block(image);
    D64Place place;
    keep_dir_blocks(image);
    if (last.track == 0 || !find_interleaved(last.track, last.sector, DIR_INTERLEAVE, place)) {
        return false;
    }
    const std::uint8_t link[] = {static_cast<std::uint8_t>(place.track),
                                 static_cast<std::uint8_t>(place.sector)};
    D64Block block = {0, D64_DIR_END};
    if (d64_write(image, link, d64_block_offset(image, last)) != 1 ||
        d64_write(image, block, d64_block_offset(image, place)) != 1) {
        return false;
    }
    d64_set_free(place, false);
    d64_add_slots(image, place, block);
    return true;
}

/// A slot that was scratched or never used. What its last file left between name and size (side
/// sectors, record length) is cleared.
D64Entry* dos_slot(ImageHandle& image) {
    for (std::size_t i = 0; i < d64_state.entries.size() || grow_directory(image); i++) {
        D64Entry& entry = d64_state.entries[i];
        if (entry.raw_type == 0) {
            constexpr std::uint8_t nothing[9] = {};
            entry.side = {};
            return d64_write(image, nothing, entry.slot_offset + 21) == 1 ? &entry : nullptr;
        }
    }
    return nullptr;
}

/// The sector is the index of the block's last used byte, of which the first two are the link.
std::size_t dos_last_bytes(int sector) {
    return sector > 1 ? static_cast<std::size_t>(sector - 1) : 0;
}

constexpr D64Rules own_rules = {
    .find_first = own_first,
    .find_next = own_next,
    .free_slot = own_slot,
    .last_bytes = own_last_bytes,
    .marks_last = false,
    .keeps_counts = false,
    .all_or_nothing = false,
    .shows_scratched = true,
    .compares_codes = false,
    .protects = false,
    .tells_type = true,
    .forgives_extract = true,
};

constexpr D64Rules dos_rules = {
    .find_first = dos_first,
    .find_next = dos_next,
    .free_slot = dos_slot,
    .last_bytes = dos_last_bytes,
    .marks_last = true,
    .keeps_counts = true,
    .all_or_nothing = true,
    .shows_scratched = false,
    .compares_codes = true,
    .protects = true,
    .tells_type = false,
    .forgives_extract = false,
};

} // namespace

const D64Rules& d64_rules() {
    return d64_dos_mode != 0 ? dos_rules : own_rules;
}

} // namespace kx
