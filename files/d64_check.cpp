// The check of a 1541 disc: who owns which block, and whether map, counts and sizes agree; and the
// repair, which builds map and counts anew as the drive's validation does.
#include "files/d64_private.h"

#include "util/text.h"

#include <algorithm>
#include <cstdarg>

namespace kx {

namespace {

using Owners = std::array<std::string, D64_BLOCKS>; // empty: nobody's

struct Check {
    ImageHandle& image;
    DiscFindings& findings;
    Owners owners = {};
};

__attribute__((format(printf, 2, 3))) void report(DiscFindings& findings, const char* format, ...) {
    if (findings.count++ >= DISC_MOST_FINDINGS) {
        return;
    }
    va_list args;
    va_start(args, format);
    findings.lines.push_back(text_vprintf(format, args));
    va_end(args);
}

std::string& owner_of(Owners& owners, ImagePlace place) {
    return owners[static_cast<std::size_t>(d64_block_number(place))];
}

void claim(Check& check, ImagePlace place, const std::string& who) {
    std::string& owner = owner_of(check.owners, place);
    if (!owner.empty()) {
        report(check.findings, "block %d/%d belongs to %s and to %s.", place.track, place.sector,
               owner.c_str(), who.c_str());
    } else {
        owner = who;
    }
}

void check_chain_end(Check& check, const std::string& who, D64ChainEnd end) {
    if (end != D64ChainEnd::Marked) {
        report(check.findings, "the chain of %s %s.", who.c_str(), d64_chain_fault(end));
    }
}

void check_directory(Check& check) {
    const D64Disc& disc = d64_disc(check.image);
    claim(check, D64_HEADER, "the header");
    for (const ImagePlace place : disc.directory) {
        claim(check, place, "the directory");
        if (place.track != D64_DIR_TRACK) {
            report(check.findings, "block %d/%d of the directory is not on track %d.", place.track,
                   place.sector, D64_DIR_TRACK);
        }
    }
    check_chain_end(check, "the directory", disc.directory_end);
    const ImagePlace border = d64_border_block(check.image);
    if (border.track != 0) {
        claim(check, border, "the border of GEOS");
    }
}

/// Of files with side sectors, programs do not agree on whether the size counts them.
bool size_fits(const DiscEntry& entry, std::size_t blocks, int side_blocks) {
    const int count = static_cast<int>(blocks);
    return entry.blocks == count || entry.blocks == count - side_blocks;
}

void check_entry(Check& check, const DiscEntry& entry) {
    const std::string who = "'" + entry.text + "'";
    if (entry.raw_type == 0 || disc_is_decoration(entry)) {
        return;
    }
    if (!entry.closed) {
        report(check.findings, "%s was not closed.", who.c_str());
    }
    std::vector<ImagePlace> blocks;
    int side_blocks = 0;
    check_chain_end(check, who, d64_file_blocks(check.image, entry, blocks, &side_blocks));
    for (const ImagePlace place : blocks) {
        claim(check, place, who);
    }
    if (!size_fits(entry, blocks.size(), side_blocks)) {
        report(check.findings, "%s has %d blocks by the directory and %d by its chain.",
               who.c_str(), entry.blocks, static_cast<int>(blocks.size()));
    }
    const DiscEntry* first = d64_find_codes(d64_disc(check.image), entry.name);
    if (first != nullptr && first->number != entry.number) {
        report(check.findings, "entries %d and %d have the same name, %s.", first->number,
               entry.number, who.c_str());
    }
}

void check_track(Check& check, int track) {
    for (int sector = 0; sector < disc_sectors(track); sector++) {
        const ImagePlace place = {.track = track, .sector = sector};
        const std::string& owner = owner_of(check.owners, place);
        const bool free = d64_is_free(check.image, place);
        if (free && !owner.empty()) {
            report(check.findings, "block %d/%d belongs to %s and is marked free.", track, sector,
                   owner.c_str());
        } else if (!free && owner.empty()) {
            report(check.findings, "block %d/%d belongs to nobody and is marked used.", track,
                   sector);
        }
    }
    const int count = d64_free_by_count(check.image, track);
    const int bits = d64_free_by_bits(check.image, track);
    if (count != bits) {
        report(check.findings, "track %d has %d free blocks by its count and %d by its bits.",
               track, count, bits);
    }
}

/// The drive's number of an error, from the controller's that an image keeps: 2 is 20.
int drive_error(std::uint8_t error) {
    constexpr int not_ready = 15;
    return error == not_ready ? 74 : error + 18;
}

void check_error_bytes(Check& check) {
    bool error_bytes = false;
    const int tracks = d64_tracks_of_size(image_size(check.image), error_bytes);
    if (check.image.held || !error_bytes) {
        return;
    }
    D64Bytes errors(static_cast<std::size_t>(d64_sectors_before(tracks + 1)));
    if (target_imgread(check.image, errors,
                       IMAGE_BLOCK_BYTES * static_cast<std::int64_t>(errors.size())) != 1) {
        return;
    }
    for (int track = 1; track <= tracks; track++) {
        for (int sector = 0; sector < disc_sectors(track); sector++) {
            const int block = d64_block_number({.track = track, .sector = sector});
            const std::uint8_t error = errors[static_cast<std::size_t>(block)];
            if (error > 1) { // 1 and, of some programs, 0 are none
                report(check.findings, "block %d/%d gives error %d when a drive reads it.", track,
                       sector, drive_error(error));
            }
        }
    }
}

/// Takes a block for a file or the directory. False when it is taken already.
bool take(ImageHandle& image, Owners& owners, ImagePlace place, const std::string& who) {
    std::string& owner = owner_of(owners, place);
    if (!owner.empty()) {
        d64_fail(image, DiscReason::Shared, "block %d/%d belongs to %s and to %s.", place.track,
                 place.sector, owner.c_str(), who.c_str());
        return false;
    }
    owner = who;
    d64_set_free(image, place, false);
    return true;
}

int scratch_open_file(ImageHandle& image, DiscEntry& entry, DiscFindings& done) {
    report(done, "'%s' was not closed and is scratched.", entry.text.c_str());
    entry.raw_type = 0;
    entry.type = DISC_DEL;
    entry.locked = false;
    return d64_write_slot(image, entry);
}

int take_file(ImageHandle& image, DiscEntry& entry, Owners& owners, DiscFindings& done) {
    std::vector<ImagePlace> blocks;
    int side_blocks = 0;
    const D64ChainEnd end = d64_file_blocks(image, entry, blocks, &side_blocks);
    if (end != D64ChainEnd::Marked) {
        return d64_fail(image, DiscReason::Damaged, "the chain of '%s' %s.", entry.text.c_str(),
                        d64_chain_fault(end));
    }
    for (const ImagePlace place : blocks) {
        if (!take(image, owners, place, "'" + entry.text + "'")) {
            return -1;
        }
    }
    if (size_fits(entry, blocks.size(), side_blocks)) {
        return 1;
    }
    const int count = static_cast<int>(blocks.size());
    report(done, "'%s' has %d blocks, not %d.", entry.text.c_str(), count, entry.blocks);
    entry.blocks = count;
    return d64_write_slot(image, entry);
}

/// Header, directory and what GEOS keeps beside it.
int take_system(ImageHandle& image, Owners& owners) {
    const D64Disc& disc = d64_disc(image);
    if (disc.directory_end != D64ChainEnd::Marked) {
        return d64_fail(image, DiscReason::Damaged, "the chain of the directory %s.",
                        d64_chain_fault(disc.directory_end));
    }
    if (!take(image, owners, D64_HEADER, "the header")) {
        return -1;
    }
    for (const ImagePlace place : disc.directory) {
        if (!take(image, owners, place, "the directory")) {
            return -1;
        }
    }
    const ImagePlace border = d64_border_block(image);
    return border.track == 0 || take(image, owners, border, "the border of GEOS") ? 1 : -1;
}

void report_map(ImageHandle& before, ImageHandle& after, int track, DiscFindings& done) {
    for (int sector = 0; sector < disc_sectors(track); sector++) {
        const ImagePlace place = {.track = track, .sector = sector};
        const bool free = d64_is_free(after, place);
        if (free != d64_is_free(before, place)) {
            report(done, "block %d/%d is %s.", track, sector, free ? "free" : "used");
        }
    }
    const int count = d64_free_by_count(after, track);
    const int old = d64_free_by_count(before, track);
    if (count != old) {
        report(done, "track %d has %d free blocks, not %d.", track, count, old);
    }
}

} // namespace

std::string d64_size_fault(std::int64_t bytes) {
    bool error_bytes = false;
    if (d64_tracks_of_size(bytes, error_bytes) != 0) {
        return "";
    }
    const std::int64_t least = IMAGE_BLOCK_BYTES * D64_TOTAL_BLOCKS;
    return text_printf(bytes < least ? "the image is cut: it has %lld bytes of %lld."
                                     : "the image has %lld bytes, which are no number of tracks; "
                                       "35 tracks have %lld.",
                       static_cast<long long>(bytes), static_cast<long long>(least));
}

void d64_find_faults(ImageHandle& image, DiscFindings& findings) {
    // Another look at the image, by the drive's rules whatever the handle's are.
    ImageHandle view = d64_snapshot(image);
    DiscFailure failure;
    const unsigned charset = d64_disc(image).charset;
    view.disc = std::make_shared<D64Disc>();
    view.disc->rules = &d64_drive_rules;
    view.disc->failure = &failure;
    view.disc->charset = charset;
    d64_read_disc(view);
    Check check{.image = view, .findings = findings};
    const std::string size_fault = image.held ? "" : d64_size_fault(image_size(image));
    if (!size_fault.empty()) {
        report(findings, "%s", size_fault.c_str());
    }
    check_directory(check);
    for (const DiscEntry& entry : d64_entries(*view.disc)) {
        check_entry(check, entry);
    }
    D64Block header; // without it there is no map, and the lines above say why
    const bool has_map = d64_read(view, header, D64_HEADER_OFFSET) == 1;
    for (int track = 1; has_map && track <= d64_map_tracks(view); track++) {
        check_track(check, track);
    }
    Check errors{.image = image, .findings = findings};
    check_error_bytes(errors);
}

int d64_check(ImageHandle& image, std::FILE* out) {
    DiscFindings findings;
    d64_find_faults(image, findings);
    for (const std::string& line : findings.lines) {
        std::fprintf(out, "%s\n", line.c_str());
    }
    if (findings.count > DISC_MOST_FINDINGS) {
        std::fprintf(out, "and %d more.\n", findings.count - DISC_MOST_FINDINGS);
    }
    return findings.count == 0 ? 1 : -1;
}

int d64_repair(ImageHandle& image, DiscFindings& done) {
    D64Disc& disc = d64_disc(image);
    ImageHandle before = image;
    d64_map_tracks(image); // looks for an extended map, before it changes
    before.disc = std::make_shared<D64Disc>(disc);
    Owners owners;
    d64_clear_map(image);
    if (take_system(image, owners) != 1) {
        return -1;
    }
    for (DiscEntry& entry : d64_entries(disc)) {
        int result = 1;
        if (entry.raw_type != 0 && !entry.closed) {
            result = scratch_open_file(image, entry, done);
        } else if (entry.raw_type != 0 && !disc_is_decoration(entry)) {
            result = take_file(image, entry, owners, done);
        }
        if (result != 1) {
            return -1;
        }
    }
    for (int track = 1; track <= d64_map_tracks(image); track++) {
        report_map(before, image, track, done);
    }
    return d64_write_map(image);
}

} // namespace kx
