// What the files of the disc image file system share: d64_disc.cpp reaches blocks and map,
// d64_rules.cpp holds what sets the two modes apart, d64_dir.cpp the directory, d64_files.cpp
// extraction, writing and deletion, d64_check.cpp the check.
#pragma once

#include "files/d64.h"

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace kx {

constexpr int D64_TRACKS = 42;
constexpr int D64_MAP_TRACKS = 35; // whose map is written; files go nowhere else
constexpr int D64_DIR_TRACK = 18;
constexpr int D64_BLOCKS = 802;       // of 42 tracks
constexpr int D64_TOTAL_BLOCKS = 683; // of 35 tracks; the totals shown never change
constexpr int D64_FILE_BLOCKS = 664;  // without the directory track
constexpr std::size_t D64_BLOCK_BYTES = 256;
constexpr std::size_t D64_DATA_BYTES = 254; // a block without its link
constexpr std::size_t D64_SLOT_BYTES = 32;
constexpr int D64_DIR_END = 255; // link sector of the last directory block
constexpr int D64_TYPE_REL = 4;  // file type with side sectors

struct D64Place {
    int track = 0;
    int sector = 0;
    bool operator==(const D64Place&) const = default;
};
constexpr D64Place D64_HEADER = {D64_DIR_TRACK, 0};
constexpr D64Place D64_FIRST_DIR = {D64_DIR_TRACK, 1};

using D64Name = std::array<std::uint8_t, 16>;

/// A directory slot, used or not.
struct D64Entry {
    std::uint8_t raw_type = 0;
    int type = 0; // the low four bits
    bool locked = false;
    bool closed = false;
    D64Place start;
    D64Place side;                 // first side sector of a rel file
    std::int64_t start_offset = 0; // of the first block in the image
    D64Name name = {};             // as stored; zeros where it was padded
    std::string text;              // the name for listings
    std::string host_name;         // the name as a host file's: never leaves the directory
    int blocks = 0;
    std::int64_t slot_offset = 0;
};

/// The disc as it was read. Of the map's entries, four bytes a track, those of tracks 36 to 42
/// are only shown.
struct D64State {
    std::vector<D64Entry> entries;
    std::array<std::uint8_t, std::size_t{4}* D64_TRACKS> map = {};
    std::string disc_name;
    std::string disc_id;
};
extern D64State d64_state;

/// What sets the two modes apart; all that differs goes through here.
struct D64Rules {
    bool (*find_first)(D64Place& place);               // a free block for a file's first
    bool (*find_next)(D64Place from, D64Place& place); // and for one that follows
    D64Entry* (*free_slot)(ImageHandle& image);        // for a new file; null when there is none
    std::size_t (*last_bytes)(int sector);             // of a last block, by its link's sector
    bool marks_last;       // the last block's link says so, and an empty file has a block
    bool keeps_counts;     // the map's counts of free sectors follow its bits
    bool all_or_nothing;   // changes are gathered and reach the image in one go
    bool shows_scratched;  // a scratched slot is listed, extracted and counted as a file
    bool compares_codes;   // a name is found by its target codes as well
    bool protects;         // locked files and the directory's own blocks are not freed
    bool tells_type;       // "progbits changed"
    bool forgives_extract; // extraction of all files succeeds whatever happens
};
const D64Rules& d64_rules();

// Geometry.

/// Sectors of a track; 0 for a track that no disc has.
int d64_sectors(int track);
bool d64_is_on_disc(D64Place place);
/// Blocks before this one on the disc.
int d64_block_number(D64Place place);
/// In the image; 0 when the image's kind has no 1541 geometry.
std::int64_t d64_block_offset(const ImageHandle& image, D64Place place);
/// Bytes of the image that can be reached.
std::int64_t d64_image_size(const ImageHandle& image);

// Bytes of the disc. 1, or -1 when not all could be transferred; nothing is written beyond the
// image's end. A range that is written, or read while changes are gathered, lies in one block.
int d64_read(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset);
int d64_write(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset);

/// From gather to drop, writes stay in memory and reads see them. Commit writes them to the
/// image: 1, or -1 with what was written already put back as far as possible.
void d64_gather_changes();
int d64_commit_changes(ImageHandle& image);
void d64_drop_changes();

// The map in memory. A set bit is a free sector.

bool d64_is_free(D64Place place);
void d64_set_free(D64Place place, bool free);
int d64_free_by_bits(int track);       // by the map's bits
int d64_free_by_count(int track);      // by the map's count, which may be stale
void d64_read_map(ImageHandle& image); // all used when it cannot be read
int d64_write_map(ImageHandle& image);

// Chains.

enum class D64ChainEnd {
    Marked,     // at a link to track 0, or there was no first block
    System,     // in the header or the first directory block
    Outside,    // in a link that leaves the disc
    Loop,       // at a block visited before
    Unreadable, // at a block that the image lacks
    Stopped,    // by the visitor
};
/// "leaves the disc", for messages.
const char* d64_chain_fault(D64ChainEnd end);

/// Follows a file's chain; the visitor gets each block with its link and may stop it.
using D64Visitor = std::function<bool(D64Place place, D64Place link)>;
D64ChainEnd d64_walk_chain(ImageHandle& image, D64Place start, const D64Visitor& visit);

/// Follows the directory's chain with its blocks' bytes.
using D64Block = std::array<std::uint8_t, D64_BLOCK_BYTES>;
D64ChainEnd d64_walk_directory(ImageHandle& image,
                               const std::function<void(D64Place, const D64Block&)>& visit);

// Directory entries.

/// Target codes of a name, padded with zeros; only the first sixteen characters count.
D64Name d64_to_codes(const std::string& name);

/// Whether the entry stands for a file, or for one that was scratched if those are shown.
bool d64_is_shown(const D64Entry& entry);

/// Null when there is no such file. Valid until the directory grows or is read again.
D64Entry* d64_find(const std::string& name);

/// Adds a directory block's eight slots to the copy in memory.
void d64_add_slots(const ImageHandle& image, D64Place place, const D64Block& block);

/// Whether the block is one of the directory's.
bool d64_holds_slots(const ImageHandle& image, D64Place place);

/// Gives an entry a name in all its forms; the codes are stored padded.
void d64_set_name(D64Entry& entry, const D64Name& codes);

/// Writes type byte, start, name and size of the entry to its slot. 1 or -1.
int d64_write_slot(ImageHandle& image, D64Entry& entry);

} // namespace kx
