// Chains of blocks on a 1541 disc, and all blocks that a file has.
#include "files/d64_private.h"

#include <algorithm>

namespace kx {

namespace {

using Visited = std::bitset<D64_BLOCKS>;

/// Why a chain must not go on at this block, which is then counted as visited; else Marked.
D64ChainEnd enter(Visited& visited, ImagePlace place) {
    if (!d64_is_on_disc(place)) {
        return D64ChainEnd::Outside;
    }
    const auto number = static_cast<std::size_t>(d64_block_number(place));
    if (visited[number]) {
        return D64ChainEnd::Loop;
    }
    visited.set(number);
    return D64ChainEnd::Marked;
}

D64ChainEnd collect(ImageHandle& image, ImagePlace start, std::vector<ImagePlace>& blocks) {
    return d64_walk_chain(image, start, [&](ImagePlace place, ImagePlace) {
        blocks.push_back(place);
        return true;
    });
}

/// What ended the first of some chains that is not whole.
D64ChainEnd first_fault(std::initializer_list<D64ChainEnd> ends) {
    const auto fault = std::find_if(ends.begin(), ends.end(),
                                    [](D64ChainEnd end) { return end != D64ChainEnd::Marked; });
    return fault != ends.end() ? *fault : D64ChainEnd::Marked;
}

/// The chains that an index of GEOS records names, also behind one that is damaged.
D64ChainEnd collect_records(ImageHandle& image, ImagePlace index, std::vector<ImagePlace>& blocks) {
    D64Block block;
    if (!d64_is_on_disc(index) || d64_read(image, block, d64_block_offset(image, index)) != 1) {
        return D64ChainEnd::Unreadable;
    }
    D64ChainEnd end = D64ChainEnd::Marked;
    for (std::size_t at = D64_LINK_BYTES; at < block.size(); at += D64_LINK_BYTES) {
        // Track 0 stands for no record and for the end.
        const ImagePlace start = {.track = block[at], .sector = block[at + 1]};
        end = first_fault({end, collect(image, start, blocks)});
        if (blocks.size() > D64_BLOCKS) {
            return first_fault({end, D64ChainEnd::Long});
        }
    }
    return end;
}

} // namespace

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
    case D64ChainEnd::Long:
        return "is longer than a disc has room for";
    default:
        return "is whole";
    }
}

bool d64_is_system(const D64Disc& disc, ImagePlace place) {
    return place == D64_HEADER || place == D64_FIRST_DIR ||
           std::find(disc.directory.begin(), disc.directory.end(), place) != disc.directory.end();
}

D64ChainEnd d64_walk_chain(ImageHandle& image, ImagePlace start, const D64Visitor& visit,
                           D64System system) {
    const D64Disc& disc = d64_disc(image);
    const bool drive = d64_rules(disc).drive;
    Visited visited;
    // Track 0 is no block in a link, so in an entry neither: it has none.
    for (ImagePlace place = start; place.track != 0;) {
        if (system == D64System::Ends && (place == D64_HEADER || place == D64_FIRST_DIR ||
                                          (drive && d64_is_system(disc, place)))) {
            return D64ChainEnd::System;
        }
        const D64ChainEnd end = enter(visited, place);
        if (end != D64ChainEnd::Marked) {
            return end;
        }
        std::uint8_t bytes[D64_LINK_BYTES];
        if (d64_read(image, bytes, d64_block_offset(image, place)) != 1) {
            return D64ChainEnd::Unreadable;
        }
        const ImagePlace link = {.track = bytes[0], .sector = bytes[1]};
        if (!visit(place, link)) {
            return D64ChainEnd::Stopped;
        }
        place = link;
    }
    return D64ChainEnd::Marked;
}

bool disc_is_decoration(const DiscEntry& entry) {
    return entry.type == DISC_DEL && entry.blocks == 0;
}

D64ChainEnd d64_file_blocks(ImageHandle& image, const DiscEntry& entry,
                            std::vector<ImagePlace>& blocks, int* side_blocks) {
    if (disc_is_decoration(entry)) {
        return D64ChainEnd::Marked;
    }
    D64ChainEnd side = D64ChainEnd::Marked;
    if (entry.type == DISC_REL || entry.geos) {
        const std::size_t before = blocks.size();
        side = collect(image, entry.side, blocks);
        if (side_blocks != nullptr && !entry.geos) {
            *side_blocks = static_cast<int>(blocks.size() - before);
        }
    }
    const D64ChainEnd data = collect(image, entry.start, blocks);
    const D64ChainEnd records =
        entry.records ? collect_records(image, entry.start, blocks) : D64ChainEnd::Marked;
    return first_fault({side, data, records});
}

ImagePlace d64_border_block(ImageHandle& image) {
    std::array<std::uint8_t, D64_GEOS_AT + 4 - D64_BORDER_AT> bytes;
    const auto at = D64_HEADER_OFFSET + static_cast<std::int64_t>(D64_BORDER_AT);
    constexpr std::uint8_t geos[] = {'G', 'E', 'O', 'S'};
    if (d64_read(image, bytes, at) != 1 ||
        !std::equal(std::begin(geos), std::end(geos),
                    bytes.begin() + D64_GEOS_AT - D64_BORDER_AT)) {
        return {};
    }
    const ImagePlace border = {.track = bytes[0], .sector = bytes[1]};
    return d64_is_on_disc(border) ? border : ImagePlace{};
}

} // namespace kx
