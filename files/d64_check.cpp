// The check of a 1541 disc: who owns which block, and whether map, counts and sizes agree.
#include "files/d64_private.h"

#include <cstdarg>

namespace kx {

namespace {

struct Check {
    ImageHandle& image;
    std::FILE* out;
    int problems = 0;
    std::array<std::string, D64_BLOCKS> owners = {}; // empty: nobody's
};

__attribute__((format(printf, 2, 3))) void report(Check& check, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vfprintf(check.out, format, args);
    va_end(args);
    std::fputc('\n', check.out);
    check.problems++;
}

void claim(Check& check, D64Place place, const std::string& who) {
    std::string& owner = check.owners[static_cast<std::size_t>(d64_block_number(place))];
    if (!owner.empty()) {
        report(check, "block %d/%d belongs to %s and to %s.", place.track, place.sector,
               owner.c_str(), who.c_str());
    } else {
        owner = who;
    }
}

void check_chain_end(Check& check, const std::string& who, D64ChainEnd end) {
    if (end != D64ChainEnd::Marked) {
        report(check, "the chain of %s %s.", who.c_str(), d64_chain_fault(end));
    }
}

/// Claims a chain's blocks; how many there are.
int claim_chain(Check& check, D64Place start, const std::string& who) {
    int blocks = 0;
    const auto visit = [&](D64Place place, D64Place) {
        claim(check, place, who);
        blocks++;
        return true;
    };
    check_chain_end(check, who, d64_walk_chain(check.image, start, visit));
    return blocks;
}

void check_directory(Check& check) {
    claim(check, D64_HEADER, "the header");
    const auto visit = [&](D64Place place, const D64Block&) {
        claim(check, place, "the directory");
    };
    check_chain_end(check, "the directory", d64_walk_directory(check.image, visit));
}

void check_entry(Check& check, const D64Entry& entry) {
    const std::string who = "'" + entry.text + "'";
    // Lines that only decorate the listing have no blocks, whatever they say of a start.
    if (entry.raw_type == 0 || (entry.type == 0 && entry.blocks == 0)) {
        return;
    }
    if (!entry.closed) {
        report(check, "%s was not closed.", who.c_str());
    }
    int blocks = claim_chain(check, entry.start, who);
    if (entry.type == D64_TYPE_REL) {
        blocks += claim_chain(check, entry.side, who);
    }
    if (blocks != entry.blocks) {
        report(check, "%s has %d blocks by the directory and %d by its chain.", who.c_str(),
               entry.blocks, blocks);
    }
}

void check_track(Check& check, int track) {
    for (int sector = 0; sector < d64_sectors(track); sector++) {
        const D64Place place = {track, sector};
        const std::string& owner = check.owners[static_cast<std::size_t>(d64_block_number(place))];
        if (d64_is_free(place) && !owner.empty()) {
            report(check, "block %d/%d belongs to %s and is marked free.", track, sector,
                   owner.c_str());
        } else if (!d64_is_free(place) && owner.empty()) {
            report(check, "block %d/%d belongs to nobody and is marked used.", track, sector);
        }
    }
    const int count = d64_free_by_count(track);
    if (count != d64_free_by_bits(track)) {
        report(check, "track %d has %d free blocks by its count and %d by its bits.", track, count,
               d64_free_by_bits(track));
    }
}

} // namespace

int d64_check(ImageHandle& image, std::FILE* out) {
    Check check{.image = image, .out = out};
    check_directory(check);
    for (const D64Entry& entry : d64_state.entries) {
        check_entry(check, entry);
    }
    for (int track = 1; track <= D64_MAP_TRACKS; track++) {
        check_track(check, track);
    }
    return check.problems == 0 ? 1 : -1;
}

} // namespace kx
