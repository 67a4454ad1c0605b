// What the files of the disc image file system share: d64_disc.cpp reaches blocks and map,
// d64_rules.cpp holds what sets the two modes apart, d64_dir.cpp the directory, d64_chain.cpp the
// chains and who owns which block, d64_files.cpp extraction, writing and deletion, d64_check.cpp
// check and repair, d64_list.cpp the listings. disc*.cpp put the functions of disc.h on them.
#pragma once

#include "files/d64.h"
#include "files/disc.h"

#include <array>
#include <bitset>
#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <vector>

namespace kx {

constexpr int D64_TRACKS = 42;
constexpr int D64_MAP_TRACKS = 35;      // whose map every disc has
constexpr int D64_EXTENDED_TRACKS = 40; // and those of a disc with an extended map
constexpr int D64_DIR_TRACK = 18;
constexpr int D64_BLOCKS = d64_sectors_before(D64_TRACKS + 1);
constexpr int D64_TOTAL_BLOCKS = d64_sectors_before(D64_MAP_TRACKS + 1); // whatever the tracks
constexpr int D64_FILE_BLOCKS =
    d64_sectors_before(D64_DIR_TRACK) + D64_TOTAL_BLOCKS - d64_sectors_before(D64_DIR_TRACK + 1);
constexpr std::size_t D64_BLOCK_BYTES = IMAGE_BLOCK_BYTES;
constexpr std::size_t D64_LINK_BYTES = 2;
constexpr std::size_t D64_DATA_BYTES = D64_BLOCK_BYTES - D64_LINK_BYTES;
constexpr int D64_DIR_END = 255; // link sector of the last directory block

constexpr ImagePlace D64_HEADER = {.track = D64_DIR_TRACK, .sector = 0};
constexpr ImagePlace D64_FIRST_DIR = {.track = D64_DIR_TRACK, .sector = 1};
constexpr std::int64_t D64_HEADER_OFFSET = IMAGE_BLOCK_BYTES * d64_sectors_before(D64_DIR_TRACK);

// Fields of the header block.
constexpr std::size_t D64_MAP_AT = 0x04;
constexpr std::size_t D64_NAME_AT = 0x90;
constexpr std::size_t D64_ID_AT = 0xA2;     // two characters, 0xA0, two of the DOS type
constexpr std::size_t D64_BORDER_AT = 0xAB; // where GEOS has its border block
constexpr std::size_t D64_GEOS_AT = 0xAD;   // "GEOS format"
constexpr std::size_t D64_SHOWN_MAP_AT = 0xB1;
constexpr std::size_t D64_ID_BYTES = 5;
constexpr std::size_t D64_TRACK_MAP_BYTES = 4; // a track's count of free sectors, and its bits
constexpr std::size_t D64_MAP_BYTES = D64_TRACK_MAP_BYTES * D64_MAP_TRACKS;
constexpr std::size_t D64_EXTENDED_BYTES =
    D64_TRACK_MAP_BYTES * (D64_EXTENDED_TRACKS - D64_MAP_TRACKS);
constexpr std::size_t D64_SPEEDDOS_AT = 0xC0; // extended maps, of tracks 36 to 40
constexpr std::size_t D64_DOLPHIN_AT = 0xAC;

// Fields of a slot. Its first two bytes are the block's link in its first slot, unused in others.
constexpr std::size_t D64_SLOT_BYTES = 32;
constexpr std::size_t D64_BLOCK_SLOTS = D64_BLOCK_BYTES / D64_SLOT_BYTES;
constexpr std::size_t D64_SLOT_TYPE = 2;
constexpr std::size_t D64_SLOT_START = 3;
constexpr std::size_t D64_SLOT_NAME = 5;
constexpr std::size_t D64_SLOT_SIDE = D64_SLOT_NAME + DiscName{}.size();
constexpr std::size_t D64_SLOT_RECORDS = D64_SLOT_SIDE + 2; // of GEOS: 1 for an index of records
constexpr std::size_t D64_SLOT_GEOS = D64_SLOT_SIDE + 3;    // its own file type
constexpr std::size_t D64_SLOT_BLOCKS = 30;
/// Most slots that a drive has room for: those of track 18 without the header.
constexpr std::size_t D64_MOST_SLOTS = 18 * D64_BLOCK_SLOTS;

constexpr std::uint8_t D64_TYPE_BITS = 0x0F;
constexpr std::uint8_t D64_LOCKED = 0x40;
constexpr std::uint8_t D64_CLOSED = 0x80;

using D64Block = std::array<std::uint8_t, D64_BLOCK_BYTES>;
using D64Bytes = std::vector<std::uint8_t>;

enum class D64ChainEnd {
    Marked,     // at a link to track 0, or there was no first block
    System,     // in the header or a directory block
    Outside,    // in a link that leaves the disc
    Loop,       // at a block visited before
    Unreadable, // at a block that the image lacks
    Long,       // where it has more blocks than there can be
    Stopped,    // by the visitor
};

struct D64Rules;

/// The disc as it was read.
struct D64Disc {
    std::vector<DiscEntry> entries;
    std::vector<ImagePlace> directory; // its blocks
    D64ChainEnd directory_end = D64ChainEnd::Marked;
    bool link_failed = false; // the link to the target, while reading: nothing more was read
    // Four bytes a track. Those of tracks 36 to 42 are for the printed map and the toolkit's rules.
    std::array<std::uint8_t, D64_TRACK_MAP_BYTES* D64_TRACKS> map = {};
    std::array<std::uint8_t, D64_EXTENDED_BYTES> extended = {}; // for the drive's rules
    std::size_t extended_at = 0;                                // in the header; 0: there is none
    bool extended_known = false; // it is looked for when it is needed
    std::string disc_name;
    std::string disc_id;

    const D64Rules* rules = nullptr; // null: `d64_dos_mode` decides at each call
    DiscFailure* failure = nullptr;  // takes the reasons of failures, which are then not told
    unsigned charset = 1;            // translation mode of names

    bool gathering = false;
    std::map<std::int64_t, D64Block> changes; // by offset
};

/// The record read last, an empty one when there is none.
const D64Disc& d64_last_disc();

/// The record of an image; its directory is read first when it never was.
D64Disc& d64_disc(ImageHandle& image);

/// What sets the two modes apart; all that differs goes through here.
struct D64Rules {
    bool (*find_first)(ImageHandle&, ImagePlace& place); // a free block for a file's first
    bool (*find_next)(ImageHandle&, ImagePlace from, ImagePlace& place); // for one that follows
    DiscEntry* (*free_slot)(ImageHandle& image); // for a new file; null when there is none
    std::size_t (*last_bytes)(int sector);       // of a last block, by its link's sector
    bool drive; // the drive's: what they write is whole, and nothing is lost on damaged discs
};
const D64Rules& d64_rules(const D64Disc& disc);
extern const D64Rules d64_drive_rules;

// Failures: -1. The reason goes to whoever wants it by the record. Otherwise it is told: by the
// fixed messages of the operations where they have one, other damage by a warning, and by the
// drive's rules by an error message.

int d64_fail(ImageHandle& image, DiscReason reason, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
/// With errno and what it means; never told.
int d64_fail_host(ImageHandle& image, const std::string& what);

// Geometry.

bool d64_is_on_disc(ImagePlace place);
/// Blocks before this one on the disc.
int d64_block_number(ImagePlace place);
/// In the image; 0 when the image's kind has no 1541 geometry.
std::int64_t d64_block_offset(const ImageHandle& image, ImagePlace place);
/// Tracks of an image of this size, 35, 40 or 42, when it is whole, else 0; whether error bytes,
/// one a block, follow the blocks.
int d64_tracks_of_size(std::int64_t bytes, bool& error_bytes);

// Bytes of the disc. 1, or -1 when not all could be transferred; nothing is written beyond the
// image's end. A range that is written, or read while changes are gathered, lies in one block.
int d64_read(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset);
int d64_write(ImageHandle& image, std::span<const std::uint8_t> bytes, std::int64_t offset);

/// The image as it stands, to be read in memory, with a record of its own; the image itself, when
/// the target holds it or it cannot be read as a whole.
ImageHandle d64_snapshot(const ImageHandle& image);

/// What is done to the disc in one go. Whoever is killed in between leaves all old files whole and
/// nothing that is listed free.
enum class D64Change {
    Adds, // the map takes blocks before the directory names them
    Frees // the directory forgets them before the map does
};

/// Runs a change of the disc. By the drive's rules one that fails leaves no trace, on the image as
/// in memory; otherwise what has been written stays, and what is in memory becomes the disc's
/// again.
int d64_change(ImageHandle& image, D64Change kind, const std::function<int()>& change);

// The map in memory. A set bit is a free sector.

bool d64_is_free(ImageHandle& image, ImagePlace place);
void d64_set_free(ImageHandle& image, ImagePlace place, bool free);
int d64_free_by_bits(ImageHandle& image, int track);  // by the map's bits
int d64_free_by_count(ImageHandle& image, int track); // by the map's count, which may be stale
int d64_map_tracks(ImageHandle& image);               // those that files go to
/// As for the printed map.
bool d64_is_shown_free(const D64Disc& disc, ImagePlace place);
/// Free for files, without track 18: by bits, and by the counts that the drive tells.
int d64_free_blocks(ImageHandle& image);
int d64_counted_free_blocks(ImageHandle& image);
int d64_write_map(ImageHandle& image);
/// The tracks that have a map, all free, with their counts.
void d64_clear_map(ImageHandle& image);

// Chains.

/// "leaves the disc", for messages.
const char* d64_chain_fault(D64ChainEnd end);

/// Follows a file's chain; the visitor gets each block with its link and may stop it. The header
/// and the directory end it, or are blocks like others.
using D64Visitor = std::function<bool(ImagePlace place, ImagePlace link)>;
enum class D64System { Ends, Passes };
D64ChainEnd d64_walk_chain(ImageHandle& image, ImagePlace start, const D64Visitor& visit,
                           D64System system = D64System::Ends);

/// All blocks of a file: its chain, side sectors, and what GEOS has beside it, each as far as it
/// goes. `side_blocks` of them are side sectors. What ended the first chain that is not whole, else
/// Marked.
D64ChainEnd d64_file_blocks(ImageHandle& image, const DiscEntry& entry,
                            std::vector<ImagePlace>& blocks, int* side_blocks = nullptr);

/// The place of GEOS's border block; track 0 on other discs.
ImagePlace d64_border_block(ImageHandle& image);

/// Whether the header or a directory block.
bool d64_is_system(const D64Disc& disc, ImagePlace place);

// Directory entries.

/// As read; not more than a drive has, by the drive's rules.
std::span<DiscEntry> d64_entries(D64Disc& disc);

/// Whether the entry stands for a file, or for one that was scratched if those are shown.
bool d64_is_shown(const D64Disc& disc, const DiscEntry& entry);

/// Null, and the reason in the record, when there is no such file or, by the drive's rules, more
/// than one that the text could stand for. Valid until the directory grows or is read again.
DiscEntry* d64_find(ImageHandle& image, const std::string& name);
/// Whether there is a file of that name: by its codes alone, by the drive's rules.
bool d64_exists(ImageHandle& image, const std::string& name);
/// The only file that is shown as this text; null and the reason when there is none.
DiscEntry* d64_find_text(ImageHandle& image, const std::string& text);
/// The file of that number; null and the reason when there is none or it was scratched.
DiscEntry* d64_entry(ImageHandle& image, int number);
DiscEntry* d64_find_codes(D64Disc& disc, const DiscName& name);

/// Reads header, map and directory into the record.
void d64_read_disc(ImageHandle& image);

/// Adds a directory block's eight slots to the copy in memory.
void d64_add_slots(ImageHandle& image, ImagePlace place, const D64Block& block);

/// Codes of a name that is given as text, which a drive must take: 1, or -1 with the reason.
/// Characters that the set lacks become what the set has for them.
int d64_file_name(ImageHandle& image, const std::string& text, DiscName& name);
/// The code of a character in the disc's character set; -1 when that has none.
int d64_code_of(const D64Disc& disc, char c);
/// Codes of a host text, of its first sixteen characters.
DiscName d64_to_codes(const D64Disc& disc, const std::string& name);
/// Host text of codes up to the first zero; what ASCII lacks as ".".
std::string d64_to_text(const D64Disc& disc, std::span<const std::uint8_t> codes);
/// Gives an entry a name in all its forms.
void d64_set_name(const D64Disc& disc, DiscEntry& entry, const DiscName& codes);

/// Writes type byte, start, name and size of the entry to its slot. 1 or -1.
int d64_write_slot(ImageHandle& image, DiscEntry& entry);

// Files.

/// The file's bytes. -1 with what came before the damage.
int d64_read_file(ImageHandle& image, const DiscEntry& entry, D64Bytes& bytes);
/// Copies it to the host, without a progress line.
int d64_copy_out(ImageHandle& image, const DiscEntry& entry, const std::string& host_path);

// A file by the drive's rules, inside a change: its slot, `own` or a free one, with a map that has
// all used blocks used; null when there is none. Then the file in it.
DiscEntry* d64_free_slot(ImageHandle& image, DiscEntry* own = nullptr);
int d64_fill_slot(ImageHandle& image, DiscEntry& slot, const DiscFile& file);
/// Blocks that a file of so many bytes takes by the drive's rules.
int d64_blocks_of(std::int64_t bytes);

/// Frees a file's blocks, inside a change, after looking whether they are its own.
int d64_free_file(ImageHandle& image, DiscEntry& entry);
/// Whether a file may be deleted or replaced: 1, or -1 when it is locked.
int d64_may_delete(ImageHandle& image, const DiscEntry& entry);

/// What is wrong with the image's size, or nothing.
std::string d64_size_fault(std::int64_t bytes);

/// What `d64_check` finds, and what repairing changes (inside a change), in lines.
void d64_find_faults(ImageHandle& image, DiscFindings& findings);
int d64_repair(ImageHandle& image, DiscFindings& done);

} // namespace kx
