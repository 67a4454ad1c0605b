// The stub's commands: headers out, data out or in, and what to do when the target falls silent.
#include "link/stub.h"

#include "core/active_config.h"
#include "link/port.h"

#include <algorithm>
#include <ctime>
#include <initializer_list>

namespace kx {

namespace {

constexpr int POLLS_MAX = 10000;   // for one byte, a millisecond apart
constexpr std::size_t BURST = 256; // bytes at once: more than a serial line brings in a millisecond
constexpr int BURST_WAITS = 8;     // after one

void sleep_millisecond() {
    const timespec millisecond = {0, 1000000};
    nanosleep(&millisecond, nullptr);
}

struct {
    void (*sleep)() = sleep_millisecond;
} state;

// Whether arguments can tell a transfer of so many bytes; of more, the stub would take the rest of
// the data for commands, or send too few.
bool is_tellable(std::size_t length) {
    const int bits = std::min((active_config.addr_bits + 7) / 8 * 8, 32);
    return length <= std::uint64_t{1} << bits;
}

// "A", the letter and the arguments, each of as many bytes as an address needs, lowest first.
// False when they could not be sent.
bool send_command(char letter, std::initializer_list<std::uint32_t> arguments) {
    std::uint8_t bytes[2 + 4 * 4] = {'A', static_cast<std::uint8_t>(letter)};
    std::size_t length = 2;
    for (std::uint32_t argument : arguments) {
        for (int bit = 0; bit < active_config.addr_bits && bit < 32; bit += 8) {
            bytes[length++] = static_cast<std::uint8_t>(argument >> bit);
        }
    }
    port_state.write_error = 0;
    port_write_block({bytes, length});
    return port_state.is_open != 0 && port_state.write_error == 0;
}

int send_data(bool sent, std::span<const std::uint8_t> bytes) {
    if (sent) {
        port_write_block(bytes);
    }
    sent = sent && port_state.write_error == 0;
    port_state.write_error = 0;
    return sent ? 1 : -1;
}

int receive_failed() {
    port_flush_input();
    return -1;
}

// Takes what is waiting, and sleeps only when nothing is. A sleep is cheaper than to be woken for
// every byte of a slow line; but where bytes come in bursts, the next one is waited for instead.
int receive_data(bool sent, std::span<std::uint8_t> bytes) {
    if (!sent) {
        return receive_failed();
    }
    int waits = BURST_WAITS; // the answer may be quick
    for (int polls = 0; !bytes.empty();) {
        const std::size_t got = port_read_waiting(bytes);
        if (got > 0) {
            bytes = bytes.subspan(got);
            polls = 0;
        } else if (++polls > POLLS_MAX || !port_wait_data(waits > 0 ? 1 : 0)) {
            return receive_failed();
        } else if (waits <= 0) {
            state.sleep();
        }
        waits = got >= BURST ? BURST_WAITS : waits - 1;
    }
    // A byte too many means that target and host have lost each other.
    return port_flush_input() == 0 ? 1 : -1;
}

bool send_image_command(char letter, const ImagePlace& place, std::size_t length) {
    return send_command(
        letter, {static_cast<std::uint32_t>(place.track), static_cast<std::uint32_t>(place.sector),
                 static_cast<std::uint32_t>(place.byte), static_cast<std::uint32_t>(length)});
}

} // namespace

void stub_set_sleep(void (*sleep)()) {
    state.sleep = sleep != nullptr ? sleep : sleep_millisecond;
}

int stub_write_memory(std::uint32_t start, std::uint32_t end, std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || !is_tellable(bytes.size())) {
        return bytes.empty() ? 1 : -1;
    }
    return send_data(send_command('B', {end, start}), bytes);
}

int stub_read_memory(std::uint32_t start, std::span<std::uint8_t> bytes) {
    if (bytes.empty() || !is_tellable(bytes.size())) {
        return bytes.empty() ? 1 : -1;
    }
    const auto end = static_cast<std::uint32_t>(start + bytes.size());
    return receive_data(send_command('C', {end, start}), bytes);
}

void stub_set_pc(std::uint32_t address) {
    send_command('D', {address});
}

void stub_execute() {
    send_command('K', {});
}

int stub_write_image(const ImagePlace& place, std::span<const std::uint8_t> bytes) {
    return send_data(send_image_command('L', place, bytes.size()), bytes);
}

int stub_read_image(const ImagePlace& place, std::span<std::uint8_t> bytes) {
    return receive_data(send_image_command('M', place, bytes.size()), bytes);
}

} // namespace kx
