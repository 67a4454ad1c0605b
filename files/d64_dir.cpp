// The directory of a 1541 disc: reading it, names in their forms, finding files, the listings, and
// writing a slot back.
#include "files/d64_private.h"

#include "charsets/charset.h"
#include "util/ascii.h"
#include "util/bytes.h"

#include <algorithm>

namespace kx {

int d64_ls_style = 0;

namespace {

constexpr std::int64_t DISC_NAME_OFFSET = 91392 + 0x90;
constexpr std::int64_t DISC_ID_OFFSET = 91392 + 0xA2;

// A slot's fields. The first two bytes are the block's link in its first slot, unused in others.
constexpr std::size_t SLOT_TYPE = 2;
constexpr std::size_t SLOT_START = 3;
constexpr std::size_t SLOT_NAME = 5;
constexpr std::size_t SLOT_SIDE = 21;
constexpr std::size_t SLOT_BLOCKS = 30;

constexpr std::uint8_t TYPE_BITS = 0x0F;
constexpr std::uint8_t LOCKED = 0x40;
constexpr std::uint8_t CLOSED = 0x80;
constexpr std::uint8_t PADDING = 0xA0; // behind a stored name

constexpr const char* type_names[] = {"del",  "seq",  "prg",  "usr",  "rel",  "cbm",
                                      "0110", "0111", "1000", "1001", "1010", "1011",
                                      "1100", "1101", "1110", "1111"};

/// The mode that names are converted by; 0, which changes nothing, before its tables are loaded.
unsigned name_charset() {
    return charset_is_loaded(CHARSET_UPASC) ? CHARSET_UPASC : 0;
}

/// Host text of the codes before the first zero; `form` is 0 or CHARSET_DOT.
std::string to_text(std::span<const std::uint8_t> codes, unsigned form) {
    const auto length =
        static_cast<std::size_t>(std::find(codes.begin(), codes.end(), 0) - codes.begin());
    std::string text(length, '\0');
    charset_to_ascii(text.data(), codes.data(), length, name_charset() | form);
    return text;
}

/// Of a name that anybody may have written: no way into another directory, no hidden file, and
/// nothing that a terminal would act on.
std::string to_host_name(std::span<const std::uint8_t> codes) {
    std::string name = to_text(codes, 0);
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
void repad(D64Name& name, std::uint8_t from, std::uint8_t to) {
    if (name.back() == from) {
        auto end = name.rbegin();
        while (end != name.rend() && *end == from) {
            *end++ = to;
        }
    }
}

D64Entry make_entry(const ImageHandle& image, std::span<const std::uint8_t> slot) {
    D64Entry entry;
    entry.raw_type = slot[SLOT_TYPE];
    entry.type = entry.raw_type & TYPE_BITS;
    entry.locked = (entry.raw_type & LOCKED) != 0;
    entry.closed = (entry.raw_type & CLOSED) != 0;
    entry.start = {slot[SLOT_START], slot[SLOT_START + 1]};
    entry.side = {slot[SLOT_SIDE], slot[SLOT_SIDE + 1]};
    entry.start_offset = d64_block_offset(image, entry.start);
    D64Name name;
    std::copy_n(slot.begin() + SLOT_NAME, name.size(), name.begin());
    repad(name, PADDING, 0);
    d64_set_name(entry, name);
    entry.blocks = get16le(&slot[SLOT_BLOCKS]);
    return entry;
}

std::string read_text(ImageHandle& image, std::int64_t offset, std::size_t length) {
    std::vector<std::uint8_t> codes(length);
    return d64_read(image, codes, offset) == 1 ? to_text(codes, CHARSET_DOT) : "";
}

/// The first two characters are the index in hexadecimal; what follows does not count.
bool is_index(const std::string& name, std::size_t index) {
    constexpr char digits[] = "0123456789abcdef";
    return name.size() >= 2 && index < 256 && name[0] == digits[index / 16] &&
           name[1] == digits[index % 16];
}

long files_used() {
    long used = 0;
    for (const D64Entry& entry : d64_state.entries) {
        used += d64_is_shown(entry) ? entry.blocks : 0;
    }
    return used;
}

long map_used() {
    long used = D64_TOTAL_BLOCKS;
    for (int track = 1; track <= D64_MAP_TRACKS; track++) {
        used -= d64_free_by_count(track);
    }
    return used;
}

void print_map(std::FILE* out) {
    std::fputs("            11111111112222222222333333 3333444\n"
               "   12345678901234567890123456789012345 6789012\n\n",
               out);
    for (int sector = 0; sector < d64_sectors(1); sector++) {
        std::fprintf(out, "%2d ", sector);
        for (int track = 1; track <= D64_TRACKS; track++) {
            const D64Place place = {track, sector};
            const char used = d64_is_free(place) ? '.' : '*';
            std::fputc(d64_is_on_disc(place) ? used : ' ', out);
            if (track == D64_MAP_TRACKS) {
                std::fputc(' ', out);
            }
        }
        std::fputc('\n', out);
    }
}

void print_native(std::FILE* out, const D64Entry& entry) {
    // A flag for each bit of the type byte, highest first: closed, locked, the type's.
    constexpr char set[] = ".<++++++";
    constexpr char clear[] = "*.......";
    for (int i = 0; i < 8; i++) {
        std::fputc((entry.raw_type & 0x80 >> i) != 0 ? set[i] : clear[i], out);
    }
    std::fprintf(out, " %2d:%2d %s %7ld %s\n", entry.start.track, entry.start.sector,
                 type_names[entry.type], static_cast<long>(entry.blocks), entry.text.c_str());
}

void print_ls(std::FILE* out, const D64Entry& entry, std::size_t index) {
    std::fprintf(out, "%s   1 root     root %12ld Jan 1 12:00 %02x.%s.%s\n", "-rw-rw-rw-",
                 entry.blocks * static_cast<long>(D64_DATA_BYTES), static_cast<unsigned>(index),
                 entry.host_name.c_str(), type_names[entry.type]);
}

} // namespace

int d64_read_directory(ImageHandle& image) {
    d64_state = {};
    d64_state.disc_name = read_text(image, DISC_NAME_OFFSET, 16);
    d64_state.disc_id = read_text(image, DISC_ID_OFFSET, 5);
    d64_read_map(image);
    d64_walk_directory(
        image, [&](D64Place place, const D64Block& block) { d64_add_slots(image, place, block); });
    return 1;
}

void d64_add_slots(const ImageHandle& image, D64Place place, const D64Block& block) {
    for (std::size_t slot = 0; slot < block.size(); slot += D64_SLOT_BYTES) {
        D64Entry entry = make_entry(image, std::span(block).subspan(slot, D64_SLOT_BYTES));
        entry.slot_offset = d64_block_offset(image, place) + static_cast<std::int64_t>(slot);
        d64_state.entries.push_back(std::move(entry));
    }
}

bool d64_holds_slots(const ImageHandle& image, D64Place place) {
    const std::int64_t start = d64_block_offset(image, place);
    return std::any_of(d64_state.entries.begin(), d64_state.entries.end(),
                       [&](const D64Entry& entry) { return entry.slot_offset == start; });
}

D64Name d64_to_codes(const std::string& name) {
    std::string text = name.substr(0, D64Name{}.size());
    if (name_charset() == 0) {
        std::replace_if(
            text.begin(), text.end(), [](char c) { return !ascii_is_print(c); }, '.');
    }
    D64Name codes = {};
    charset_from_ascii(codes.data(), text.data(), text.size(), text.size(), name_charset());
    return codes;
}

void d64_set_name(D64Entry& entry, const D64Name& codes) {
    entry.name = codes;
    entry.text = to_text(codes, CHARSET_DOT);
    entry.host_name = to_host_name(codes);
}

bool d64_is_shown(const D64Entry& entry) {
    return entry.raw_type != 0 || d64_rules().shows_scratched;
}

D64Entry* d64_find(const std::string& name) {
    const D64Name codes = d64_to_codes(name);
    for (std::size_t index = 0; index < d64_state.entries.size(); index++) {
        D64Entry& entry = d64_state.entries[index];
        const bool same = d64_ls_style != 0 ? is_index(name, index)
                                            : entry.text == name || (d64_rules().compares_codes &&
                                                                     entry.name == codes);
        if (entry.type != 0 && same) {
            return &entry;
        }
    }
    return nullptr;
}

int d64_write_slot(ImageHandle& image, D64Entry& entry) {
    const auto raw_type = static_cast<std::uint8_t>(entry.type | (entry.closed ? CLOSED : 0) |
                                                    (entry.locked ? LOCKED : 0));
    if (raw_type != entry.raw_type && d64_rules().tells_type) {
        std::puts("progbits changed"); // meant: also when a file is closed as it should be
    }
    entry.raw_type = raw_type;
    std::array<std::uint8_t, D64_SLOT_BYTES> slot;
    if (d64_read(image, slot, entry.slot_offset) != 1) {
        return -1;
    }
    slot[SLOT_TYPE] = entry.raw_type;
    slot[SLOT_START] = static_cast<std::uint8_t>(entry.start.track);
    slot[SLOT_START + 1] = static_cast<std::uint8_t>(entry.start.sector);
    D64Name name = entry.name;
    repad(name, 0, PADDING);
    std::copy(name.begin(), name.end(), slot.begin() + SLOT_NAME);
    put16le(&slot[SLOT_BLOCKS], static_cast<std::uint32_t>(entry.blocks));
    return d64_write(image, slot, entry.slot_offset);
}

int d64_print_info(std::FILE* out) {
    const long files = files_used();
    const long map = map_used();
    std::fprintf(out, "disc name   : %s\n", d64_state.disc_name.c_str());
    std::fprintf(out, "disc id     : %s\n", d64_state.disc_id.c_str());
    std::fprintf(out, "blocks used : %ld / %ld\n", files, map);
    std::fprintf(out, "blocks free : %ld / %ld\n", D64_FILE_BLOCKS - files, D64_TOTAL_BLOCKS - map);
    std::fprintf(out, "blocks total: %ld / %ld\n\n", long{D64_FILE_BLOCKS}, long{D64_TOTAL_BLOCKS});
    print_map(out);
    return 1;
}

int d64_list_directory(std::FILE* out) {
    for (std::size_t index = 0; index < d64_state.entries.size(); index++) {
        const D64Entry& entry = d64_state.entries[index];
        if (!d64_is_shown(entry) || (entry.raw_type == 0 && entry.text.empty())) {
            continue;
        }
        if (d64_ls_style != 0) {
            print_ls(out, entry, index);
        } else {
            print_native(out, entry);
        }
    }
    return 1;
}

void d64_reset() {
    d64_state = {};
    d64_drop_changes();
    d64_ls_style = 0;
    d64_dos_mode = 0;
}

} // namespace kx
