// A target that holds a disc image: a thread at the far end of a serial line that plays the debug
// stub's image commands, for addresses of two bytes.
#pragma once

#include "tests/support/pty.h"

#include <atomic>
#include <thread>

namespace kx::test {

class ScriptedTarget {
public:
    ScriptedTarget() : thread_(&ScriptedTarget::run, this) {}
    ~ScriptedTarget();
    ScriptedTarget(const ScriptedTarget&) = delete;
    ScriptedTarget& operator=(const ScriptedTarget&) = delete;

    const std::string& device() const { return pty.device; } // for port_open

    const Pty pty;
    /// In hexadecimal, without their data; to be read when the last one has been answered.
    std::vector<std::string> commands;

private:
    void run();

    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

} // namespace kx::test
