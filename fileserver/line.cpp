// Names, numbers and file data between the servers and the port. Data moves in large pieces.
#include "fileserver/line_private.h"

#include "fileserver/request_private.h"
#include "link/port.h"
#include "util/bytes.h"
#include "util/clock.h"
#include "util/fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <unistd.h>
#include <vector>

namespace kx {

namespace {

constexpr std::size_t PIECE = 65536; // bytes of a file in memory at a time

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

// What has come, waited for until there is any: at most the piece's size. 0 when nothing will.
std::size_t receive_piece(std::span<std::uint8_t> piece) {
    if (request_is_dropped()) {
        return 0;
    }
    const std::uint32_t start = clock_ms();
    std::size_t done = port_read_waiting(piece);
    while (done == 0 && !request_gives_up(clock_ms() - start)) {
        if (!port_wait_data(request_look_ms())) {
            request_drop("the line is gone");
            return 0;
        }
        done = port_read_waiting(piece);
    }
    for (std::size_t got = done; got > 0 && done < piece.size(); done += got) {
        got = port_read_waiting(piece.subspan(done));
    }
    return done;
}

// Zeros where nothing comes.
template <std::size_t SIZE>
std::array<std::uint8_t, SIZE> receive_bytes() {
    std::array<std::uint8_t, SIZE> bytes = {};
    std::span<std::uint8_t> rest = bytes;
    while (!rest.empty() && !request_is_dropped()) {
        rest = rest.subspan(receive_piece(rest));
    }
    return bytes;
}

} // namespace

std::uint8_t line_get() {
    return receive_bytes<1>()[0];
}

void line_put(std::uint8_t byte) {
    line_put_bytes({&byte, 1});
}

std::uint16_t line_get16() {
    return get16le(receive_bytes<2>().data());
}

void line_put16(std::uint32_t value) {
    std::uint8_t bytes[2];
    put16le(bytes, value);
    line_put_bytes(bytes);
}

std::uint32_t line_get32() {
    return get32be(receive_bytes<4>().data());
}

void line_put32(std::uint32_t value) {
    std::uint8_t bytes[4];
    put32be(bytes, value);
    line_put_bytes(bytes);
}

void line_put_bytes(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || request_is_dropped()) {
        return;
    }
    port_write_block(bytes);
    if (port_write_error) {
        request_drop("the line takes no bytes");
    }
}

void line_put_text(std::string_view bytes) {
    line_put_bytes({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::string line_get_name(char end) {
    std::string name;
    char byte = static_cast<char>(line_get());
    while (byte != end && !request_is_dropped()) {
        if (name.size() < LINE_NAME_MAX) {
            name += byte;
        } else if (request_gives_up(0)) { // one without an end may leave nothing to wait for
            break;
        }
        byte = static_cast<char>(line_get());
    }
    return name;
}

std::uint32_t line_send_file(int fd, std::uint32_t length) {
    std::vector<std::uint8_t> piece = piece_for(length);
    std::uint8_t last = 0;
    std::uint32_t sent = 0; // of the file's own
    bool ended = false;
    while (length > 0 && !request_gives_up(0)) {
        piece.resize(std::min<std::size_t>(length, piece.size()));
        const std::size_t got = ended ? 0 : read_piece(fd, piece);
        ended = got < piece.size();
        if (got > 0) {
            last = piece[got - 1];
        }
        std::fill(piece.begin() + static_cast<std::ptrdiff_t>(got), piece.end(), last);
        line_put_bytes(piece);
        if (request_is_dropped()) {
            break;
        }
        sent += static_cast<std::uint32_t>(got);
        request_event().bytes += got;
        length -= static_cast<std::uint32_t>(piece.size());
    }
    return sent;
}

std::uint32_t line_receive_file(int fd, std::uint32_t length, bool& written) {
    std::vector<std::uint8_t> piece = piece_for(length);
    std::uint32_t received = 0;
    written = true;
    request_event().expected = length;
    while (received < length && !request_gives_up(0)) {
        const std::size_t want = std::min<std::size_t>(length - received, piece.size());
        const std::size_t got = receive_piece(std::span(piece).first(want));
        received += static_cast<std::uint32_t>(got);
        request_event().bytes = received;
        // Nothing more after a failure: it would stand at the wrong place.
        if (written && fd_write_all(fd, std::span(piece).first(got)) != 0) {
            request_note_errno();
            written = false;
        }
    }
    return received;
}

} // namespace kx
