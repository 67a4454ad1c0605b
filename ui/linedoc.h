// The line document: a text that arrives piece by piece from a stream, held as lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <memory>

namespace kx {

struct LineDocStore;

struct LineDoc {
    std::string file_name; // as opened
    int file_type = -1;    // file type identifier; -1: derived from the name
    std::unique_ptr<LineDocStore> store;

    LineDoc();
    ~LineDoc();
    LineDoc(const LineDoc&) = delete;
    LineDoc& operator=(const LineDoc&) = delete;
};

/// A stream to read text from. The descriptor is closed with its owner when `owned`.
struct LineSource {
    int fd = -1;
    bool owned = false;

    LineSource() = default;
    LineSource(int descriptor, bool own) : fd(descriptor), owned(own) {}
    ~LineSource();
    LineSource(LineSource&& other) noexcept;
    LineSource& operator=(LineSource&& other) noexcept;
};

/// Opens the file and names the document after it. A source with fd -1 when it cannot be opened;
/// a directory cannot.
LineSource linedoc_open(LineDoc& doc, const std::string& path);

/// Takes what the source has now, at most 64 KiB, without waiting for more. The number of bytes
/// taken: 0 when there is nothing now; a file that grows may have more later. -1 when nothing
/// more can come (a pipe whose writer is gone, an error).
long linedoc_read(LineDoc& doc, LineSource& source);

/// Lines held; the last one may lack its line end and grow.
std::size_t linedoc_count(const LineDoc& doc);

/// Draws line `index` at the cursor: from column `offset` of the line on, at most `width` cells,
/// the rest of them blank. Tabs go to the next multiple of eight columns, UTF-8 is drawn as such
/// where the locale allows, other control characters and broken bytes as '.'.
void linedoc_draw(const LineDoc& doc, std::size_t index, int offset, int width);

} // namespace kx
