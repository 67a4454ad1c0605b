// Files of a 1541 disc: copying them out, adding and deleting them.
#include "files/d64_private.h"

#include "ui/msg.h"
#include "util/file.h"

#include <algorithm>
#include <limits>
#include <set>

namespace kx {

namespace {

using Bytes = std::vector<std::uint8_t>;

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
void warn_of_chain(const D64Entry& entry, D64ChainEnd end) {
    msg_warning("the chain of '%s' %s.", entry.text.c_str(), d64_chain_fault(end));
}

/// Appends what the block holds. A last block may claim 255 bytes, which are one more than it has:
/// they are read on as the image goes on, and end where the image ends.
bool read_data(ImageHandle& image, D64Place place, D64Place link, Bytes& bytes) {
    const bool last = link.track == 0;
    const std::size_t count = last ? d64_rules().last_bytes(link.sector) : D64_DATA_BYTES;
    const std::int64_t offset = d64_block_offset(image, place) + 2;
    const std::size_t done = bytes.size();
    bytes.resize(done + count);
    if (count == 0 || d64_read(image, std::span(bytes).subspan(done), offset) == 1) {
        return true;
    }
    const std::int64_t rest = std::max<std::int64_t>(d64_image_size(image) - offset, 0);
    if (!last || rest >= static_cast<std::int64_t>(count)) {
        return false;
    }
    bytes.resize(done + static_cast<std::size_t>(rest));
    return rest == 0 || d64_read(image, std::span(bytes).subspan(done), offset) == 1;
}

/// The file's bytes. False when its chain is damaged; one that runs into the header or the first
/// directory block is taken as ended.
bool read_file(ImageHandle& image, const D64Entry& entry, Bytes& bytes) {
    int blocks = 0;
    const D64ChainEnd end = d64_walk_chain(image, entry.start, [&](D64Place place, D64Place link) {
        tell_progress(image, ++blocks, entry.blocks);
        return read_data(image, place, link, bytes);
    });
    if (end != D64ChainEnd::Marked && end != D64ChainEnd::System) {
        warn_of_chain(entry, end == D64ChainEnd::Stopped ? D64ChainEnd::Unreadable : end);
        return false;
    }
    return true;
}

int copy_out(ImageHandle& image, const D64Entry& entry, const std::string& host_path) {
    Bytes bytes;
    if (!file_can_write(host_path) || !read_file(image, entry, bytes)) {
        return -1;
    }
    const FilePtr file = file_open(host_path, "ab");
    if (!file) {
        return -1;
    }
    // A new file has nothing to lose, and a whole disc of them is done much faster this way.
    if (file_size(file.get()) > 0) {
        return file_replace(host_path, bytes) == 0 ? 1 : -1;
    }
    const bool written =
        bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    return written && std::fflush(file.get()) == 0 ? 1 : -1;
}

int extract(ImageHandle& image, const D64Entry& entry, const std::string& host_path) {
    progress_begin("extracting '%s' (offs:%08x len:%d)... ", host_path.c_str(),
                   static_cast<unsigned>(entry.start_offset), file_bytes(entry.blocks));
    const int result = copy_out(image, entry, host_path);
    progress_end(result);
    return result;
}

/// The host file's bytes as a chain of `blocks` blocks from `start` on, which is set. What a short
/// read leaves of the block before stays in the block; before the first there are zeros.
int write_chain(ImageHandle& image, std::FILE* file, int blocks, D64Place& start) {
    const D64Rules& rules = d64_rules();
    D64Block block = {};
    bool room = rules.find_first(start);
    D64Place place = start;
    for (int done = 1; room && done <= blocks; done++) {
        const std::size_t count = std::fread(&block[2], 1, D64_DATA_BYTES, file);
        if (std::ferror(file) != 0) {
            return -1;
        }
        d64_set_free(place, false);
        D64Place next = {0, static_cast<int>(count) + 1};
        // Without the drive's mark even the last block links to a free one, so that a disc's last
        // free block cannot be used. This is meant: readers go by the size in blocks.
        if (done < blocks || !rules.marks_last) {
            room = rules.find_next(place, next);
        }
        block[0] = static_cast<std::uint8_t>(next.track);
        block[1] = static_cast<std::uint8_t>(next.sector);
        if (room && d64_write(image, block, d64_block_offset(image, place)) != 1) {
            return -1;
        }
        tell_progress(image, done, blocks);
        place = next;
    }
    if (!room) {
        msg_error("image full.");
    }
    return room ? 1 : -1;
}

/// The slot as it stands until its file is complete: open, without blocks.
void open_slot(D64Entry& slot, const std::string& name) {
    slot.closed = false;
    slot.locked = false;
    slot.type = 2;
    slot.raw_type = 2;
    slot.blocks = 0;
    slot.start = {}; // or an unfinished file would stand for the blocks of the slot's last one
    d64_set_name(slot, d64_to_codes(name));
}

int close_slot(ImageHandle& image, D64Entry& slot, D64Place start, int blocks) {
    slot.start = start;
    slot.start_offset = d64_block_offset(image, start);
    slot.blocks = blocks;
    slot.closed = true;
    return d64_write_slot(image, slot) == 1 ? d64_write_map(image) : -1;
}

/// How many blocks a file takes. The limit, far above what any disc has, is that of the messages.
int count_blocks(std::FILE* file) {
    const auto data_bytes = static_cast<long>(D64_DATA_BYTES);
    const long most = std::numeric_limits<int>::max() / data_bytes;
    const long blocks = std::min((file_size(file) + data_bytes - 1) / data_bytes, most);
    return blocks == 0 && d64_rules().marks_last ? 1 : static_cast<int>(blocks);
}

/// Fills the slot with the host file, from its title to its status.
int add_content(ImageHandle& image, std::FILE* file, const std::string& host_path, D64Entry& slot) {
    const int blocks = count_blocks(file);
    progress_begin("creating '%s' (fstoffs:%08x len:%d)... ", host_path.c_str(),
                   static_cast<unsigned>(slot.slot_offset), file_bytes(blocks));
    D64Place start;
    int result = blocks == 0 ? 1 : write_chain(image, file, blocks, start);
    if (!d64_rules().all_or_nothing) {
        progress_end(result); // before the slot is closed
        return result == 1 ? close_slot(image, slot, start, blocks) : -1;
    }
    result = result == 1 ? close_slot(image, slot, start, blocks) : -1;
    result = result == 1 ? d64_commit_changes(image) : -1;
    progress_end(result);
    return result;
}

int add_file(ImageHandle& image, const std::string& host_path, const std::string& name) {
    D64Entry* slot = d64_rules().free_slot(image);
    if (slot == nullptr) {
        msg_error("image full.");
        return -1;
    }
    open_slot(*slot, name);
    if (d64_write_slot(image, *slot) != 1) {
        return -1;
    }
    const FilePtr file = file_open(host_path, "rb");
    if (!file || file_size(file.get()) < 0) {
        return -1;
    }
    return add_content(image, file.get(), host_path, *slot);
}

/// Runs a change of the disc. One that fails leaves no trace where the rules want that; otherwise
/// what has been written stays, and what is in memory becomes the disc's again.
template <typename Change>
int change_disc(ImageHandle& image, Change change) {
    const bool all_or_nothing = d64_rules().all_or_nothing;
    D64State before;
    if (all_or_nothing) {
        before = d64_state;
        d64_gather_changes();
    }
    const int result = change();
    d64_drop_changes();
    if (result != 1 && all_or_nothing) {
        d64_state = std::move(before);
    } else if (result != 1) {
        d64_read_directory(image);
    }
    return result;
}

/// The blocks of one chain of the file. False when it is damaged.
bool collect_blocks(ImageHandle& image, const D64Entry& entry, D64Place start,
                    std::vector<D64Place>& blocks) {
    const bool protects = d64_rules().protects;
    D64ChainEnd end = d64_walk_chain(image, start, [&](D64Place place, D64Place) {
        blocks.push_back(place);
        return !protects || !d64_holds_slots(image, place);
    });
    end = end == D64ChainEnd::Stopped ? D64ChainEnd::System : end;
    if (end != D64ChainEnd::Marked && (protects || end != D64ChainEnd::System)) {
        warn_of_chain(entry, end);
        return false;
    }
    return true;
}

int free_file(ImageHandle& image, D64Entry& entry) {
    std::vector<D64Place> blocks;
    const bool has_side = d64_rules().protects && entry.type == D64_TYPE_REL;
    if (!collect_blocks(image, entry, entry.start, blocks) ||
        (has_side && !collect_blocks(image, entry, entry.side, blocks))) {
        return -1;
    }
    for (const D64Place place : blocks) {
        d64_set_free(place, true);
    }
    entry.closed = false;
    entry.type = 0;
    entry.raw_type = 0;
    // The toolkit's own rules leave the lock, so that 0x40 stays as the type byte; this is meant.
    if (d64_rules().all_or_nothing) {
        entry.locked = false;
    }
    const bool written = d64_write_slot(image, entry) == 1 && d64_write_map(image) == 1;
    if (!written || !d64_rules().all_or_nothing) {
        return written ? 1 : -1;
    }
    return d64_commit_changes(image);
}

} // namespace

int d64_extract_file(ImageHandle& image, const std::string& name, const std::string& host_path) {
    const D64Entry* entry = d64_find(name);
    if (entry == nullptr) {
        msg_error("file does not exist.");
        return -1;
    }
    return extract(image, *entry, host_path);
}

int d64_extract_all(ImageHandle& image) {
    const bool forgives = d64_rules().forgives_extract;
    std::set<std::string> names;
    int result = 1;
    for (const D64Entry& entry : d64_state.entries) {
        if (entry.start.track == 0 || !d64_is_shown(entry)) {
            continue;
        }
        std::string name = entry.host_name;
        while (!forgives && !names.insert(name).second) {
            name += '~'; // two files may have the same name as a host file's
        }
        if (extract(image, entry, name) != 1) {
            if (forgives) {
                return 1; // meant: the files before it have been extracted
            }
            result = -1;
        }
    }
    return result;
}

int d64_write_file(ImageHandle& image, const std::string& host_path, const std::string& name) {
    if (d64_find(name) != nullptr) {
        msg_error("file exists.");
        return -1;
    }
    return change_disc(image, [&] { return add_file(image, host_path, name); });
}

int d64_delete_file(ImageHandle& image, const std::string& name) {
    D64Entry* entry = d64_find(name);
    if (entry == nullptr) {
        msg_error("file does not exist.");
        return -1;
    }
    if (entry->locked && d64_rules().protects) {
        msg_error("file is locked.");
        return -1;
    }
    return change_disc(image, [&] { return free_file(image, *entry); });
}

} // namespace kx
