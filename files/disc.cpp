// Disc images for a disc tool: opening by content, and the operations on an image in memory.
#include "files/d64_private.h"

#include "charsets/charset.h"
#include "core/file_type_ids.h"
#include "util/ascii.h"
#include "util/fd.h"
#include "util/file.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

/// What else a file may be, by its first bytes.
struct Magic {
    std::string_view bytes;
    const char* what;
};
constexpr Magic magics[] = {
    {"\x1F\x8B", "a gzip file, to be unpacked first"},
    {"PK\x03\x04", "a zip file, to be unpacked first"},
    {"GCR-1541", "a G64 image, of a disc's raw tracks"},
    {"GCR-1571", "a G71 image, of a disc's raw tracks"},
    {"MNIB-1541-RAW", "a NIB image, of a disc's raw tracks"},
    {"P64-1541", "a P64 image, of a disc's raw tracks"},
    {"C64-TAPE-RAW", "a TAP image, of a tape's pulses"},
    {"C64 CARTRIDGE", "a CRT image, of a cartridge"},
    {"C64 tape image", "a T64 archive, of a tape's files"},
    {"C64S tape", "a T64 archive, of a tape's files"},
    {"C64File", "a P00 file, of one file of a disc"},
    {"PSID", "a SID file, of a tune"},
    {"RSID", "a SID file, of a tune"},
    {"NES\x1A", "an NES file, of a cartridge"},
};

/// And by its size.
struct Size {
    std::int64_t bytes;
    std::int64_t error_bytes;
    const char* what;
};
constexpr Size sizes[] = {
    {349696, 1366, "a D71 image, of a 1571's disc"},
    {819200, 3200, "a D81 image, of a 1581's disc"},
    {533248, 0, "a D80 image, of an 8050's disc"},
    {1066496, 0, "a D82 image, of an 8250's disc"},
};

/// Larger files are not even read to see whether they look like a disc.
constexpr std::int64_t MOST_BYTES = std::int64_t{1} << 20;

const char* other_kind(const D64Bytes& bytes, std::int64_t size) {
    const std::string_view start(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (const char* const what = disc_other_file(start)) {
        return what;
    }
    for (const Size& row : sizes) {
        if (size == row.bytes || (row.error_bytes != 0 && size == row.bytes + row.error_bytes)) {
            return row.what;
        }
    }
    return nullptr;
}

/// Whether the header is where it belongs: its link to the directory, and the format's letter.
bool looks_like_d64(const D64Bytes& bytes) {
    constexpr auto at = static_cast<std::size_t>(D64_HEADER_OFFSET);
    return bytes.size() > at + 2 && bytes[at] == D64_DIR_TRACK &&
           bytes[at + 1] < disc_sectors(D64_DIR_TRACK) && bytes[at + 2] == 'A';
}

bool has_ending(const std::string& path) {
    constexpr std::string_view ending = ".d64";
    return path.size() > ending.size() &&
           std::equal(ending.begin(), ending.end(), path.end() - ending.size(),
                      [](char a, char b) { return a == ascii_to_lower(b); });
}

int fail(Disc& disc, DiscReason reason, const std::string& text) {
    return d64_fail(disc.image, reason, "%s", text.c_str());
}

/// The reason of the system's last failure.
int fail_host(Disc& disc, const char* what) {
    return d64_fail_host(disc.image,
                         text_printf("could not %s '%s'", what, ascii_escape(disc.path).c_str()));
}

int fail_kind(Disc& disc, const char* what) {
    return fail(disc, DiscReason::NotImage,
                text_printf("'%s' is %s.", ascii_escape(disc.path).c_str(), what));
}

/// A record without an image, by the drive's rules.
void begin(Disc& disc, const std::string& path, DiscAccess access) {
    disc_close(disc);
    disc.path = path;
    disc.access = access;
    disc.image.type = FILETYPE_D64;
    disc.image.disc = std::make_shared<D64Disc>();
    disc.image.disc->rules = &d64_drive_rules;
    disc.image.disc->failure = &disc.failure;
}

/// Opens the file that is at the disc's path, and locks it for a change.
int open_file(Disc& disc) {
    const bool writing = disc.access == DiscAccess::Change;
    struct stat status = {};
    if (stat(disc.path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return fail_kind(disc, "no regular file"); // a pipe would be waited for
    }
    disc.image.file = file_open(disc.path, writing ? "r+b" : "rb");
    if (!disc.image.file) {
        return fail_host(disc, "open");
    }
    if (!writing || target_imglock(disc.image, disc.path) == 1) {
        return 1;
    }
    if (errno != EWOULDBLOCK) {
        return fail_host(disc, "lock");
    }
    return fail(disc, DiscReason::InUse,
                text_printf("image '%s' is in use.", ascii_escape(disc.path).c_str()));
}

/// Reads the file and looks whether it is a disc.
int load(Disc& disc) {
    const std::int64_t size = image_size(disc.image);
    D64Bytes bytes(static_cast<std::size_t>(std::clamp<std::int64_t>(size, 0, MOST_BYTES)));
    if (size < 0 || target_imgread(disc.image, bytes, 0) != 1) {
        return fail_host(disc, "read");
    }
    bool error_bytes = false;
    const bool whole = d64_tracks_of_size(size, error_bytes) != 0;
    const bool looks = looks_like_d64(bytes) && size <= MOST_BYTES;
    const char* other = other_kind(bytes, size);
    if (other != nullptr && !(whole && looks)) {
        return fail_kind(disc, other);
    }
    if (!whole && !looks && (!has_ending(disc.path) || size > MOST_BYTES)) {
        return fail_kind(disc, "no 1541 image, by size and content");
    }
    if (!whole && disc.access == DiscAccess::Change) {
        return fail(disc, DiscReason::Damaged, d64_size_fault(size));
    }
    disc.image.memory = std::make_shared<D64Bytes>(std::move(bytes));
    d64_read_disc(disc.image);
    return 1;
}

int must_change(Disc& disc) {
    return disc.access == DiscAccess::Change && disc.image.memory
               ? 1
               : fail(disc, DiscReason::ReadOnly, "the disc was not opened for a change.");
}

/// The fields of a header that say what the disc is, and an empty directory.
int write_system(Disc& disc, const DiscFormat& format) {
    D64Block header = {D64_DIR_TRACK, 1, 'A'};
    constexpr std::size_t filled = 0xAB - D64_NAME_AT;
    std::fill_n(header.begin() + D64_NAME_AT, filled, DISC_PADDING);
    std::copy(format.name.begin(), format.name.end(), header.begin() + D64_NAME_AT);
    std::copy(format.id.begin(), format.id.end(), header.begin() + D64_ID_AT);
    constexpr std::uint8_t dos_type[] = {'2', 'A'};
    std::copy(std::begin(dos_type), std::end(dos_type), header.begin() + D64_ID_AT + 3);
    const D64Block directory = {0, D64_DIR_END};
    ImageHandle& image = disc.image;
    return d64_write(image, header, D64_HEADER_OFFSET) == 1
               ? d64_write(image, directory, d64_block_offset(image, D64_FIRST_DIR))
               : -1;
}

int format_disc(Disc& disc, const DiscFormat& format) {
    ImageHandle& image = disc.image;
    image.memory = std::make_shared<D64Bytes>(
        static_cast<std::size_t>(IMAGE_BLOCK_BYTES * d64_sectors_before(format.tracks + 1)));
    if (write_system(disc, format) != 1) {
        return -1;
    }
    image.disc->extended_known = true;
    image.disc->extended_at = format.tracks == D64_EXTENDED_TRACKS ? D64_SPEEDDOS_AT : 0;
    d64_clear_map(image);
    d64_set_free(image, D64_HEADER, false);
    d64_set_free(image, D64_FIRST_DIR, false);
    const int result = d64_write_map(image);
    d64_read_disc(image);
    return result;
}

/// Whether a name can be given to a file other than `number`.
int check_new_name(Disc& disc, const DiscName& name, int number) {
    const int other = disc_find(disc, name);
    if (other < 0 || other == number) {
        return 1;
    }
    const std::string text = disc_entries(disc)[static_cast<std::size_t>(other)].text;
    return fail(disc, DiscReason::Exists, text_printf("there is a file '%s'.", text.c_str()));
}

/// Runs a change of one entry.
template <typename Change>
int change_entry(Disc& disc, int number, D64Change kind, Change change) {
    if (must_change(disc) != 1 || d64_entry(disc.image, number) == nullptr) {
        return -1;
    }
    return d64_change(disc.image, kind, [&] { return change(*d64_entry(disc.image, number)); });
}

/// Puts the image in place: a new one where nothing is, so that of two programs that create it one
/// fails; another where the path still leads to the locked file.
int put_in_place(Disc& disc) {
    const std::string shown = ascii_escape(disc.path);
    if (!disc.is_new && !image_is_file(disc.image, disc.path)) {
        return fail(disc, DiscReason::InUse,
                    text_printf("another file has taken the place of '%s'.", shown.c_str()));
    }
    const std::vector<std::uint8_t>& bytes = *disc.image.memory;
    if ((disc.is_new ? file_create(disc.path, bytes) : file_replace(disc.path, bytes)) == 0) {
        return 1;
    }
    errno = file_last_error().error;
    return disc.is_new && errno == EEXIST
               ? fail(disc, DiscReason::Exists,
                      text_printf("'%s' is there already.", shown.c_str()))
               : fail_host(disc, "write");
}

std::string printable(const Disc& disc, std::span<const std::uint8_t> codes) {
    return d64_to_text(*disc.image.disc, codes);
}

} // namespace

const char* disc_other_file(std::string_view start) {
    for (const Magic& magic : magics) {
        if (start.starts_with(magic.bytes)) {
            return magic.what;
        }
    }
    return nullptr;
}

int disc_open(Disc& disc, const std::string& path, DiscAccess access) {
    begin(disc, path, access);
    if (open_file(disc) == 1 && load(disc) == 1) {
        return 1;
    }
    disc.image.file.reset();
    return -1;
}

int disc_create(Disc& disc, const std::string& path, const DiscFormat& format) {
    begin(disc, path, DiscAccess::Change);
    struct stat status = {};
    disc.is_new = stat(path.c_str(), &status) != 0;
    if (!disc.is_new && !format.replace) {
        return fail(disc, DiscReason::Exists,
                    text_printf("'%s' is there already.", ascii_escape(path).c_str()));
    }
    if (!disc.is_new && open_file(disc) != 1) {
        disc.image.file.reset();
        return -1;
    }
    return format_disc(disc, format);
}

int disc_commit(Disc& disc) {
    if (must_change(disc) != 1 || put_in_place(disc) != 1) {
        return -1;
    }
    disc.access = DiscAccess::Read;
    disc.is_new = false;
    disc.image.file = file_open(disc.path, "rb");
    return 1;
}

void disc_close(Disc& disc) {
    disc.image = {};
    disc.path.clear();
    disc.access = DiscAccess::Read;
    disc.is_new = false;
}

DiscInfo disc_info(const Disc& disc) {
    DiscInfo info;
    ImageHandle image = disc.image; // shares the record
    std::array<std::uint8_t, D64_ID_BYTES> id = {};
    if (!image.memory) {
        return info;
    }
    d64_read(image, info.name, D64_HEADER_OFFSET + static_cast<std::int64_t>(D64_NAME_AT));
    d64_read(image, id, D64_HEADER_OFFSET + static_cast<std::int64_t>(D64_ID_AT));
    info.id = {id[0], id[1]};
    info.dos_type = {id[3], id[4]};
    info.name_text = printable(disc, info.name);
    info.name_text.resize(disc_name_length(info.name), ' ');
    info.name_text.resize(info.name.size(), ' ');
    info.id_text = printable(disc, info.id);
    info.dos_text = printable(disc, info.dos_type);
    const std::int64_t size = image_size(image);
    info.fault = d64_size_fault(size);
    info.tracks = std::max(d64_tracks_of_size(size, info.error_bytes), D64_MAP_TRACKS);
    info.map_tracks = d64_map_tracks(image);
    info.blocks_free = d64_counted_free_blocks(image);
    const D64ChainEnd end = image.disc->directory_end;
    if (info.fault.empty() && end != D64ChainEnd::Marked) {
        info.fault = text_printf("the chain of the directory %s.", d64_chain_fault(end));
    }
    return info;
}

const std::vector<DiscEntry>& disc_entries(const Disc& disc) {
    static const std::vector<DiscEntry> none;
    return disc.image.disc ? disc.image.disc->entries : none;
}

void disc_set_charset(Disc& disc, bool lower) {
    D64Disc& record = d64_disc(disc.image);
    record.charset = lower ? CHARSET_LOASC : CHARSET_UPASC;
    for (DiscEntry& entry : record.entries) {
        d64_set_name(record, entry, DiscName(entry.name));
    }
}

int disc_read(Disc& disc, int number, std::vector<std::uint8_t>& bytes) {
    bytes.clear();
    const DiscEntry* entry = d64_entry(disc.image, number);
    return entry != nullptr ? d64_read_file(disc.image, *entry, bytes) : -1;
}

int disc_extract(Disc& disc, int number, const std::string& host_path, bool replace) {
    const DiscEntry* entry = d64_entry(disc.image, number);
    if (entry == nullptr) {
        return -1;
    }
    struct stat status = {};
    if (!replace && lstat(host_path.c_str(), &status) == 0) {
        return fail(disc, DiscReason::Exists,
                    text_printf("'%s' is there already.", ascii_escape(host_path).c_str()));
    }
    return d64_copy_out(disc.image, *entry, host_path);
}

DiscChain disc_chain(Disc& disc, int number) {
    DiscChain chain;
    const DiscFailure before = disc.failure;
    const DiscEntry* entry = d64_entry(disc.image, number);
    D64Bytes bytes;
    if (entry == nullptr || d64_read_file(disc.image, *entry, bytes) != 1) {
        chain.fault = disc.failure.text;
    }
    chain.bytes = static_cast<std::int64_t>(bytes.size());
    if (entry != nullptr) {
        std::vector<ImagePlace> blocks;
        d64_file_blocks(disc.image, *entry, blocks);
        chain.blocks = static_cast<int>(blocks.size());
    }
    disc.failure = before;
    return chain;
}

bool disc_is_free(const Disc& disc, int track, int sector) {
    ImageHandle image = disc.image; // shares the record
    const ImagePlace place = {.track = track, .sector = sector};
    return image.memory && d64_is_on_disc(place) && track <= d64_map_tracks(image) &&
           d64_is_free(image, place);
}

int disc_read_block(Disc& disc, int track, int sector, std::span<std::uint8_t> bytes) {
    const ImagePlace place = {.track = track, .sector = sector};
    if (!d64_is_on_disc(place) || bytes.size() > D64_BLOCK_BYTES ||
        d64_read(disc.image, bytes, d64_block_offset(disc.image, place)) != 1) {
        return fail(disc, DiscReason::Damaged,
                    text_printf("there is no block %d/%d.", track, sector));
    }
    return 1;
}

int disc_write(Disc& disc, const DiscFile& file) {
    const int old = disc_find(disc, file.name);
    if (must_change(disc) != 1 ||
        (old >= 0 && !file.replace && check_new_name(disc, file.name, -1) != 1)) {
        return -1;
    }
    if (file.type < DISC_DEL || file.type > DISC_USR) {
        return fail(disc, DiscReason::NotPlain, "only del, seq, prg and usr files can be written.");
    }
    return d64_change(disc.image, D64Change::Adds, [&] {
        DiscEntry* slot = old >= 0 ? d64_entry(disc.image, old) : nullptr;
        if (slot != nullptr &&
            (d64_may_delete(disc.image, *slot) != 1 || d64_free_file(disc.image, *slot) != 1)) {
            return -1;
        }
        slot = d64_free_slot(disc.image, slot);
        return slot != nullptr ? d64_fill_slot(disc.image, *slot, file) : -1;
    });
}

int disc_copy(Disc& to, Disc& from, int number, const DiscName& name, bool replace) {
    D64Bytes bytes;
    const DiscEntry* entry = d64_entry(from.image, number);
    if (entry != nullptr && (entry->type > DISC_USR || entry->geos)) {
        return fail(to, DiscReason::NotPlain,
                    text_printf("'%s' is more than a chain of data (%s).", entry->text.c_str(),
                                entry->geos ? "GEOS" : disc_type_name(entry->type)));
    }
    if (entry == nullptr || d64_read_file(from.image, *entry, bytes) != 1) {
        to.failure = DiscFailure(from.failure);
        return -1;
    }
    return disc_write(to, {.name = name,
                           .type = entry->type,
                           .locked = entry->locked,
                           .replace = replace,
                           .bytes = bytes});
}

int disc_delete(Disc& disc, int number, bool locked_too) {
    return change_entry(disc, number, D64Change::Frees, [&](DiscEntry& entry) {
        return locked_too || d64_may_delete(disc.image, entry) == 1
                   ? d64_free_file(disc.image, entry)
                   : -1;
    });
}

int disc_rename(Disc& disc, int number, const DiscName& name) {
    if (check_new_name(disc, name, number) != 1) {
        return -1;
    }
    return change_entry(disc, number, D64Change::Adds, [&](DiscEntry& entry) {
        d64_set_name(*disc.image.disc, entry, name);
        return d64_write_slot(disc.image, entry);
    });
}

int disc_set_lock(Disc& disc, int number, bool locked) {
    return change_entry(disc, number, D64Change::Adds, [&](DiscEntry& entry) {
        entry.locked = locked;
        entry.raw_type = static_cast<std::uint8_t>(locked ? entry.raw_type | D64_LOCKED
                                                          : entry.raw_type & ~D64_LOCKED);
        return d64_write_slot(disc.image, entry);
    });
}

int disc_set_label(Disc& disc, const DiscName& name, const std::array<std::uint8_t, 2>& id) {
    if (must_change(disc) != 1) {
        return -1;
    }
    return d64_change(disc.image, D64Change::Adds, [&] {
        constexpr auto at = D64_HEADER_OFFSET;
        return d64_write(disc.image, name, at + static_cast<std::int64_t>(D64_NAME_AT)) == 1
                   ? d64_write(disc.image, id, at + static_cast<std::int64_t>(D64_ID_AT))
                   : -1;
    });
}

int disc_check(Disc& disc, DiscFindings& findings) {
    findings = {};
    if (disc.image.memory) {
        d64_find_faults(disc.image, findings);
    }
    return findings.count == 0 ? 1 : -1;
}

int disc_repair(Disc& disc, DiscFindings& done) {
    done = {};
    if (must_change(disc) != 1) {
        return -1;
    }
    const int result =
        d64_change(disc.image, D64Change::Frees, [&] { return d64_repair(disc.image, done); });
    if (result != 1) {
        done = {};
    }
    return result;
}

} // namespace kx
