// The thread steps until it is told to end.
#include "tests/support/fake_thread.h"

#include <gtest/gtest.h>

namespace kx::test {

FakeThread::FakeThread(const FakeSettings& settings) {
    target.tell = [this](const FakeEvent& event) {
        if (std::string_view(event.kind) == "command") {
            commands.push_back(event.hex);
        }
    };
    EXPECT_EQ(fake_open(target, settings), 0);
    thread_ = std::thread([this] {
        while (!ended_) {
            fake_step(target, 5); // the time-out is for the end of the test
            ++steps;
        }
    });
}

void FakeThread::send(std::uint8_t byte) const {
    EXPECT_EQ(fd_write_all(target.line.master.get(), {&byte, 1}), 0);
}

void FakeThread::stop() {
    ended_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

} // namespace kx::test
