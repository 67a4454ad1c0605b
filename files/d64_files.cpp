// Files of a 1541 disc: copying them out, adding and deleting them.
#include "files/d64_private.h"

#include "ui/msg.h"
#include "util/ascii.h"
#include "util/file.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <set>

namespace kx {

namespace {

int file_bytes(int blocks) {
    return blocks * static_cast<int>(D64_DATA_BYTES);
}

/// Host images are done before anybody could read a counter.
void tell_progress(const ImageHandle& image, int blocks, int total) {
    if (image.held) {
        progress_update(blocks, total);
    }
}

/// Tells why a file cannot be followed to its end; the caller's own message says what failed.
int fail_chain(ImageHandle& image, const DiscEntry& entry, D64ChainEnd end) {
    return d64_fail(image, DiscReason::Damaged, "the chain of '%s' %s.", entry.text.c_str(),
                    d64_chain_fault(end));
}

/// Appends what the block holds. A last block may claim 255 bytes, which are one more than it has:
/// they are read on as the image goes on, and end where the image ends.
bool read_data(ImageHandle& image, ImagePlace place, ImagePlace link, D64Bytes& bytes) {
    const bool last = link.track == 0;
    const std::size_t count =
        last ? d64_rules(d64_disc(image)).last_bytes(link.sector) : D64_DATA_BYTES;
    const auto offset = d64_block_offset(image, place) + static_cast<std::int64_t>(D64_LINK_BYTES);
    const std::size_t done = bytes.size();
    bytes.resize(done + count);
    if (count == 0 || d64_read(image, std::span(bytes).subspan(done), offset) == 1) {
        return true;
    }
    const std::int64_t rest = std::max<std::int64_t>(image_size(image) - offset, 0);
    const bool cut = last && rest < static_cast<std::int64_t>(count);
    bytes.resize(done + (cut ? static_cast<std::size_t>(rest) : 0));
    return cut && (rest == 0 || d64_read(image, std::span(bytes).subspan(done), offset) == 1);
}

/// What has no chain of data is no file to be read, by the drive's rules.
int check_plain(ImageHandle& image, const DiscEntry& entry) {
    if (!d64_rules(d64_disc(image)).drive) {
        return 1;
    }
    if (entry.start.track == 0) {
        return d64_fail(image, DiscReason::NotPlain, "'%s' has no first block.",
                        entry.text.c_str());
    }
    if (entry.records) {
        return d64_fail(image, DiscReason::NotPlain, "'%s' is an index of GEOS records.",
                        entry.text.c_str());
    }
    return 1;
}

int fail_write(ImageHandle& image, const std::string& path) {
    return d64_fail_host(image, "could not write '" + ascii_escape(path) + "'");
}

/// A new file need not be on the disc yet: a whole disc of them is done much faster this way. An
/// old one is replaced by a whole one, and never the image itself.
int write_host(ImageHandle& image, const std::string& path, const D64Bytes& bytes) {
    int result = file_create(path, bytes, FileSync::Later);
    if (result != 0 && file_last_error().error == EEXIST) {
        if (image_is_file(image, path)) {
            return d64_fail(image, DiscReason::InUse, "'%s' is the image itself.", path.c_str());
        }
        result = file_replace(path, bytes);
    }
    errno = file_last_error().error;
    return result == 0 ? 1 : fail_write(image, path);
}

int extract(ImageHandle& image, const DiscEntry& entry, const std::string& host_path) {
    progress_begin("extracting '%s' (offs:%08x len:%d)... ", host_path.c_str(),
                   static_cast<unsigned>(entry.start_offset), file_bytes(entry.blocks));
    const int result = d64_copy_out(image, entry, host_path);
    progress_end(result);
    return result;
}

/// The bytes as a chain of `blocks` blocks from `start` on, which is set.
/// Meant: what a short block lacks is the block's before it; in the first one there are zeros. No
/// blocks start at the first free one, too, which stays free.
int write_chain(ImageHandle& image, std::span<const std::uint8_t> bytes, int blocks,
                ImagePlace& start) {
    const D64Rules& rules = d64_rules(d64_disc(image));
    D64Block block = {};
    bool room = rules.find_first(image, start) || blocks == 0;
    ImagePlace place = start;
    for (int done = 1; room && done <= blocks; done++) {
        const auto data = bytes.first(std::min(bytes.size(), D64_DATA_BYTES));
        bytes = bytes.subspan(data.size());
        std::copy(data.begin(), data.end(), block.begin() + D64_LINK_BYTES);
        d64_set_free(image, place, false);
        ImagePlace next = {.track = 0, .sector = static_cast<int>(data.size()) + 1};
        // Meant: without the drive's mark even the last block links to a free one, so that a disc's
        // last free block cannot be used. Readers go by the size in blocks.
        if (done < blocks || !rules.drive) {
            room = rules.find_next(image, place, next);
        }
        block[0] = static_cast<std::uint8_t>(next.track);
        block[1] = static_cast<std::uint8_t>(next.sector);
        if (room && d64_write(image, block, d64_block_offset(image, place)) != 1) {
            return -1;
        }
        tell_progress(image, done, blocks);
        place = next;
    }
    return room ? 1 : d64_fail(image, DiscReason::NoRoom, "there is no free block left.");
}

/// How many blocks a file takes. The limit, far above what any disc has, is that of the messages.
int count_blocks(std::int64_t bytes) {
    constexpr auto data_bytes = static_cast<std::int64_t>(D64_DATA_BYTES);
    constexpr std::int64_t most = std::numeric_limits<int>::max() / data_bytes;
    return static_cast<int>(std::min((bytes + data_bytes - 1) / data_bytes, most));
}

/// The host file's size, and as many of its bytes as a disc could have. False when it cannot be
/// read.
bool read_host(const std::string& path, std::int64_t& size, D64Bytes& bytes) {
    const FilePtr file = file_open(path, "rb");
    size = file ? file_size(file.get()) : -1;
    if (size < 0) {
        return false;
    }
    file_read_bytes(file.get(), D64_DATA_BYTES * D64_BLOCKS, bytes);
    return std::ferror(file.get()) == 0;
}

void begin_write(const DiscEntry& slot, const std::string& host_path, int blocks) {
    progress_begin("creating '%s' (fstoffs:%08x len:%d)... ", host_path.c_str(),
                   static_cast<unsigned>(slot.slot_offset), file_bytes(blocks));
}

/// A host file by the toolkit's own rules. Until it is complete its slot is open, without blocks.
int add_by_own_rules(ImageHandle& image, const std::string& host_path, const std::string& name) {
    D64Disc& disc = d64_disc(image);
    DiscEntry* slot = d64_rules(disc).free_slot(image);
    if (slot == nullptr) {
        return d64_fail(image, DiscReason::NoRoom, "there is no free place in the directory.");
    }
    slot->closed = slot->locked = false;
    slot->type = slot->raw_type = DISC_PRG;
    slot->blocks = 0;
    // Meant: the start stays, so an unfinished file stands for the blocks of the slot's last one.
    d64_set_name(disc, *slot, d64_to_codes(disc, name));
    std::int64_t size = 0;
    D64Bytes bytes;
    if (d64_write_slot(image, *slot) != 1 || !read_host(host_path, size, bytes)) {
        return -1;
    }
    const int blocks = count_blocks(size);
    begin_write(*slot, host_path, blocks);
    const int result = write_chain(image, bytes, blocks, slot->start);
    progress_end(result); // before the slot is closed
    if (result != 1) {
        return -1;
    }
    slot->start_offset = d64_block_offset(image, slot->start);
    slot->blocks = blocks;
    slot->closed = true;
    return d64_write_slot(image, *slot) == 1 ? d64_write_map(image) : -1;
}

int add_by_drive_rules(ImageHandle& image, const std::string& host_path, const std::string& name) {
    std::int64_t size = 0;
    D64Bytes bytes;
    DiscFile file;
    if (d64_file_name(image, name, file.name) != 1) {
        return -1;
    }
    if (!read_host(host_path, size, bytes)) {
        return d64_fail_host(image, "could not read '" + ascii_escape(host_path) + "'");
    }
    file.bytes = bytes;
    bool begun = false;
    const int result = d64_change(image, D64Change::Adds, [&] {
        DiscEntry* slot = d64_free_slot(image);
        if (slot == nullptr) {
            return -1;
        }
        begin_write(*slot, host_path, d64_blocks_of(size));
        begun = true;
        return d64_fill_slot(image, *slot, file);
    });
    if (begun) {
        progress_end(result);
    }
    return result;
}

/// Marks what is in use although the map, of a damaged disc, has it free: header, directory and
/// every block of a file.
void keep_used_blocks(ImageHandle& image) {
    D64Disc& disc = d64_disc(image);
    std::vector<ImagePlace> used = disc.directory;
    used.push_back(D64_HEADER);
    for (const DiscEntry& entry : d64_entries(disc)) {
        if (entry.raw_type == 0) {
            continue;
        }
        std::vector<ImagePlace> blocks;
        int side_blocks = 0; // which the size may leave out
        d64_file_blocks(image, entry, blocks, &side_blocks);
        // The open chain of a file by the toolkit's rules goes on behind its last block. One that
        // was never closed has no size yet.
        if (entry.closed) {
            const int most = entry.blocks + side_blocks;
            blocks.resize(std::min(blocks.size(), static_cast<std::size_t>(most)));
        }
        used.insert(used.end(), blocks.begin(), blocks.end());
    }
    for (const ImagePlace place : used) {
        if (d64_is_free(image, place)) {
            d64_set_free(image, place, false);
        }
    }
}

/// Refuses to free blocks that may be somebody else's.
int check_owner(ImageHandle& image, const DiscEntry& entry, const std::vector<ImagePlace>& blocks,
                int side_blocks) {
    const int count = static_cast<int>(blocks.size());
    if (count != entry.blocks && count - side_blocks != entry.blocks) {
        return d64_fail(image, DiscReason::Damaged,
                        "'%s' has %d blocks by the directory and %d by its chain.",
                        entry.text.c_str(), entry.blocks, count);
    }
    for (const DiscEntry& other : d64_entries(d64_disc(image))) {
        if (other.raw_type == 0 || other.number == entry.number) {
            continue;
        }
        std::vector<ImagePlace> others;
        d64_file_blocks(image, other, others);
        const auto shared =
            std::find_first_of(blocks.begin(), blocks.end(), others.begin(), others.end());
        if (shared != blocks.end()) {
            return d64_fail(image, DiscReason::Shared, "block %d/%d belongs to '%s' and to '%s'.",
                            shared->track, shared->sector, entry.text.c_str(), other.text.c_str());
        }
    }
    return 1;
}

/// The blocks that deleting the file frees.
int collect_freed(ImageHandle& image, const DiscEntry& entry, std::vector<ImagePlace>& blocks) {
    const bool drive = d64_rules(d64_disc(image)).drive;
    int side_blocks = 0;
    const auto collect = [&](ImagePlace place, ImagePlace) {
        blocks.push_back(place);
        return true;
    };
    // Meant: without the drive's rules only the mark ends the chain, so header and directory are
    // freed when it runs into them.
    const D64ChainEnd end = drive ? d64_file_blocks(image, entry, blocks, &side_blocks)
                                  : d64_walk_chain(image, entry.start, collect, D64System::Passes);
    if (end != D64ChainEnd::Marked) {
        return fail_chain(image, entry, end);
    }
    return drive ? check_owner(image, entry, blocks, side_blocks) : 1;
}

/// Another name for a file whose own one was given already: "A~2".
std::string free_name(const std::string& name, std::set<std::string>& names) {
    std::string free = name;
    for (int n = 2; !names.insert(free).second; n++) {
        free = name + "~" + std::to_string(n);
    }
    return free;
}

} // namespace

int d64_read_file(ImageHandle& image, const DiscEntry& entry, D64Bytes& bytes) {
    if (check_plain(image, entry) != 1) {
        return -1;
    }
    int blocks = 0;
    const D64ChainEnd end =
        d64_walk_chain(image, entry.start, [&](ImagePlace place, ImagePlace link) {
            tell_progress(image, ++blocks, entry.blocks);
            return read_data(image, place, link, bytes);
        });
    // Meant: without the drive's rules a chain that runs into the directory is taken as ended.
    if (end == D64ChainEnd::Marked ||
        (end == D64ChainEnd::System && !d64_rules(d64_disc(image)).drive)) {
        return 1;
    }
    return fail_chain(image, entry, end == D64ChainEnd::Stopped ? D64ChainEnd::Unreadable : end);
}

int d64_copy_out(ImageHandle& image, const DiscEntry& entry, const std::string& host_path) {
    D64Bytes bytes;
    // Over the link reading is slow work, which should not be for nothing.
    if (image.held && !file_can_write(host_path)) {
        return fail_write(image, host_path);
    }
    return d64_read_file(image, entry, bytes) == 1 ? write_host(image, host_path, bytes) : -1;
}

int d64_blocks_of(std::int64_t bytes) {
    return std::max(count_blocks(bytes), 1);
}

DiscEntry* d64_free_slot(ImageHandle& image, DiscEntry* own) {
    keep_used_blocks(image);
    DiscEntry* slot = own != nullptr ? own : d64_rules(d64_disc(image)).free_slot(image);
    if (slot == nullptr) {
        d64_fail(image, DiscReason::NoRoom, "there is no free place in the directory.");
        return nullptr;
    }
    // What its last file left between name and size: side sectors, record length, GEOS's part.
    constexpr std::uint8_t nothing[D64_SLOT_BLOCKS - D64_SLOT_SIDE] = {};
    slot->side = {};
    slot->geos = slot->records = false;
    const auto at = static_cast<std::int64_t>(D64_SLOT_SIDE);
    return d64_write(image, nothing, slot->slot_offset + at) == 1 ? slot : nullptr;
}

int d64_fill_slot(ImageHandle& image, DiscEntry& slot, const DiscFile& file) {
    const int needed = d64_blocks_of(static_cast<std::int64_t>(file.bytes.size()));
    const int free = d64_free_blocks(image);
    if (needed > free) {
        return d64_fail(image, DiscReason::NoRoom, "%d blocks needed, %d free.", needed, free);
    }
    if (write_chain(image, file.bytes, needed, slot.start) != 1) {
        return -1;
    }
    slot.start_offset = d64_block_offset(image, slot.start);
    slot.blocks = needed;
    slot.type = file.type;
    slot.closed = true;
    slot.locked = file.locked;
    slot.raw_type =
        static_cast<std::uint8_t>(file.type | D64_CLOSED | (file.locked ? D64_LOCKED : 0));
    d64_set_name(d64_disc(image), slot, file.name);
    return d64_write_slot(image, slot) == 1 ? d64_write_map(image) : -1;
}

int d64_may_delete(ImageHandle& image, const DiscEntry& entry) {
    return entry.locked && d64_rules(d64_disc(image)).drive
               ? d64_fail(image, DiscReason::Locked, "'%s' is locked.", entry.text.c_str())
               : 1;
}

int d64_free_file(ImageHandle& image, DiscEntry& entry) {
    std::vector<ImagePlace> blocks;
    if (collect_freed(image, entry, blocks) != 1) {
        return -1;
    }
    for (const ImagePlace place : blocks) {
        d64_set_free(image, place, true);
    }
    entry.closed = false;
    entry.type = entry.raw_type = 0;
    // Meant: the toolkit's own rules leave the lock, so that 0x40 stays as the type byte.
    if (d64_rules(d64_disc(image)).drive) {
        entry.locked = false;
    }
    return d64_write_slot(image, entry) == 1 ? d64_write_map(image) : -1;
}

int d64_extract_file(ImageHandle& image, const std::string& name, const std::string& host_path) {
    const DiscEntry* entry = d64_find(image, name);
    if (entry == nullptr) {
        return -1;
    }
    ImageHandle source = d64_snapshot(image);
    return extract(source, *entry, host_path);
}

int d64_extract_all(ImageHandle& image) {
    ImageHandle source = d64_snapshot(image);
    D64Disc& disc = d64_disc(source);
    const bool drive = d64_rules(disc).drive;
    std::set<std::string> names;
    int result = 1;
    for (const DiscEntry& entry : d64_entries(disc)) {
        if (entry.start.track == 0 || !d64_is_shown(disc, entry) ||
            (drive && disc_is_decoration(entry))) {
            continue;
        }
        const std::string name = drive ? free_name(entry.host_name, names) : entry.host_name;
        if (extract(source, entry, name) != 1) {
            if (!drive) {
                return 1; // Meant: the files before it have been extracted.
            }
            result = -1;
        }
    }
    return result;
}

int d64_write_file(ImageHandle& image, const std::string& host_path, const std::string& name) {
    if (d64_exists(image, name)) {
        return d64_fail(image, DiscReason::Exists, "there is a file '%s'.", name.c_str());
    }
    if (d64_rules(d64_disc(image)).drive) {
        return add_by_drive_rules(image, host_path, name);
    }
    return d64_change(image, D64Change::Adds,
                      [&] { return add_by_own_rules(image, host_path, name); });
}

int d64_delete_file(ImageHandle& image, const std::string& name) {
    DiscEntry* entry = d64_find(image, name);
    if (entry == nullptr || d64_may_delete(image, *entry) != 1) {
        return -1;
    }
    return d64_change(image, D64Change::Frees, [&] { return d64_free_file(image, *entry); });
}

} // namespace kx
