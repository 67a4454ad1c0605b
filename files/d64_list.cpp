// What people see of a 1541 disc: its header with the block map, and its directory in two styles.
#include "files/d64_private.h"

namespace kx {

int d64_ls_style = 0;

namespace {

constexpr const char* type_names[] = {"del",  "seq",  "prg",  "usr",  "rel",  "cbm",
                                      "0110", "0111", "1000", "1001", "1010", "1011",
                                      "1100", "1101", "1110", "1111"};

long files_used(const D64Disc& disc) {
    long used = 0;
    for (const DiscEntry& entry : disc.entries) {
        used += d64_is_shown(disc, entry) ? entry.blocks : 0;
    }
    return used;
}

long map_used(const D64Disc& disc) {
    long used = D64_TOTAL_BLOCKS;
    for (std::size_t at = 0; at < D64_MAP_BYTES; at += D64_TRACK_MAP_BYTES) {
        used -= disc.map[at];
    }
    return used;
}

void print_map(std::FILE* out, const D64Disc& disc) {
    std::fputs("            11111111112222222222333333 3333444\n"
               "   12345678901234567890123456789012345 6789012\n\n",
               out);
    for (int sector = 0; sector < disc_sectors(1); sector++) {
        std::fprintf(out, "%2d ", sector);
        for (int track = 1; track <= D64_TRACKS; track++) {
            const ImagePlace place = {.track = track, .sector = sector};
            const char used = d64_is_shown_free(disc, place) ? '.' : '*';
            std::fputc(d64_is_on_disc(place) ? used : ' ', out);
            if (track == D64_MAP_TRACKS) {
                std::fputc(' ', out);
            }
        }
        std::fputc('\n', out);
    }
}

void print_native(std::FILE* out, const DiscEntry& entry) {
    // A flag for each bit of the type byte, highest first: closed, locked, the type's.
    constexpr char set[] = ".<++++++";
    constexpr char clear[] = "*.......";
    for (int i = 0; i < 8; i++) {
        std::fputc((entry.raw_type & 0x80 >> i) != 0 ? set[i] : clear[i], out);
    }
    std::fprintf(out, " %2d:%2d %s %7ld %s\n", entry.start.track, entry.start.sector,
                 disc_type_name(entry.type), static_cast<long>(entry.blocks), entry.text.c_str());
}

void print_ls(std::FILE* out, const DiscEntry& entry) {
    std::fprintf(out, "%s   1 root     root %12ld Jan 1 12:00 %02x.%s.%s\n", "-rw-rw-rw-",
                 entry.blocks * static_cast<long>(D64_DATA_BYTES),
                 static_cast<unsigned>(entry.number), entry.host_name.c_str(),
                 disc_type_name(entry.type));
}

} // namespace

const char* disc_type_name(int type) {
    return type_names[type & D64_TYPE_BITS];
}

int d64_print_info(std::FILE* out) {
    const D64Disc& disc = d64_last_disc();
    const long files = files_used(disc);
    const long map = map_used(disc);
    // Meant: the totals are those of 35 tracks, whatever the image has.
    std::fprintf(out, "disc name   : %s\n", disc.disc_name.c_str());
    std::fprintf(out, "disc id     : %s\n", disc.disc_id.c_str());
    std::fprintf(out, "blocks used : %ld / %ld\n", files, map);
    std::fprintf(out, "blocks free : %ld / %ld\n", D64_FILE_BLOCKS - files, D64_TOTAL_BLOCKS - map);
    std::fprintf(out, "blocks total: %ld / %ld\n\n", long{D64_FILE_BLOCKS}, long{D64_TOTAL_BLOCKS});
    print_map(out, disc);
    return 1;
}

int d64_list_directory(std::FILE* out) {
    const D64Disc& disc = d64_last_disc();
    for (const DiscEntry& entry : disc.entries) {
        if (!d64_is_shown(disc, entry) || (entry.raw_type == 0 && entry.text.empty())) {
            continue;
        }
        if (d64_ls_style != 0) {
            print_ls(out, entry);
        } else {
            print_native(out, entry);
        }
    }
    return 1;
}

} // namespace kx
