// The scripted target: one thread moves bytes between the line and its two queues and takes
// commands off the front of what has come in.
#include "tests/support/scripted_target.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace kx::test {

using Bytes = std::vector<std::uint8_t>;

void poke(Cells& cells, std::uint32_t first, const Bytes& bytes) {
    for (std::uint8_t byte : bytes)
        cells[first++] = byte;
}

Bytes peek(const Cells& cells, std::uint32_t first, std::size_t count) {
    Bytes bytes;
    while (bytes.size() < count) {
        auto cell = cells.find(first++);
        bytes.push_back(cell == cells.end() ? 0 : cell->second);
    }
    return bytes;
}

std::string hex(const Bytes& bytes) {
    const char* const digits = "0123456789ABCDEF";
    std::string text;
    for (std::uint8_t byte : bytes)
        text += {' ', digits[byte >> 4], digits[byte & 15]};
    return text.empty() ? text : text.substr(1);
}

// Sectors before a track of a 1541 disc, counted track by track.
static std::uint32_t sectors_before(std::uint32_t track) {
    std::uint32_t sum = 0;
    for (std::uint32_t t = 1; t < track && t < 43; t++)
        sum += t < 18 ? 21 : t < 25 ? 19 : t < 31 ? 18 : 17;
    return sum;
}

Pty::Pty() {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0) {
        device = ptsname(master);
        slave = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    if (slave < 0) {
        ADD_FAILURE() << "no pseudo-terminal";
        std::abort();
    }
}

Pty::~Pty() {
    hang_up();
    close(slave);
}

void Pty::hang_up() {
    if (master >= 0)
        close(std::exchange(master, -1));
}

ScriptedTarget::ScriptedTarget(int addr_bits)
    : arg_bytes_(static_cast<std::size_t>(addr_bits + 7) / 8),
      mask_(addr_bits >= 32 ? 0xFFFFFFFF : (1U << addr_bits) - 1) {
    thread_ = std::thread(&ScriptedTarget::run, this);
}

ScriptedTarget::~ScriptedTarget() {
    ended_ = true;
    thread_.join();
}

void ScriptedTarget::run() {
    while (!ended_ && pty_.master >= 0) {
        // The time-out is for the end of the test, and for faults set meanwhile.
        const int wanted = (fault == Fault::Deaf ? 0 : POLLIN) | (output_.empty() ? 0 : POLLOUT);
        pollfd line = {pty_.master, static_cast<short>(wanted), 0};
        poll(&line, 1, 5);
        std::lock_guard lock(mutex_);
        std::uint8_t bytes[65536];
        ssize_t got = fault == Fault::Deaf ? 0 : read(pty_.master, bytes, sizeof bytes);
        if (got > 0) {
            count += static_cast<std::size_t>(got);
            taken_.insert(taken_.end(), bytes, bytes + got);
            input_.insert(input_.end(), bytes, bytes + got);
        }
        while (!input_.empty() && execute()) {
        }
        ssize_t sent = output_.empty() ? 0 : write(pty_.master, output_.data(), output_.size());
        if (sent > 0)
            output_.erase(output_.begin(), output_.begin() + sent);
        if (hung_up_)
            pty_.hang_up();
    }
}

std::uint32_t ScriptedTarget::argument(std::size_t number) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < arg_bytes_; i++)
        value |= static_cast<std::uint32_t>(input_[2 + number * arg_bytes_ + i]) << 8 * i;
    return value;
}

bool ScriptedTarget::execute() {
    static const std::map<char, std::size_t> arguments = {{'B', 2}, {'C', 2}, {'D', 1},
                                                          {'K', 0}, {'L', 4}, {'M', 4}};
    auto known = arguments.find(input_.size() > 1 ? static_cast<char>(input_[1]) : 'K');
    if (input_[0] != 'A' || known == arguments.end()) {
        input_.erase(input_.begin()); // not the beginning of a command
        return true;
    }
    const std::size_t header = 2 + known->second * arg_bytes_;
    if (input_.size() < header)
        return false;
    const char letter = known->first;
    const bool writes = letter == 'B' || letter == 'L';
    Cells& cells = letter > 'K' ? image : memory;
    std::uint32_t first = 0;
    std::size_t length = 0;
    if (letter > 'K') {
        first = (sectors_before(argument(0)) + argument(1)) * 256 + argument(2);
        length = argument(3);
    } else if (letter < 'D') {
        first = argument(1);
        length = (argument(0) - first - 1 - (writes ? write_excess.load() : 0)) & mask_;
        length++; // an end of 0 is that of the whole address space
    }
    if (writes && input_.size() < header + length)
        return false;
    const auto data = input_.begin() + static_cast<std::ptrdiff_t>(header);
    const auto end = data + static_cast<std::ptrdiff_t>(writes ? length : 0);
    if (writes) {
        poke(cells, first, Bytes(data, end));
    } else if (fault != Fault::Silent) {
        Bytes answer = peek(cells, first, length); // none to `D` and `K`
        if (fault == Fault::Half || fault == Fault::HangUp)
            answer.resize(length / 2);
        answer.resize(answer.size() + (fault == Fault::Surplus ? 1 : 0));
        output_.insert(output_.end(), answer.begin(), answer.end());
    }
    commands.push_back(hex(Bytes(input_.begin(), data)));
    input_.erase(input_.begin(), end);
    hung_up_ = fault == Fault::HangUp;
    return true;
}

void ScriptedTarget::send(const Bytes& bytes) const {
    EXPECT_EQ(write(pty_.master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::string ScriptedTarget::take(std::size_t bytes) {
    for (int wait = 0; wait < 10000; wait++, usleep(1000)) {
        std::lock_guard lock(mutex_);
        if (taken_.size() >= bytes)
            return hex(std::exchange(taken_, {}));
    }
    ADD_FAILURE() << bytes << " bytes expected, only these came: " << hex(taken_);
    return "";
}

} // namespace kx::test
