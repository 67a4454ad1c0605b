// The stub's commands: headers out, data out or in, and what to do when the target falls silent.
#include "link/stub.h"

#include "core/active_config.h"
#include "link/port.h"
#include "link/seams_private.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <initializer_list>
#include <vector>

namespace kx {

namespace {

constexpr std::size_t HEAD_MAX = 2 + 4 * 4; // bytes of a command before its data
constexpr std::size_t BURST = 256; // bytes at once: more than a serial line brings in a millisecond
constexpr int BURST_WAITS = 8;     // after one

void sleep_millisecond() {
    const timespec millisecond = {0, 1000000};
    nanosleep(&millisecond, nullptr);
}

struct State {
    void (*sleep)() = sleep_millisecond;
    bool (*stop)(std::uint32_t waited_ms) = nullptr;
    int polls_max = STUB_TIMEOUT_MS; // for one byte, a millisecond apart
    Failure failure;
};
State state;

// The port's failure, as one of this step.
void port_failed(const char* step) {
    state.failure = port_last_error();
    state.failure.step = step;
}

// Whether arguments can tell a transfer of so many bytes; of more, the stub would take the rest of
// the data for commands, or send too few.
bool is_tellable(std::size_t length) {
    const int bits = std::min((active_config.addr_bits + 7) / 8 * 8, 32);
    const bool tellable = length <= std::uint64_t{1} << bits;
    if (!tellable) {
        state.failure = {"command", FailureKind::System, EINVAL};
    }
    return tellable;
}

// "A", the letter and the arguments, each of as many bytes as an address needs, lowest first, and
// the command's data: in one write, as each one wakes the far end up. False when they could not be
// sent.
bool send_command(char letter, std::initializer_list<std::uint32_t> arguments,
                  std::span<const std::uint8_t> data = {}) {
    if (!port_is_open()) {
        state.failure = {"command", FailureKind::System, ENOTCONN};
        return false;
    }
    std::vector<std::uint8_t> bytes = {'A', static_cast<std::uint8_t>(letter)};
    bytes.reserve(HEAD_MAX + data.size());
    for (std::uint32_t argument : arguments) {
        for (int bit = 0; bit < active_config.addr_bits && bit < 32; bit += 8) {
            bytes.push_back(static_cast<std::uint8_t>(argument >> bit));
        }
    }
    bytes.insert(bytes.end(), data.begin(), data.end());
    port_write_error = false;
    port_write_block(bytes);
    if (port_write_error) {
        port_failed("command");
    }
    return !port_write_error;
}

// What a command with data comes to.
int finish_write(bool sent) {
    port_write_error = false;
    return sent ? 1 : -1;
}

// Whether an answer is to be waited for on, after so many polls of the input for its next byte.
bool goes_on(int polls, int wait_ms) {
    if (polls > state.polls_max) {
        state.failure = {"answer", FailureKind::Silent, 0};
        return false;
    }
    if (state.stop != nullptr && state.stop(static_cast<std::uint32_t>(polls))) {
        state.failure = {"answer", FailureKind::System, ECANCELED};
        return false;
    }
    if (!port_wait_data(wait_ms)) {
        port_failed("answer");
        return false;
    }
    return true;
}

// Takes what is waiting, and sleeps only when nothing is. A sleep is cheaper than to be woken for
// every byte of a slow line; but where bytes come in bursts, the next one is waited for instead.
bool receive_bytes(std::span<std::uint8_t> bytes) {
    int waits = BURST_WAITS; // the answer may be quick
    for (int polls = 0; !bytes.empty();) {
        const std::size_t got = port_read_waiting(bytes);
        if (got > 0) {
            bytes = bytes.subspan(got);
            polls = 0;
        } else if (!goes_on(++polls, waits > 0 ? 1 : 0)) {
            return false;
        } else if (waits <= 0) {
            state.sleep();
        }
        waits = got >= BURST ? BURST_WAITS : waits - 1;
    }
    return true;
}

int receive_data(bool sent, std::span<std::uint8_t> bytes) {
    const bool received = sent && receive_bytes(bytes);
    const bool surplus = port_flush_input() != 0;
    if (received && surplus) { // target and host have lost each other
        state.failure = {"answer", FailureKind::Surplus, 0};
    }
    return received && !surplus ? 1 : -1;
}

bool send_image_command(char letter, const ImagePlace& place, std::size_t length,
                        std::span<const std::uint8_t> data = {}) {
    return send_command(
        letter,
        {static_cast<std::uint32_t>(place.track), static_cast<std::uint32_t>(place.sector),
         static_cast<std::uint32_t>(place.byte), static_cast<std::uint32_t>(length)},
        data);
}

} // namespace

const Failure& stub_last_error() {
    return state.failure;
}

void stub_set_timeout(int milliseconds) {
    state.polls_max = milliseconds > 0 ? milliseconds : STUB_TIMEOUT_MS;
}

void stub_set_stop(bool (*stop)(std::uint32_t waited_ms)) {
    state.stop = stop;
}

void stub_reset() {
    state = {};
}

void stub_set_sleep(void (*sleep)()) {
    state.sleep = sleep != nullptr ? sleep : sleep_millisecond;
}

int stub_write_memory(std::uint32_t start, std::uint32_t end, std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return 1;
    }
    return is_tellable(bytes.size()) ? finish_write(send_command('B', {end, start}, bytes)) : -1;
}

int stub_read_memory(std::uint32_t start, std::span<std::uint8_t> bytes) {
    if (bytes.empty()) {
        return 1;
    }
    const auto end = static_cast<std::uint32_t>(start + bytes.size());
    return is_tellable(bytes.size()) ? receive_data(send_command('C', {end, start}), bytes) : -1;
}

void stub_set_pc(std::uint32_t address) {
    send_command('D', {address});
}

void stub_execute() {
    send_command('K', {});
}

int stub_write_image(const ImagePlace& place, std::span<const std::uint8_t> bytes) {
    return finish_write(send_image_command('L', place, bytes.size(), bytes));
}

int stub_read_image(const ImagePlace& place, std::span<std::uint8_t> bytes) {
    return receive_data(send_image_command('M', place, bytes.size()), bytes);
}

} // namespace kx
