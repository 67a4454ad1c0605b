// The port layer: byte-wise and multi-byte transfers over the serial line, the write throttle and
// the connection to the stub.
#include "link/port.h"

#include "core/active_config.h"
#include "link/target_memory.h"
#include "ui/msg.h"
#include "util/bytes.h"
#include "util/clock.h"

#include <algorithm>

namespace kx {

PortState port_state;
SerialLine port_line;

namespace {

constexpr int OPEN_ATTEMPTS = 16;
constexpr std::int32_t SPACING_DIVIDEND = 5000000;
constexpr std::size_t STRING_MAX = 255;
constexpr std::size_t FLUSH_MAX = 1 << 20; // bytes: what sends more than this never ends

struct {
    WallTimer write_timer; // one for the port: it spans from byte to byte
} state;

// The one type that is built.
bool is_serial() {
    return active_config.port_type == PORT_SERIAL;
}

// Waits, processor burning, so that the spacing is kept to a millisecond. A clock that steps back
// ends the wait: what has passed before the step is not known to it any more.
void wait_spacing(WallTimer& timer, std::uint32_t elapsed, std::uint32_t spacing) {
    while (elapsed < spacing) {
        const std::uint32_t before = timer.last;
        elapsed = wall_timer_elapsed(timer);
        if (static_cast<std::int32_t>(timer.last - before) < 0) {
            break;
        }
    }
    wall_timer_start(timer);
}

// Whether `max_speed` limits the writes; a negative one makes no sense and does not.
bool is_throttled() {
    return active_config.max_speed > 0;
}

void throttle() {
    const auto spacing = static_cast<std::uint32_t>(SPACING_DIVIDEND / active_config.max_speed);
    const std::uint32_t elapsed = wall_timer_elapsed(state.write_timer);
    if (spacing == 0) {
        msg_info("portglue.c: problem here!\n");
    } else if (elapsed != 0) {
        // Within the timer's first millisecond bytes go out without waiting, and without a new
        // start: meant, a burst of a millisecond follows every byte that was waited for.
        wait_spacing(state.write_timer, elapsed, spacing);
    }
}

} // namespace

int port_open(const std::string& device, long baud) {
    if (port_state.is_open != 0) {
        return 1;
    }
    int result = -1;
    for (int attempt = 0; attempt < OPEN_ATTEMPTS && result == -1; attempt++) {
        result = is_serial() ? serial_open(port_line, device, baud) : -1;
    }
    port_state.is_open = result != -1 ? 1 : 0;
    return result;
}

void port_close() {
    if (!is_serial()) {
        return;
    }
    port_flush_input();
    serial_close(port_line);
    port_state = {.is_open = 0, .read_error = 0, .write_error = 0};
}

int port_has_data() {
    return is_serial() ? serial_has_data(port_line) : 0;
}

bool port_wait_data(int milliseconds) {
    return is_serial() && serial_wait_data(port_line, milliseconds);
}

std::uint8_t port_getc() {
    if (!is_serial()) {
        return 0;
    }
    const std::uint8_t byte = serial_getc(port_line);
    port_state.read_error = port_line.read_error ? 1 : 0;
    return byte;
}

std::uint8_t port_getc_nowait() {
    if (!is_serial()) {
        return 0;
    }
    const std::uint8_t byte = serial_getc_nowait(port_line);
    port_state.read_error = port_line.read_error ? 1 : 0;
    return byte;
}

int port_flush_input() {
    if (!is_serial()) {
        return 0;
    }
    std::uint8_t dropped[4096];
    std::size_t sum = 0;
    for (std::size_t got = 1; got > 0 && sum < FLUSH_MAX; sum += got) {
        got = serial_read_waiting(port_line, dropped, sizeof dropped);
    }
    port_state.read_error = 0;
    return sum > 0 ? 1 : 0;
}

void port_putc(std::uint8_t byte) {
    if (!is_serial()) {
        return;
    }
    if (is_throttled()) {
        throttle();
    }
    port_state.write_error = serial_putc(port_line, byte);
}

void port_write_block(std::span<const std::uint8_t> bytes) {
    if (!is_serial() || bytes.empty()) {
        return;
    }
    if (!is_throttled()) {
        serial_write(port_line, bytes.data(), bytes.size());
        port_state.write_error = port_line.write_error ? 1 : 0;
        return;
    }
    for (std::uint8_t byte : bytes) {
        port_putc(byte);
        if (port_state.write_error != 0) {
            return;
        }
    }
}

void port_read_block(std::span<std::uint8_t> bytes) {
    std::ranges::fill(bytes, std::uint8_t{0});
    while (!bytes.empty() && is_serial()) {
        bytes.front() = port_getc();
        if (port_state.read_error != 0) {
            return;
        }
        bytes = bytes.subspan(1);
        bytes = bytes.subspan(serial_read_waiting(port_line, bytes.data(), bytes.size()));
    }
}

std::size_t port_read_waiting(std::span<std::uint8_t> bytes) {
    if (!is_serial()) {
        return 0;
    }
    const std::size_t got = serial_read_waiting(port_line, bytes.data(), bytes.size());
    port_state.read_error = port_line.read_error ? 1 : 0;
    return got;
}

void port_put32(std::uint32_t value) {
    std::uint8_t bytes[4];
    put32be(bytes, value);
    port_write_block(bytes);
}

std::uint32_t port_get32() {
    std::uint8_t bytes[4];
    port_read_block(bytes);
    return get32be(bytes);
}

void port_put_string(const std::string& text) {
    port_write_block({reinterpret_cast<const std::uint8_t*>(text.c_str()), text.size() + 1});
}

std::string port_get_string() {
    std::string text;
    std::uint8_t byte = port_getc();
    while (byte != 0 && port_state.read_error == 0) {
        if (text.size() < STRING_MAX) {
            text += static_cast<char>(byte);
        }
        byte = port_getc();
    }
    return text;
}

int target_connect(const std::string& port_name, long baud, unsigned port_addr) {
    if (mem_mode == MEM_SIMULATOR) {
        return 1;
    }
    if (port_state.is_open != 0) {
        msg_info("target stub [%s:0x%04x:%ld baud] already initialized.", port_name.c_str(),
                 port_addr, baud);
        return 1;
    }
    msg_info("connecting to target stub [%s:0x%04x:%ld baud]", port_name.c_str(), port_addr, baud);
    if (port_open(port_name, baud) == -1) {
        msg_error("couldnt open port %s.", port_name.c_str());
        return -1;
    }
    return 1;
}

void port_reset() {
    serial_close(port_line);
    port_line.device = SerialLine{}.device;
    port_state = {};
    state = {};
}

} // namespace kx
