// Blocks of a 1541 disc: where they are, reading and writing them with changes gathered in
// memory, the map of free ones, and the chains that link them.
#include "files/d64_private.h"

#include "util/file.h"

#include <algorithm>
#include <bit>
#include <bitset>
#include <map>

namespace kx {

D64State d64_state;

namespace {

struct {
    bool gathering = false;
    std::map<std::int64_t, D64Block> blocks; // changed ones, by offset
} changes;

// In the header block, track 18 sector 0 (image offset 91392): the map of tracks 1 to 35, and what
// is taken for the map of tracks 36 to 42.
constexpr std::int64_t MAP_OFFSET = 91392 + 4;
constexpr std::int64_t HIGH_MAP_OFFSET = 91392 + 0xB1;
constexpr std::size_t MAP_BYTES = std::size_t{4} * D64_MAP_TRACKS;

std::int64_t block_start(std::int64_t offset) {
    return offset - offset % static_cast<std::int64_t>(D64_BLOCK_BYTES);
}

bool is_on_dir_track(std::int64_t offset) {
    const std::int64_t first = std::int64_t{256} * d64_sectors_before(D64_DIR_TRACK);
    const std::int64_t behind = std::int64_t{256} * d64_sectors_before(D64_DIR_TRACK + 1);
    return offset >= first && offset < behind;
}

/// The four bytes of a track: the count of free sectors, then a bit for each.
std::uint8_t* map_of(int track) {
    return &d64_state.map[static_cast<std::size_t>(track - 1) * 4];
}

} // namespace

int d64_sectors(int track) {
    return track >= 1 && track <= D64_TRACKS
               ? d64_sectors_before(track + 1) - d64_sectors_before(track)
               : 0;
}

bool d64_is_on_disc(D64Place place) {
    return place.sector >= 0 && place.sector < d64_sectors(place.track);
}

int d64_block_number(D64Place place) {
    return d64_sectors_before(place.track) + place.sector;
}

std::int64_t d64_block_offset(const ImageHandle& image, D64Place place) {
    // The first four kinds have the geometry, and so has a D64 held by the target. For any other
    // every block is at 0; this is meant.
    const bool has_geometry = image.kind < 4 || image.kind == IMAGE_KIND_HELD;
    return has_geometry ? std::int64_t{256} * d64_block_number(place) : 0;
}

std::int64_t d64_image_size(const ImageHandle& image) {
    if (image.held) {
        return IMAGE_HELD_LIMIT;
    }
    return image.file ? file_size(image.file.get()) : 0;
}

int d64_read(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset) {
    const auto changed = changes.blocks.find(block_start(offset));
    if (changed == changes.blocks.end()) {
        return target_imgread(image, bytes, offset);
    }
    std::copy_n(changed->second.begin() + (offset - changed->first), bytes.size(), bytes.begin());
    return 1;
}

int d64_write(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset) {
    // A host file would grow.
    if (offset + static_cast<std::int64_t>(bytes.size()) > d64_image_size(image)) {
        return -1;
    }
    if (!changes.gathering) {
        return target_imgwrite(image, bytes, offset);
    }
    const std::int64_t start = block_start(offset);
    D64Block block;
    if (bytes.size() < block.size() && d64_read(image, block, start) != 1) {
        return -1;
    }
    std::copy(bytes.begin(), bytes.end(), block.begin() + (offset - start));
    changes.blocks[start] = block;
    return 1;
}

void d64_gather_changes() {
    changes.gathering = true;
    changes.blocks.clear();
}

int d64_commit_changes(ImageHandle& image) {
    std::vector<std::pair<std::int64_t, D64Block>> old;
    bool good = true;
    // The directory track comes last: until then the new blocks are free ones to everybody.
    for (const bool dir_track : {false, true}) {
        for (const auto& [offset, block] : changes.blocks) {
            if (is_on_dir_track(offset) != dir_track || !good) {
                continue;
            }
            // Over the link only what means something is read back for the worst case.
            if (dir_track || !image.held) {
                D64Block before;
                good = target_imgread(image, before, offset) == 1;
                old.emplace_back(offset, before);
            }
            good = good && target_imgwrite(image, block, offset) == 1;
        }
    }
    for (std::size_t i = old.size(); !good && i > 0; i--) {
        target_imgwrite(image, old[i - 1].second, old[i - 1].first);
    }
    return good ? 1 : -1;
}

void d64_drop_changes() {
    changes = {};
}

bool d64_is_free(D64Place place) {
    return (map_of(place.track)[1 + place.sector / 8] & 1 << place.sector % 8) != 0;
}

void d64_set_free(D64Place place, bool free) {
    std::uint8_t* map = map_of(place.track);
    const int bit = 1 << place.sector % 8;
    std::uint8_t& byte = map[1 + place.sector / 8];
    byte = static_cast<std::uint8_t>(free ? byte | bit : byte & ~bit);
    // Without the drive's rules the counts stay stale; this is meant.
    if (d64_rules().keeps_counts) {
        map[0] = static_cast<std::uint8_t>(d64_free_by_bits(place.track));
    }
}

int d64_free_by_bits(int track) {
    int count = 0;
    for (int sector = 0; sector < d64_sectors(track); sector++) {
        count += d64_is_free({track, sector}) ? 1 : 0;
    }
    return count;
}

int d64_free_by_count(int track) {
    return map_of(track)[0];
}

void d64_read_map(ImageHandle& image) {
    const std::span<std::uint8_t> map(d64_state.map);
    if (target_imgread(image, map.first(MAP_BYTES), MAP_OFFSET) != 1 ||
        target_imgread(image, map.subspan(MAP_BYTES), HIGH_MAP_OFFSET) != 1) {
        d64_state.map = {};
    }
}

int d64_write_map(ImageHandle& image) {
    return d64_write(image, std::span(d64_state.map).first(MAP_BYTES), MAP_OFFSET);
}

const char* d64_chain_fault(D64ChainEnd end) {
    switch (end) {
    case D64ChainEnd::System:
        return "runs into the directory";
    case D64ChainEnd::Outside:
        return "leaves the disc";
    case D64ChainEnd::Loop:
        return "runs in a circle";
    case D64ChainEnd::Unreadable:
        return "leads to a block that cannot be read";
    default:
        return "is whole";
    }
}

D64ChainEnd d64_walk_chain(ImageHandle& image, D64Place start, const D64Visitor& visit) {
    std::bitset<D64_BLOCKS> visited;
    // Track 0 is no block in a link, so in an entry neither: it has none.
    for (D64Place place = start; place.track != 0;) {
        if (place == D64_HEADER || place == D64_FIRST_DIR) {
            return D64ChainEnd::System;
        }
        if (!d64_is_on_disc(place)) {
            return D64ChainEnd::Outside;
        }
        const auto number = static_cast<std::size_t>(d64_block_number(place));
        if (visited[number]) {
            return D64ChainEnd::Loop;
        }
        visited.set(number);
        std::uint8_t bytes[2];
        if (d64_read(image, bytes, d64_block_offset(image, place)) != 1) {
            return D64ChainEnd::Unreadable;
        }
        const D64Place link = {bytes[0], bytes[1]};
        if (!visit(place, link)) {
            return D64ChainEnd::Stopped;
        }
        place = link;
    }
    return D64ChainEnd::Marked;
}

D64ChainEnd d64_walk_directory(ImageHandle& image,
                               const std::function<void(D64Place, const D64Block&)>& visit) {
    std::bitset<D64_BLOCKS> visited;
    D64Place place = D64_FIRST_DIR;
    D64Block block;
    do {
        if (!d64_is_on_disc(place)) {
            return place.track == 0 ? D64ChainEnd::Marked : D64ChainEnd::Outside;
        }
        const auto number = static_cast<std::size_t>(d64_block_number(place));
        if (visited[number]) {
            return D64ChainEnd::Loop;
        }
        visited.set(number);
        if (d64_read(image, block, d64_block_offset(image, place)) != 1) {
            return D64ChainEnd::Unreadable;
        }
        visit(place, block);
        place = {block[0], block[1]};
        // The sector ends the directory whatever the track; this is meant.
    } while (place.sector != D64_DIR_END);
    return D64ChainEnd::Marked;
}

} // namespace kx
