// The line document: a text that arrives piece by piece from a stream, known by its lines.
#pragma once

#include "util/fd.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace kx {

struct LineStore;

/// The text only ever grows. That of a pipe is held in memory; that of a regular file is read again
/// when it is drawn, and what the file has lost by then is drawn as blanks.
struct LineDoc {
    std::string file_name; // as opened
    int file_type = -1;    // file type identifier; -1: whoever asks derives it from the name
    std::unique_ptr<LineStore> store;
    std::size_t lines = 0;
    std::size_t bytes = 0;
    bool line_open = false; // the last line has no line end yet

    LineDoc();
    ~LineDoc();
    LineDoc(const LineDoc&) = delete;
    LineDoc& operator=(const LineDoc&) = delete;
};

/// A stream to read text from. The descriptor is closed with it when it is `owned`.
struct LineSource {
    int fd = -1;
    Fd owned; // the same, or none

    LineSource() = default;
    LineSource(int descriptor, bool own) : fd(descriptor), owned(own ? descriptor : -1) {}
};

/// Opens the file `dir` + `name` and names the document after it. A source with fd -1 when it
/// cannot be opened, and `errno` tells why; a directory cannot. A pipe is opened without waiting
/// for its writer. Without memory for the name the program ends: see `linedoc_read`.
LineSource linedoc_open(LineDoc& doc, const std::string& dir, const std::string& name);

/// Takes what the source has now, at most 64 KiB, without waiting for more. The number of bytes
/// taken: 0 when there is nothing now; a file that grows may have more later. -1 when nothing
/// more can come (a pipe whose writer is gone, an error). Without memory for the text the screen
/// is closed and the program ends with status 0 and an error message on standard error.
long linedoc_read(LineDoc& doc, LineSource& source);

/// Lines held; the last one may lack its line end and grow.
std::size_t linedoc_count(const LineDoc& doc);

/// Bytes held, line ends included. While it stays the same, so does every line.
std::size_t linedoc_size(const LineDoc& doc);

/// Draws line `index` at the cursor: from column `offset` of the line on, `width` cells, blanks
/// behind the line's end; only blanks when there is no such line. See `linedoc_cells`.
void linedoc_draw(const LineDoc& doc, std::size_t index, int offset, int width);

/// The cells of `text` from column `offset` on, at most `width`, safe to write to a terminal:
/// tabs go to the next multiple of eight columns, characters of the locale are kept (see
/// `cell_char`), control characters become '.'. A wide character cut by an edge becomes a blank.
/// `cells` gets the number of cells.
std::string linedoc_cells(std::string_view text, int offset, int width, int& cells);

} // namespace kx
