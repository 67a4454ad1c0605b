// A pretended target: the debug stub at the far end of a pseudo-terminal, with memory, a disc image
// and a program that asks the host's fileserver, all of it able to fail. It has no thread of its
// own: whoever plays it calls `fake_step` in a loop.
#pragma once

#include "core/registry.h"
#include "tools/fake_line.h"
#include "tools/fake_program.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx {

/// What goes wrong from a number of bytes on.
enum class FakeFailure {
    None,
    Silent,  // reads are not answered
    Surplus, // answers have a byte too many
    Short,   // answers lack their last byte
    Rom,     // writes are not kept
    Stuck,   // takes no byte, flow control off
    Hangup,  // the line goes
    Replug,  // the line goes, and a second later there is a new one
};

constexpr int FAKE_ADDR_BITS_MAX = 24;

struct FakeSettings {
    int addr_bits = 16;              // 1 to FAKE_ADDR_BITS_MAX
    int fileserver = FILESERVER_CBM; // of the registry: in what protocol the program asks
    long baud = 0;                   // the line's pace; 0: as fast as it goes
    FakeFailure failure = FakeFailure::None;
    std::uint64_t failure_after = 0; // bytes over the line, either way
    std::vector<FakeRequest> requests;
};

/// What is told of a target: `kind` is "command", "request", "unknown" or "line". That a line goes
/// is told while its device's name is still its own.
struct FakeEvent {
    const char* kind;
    std::string words;       // "read   $0801-$0802     1 byte"; a name in it as it was given
    std::string hex;         // of a command's head, or of bytes that are none
    bool ok = true;          // false: cut off, refused
    std::uint64_t bytes = 0; // that a command or a request moves
};

/// The command that is being taken or answered.
struct FakeCommand {
    std::vector<std::uint8_t> head; // as far as it has come
    std::uint64_t at = 0;           // where the next byte goes to or comes from
    std::uint64_t length = 0;       // bytes of data in all
    std::uint64_t left = 0;         // that are still to come
    std::uint64_t answer_left = 0;  // that are still to be sent
    bool surplus = false;           // one more after them
    bool image = false;             // the disc's bytes, not memory's
};

struct FakeTarget {
    FakeSettings settings;
    FakeLine line;
    std::vector<std::uint8_t> memory; // 2^addr_bits bytes
    std::vector<std::uint8_t> image;  // a 1541 disc; IMAGE_HELD_LIMIT bytes
    std::uint32_t pc = 0;
    unsigned runs = 0; // how often K has come
    std::function<void(const FakeEvent&)> tell;

    // How far it is; nobody else's.
    FakeCommand command;
    std::vector<std::uint8_t> input; // not looked at yet
    std::vector<std::uint8_t> out;   // to be sent
    std::vector<std::uint8_t> unknown;
    FakeDialog dialog;
    std::size_t next_request = 0;
    bool running = false;  // requests are made
    bool starting = false; // but the first one only when the host that started it stays
    bool failed = false;   // the failure of the line has happened
    std::chrono::steady_clock::time_point quiet_since; // the host has said nothing
    std::chrono::steady_clock::time_point failed_at;
};

/// Makes the line, with memory and image zero. Settings stay as they are. 0, or -1 with errno.
int fake_open(FakeTarget& target, const FakeSettings& settings);

/// Waits at most that long for the host, or for `other_fd` to be readable (-1: none), and plays on.
/// The program begins its requests with a `K`, or half a second after a host has opened the line
/// and said nothing: it waits for them then.
void fake_step(FakeTarget& target, int milliseconds, int other_fd = -1);

/// Whether all requests have been made and answered.
bool fake_is_done(const FakeTarget& target);

/// What has not been told yet, as a command cut off. The line hangs up.
void fake_close(FakeTarget& target);

} // namespace kx
