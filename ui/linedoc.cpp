// The line document. The text is known in blocks of 64 KiB: of each, which line starts in it first.
// A pipe's blocks are all kept, with the places where lines start, two bytes a line. Of a file only
// those are that were read or drawn last; the others are read again with pread, which a file that
// shrinks meanwhile cannot turn into a signal as it could memory mapped to it.
#include "ui/linedoc.h"

#include "ui/cells_private.h"
#include "ui/con.h"
#include "util/ascii.h"
#include "util/fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::size_t BLOCK_BYTES = 0x10000; // what one read may take; places fit 16 bits
constexpr int TAB_COLUMNS = 8;
constexpr int MARKS_MAX = 4; // combining marks on a cell; more than this no screen cell keeps

constexpr std::size_t BLOCKS_AT_HAND = 3; // of a file: a screenful lies in one or two

struct LineBlock {
    std::vector<std::uint16_t> starts; // where lines start, ascending
    std::size_t size = 0;
    std::array<char, BLOCK_BYTES> text; // `size` bytes of it
};

struct LineMark {
    std::size_t first_line; // number of the first line that starts in the block or later
    bool in_line;           // the block begins within a line
};

} // namespace

struct LineStore {
    Fd file;              // regular, to be read again; none: every block is kept
    off_t file_start = 0; // where the text begins in it
    std::vector<LineMark> marks;
    std::vector<std::unique_ptr<LineBlock>> blocks; // null: to be read again
    std::deque<std::size_t> at_hand;                // of a file: those that are not null
};

LineDoc::LineDoc() = default;
LineDoc::~LineDoc() = default;

namespace {

/// Ends the program. Meant: status 0, which the programs around the viewer take as a
/// quit. The name is written in two pieces and a character at a time because there is no memory to
/// be had.
[[noreturn]] void end_without_memory(const std::string& dir, const std::string& name) {
    con_close();
    std::fputs("error: not enough memory for file ", stderr);
    for (const std::string* part : {&dir, &name}) {
        for (const char c : *part) {
            std::fputc(ascii_is_control(c) ? '.' : c, stderr);
        }
    }
    std::fputs(".\n\r", stderr);
    std::exit(0);
}

bool is_regular(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

/// Something to read, or an end to be told of. Always so for files.
bool is_readable(int fd) {
    pollfd wait{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&wait, 1, 0) > 0;
}

/// Makes room for one more block at hand, and counts it as such.
std::unique_ptr<LineBlock> take_block(LineStore& store, std::size_t number) {
    std::unique_ptr<LineBlock> block;
    if (store.file.is_open()) {
        if (store.at_hand.size() == BLOCKS_AT_HAND) {
            block = std::move(store.blocks[store.at_hand.front()]);
            store.at_hand.pop_front();
        }
        store.at_hand.push_back(number);
    }
    if (block == nullptr) {
        block = std::make_unique_for_overwrite<LineBlock>();
    }
    block->starts.clear();
    block->size = 0;
    return block;
}

/// Takes in `count` bytes that were read behind the block's text, `in_line` when they go on with a
/// line. Whether what follows them does.
bool append(LineBlock& block, std::size_t count, bool in_line) {
    const char* const text = block.text.data();
    const char* const end = text + block.size + count;
    for (const char* at = text + block.size; at < end;) {
        if (!in_line) {
            block.starts.push_back(static_cast<std::uint16_t>(at - text));
        }
        const void* found = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        in_line = found == nullptr;
        at = found == nullptr ? end : static_cast<const char*>(found) + 1;
    }
    block.size += count;
    return in_line;
}

/// The place of a text's byte in its file.
off_t place_of(const LineStore& store, std::size_t byte) {
    return store.file_start + static_cast<off_t>(byte);
}

/// The store of a document whose first bytes come from that descriptor.
std::unique_ptr<LineStore> make_store(int fd) {
    auto store = std::make_unique<LineStore>();
    const off_t place = is_regular(fd) ? lseek(fd, 0, SEEK_CUR) : -1;
    if (place >= 0) {
        store->file.reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        store->file_start = place;
    }
    return store;
}

/// Reads a block of a file again, as far as it is known. What the file has lost reads as line ends.
void read_again(const LineDoc& doc, std::size_t number, LineBlock& block) {
    const std::size_t first = number * BLOCK_BYTES;
    const std::size_t known = std::min(BLOCK_BYTES, doc.bytes - first);
    const ssize_t count =
        pread(doc.store->file.get(), block.text.data(), known, place_of(*doc.store, first));
    std::fill(block.text.begin() + std::max<ssize_t>(count, 0), block.text.begin() + known, '\n');
    append(block, known, doc.store->marks[number].in_line);
}

/// A block with its text.
LineBlock& block_at(const LineDoc& doc, std::size_t number) {
    std::unique_ptr<LineBlock>& block = doc.store->blocks[number];
    if (block == nullptr) {
        block = take_block(*doc.store, number);
        if (doc.store->file.is_open()) {
            read_again(doc, number, *block);
        }
    }
    return *block;
}

/// The block that takes the next bytes.
LineBlock& tail_block(LineDoc& doc) {
    LineStore& store = *doc.store;
    if (store.blocks.size() * BLOCK_BYTES == doc.bytes) {
        store.marks.push_back({.first_line = doc.lines, .in_line = doc.line_open});
        store.blocks.push_back(nullptr);
    }
    return block_at(doc, store.blocks.size() - 1);
}

/// The next bytes of the source, taken into the document: what read gives.
ssize_t read_piece(LineDoc& doc, int fd) {
    LineBlock& block = tail_block(doc);
    char* const end = block.text.data() + block.size;
    const std::size_t room = BLOCK_BYTES - block.size;
    const ssize_t count = doc.store->file.is_open() ? pread(doc.store->file.get(), end, room,
                                                            place_of(*doc.store, doc.bytes))
                                                    : read(fd, end, room);
    if (count > 0) {
        const std::size_t before = block.starts.size();
        doc.line_open = append(block, static_cast<std::size_t>(count), doc.line_open);
        doc.lines += block.starts.size() - before;
        doc.bytes += static_cast<std::size_t>(count);
    }
    return count;
}

/// The bytes of the line that starts there, without its line end, cut behind `max`. They stay in
/// the block when the line ends there, and are gathered in `gathered` otherwise.
std::string_view bytes_from(const LineDoc& doc, std::size_t number, std::size_t start,
                            std::size_t max, std::string& gathered) {
    for (; number < doc.store->blocks.size(); ++number, start = 0) {
        const LineBlock& block = block_at(doc, number);
        const std::string_view rest(block.text.data() + start, block.size - start);
        const std::string_view piece = rest.substr(0, max - gathered.size());
        const std::size_t end = piece.find('\n');
        const bool last = end != piece.npos || gathered.size() + piece.size() == max;
        if (gathered.empty() && last) {
            return piece.substr(0, end);
        }
        gathered.append(piece.substr(0, end));
        if (last) {
            break;
        }
    }
    return gathered;
}

/// Line `index` as `bytes_from` gives it; nothing where a changed file no longer has it.
std::string_view line_bytes(const LineDoc& doc, std::size_t index, std::size_t max,
                            std::string& gathered) {
    const std::vector<LineMark>& marks = doc.store->marks;
    const auto after = std::upper_bound(
        marks.begin(), marks.end(), index,
        [](std::size_t line, const LineMark& mark) { return line < mark.first_line; });
    const auto number = static_cast<std::size_t>(after - marks.begin()) - 1;
    const std::vector<std::uint16_t>& starts = block_at(doc, number).starts;
    const std::size_t line = index - marks[number].first_line;
    if (line >= starts.size()) {
        return {};
    }
    std::string_view bytes = bytes_from(doc, number, starts[line], max, gathered);
    // At the very end of the text a CR may be the first half of a line end that is still to come.
    if (!bytes.empty() && bytes.back() == '\r') {
        bytes.remove_suffix(1);
    }
    return bytes;
}

/// The character that `text` begins with; a tab at `column` is nothing to draw, only columns.
CellChar next_char(std::string_view text, long column) {
    if (text[0] == '\t') {
        const auto columns = TAB_COLUMNS - static_cast<int>(column % TAB_COLUMNS);
        return {.bytes = 1, .columns = columns, .shown = {}};
    }
    if (ascii_is_control(text[0])) {
        return {.bytes = 1, .columns = 1, .shown = "."};
    }
    return cell_char(text);
}

} // namespace

LineSource linedoc_open(LineDoc& doc, const std::string& dir, const std::string& name) {
    try {
        doc.file_name = dir + name;
    } catch (const std::bad_alloc&) {
        end_without_memory(dir, name);
    }
    LineSource source(open(doc.file_name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC),
                      true);
    struct stat info {};
    if (source.fd >= 0 && fstat(source.fd, &info) == 0 && S_ISDIR(info.st_mode)) {
        source = LineSource();
        errno = EISDIR;
    }
    return source;
}

long linedoc_read(LineDoc& doc, LineSource& source) {
    if (source.fd < 0) {
        return -1;
    }
    if (!is_readable(source.fd)) {
        return 0;
    }
    try {
        if (doc.store == nullptr) {
            doc.store = make_store(source.fd);
        }
        const ssize_t count = read_piece(doc, source.fd);
        if (count > 0) {
            return count;
        }
        const bool later = count == 0 ? is_regular(source.fd) : errno == EAGAIN || errno == EINTR;
        return later ? 0 : -1;
    } catch (const std::bad_alloc&) {
        end_without_memory({}, doc.file_name);
    }
}

std::size_t linedoc_count(const LineDoc& doc) {
    return doc.lines;
}

std::size_t linedoc_size(const LineDoc& doc) {
    return doc.bytes;
}

void linedoc_draw(const LineDoc& doc, std::size_t index, int offset, int width) {
    int cells = 0;
    if (index < doc.lines) {
        // No cell takes more bytes than a character and its marks, of four bytes each: a line of
        // megabytes costs no more than what is seen of it.
        const auto max = (static_cast<std::size_t>(offset) + static_cast<std::size_t>(width) + 1) *
                         4 * (1 + MARKS_MAX);
        try {
            std::string gathered;
            const std::string_view line = line_bytes(doc, index, max, gathered);
            con_puts(linedoc_cells(line, offset, width, cells).c_str());
        } catch (const std::bad_alloc&) {
            end_without_memory({}, doc.file_name);
        }
    }
    con_spaces(width - cells);
}

std::string linedoc_cells(std::string_view text, int offset, int width, int& cells) {
    const long first = offset;
    const long last = first + width;
    std::string out;
    long column = 0;
    int marks = 0;           // since the last cell
    bool cell_drawn = false; // the last cell stands at the end of `out`
    while (!text.empty()) {
        CellChar c = next_char(text, column);
        text.remove_prefix(c.bytes);
        if (c.columns == 0 && marks++ < MARKS_MAX) {
            out.append(cell_drawn ? c.shown : "");
            continue;
        }
        if (column >= last) {
            break;
        }
        if (c.columns == 0) {
            c = {.bytes = c.bytes, .columns = 1, .shown = "."};
        }
        const long next = column + c.columns;
        cell_drawn = !c.shown.empty() && column >= first && next <= last;
        if (cell_drawn) {
            out.append(c.shown);
        } else if (next > first) {
            out.append(static_cast<std::size_t>(std::min(next, last) - std::max(column, first)),
                       ' ');
        }
        marks = 0;
        column = next;
    }
    cells = static_cast<int>(std::clamp(column - first, 0L, static_cast<long>(width)));
    return out;
}

} // namespace kx
