// A target at the far end of a serial line: a thread on the master side of a pseudo-terminal that
// plays the debug stub on memory and a disc image of its own, and misbehaves on request.
#pragma once

#include "tests/support/pty.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kx::test {

/// What goes wrong with each command from now on.
enum class Fault {
    None,
    Silent,  // its answer is not sent
    Surplus, // the answer is a byte too long
    Half,    // only the answer's first half is sent
    HangUp,  // half of the answer, and the line goes
    Deaf,    // nothing more is read from the line
};

/// Sparse bytes, 0 until written.
using Cells = std::map<std::uint32_t, std::uint8_t>;
void poke(Cells& cells, std::uint32_t first, const std::vector<std::uint8_t>& bytes);
std::vector<std::uint8_t> peek(const Cells& cells, std::uint32_t first, std::size_t count);

std::string hex(const std::vector<std::uint8_t>& bytes); // "41 43 01"

class ScriptedTarget {
public:
    explicit ScriptedTarget(int addr_bits = 16);
    ~ScriptedTarget();
    ScriptedTarget(const ScriptedTarget&) = delete;
    ScriptedTarget& operator=(const ScriptedTarget&) = delete;

    const std::string& device() const { return pty_.device; } // for port_open
    int slave() const { return pty_.slave; } // the same device, open all the time: tcgetattr

    std::atomic<Fault> fault = Fault::None;
    /// By how much the end of a `B` is too high, 1 for a block write: the command does not tell.
    std::atomic<std::uint32_t> write_excess = 0;

    // To be touched before a command, or after `take` saw all of it.
    Cells memory, image;
    std::vector<std::string> commands; // in hexadecimal, without their data
    std::size_t count = 0;             // bytes received in all

    void send(const std::vector<std::uint8_t>& bytes) const; // that nobody asked for
    /// Waits until `bytes` bytes have come since the last take; a test failure after ten seconds.
    /// Returns all that have, as hex() writes them, and forgets them.
    std::string take(std::size_t bytes);

private:
    void run();
    bool execute(); // the command that `input_` begins with; false while it is incomplete
    std::uint32_t argument(std::size_t number) const;

    const std::size_t arg_bytes_;
    const std::uint32_t mask_;
    Pty pty_;
    bool hung_up_ = false;
    std::vector<std::uint8_t> input_, output_, taken_;
    std::mutex mutex_; // of the thread's work
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

} // namespace kx::test
