// The pretended target, played in a thread of its own beside the test that is the host.
#pragma once

#include "tools/fake_target.h"

#include <atomic>
#include <thread>

namespace kx::test {

class FakeThread {
public:
    explicit FakeThread(const FakeSettings& settings = {});
    ~FakeThread() { stop(); }
    FakeThread(const FakeThread&) = delete;
    FakeThread& operator=(const FakeThread&) = delete;

    const std::string& device() const { return target.line.device; } // for port_open
    void send(std::uint8_t byte) const;                              // unasked, to the host
    void stop(); // the target stands still and can be looked at

    FakeTarget target;
    std::atomic<unsigned> steps = 0; // that it has made; one at least every five milliseconds
    /// The heads of its commands in hexadecimal; to be read when the last one has been answered.
    std::vector<std::string> commands;

private:
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

} // namespace kx::test
