// The directory of a 1541 disc: reading it, names in their forms, finding files, and writing a
// slot back.
#include "files/d64_private.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/registry.h"
#include "ui/msg.h"
#include "util/ascii.h"
#include "util/bytes.h"

#include <algorithm>
#include <cstdio>

namespace kx {

namespace {

struct State {
    std::shared_ptr<D64Disc> last; // whose directory was read last
};
State state;

/// The mode that names are converted by; 0, which changes nothing, before its tables are loaded.
unsigned name_charset(const D64Disc& disc) {
    return charset_is_loaded(disc.charset) ? disc.charset : 0;
}

// Without tables the drive's rules know letters and what is the same in both, so that a name that a
// disc tool writes is the one that a C-64 asks for.

bool is_letter(int c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

int plain_code(char c, bool lower) {
    constexpr int shifted = 0x80; // letters of the other case
    const int upper = is_letter(c) ? c & ~0x20 : c;
    if (upper < 0x20 || upper > 0x5F) {
        return -1;
    }
    return lower && c == upper && is_letter(c) ? upper | shifted : upper;
}

char plain_character(std::uint8_t code, bool lower) {
    if (code == DISC_PADDING) {
        return ' ';
    }
    constexpr int shifted = 0x80;
    const int upper = code & ~shifted;
    if (lower && is_letter(upper) && upper <= 'Z') {
        return static_cast<char>(code == upper ? upper | 0x20 : upper);
    }
    return static_cast<char>(code);
}

std::string to_text(const D64Disc& disc, std::span<const std::uint8_t> codes, unsigned form) {
    const auto length =
        static_cast<std::size_t>(std::find(codes.begin(), codes.end(), 0) - codes.begin());
    std::string text(length, '\0');
    const unsigned charset = name_charset(disc);
    D64Bytes plain;
    if (charset == 0 && d64_rules(disc).drive) {
        for (const std::uint8_t code : codes.first(length)) {
            plain.push_back(
                static_cast<std::uint8_t>(plain_character(code, disc.charset == CHARSET_LOASC)));
        }
        codes = plain;
    }
    charset_to_ascii(text.data(), codes.data(), length, charset | form);
    return text;
}

/// Of a name that anybody may have written: no way into another directory, no hidden file, and
/// nothing that a terminal would act on.
std::string to_host_name(const D64Disc& disc, std::span<const std::uint8_t> codes) {
    std::string name = to_text(disc, codes, 0);
    for (char& c : name) {
        if (!ascii_is_print(c) || c == '/' || c == '\\') {
            c = '_';
        }
    }
    if (name.empty()) {
        return "_";
    }
    if (name[0] == '.') {
        name[0] = '_';
    }
    return name;
}

/// Replaces what fills the name's end, when its last place shows that it is filled.
void repad(DiscName& name, std::uint8_t from, std::uint8_t to) {
    if (name.back() == from) {
        auto end = name.rbegin();
        while (end != name.rend() && *end == from) {
            *end++ = to;
        }
    }
}

DiscEntry make_entry(const ImageHandle& image, std::span<const std::uint8_t> slot) {
    DiscEntry entry;
    entry.raw_type = slot[D64_SLOT_TYPE];
    entry.type = entry.raw_type & D64_TYPE_BITS;
    entry.locked = (entry.raw_type & D64_LOCKED) != 0;
    entry.closed = (entry.raw_type & D64_CLOSED) != 0;
    entry.start = {.track = slot[D64_SLOT_START], .sector = slot[D64_SLOT_START + 1]};
    entry.side = {.track = slot[D64_SLOT_SIDE], .sector = slot[D64_SLOT_SIDE + 1]};
    constexpr std::uint8_t most_geos_types = 15;
    entry.geos = entry.type != DISC_REL && slot[D64_SLOT_GEOS] != 0 &&
                 slot[D64_SLOT_GEOS] <= most_geos_types && slot[D64_SLOT_RECORDS] <= 1;
    entry.records = entry.geos && slot[D64_SLOT_RECORDS] == 1;
    entry.start_offset = d64_block_offset(image, entry.start);
    DiscName name;
    std::copy_n(slot.begin() + D64_SLOT_NAME, name.size(), name.begin());
    d64_set_name(*image.disc, entry, name);
    entry.blocks = get16le(&slot[D64_SLOT_BLOCKS]);
    return entry;
}

/// One of the reads that a directory is read by. Behind the first that fails on the link to the
/// target none is tried: each would take its time-out.
bool read_part(ImageHandle& image, std::span<std::uint8_t> bytes, std::int64_t offset) {
    D64Disc& disc = *image.disc;
    const bool read = !disc.link_failed && d64_read(image, bytes, offset) == 1;
    disc.link_failed =
        disc.link_failed || (!read && image.held && active_config.stub == TARGET_C64RR &&
                             offset + static_cast<std::int64_t>(bytes.size()) <= IMAGE_HELD_LIMIT);
    return read;
}

std::string read_text(ImageHandle& image, std::size_t at, std::size_t length) {
    D64Bytes codes(length);
    return read_part(image, codes, D64_HEADER_OFFSET + static_cast<std::int64_t>(at))
               ? d64_to_text(*image.disc, codes)
               : "";
}

void read_map(ImageHandle& image) {
    const std::span<std::uint8_t> map(image.disc->map);
    if (!read_part(image, map.first(D64_MAP_BYTES),
                   D64_HEADER_OFFSET + static_cast<std::int64_t>(D64_MAP_AT)) ||
        !read_part(image, map.subspan(D64_MAP_BYTES),
                   D64_HEADER_OFFSET + static_cast<std::int64_t>(D64_SHOWN_MAP_AT))) {
        image.disc->map = {};
    }
}

D64ChainEnd read_slots(ImageHandle& image) {
    D64Disc& disc = *image.disc;
    const bool drive = d64_rules(disc).drive;
    std::bitset<D64_BLOCKS> visited;
    ImagePlace place = D64_FIRST_DIR;
    D64Block block;
    do {
        // Meant: for the toolkit's rules no track ends the directory, only the sector below does;
        // 0/n is the image's block n.
        if (!d64_is_on_disc(place) && (drive || place.track != 0)) {
            return place.track == 0 ? D64ChainEnd::Marked : D64ChainEnd::Outside;
        }
        if (drive && place == D64_HEADER) {
            return D64ChainEnd::System;
        }
        const auto number = static_cast<std::size_t>(d64_block_number(place));
        if (visited[number]) {
            return D64ChainEnd::Loop;
        }
        if (drive && disc.entries.size() >= D64_MOST_SLOTS) {
            return D64ChainEnd::Long;
        }
        visited.set(number);
        if (!read_part(image, block, d64_block_offset(image, place))) {
            return D64ChainEnd::Unreadable;
        }
        d64_add_slots(image, place, block);
        place = {.track = block[0], .sector = block[1]};
    } while (place.sector != D64_DIR_END);
    return D64ChainEnd::Marked;
}

/// The first two characters are the index in hexadecimal; what follows does not count.
bool is_index(const std::string& name, int index) {
    constexpr char digits[] = "0123456789abcdef";
    return name.size() >= 2 && index < 256 && name[0] == digits[index / 16] &&
           name[1] == digits[index % 16];
}

/// The file by its index in the ls style; by its text, but only by the toolkit's rules: the drive's
/// look at the codes first.
DiscEntry* find_plainly(D64Disc& disc, const std::string& name) {
    const bool drive = d64_rules(disc).drive;
    for (DiscEntry& entry : d64_entries(disc)) {
        const bool is_file = drive ? entry.raw_type != 0 : entry.type != 0;
        const bool same =
            d64_ls_style != 0 ? is_index(name, entry.number) : !drive && entry.text == name;
        if (is_file && same) {
            return &entry;
        }
    }
    return nullptr;
}

} // namespace

D64Disc& d64_disc(ImageHandle& image) {
    if (!image.disc) {
        d64_read_disc(image);
    }
    return *image.disc;
}

const D64Disc& d64_last_disc() {
    static const D64Disc none;
    return state.last ? *state.last : none;
}

void d64_read_disc(ImageHandle& image) {
    if (!image.disc) {
        image.disc = std::make_shared<D64Disc>();
    }
    D64Disc fresh;
    fresh.rules = image.disc->rules;
    fresh.failure = image.disc->failure;
    fresh.charset = image.disc->charset;
    *image.disc = std::move(fresh);
    image.disc->disc_name = read_text(image, D64_NAME_AT, DiscName{}.size());
    image.disc->disc_id = read_text(image, D64_ID_AT, D64_ID_BYTES);
    read_map(image);
    image.disc->directory_end = read_slots(image);
}

int d64_read_directory(ImageHandle& image) {
    d64_read_disc(image);
    state.last = image.disc;
    return image.disc->link_failed ? -1 : 1;
}

void d64_add_slots(ImageHandle& image, ImagePlace place, const D64Block& block) {
    D64Disc& disc = *image.disc;
    disc.directory.push_back(place);
    for (std::size_t slot = 0; slot < block.size(); slot += D64_SLOT_BYTES) {
        DiscEntry entry = make_entry(image, std::span(block).subspan(slot, D64_SLOT_BYTES));
        entry.number = static_cast<int>(disc.entries.size());
        entry.slot_offset = d64_block_offset(image, place) + static_cast<std::int64_t>(slot);
        disc.entries.push_back(std::move(entry));
    }
}

std::string d64_to_text(const D64Disc& disc, std::span<const std::uint8_t> codes) {
    return to_text(disc, codes, CHARSET_DOT);
}

int d64_code_of(const D64Disc& disc, char c) {
    if (!ascii_is_print(c)) {
        return -1;
    }
    if (name_charset(disc) == 0) {
        return plain_code(c, disc.charset == CHARSET_LOASC);
    }
    const Charset* charset = charset_of_mode(disc.charset);
    const int code = charset->from_ascii[static_cast<std::uint8_t>(c)];
    return code == '.' && c != '.' ? -1 : code; // which stands for what the set lacks
}

DiscName d64_to_codes(const D64Disc& disc, const std::string& name) {
    std::string text = name.substr(0, DiscName{}.size());
    if (name_charset(disc) == 0) {
        for (char& c : text) {
            const int code = d64_rules(disc).drive ? d64_code_of(disc, c) : c;
            c = ascii_is_print(c) && code >= 0 ? static_cast<char>(code) : '.';
        }
    }
    DiscName codes = {};
    charset_from_ascii(codes.data(), text.data(), text.size(), text.size(), name_charset(disc));
    repad(codes, 0, DISC_PADDING);
    return codes;
}

void d64_set_name(const D64Disc& disc, DiscEntry& entry, const DiscName& codes) {
    entry.name = codes;
    DiscName text = codes;
    repad(text, DISC_PADDING, 0);
    entry.text = d64_to_text(disc, text);
    entry.host_name = to_host_name(disc, text);
}

std::span<DiscEntry> d64_entries(D64Disc& disc) {
    const std::size_t most = d64_rules(disc).drive ? D64_MOST_SLOTS : disc.entries.size();
    return std::span(disc.entries).first(std::min(most, disc.entries.size()));
}

bool d64_is_shown(const D64Disc& disc, const DiscEntry& entry) {
    return entry.raw_type != 0 || !d64_rules(disc).drive;
}

DiscEntry* d64_find_codes(D64Disc& disc, const DiscName& name) {
    for (DiscEntry& entry : d64_entries(disc)) {
        if (entry.raw_type != 0 && entry.name == name) {
            return &entry;
        }
    }
    return nullptr;
}

DiscEntry* d64_find_text(ImageHandle& image, const std::string& text) {
    DiscEntry* found = nullptr;
    for (DiscEntry& entry : d64_entries(d64_disc(image))) {
        if (entry.raw_type == 0 || entry.text != text) {
            continue;
        }
        if (found != nullptr) {
            d64_fail(image, DiscReason::Ambiguous, "several files are shown as '%s'.",
                     text.c_str());
            return nullptr;
        }
        found = &entry;
    }
    if (found == nullptr) {
        d64_fail(image, DiscReason::NoFile, "there is no file '%s'.", text.c_str());
    }
    return found;
}

DiscEntry* d64_entry(ImageHandle& image, int number) {
    const std::span<DiscEntry> entries = d64_entries(d64_disc(image));
    const bool slot = number >= 0 && static_cast<std::size_t>(number) < entries.size();
    DiscEntry* entry = slot ? &entries[static_cast<std::size_t>(number)] : nullptr;
    if (entry == nullptr || (entry->raw_type == 0 && entry->name[0] == 0)) { // never used
        d64_fail(image, DiscReason::NoFile, "there is no entry %d.", number);
        return nullptr;
    }
    if (entry->raw_type == 0) {
        d64_fail(image, DiscReason::NoFile,
                 "entry %d was scratched, which cannot be taken back: its blocks may be in use.",
                 number);
        return nullptr;
    }
    return entry;
}

bool d64_exists(ImageHandle& image, const std::string& name) {
    D64Disc& disc = d64_disc(image);
    return find_plainly(disc, name) != nullptr ||
           (d64_rules(disc).drive && d64_find_codes(disc, d64_to_codes(disc, name)) != nullptr);
}

DiscEntry* d64_find(ImageHandle& image, const std::string& name) {
    D64Disc& disc = d64_disc(image);
    DiscEntry* entry = find_plainly(disc, name);
    if (entry == nullptr && d64_rules(disc).drive && d64_ls_style == 0) {
        entry = d64_find_codes(disc, d64_to_codes(disc, name));
        return entry != nullptr ? entry : d64_find_text(image, name);
    }
    if (entry == nullptr) {
        d64_fail(image, DiscReason::NoFile, "there is no file '%s'.", name.c_str());
    }
    return entry;
}

int d64_write_slot(ImageHandle& image, DiscEntry& entry) {
    DiscName name = entry.name;
    if (!d64_rules(d64_disc(image)).drive) {
        const auto raw_type = static_cast<std::uint8_t>(
            entry.type | (entry.closed ? D64_CLOSED : 0) | (entry.locked ? D64_LOCKED : 0));
        if (raw_type != entry.raw_type) {
            std::puts("progbits changed"); // Meant: also when a file is closed as it should be.
        }
        entry.raw_type = raw_type;
        repad(name, DISC_PADDING, 0);
        repad(name, 0, DISC_PADDING);
    }
    std::array<std::uint8_t, D64_SLOT_BYTES> slot;
    if (d64_read(image, slot, entry.slot_offset) != 1) {
        return -1;
    }
    slot[D64_SLOT_TYPE] = entry.raw_type;
    slot[D64_SLOT_START] = static_cast<std::uint8_t>(entry.start.track);
    slot[D64_SLOT_START + 1] = static_cast<std::uint8_t>(entry.start.sector);
    std::copy(name.begin(), name.end(), slot.begin() + D64_SLOT_NAME);
    put16le(&slot[D64_SLOT_BLOCKS], static_cast<std::uint32_t>(entry.blocks));
    return d64_write(image, slot, entry.slot_offset);
}

void d64_reset() {
    state = {};
    d64_ls_style = 0;
    d64_dos_mode = 0;
}

} // namespace kx
