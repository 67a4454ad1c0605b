// The port layer: byte-wise and multi-byte transfers over the serial line, the write throttle and
// the connection to the stub.
#include "link/port.h"

#include "core/active_config.h"
#include "link/target_memory.h"
#include "ui/msg.h"
#include "util/bytes.h"
#include "util/clock.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kx {

SerialLine port_line;

namespace {

constexpr int OPEN_ATTEMPTS = 16;
constexpr std::int32_t SPACING_DIVIDEND = 5000000;
constexpr std::size_t STRING_MAX = 255;
constexpr std::size_t FLUSH_MAX = 1 << 20; // bytes: what sends more than this never ends

struct State {
    WallTimer write_timer; // one for the port: it spans from byte to byte
};
State state;

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
        msg_info("portglue.c: problem here!\n"); // Meant: users know it by this name.
    } else if (elapsed != 0) {
        // Meant: within the timer's first millisecond bytes go out without waiting, and without a
        // new start, so that a burst of a millisecond follows every byte that was waited for.
        wait_spacing(state.write_timer, elapsed, spacing);
    }
}

int serial_port_open(const std::string& device, long baud) {
    return serial_open(port_line, device, baud);
}

int serial_port_adopt(Fd fd, const std::string& device, long baud) {
    return serial_adopt(port_line, std::move(fd), device, baud);
}

void serial_port_close() {
    port_flush_input();
    serial_close(port_line);
    port_read_error = false;
    port_write_error = false;
}

int serial_port_has_data() {
    return serial_has_data(port_line);
}

bool serial_port_wait_data(int milliseconds) {
    return serial_wait_data(port_line, milliseconds);
}

std::uint8_t serial_port_getc() {
    return serial_getc(port_line);
}

std::uint8_t serial_port_getc_nowait() {
    return serial_getc_nowait(port_line);
}

std::size_t serial_port_read_waiting(std::span<std::uint8_t> bytes) {
    return serial_read_waiting(port_line, bytes.data(), bytes.size());
}

int serial_port_flush_input() {
    std::uint8_t dropped[4096];
    std::size_t sum = 0;
    for (std::size_t got = 1; got > 0 && sum < FLUSH_MAX; sum += got) {
        got = serial_read_waiting(port_line, dropped, sizeof dropped);
    }
    port_read_error = false;
    return sum > 0 ? 1 : 0;
}

void serial_port_write(std::span<const std::uint8_t> bytes) {
    if (!is_throttled()) {
        serial_write(port_line, bytes.data(), bytes.size());
        return;
    }
    port_write_error = false;
    for (const std::uint8_t byte : bytes) {
        // A slow line may take hours for what is one write here.
        if (serial_stops_write(port_line, 0)) {
            return;
        }
        throttle();
        if (serial_putc(port_line, byte) != 0) {
            return;
        }
    }
}

// A port of a type that is not built: all its operations do nothing.

int no_port_open(const std::string&, long) {
    port_line.failure = {"open", FailureKind::System, ENODEV};
    return -1;
}

int no_port_adopt(Fd, const std::string& device, long baud) {
    return no_port_open(device, baud);
}

struct PortType {
    std::int32_t type; // 0: whatever has no row of its own
    int (*open)(const std::string& device, long baud);
    int (*adopt)(Fd fd, const std::string& device, long baud);
    void (*close)();
    int (*has_data)();
    bool (*wait_data)(int milliseconds);
    std::uint8_t (*getc)();
    std::uint8_t (*getc_nowait)();
    std::size_t (*read_waiting)(std::span<std::uint8_t> bytes);
    int (*flush_input)();
    void (*write)(std::span<const std::uint8_t> bytes); // at least one
};

constexpr PortType port_types[] = {
    {.type = PORT_SERIAL,
     .open = serial_port_open,
     .adopt = serial_port_adopt,
     .close = serial_port_close,
     .has_data = serial_port_has_data,
     .wait_data = serial_port_wait_data,
     .getc = serial_port_getc,
     .getc_nowait = serial_port_getc_nowait,
     .read_waiting = serial_port_read_waiting,
     .flush_input = serial_port_flush_input,
     .write = serial_port_write},
    {.type = 0,
     .open = no_port_open,
     .adopt = no_port_adopt,
     .close = [] {},
     .has_data = [] { return 0; },
     .wait_data = [](int) { return false; },
     .getc = [] { return std::uint8_t{0}; },
     .getc_nowait = [] { return std::uint8_t{0}; },
     .read_waiting = [](std::span<std::uint8_t>) { return std::size_t{0}; },
     .flush_input = [] { return 0; },
     .write = [](std::span<const std::uint8_t>) {}},
};

const PortType& port() {
    const PortType* row = port_types;
    while (row->type != 0 && row->type != active_config.port_type) {
        row++;
    }
    return *row;
}

} // namespace

const Failure& port_last_error() {
    return port_line.failure;
}

// A device is held from the opening on, also when its settings failed.
bool port_is_open() {
    return port_line.fd >= 0;
}

int port_open(const std::string& device, long baud) {
    if (port_is_open()) {
        return 1;
    }
    int result = -1;
    for (int attempt = 0; attempt < OPEN_ATTEMPTS && result == -1; attempt++) {
        result = port().open(device, baud);
    }
    return result;
}

int port_adopt(Fd fd, const std::string& device, long baud) {
    if (port_is_open()) {
        port_line.failure = {"open", FailureKind::System, EBUSY};
        return -1;
    }
    return port().adopt(std::move(fd), device, baud);
}

void port_close() {
    port().close();
}

int port_has_data() {
    return port().has_data();
}

bool port_wait_data(int milliseconds) {
    return port().wait_data(milliseconds);
}

std::uint8_t port_getc() {
    return port().getc();
}

std::uint8_t port_getc_nowait() {
    return port().getc_nowait();
}

int port_flush_input() {
    return port().flush_input();
}

void port_putc(std::uint8_t byte) {
    port().write({&byte, 1});
}

void port_write_block(std::span<const std::uint8_t> bytes) {
    if (!bytes.empty()) {
        port().write(bytes);
    }
}

void port_read_block(std::span<std::uint8_t> bytes) {
    std::ranges::fill(bytes, std::uint8_t{0});
    while (!bytes.empty()) {
        std::size_t got = port_read_waiting(bytes);
        if (got == 0) {
            bytes.front() = port_getc();
            if (port_read_error) {
                return;
            }
            got = 1;
        }
        bytes = bytes.subspan(got);
    }
}

std::size_t port_read_waiting(std::span<std::uint8_t> bytes) {
    return port().read_waiting(bytes);
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
    while (byte != 0 && !port_read_error) {
        if (text.size() < STRING_MAX) {
            text += static_cast<char>(byte);
        }
        byte = port_getc();
    }
    return text;
}

int target_connect(const std::string& port_name, long baud, unsigned port_addr) {
    if (!mem_reaches_target()) {
        return 1;
    }
    if (port_is_open()) {
        msg_info("target stub [%s:0x%04x:%ld baud] already initialized.", port_name.c_str(),
                 port_addr, baud);
        return 1;
    }
    msg_info("connecting to target stub [%s:0x%04x:%ld baud]", port_name.c_str(), port_addr, baud);
    if (port_open(port_name, baud) == -1) {
        msg_error("couldnt open port %s.", port_name.c_str()); // Meant: the spelling.
        return -1;
    }
    return 1;
}

void port_reset() {
    serial_close(port_line);
    port_line.device = SerialLine{}.device;
    port_line.failure = {};
    port_read_error = true;
    port_write_error = true;
    state = {};
}

} // namespace kx
