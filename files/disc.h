// Disc images as a disc tool works on them: opened by what they hold, read whole, changed in
// memory by the drive's rules, and put in place in one go, or not at all. d64.h has the operations
// on an image that is changed where it lies, and on one that the target holds.
//
// A disc is a record, passed first. Functions that can fail give 1, or -1 with the reason in the
// record's `failure`; they print nothing. A change that fails leaves the disc as it was.
#pragma once

#include "link/image.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

enum class DiscReason {
    None,
    NoFile,    // nothing has that name or number, or it is a scratched entry
    Ambiguous, // the text stands for more than one file
    Exists,    // a file of these codes is on the disc, or the image or host file is there already
    NoRoom,    // too few free blocks, or no free place in the directory
    Locked,    // the file is locked
    BadName,   // a name that a drive refuses, or too long, or that the character set lacks
    Damaged,   // a chain, the directory or the image itself is not whole
    Shared,    // blocks belong to more than one file
    NotPlain,  // no chain of data: an entry without a start, an index of records
    NotImage,  // no 1541 image: another kind of file, which `text` names
    ReadOnly,  // the disc was not opened for change
    InUse,     // another program, or this one, has the image open for writing
    Host,      // the system refused: `error` is its errno
};

/// Why the last function that failed on a disc did.
struct DiscFailure {
    DiscReason reason = DiscReason::None;
    int error = 0;    // errno, for Host; otherwise 0
    std::string text; // "'GAME' is locked.", as it may be shown
};

// File types, the low four bits of the type byte.
constexpr int DISC_DEL = 0;
constexpr int DISC_SEQ = 1;
constexpr int DISC_PRG = 2;
constexpr int DISC_USR = 3;
constexpr int DISC_REL = 4;

/// "prg"; the bits, as "0110", for a type without a name.
const char* disc_type_name(int type);

/// A name's codes as they stand on a disc: PETSCII, filled up with 0xA0.
using DiscName = std::array<std::uint8_t, 16>;
constexpr std::uint8_t DISC_PADDING = 0xA0;

/// Codes before the filling, 0 to 16.
std::size_t disc_name_length(const DiscName& name);

/// A slot of the directory, used or not.
struct DiscEntry {
    int number = 0;            // of the slot, from 0 on, scratched ones counted
    std::uint8_t raw_type = 0; // the type byte; 0: scratched or never used
    int type = 0;              // its low four bits
    bool locked = false;
    bool closed = false;  // what is not was never finished: a "splat" file
    ImagePlace start;     // the first block; track 0 for none
    ImagePlace side;      // of a rel file the first side sector, of a GEOS file the info block
    bool geos = false;    // written by GEOS
    bool records = false; // and its first block is an index of records
    DiscName name = {};
    std::string text;      // the name for people; "." for what the character set lacks
    std::string host_name; // as a host file's: printable, never empty, leaves no directory
    int blocks = 0;        // as the directory says

    // For the image file system alone.
    std::int64_t start_offset = 0; // of the first block in the image
    std::int64_t slot_offset = 0;
};

struct DiscInfo {
    DiscName name = {};
    std::array<std::uint8_t, 2> id = {};
    std::array<std::uint8_t, 2> dos_type = {};
    std::string name_text; // 16 characters, blanks where it is filled up
    std::string id_text;
    std::string dos_text;     // "2A"
    int tracks = 35;          // 35, 40 or 42
    int map_tracks = 35;      // those that files may be on: 40 with an extended map
    bool error_bytes = false; // one a block behind the blocks
    int blocks_free = 0;      // as a drive counts them: without track 18
    std::string fault;        // what is wrong with the image as a whole or its directory; or empty
};

enum class DiscAccess { Read, Change };

/// An image that is worked on. Copies would share the image's bytes.
struct Disc {
    Disc() = default;
    Disc(const Disc&) = delete;
    Disc& operator=(const Disc&) = delete;

    std::string path;
    DiscAccess access = DiscAccess::Read;
    bool is_new = false; // the file must not be there when the disc is committed
    ImageHandle image;   // in memory; its file, when there is one, holds the lock
    DiscFailure failure;
};

/// What a file that begins so is by its first bytes, as "a CRT image, of a cartridge"; null for
/// none of the kinds that are mistaken for discs and programs.
const char* disc_other_file(std::string_view start);

// Opening and closing.

/// Reads the image at `path` whole: a 1541's of 35, 40 or 42 tracks, with or without error bytes,
/// known by its size. An image of another size opens for reading when it looks like one (or has
/// the ending .d64), and `disc_info` says what is wrong with it. What is no 1541 image is
/// NotImage. For change, the image is locked, waiting for nobody (InUse), and must be whole.
int disc_open(Disc& disc, const std::string& path, DiscAccess access);

/// A new image, opened for change; its file appears with `disc_commit`.
struct DiscFormat {
    int tracks = 35; // 35, 40 (with a SpeedDOS map) or 42 (whose tracks 36 to 42 stay unused)
    DiscName name = {};
    std::array<std::uint8_t, 2> id = {'0', '0'};
    bool replace = false; // a file that is there already, which is locked; otherwise Exists
};
int disc_create(Disc& disc, const std::string& path, const DiscFormat& format);

/// Puts what was changed in place of the image file, whole: whatever happens, the file is the old
/// one or the new one. The disc can then be read only. After -1 the file is the old one, and the
/// changes are still in memory.
int disc_commit(Disc& disc);

/// Drops what was not committed, and the lock.
void disc_close(Disc& disc);

// Looking at a disc.

DiscInfo disc_info(const Disc& disc);

/// All slots in the order of the directory: an entry's number is its place here. At most 144.
/// Valid until the disc is changed or closed.
const std::vector<DiscEntry>& disc_entries(const Disc& disc);

/// Whether the entry is a line that only decorates the listing: it has no blocks, whatever it says
/// of a start.
bool disc_is_decoration(const DiscEntry& entry);

/// Characters for names, from now on: the set of upper case letters, which a disc has when it is
/// opened, or that of lower and upper case. Texts of entries follow.
void disc_set_charset(Disc& disc, bool lower);

/// Codes of a text: its characters in the disc's character set, "#xx" for any code in hexadecimal,
/// "##" for "#". In `disc_file_name` a text that a drive takes for something else is BadName:
/// empty, with `*?,:"` or with `$` or `@` first; as "#xx", or behind "#a0", these pass. Both refuse
/// more than 16 codes and characters that the set lacks.
int disc_codes(Disc& disc, std::string_view text, DiscName& name);
int disc_file_name(Disc& disc, std::string_view text, DiscName& name);

/// The numbers of the files that `pattern` stands for, in the order of the directory: ":N" is the
/// entry of that number, anything else a name as for `disc_codes`, in which "?" stands for any
/// code and "*" for all that may follow. One that is no file's codes may be those before a 0xA0, as
/// for a drive; without these two it may be the text of a file, if of one only (Ambiguous). NoFile
/// when there is none.
int disc_match(Disc& disc, std::string_view pattern, std::vector<int>& numbers);

/// The number of the file with these codes; -1 when there is none.
int disc_find(const Disc& disc, const DiscName& name);

/// A file's bytes. For a chain that is not whole -1, with the bytes up to the damage; NotPlain for
/// what has no chain of data. Of rel files and of GEOS files only the chain's bytes are given.
int disc_read(Disc& disc, int number, std::vector<std::uint8_t>& bytes);

/// The same to a host file: whole or not at all, and never the image itself. A file that is there
/// already is Exists without `replace`.
int disc_extract(Disc& disc, int number, const std::string& host_path, bool replace);

/// What a file really has.
struct DiscChain {
    int blocks = 0; // of all its chains
    std::int64_t bytes = 0;
    std::string fault; // what is wrong with the chain, or empty
};
DiscChain disc_chain(Disc& disc, int number);

/// Tracks from 1 to `DiscInfo::tracks`; sectors of one, from 0 on.
int disc_sectors(int track);

/// Whether the map has a block free; false for one that it does not have.
bool disc_is_free(const Disc& disc, int track, int sector);

/// The 256 bytes of a block.
int disc_read_block(Disc& disc, int track, int sector, std::span<std::uint8_t> bytes);

// Changing a disc; ReadOnly unless it was opened for that. Nothing reaches the file before
// `disc_commit`. An entry's number stays the same until the entry is deleted.

/// A file to be written.
struct DiscFile {
    DiscName name = {};
    int type = DISC_PRG; // del, seq, prg or usr
    bool locked = false;
    bool replace = false; // one of the same codes, which must not be locked; otherwise Exists
    std::span<const std::uint8_t> bytes = {};
};
int disc_write(Disc& disc, const DiscFile& file);

/// Copies a file of one disc to another, or the same, with its bytes, type and lock, under `name`
/// (its own, mostly). What `disc_read` cannot read whole, rel files and files of GEOS are refused.
/// The reason is in `to`.
int disc_copy(Disc& to, Disc& from, int number, const DiscName& name, bool replace);

/// Scratches a file. Damaged when its chains do not have as many blocks as the directory says or
/// are not whole, Shared when a block belongs to another entry too: what is free afterwards could
/// be somebody else's.
int disc_delete(Disc& disc, int number, bool locked_too);

int disc_rename(Disc& disc, int number, const DiscName& name);
int disc_set_lock(Disc& disc, int number, bool locked);

/// Name and identifier of the disc.
int disc_set_label(Disc& disc, const DiscName& name, const std::array<std::uint8_t, 2>& id);

// Checking and repairing.

/// What is wrong, a line each: "block 17/1 belongs to 'A' and to 'B'."
struct DiscFindings {
    std::vector<std::string> lines; // the first DISC_MOST_FINDINGS of them
    int count = 0;                  // all
};
constexpr int DISC_MOST_FINDINGS = 1000;

/// Compares directory, chains, map, counts and the image's size. 1 when all is well; -1 otherwise,
/// and `findings` says what is not.
int disc_check(Disc& disc, DiscFindings& findings);

/// Validates as the drive does: builds map and counts anew from the files' chains, corrects their
/// sizes and scratches what was never closed; `done` has a line for each change. Shared or Damaged
/// when blocks belong to two files or a chain is not whole: then nothing is changed.
int disc_repair(Disc& disc, DiscFindings& done);

} // namespace kx
