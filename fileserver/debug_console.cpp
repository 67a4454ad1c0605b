// The debug console: the front end by the configured console, and the serial console.
#include "fileserver/debug_console.h"

#include "core/active_config.h"
#include "fileserver/petscii_private.h"
#include "link/serial.h"
#include "ui/msg.h"
#include "util/ascii.h"
#include "util/bytes.h"

#include <cstdio>
#include <cstdlib>

namespace kx {

namespace {

struct State {
    SerialLine line; // beside the link's own
};
State state;

struct Console {
    int id; // of the registry; a console without a row does nothing
    void (*init)();
    void (*deinit)();
    int (*poll)();
    void (*putc)(std::uint8_t byte);
};
constexpr Console consoles[] = {
    {.id = CONSOLE_SERIAL,
     .init = serial_console_init,
     .deinit = serial_console_deinit,
     .poll = serial_console_poll,
     .putc = serial_console_putc},
};

const Console* find_console() {
    for (const Console& console : consoles) {
        if (console.id == active_config.console) {
            return &console;
        }
    }
    return nullptr;
}

} // namespace

void target_console_init() {
    msg_info("target_console_init");
    if (const Console* console = find_console()) {
        console->init();
    }
    msg_info("target_console_init done");
}

void target_console_deinit() {
    msg_info("target_console_deinit");
    if (const Console* console = find_console()) {
        console->deinit();
    }
    msg_info("target_console_deinit done");
}

void target_console_flush() {}

int target_console_poll() {
    const Console* console = find_console();
    return console != nullptr ? console->poll() : 0;
}

std::uint8_t target_console_poll_byte() {
    return static_cast<std::uint8_t>(target_console_poll());
}

void target_console_putc(std::uint8_t byte) {
    if (const Console* console = find_console()) {
        console->putc(byte);
    }
}

// Meant: no console has these two, the serial one included. Whoever reads one polls.
int target_console_getc() {
    return -1;
}

int target_console_getw() {
    return -1;
}

void serial_console_init() {
    msg_info("serial_console_init");
    // A program that runs without the console it was told to have would lose what the target
    // says, so that settings which fail end it as well.
    if (serial_open(state.line, active_config.console_port, active_config.console_baud) != 1) {
        std::exit(1);
    }
    msg_info("serial_console_init done");
}

void serial_console_deinit() {
    msg_info("serial_console_deinit");
    serial_console_poll(); // dropped
    msg_info("serial_console_deinit done");
}

int serial_console_poll() {
    return serial_getc_nowait(state.line);
}

std::uint8_t serial_console_getc() {
    return serial_getc(state.line);
}

void serial_console_putc(std::uint8_t byte) {
    serial_putc(state.line, byte);
}

void serial_console_putw(std::uint16_t word) {
    std::uint8_t bytes[2];
    put16le(bytes, word);
    serial_write(state.line, bytes, sizeof bytes);
}

std::uint16_t serial_console_getw() {
    const std::uint8_t bytes[] = {serial_console_getc(), serial_console_getc()};
    return get16le(bytes);
}

void serial_console_puts(const std::string& text) {
    const std::string codes = petscii_from_host(text);
    serial_write(state.line, reinterpret_cast<const std::uint8_t*>(codes.data()), codes.size());
    std::printf(">>KX %s\n", ascii_escape(text, "\n\r\t\b").c_str());
}

void debug_console_reset() {
    serial_close(state.line);
    state.line.device = SerialLine{}.device;
}

} // namespace kx
