// Names, numbers and file data between the servers and the port. Data moves in large pieces; a
// line that has gone ends every transfer.
#include "fileserver/line_private.h"

#include "link/port.h"
#include "util/bytes.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <unistd.h>
#include <vector>

namespace kx {

namespace {

constexpr std::size_t NAME_MAX_BYTES = 255;
constexpr std::size_t PIECE = 65536; // bytes of a file in memory at a time
constexpr int WAIT_MS = 60000;       // between two looks at a line that stays silent

std::vector<std::uint8_t> piece_for(std::uint32_t length) {
    return std::vector<std::uint8_t>(std::min<std::size_t>(length, PIECE));
}

// Fills the piece as far as the file goes: the number of bytes read.
std::size_t read_piece(int fd, std::span<std::uint8_t> piece) {
    std::size_t done = 0;
    while (done < piece.size()) {
        const ssize_t got = ::read(fd, piece.data() + done, piece.size() - done);
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

bool write_piece(int fd, std::span<const std::uint8_t> piece) {
    while (!piece.empty()) {
        const ssize_t put = ::write(fd, piece.data(), piece.size());
        if (put > 0) {
            piece = piece.subspan(static_cast<std::size_t>(put));
        } else if (put == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// What has come, waited for until there is any: at most the piece's size. 0 when the line is gone.
std::size_t receive_piece(std::span<std::uint8_t> piece) {
    std::size_t done = port_read_waiting(piece);
    while (done == 0 && port_wait_data(WAIT_MS)) {
        done = port_read_waiting(piece);
    }
    for (std::size_t got = done; got > 0 && done < piece.size(); done += got) {
        got = port_read_waiting(piece.subspan(done));
    }
    return done;
}

} // namespace

void line_put16(std::uint32_t value) {
    std::uint8_t bytes[2];
    put16le(bytes, value);
    port_write_block(bytes);
}

std::uint16_t line_get16() {
    std::uint8_t bytes[2];
    port_read_block(bytes);
    return get16le(bytes);
}

void line_put(const std::string& bytes) {
    port_write_block({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::string line_get_name(char end) {
    std::string name;
    port_state.read_error = 1; // stays on a port that has nothing to read: no end would ever come
    char byte = static_cast<char>(port_getc());
    while (byte != end && port_state.read_error == 0) {
        if (name.size() < NAME_MAX_BYTES) {
            name += byte;
        }
        byte = static_cast<char>(port_getc());
    }
    return name;
}

bool line_send_file(int fd, std::uint32_t length) {
    std::vector<std::uint8_t> piece = piece_for(length);
    std::uint8_t last = 0;
    bool ended = false;
    while (length > 0 && port_wait_data(0)) {
        piece.resize(std::min<std::size_t>(length, piece.size()));
        const std::size_t got = ended ? 0 : read_piece(fd, piece);
        ended = got < piece.size();
        if (got > 0) {
            last = piece[got - 1];
        }
        std::fill(piece.begin() + static_cast<std::ptrdiff_t>(got), piece.end(), last);
        port_write_block(piece);
        if (port_state.write_error != 0) {
            return false;
        }
        length -= static_cast<std::uint32_t>(piece.size());
    }
    return length == 0;
}

std::uint32_t line_receive_file(int fd, std::uint32_t length, bool& written) {
    std::vector<std::uint8_t> piece = piece_for(length);
    std::uint32_t received = 0;
    written = true;
    while (received < length) {
        const std::size_t want = std::min<std::size_t>(length - received, piece.size());
        const std::size_t got = receive_piece(std::span(piece).first(want));
        if (got == 0) {
            break;
        }
        received += static_cast<std::uint32_t>(got);
        // Nothing more after a failure: it would stand at the wrong place.
        written = written && write_piece(fd, std::span(piece).first(got));
    }
    return received;
}

} // namespace kx
