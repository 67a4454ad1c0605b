// The line document. The text lies in blocks of 64 KiB as it was read, each with the places in it
// where lines start, so that 200 MB of any text stay usable: two bytes a line, nothing is moved.
#include "ui/linedoc.h"

#include "ui/cells.h"
#include "ui/con.h"
#include "util/ascii.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr std::size_t BLOCK_BYTES = 0x10000; // what one read may take; places fit 16 bits
constexpr int TAB_COLUMNS = 8;
constexpr int MARKS_MAX = 4; // combining marks on a cell; more than this no screen cell keeps

} // namespace

struct LineBlock {
    std::size_t first_line = 0;        // number of the first line that starts here or later
    std::vector<std::uint16_t> starts; // where lines start, ascending
    std::size_t size = 0;
    std::array<char, BLOCK_BYTES> text; // `size` bytes of it
};

LineDoc::LineDoc() = default;
LineDoc::~LineDoc() = default;

LineSource::~LineSource() {
    if (owned && fd >= 0) {
        ::close(fd);
    }
}

LineSource::LineSource(LineSource&& other) noexcept
    : fd(std::exchange(other.fd, -1)), owned(std::exchange(other.owned, false)) {}

LineSource& LineSource::operator=(LineSource&& other) noexcept {
    std::swap(fd, other.fd);
    std::swap(owned, other.owned);
    return *this;
}

namespace {

/// Ends the program. Status 0 is meant: the programs around the viewer take it as a quit. The
/// name is written in two pieces and a character at a time because there is no memory to be had.
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

/// The block that takes the next bytes.
LineBlock& tail_block(LineDoc& doc) {
    if (doc.blocks.empty() || doc.blocks.back()->size == BLOCK_BYTES) {
        doc.blocks.push_back(std::make_unique_for_overwrite<LineBlock>());
        doc.blocks.back()->first_line = doc.lines;
    }
    return *doc.blocks.back();
}

/// Takes in `count` bytes that were read behind the block's text.
void append(LineDoc& doc, LineBlock& block, std::size_t count) {
    const char* const text = block.text.data();
    const char* const end = text + block.size + count;
    for (const char* at = text + block.size; at < end;) {
        if (!doc.line_open) {
            block.starts.push_back(static_cast<std::uint16_t>(at - text));
            ++doc.lines;
        }
        const void* found = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        doc.line_open = found == nullptr;
        at = found == nullptr ? end : static_cast<const char*>(found) + 1;
    }
    block.size += count;
    doc.bytes += count;
}

/// The bytes of a line without its line end, cut behind `max`. They stay in the block when the
/// line ends there, and are gathered in `gathered` otherwise.
std::string_view line_bytes(const LineDoc& doc, std::size_t index, std::size_t max,
                            std::string& gathered) {
    auto block =
        std::upper_bound(doc.blocks.begin(), doc.blocks.end(), index,
                         [](std::size_t line, const std::unique_ptr<LineBlock>& candidate) {
                             return line < candidate->first_line;
                         }) -
        1;
    std::size_t start = (*block)->starts[index - (*block)->first_line];
    std::string_view bytes;
    for (; block != doc.blocks.end(); ++block, start = 0) {
        const std::string_view rest((*block)->text.data() + start, (*block)->size - start);
        const std::string_view piece = rest.substr(0, max - gathered.size());
        const std::size_t end = piece.find('\n');
        const bool last = end != piece.npos || gathered.size() + piece.size() == max;
        if (gathered.empty() && last) {
            bytes = piece.substr(0, end);
            break;
        }
        bytes = gathered.append(piece.substr(0, end));
        if (last) {
            break;
        }
    }
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
    if (source.fd >= 0 && (fstat(source.fd, &info) != 0 || S_ISDIR(info.st_mode))) {
        source = LineSource();
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
        LineBlock& block = tail_block(doc);
        const ssize_t count =
            read(source.fd, block.text.data() + block.size, BLOCK_BYTES - block.size);
        if (count > 0) {
            append(doc, block, static_cast<std::size_t>(count));
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
        std::string gathered;
        con_puts(
            linedoc_cells(line_bytes(doc, index, max, gathered), offset, width, cells).c_str());
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
