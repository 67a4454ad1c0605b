// The far end: a thread per request moves its bytes and collects the answer up to a mark that the
// test sends last.
#include "tests/support/far_end.h"

#include "core/active_config.h"
#include "fileserver/fileserver.h"
#include "link/port.h"

#include <chrono>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace kx::test {

namespace {

const std::string mark = "\x01<end of answer>\x02";

std::size_t waiting(int fd) {
    int count = 0;
    return ioctl(fd, FIONREAD, &count) == 0 && count > 0 ? static_cast<std::size_t>(count) : 0;
}

} // namespace

std::string bytes(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); i++) {
        if (text[i] == '\'') {
            const std::size_t end = text.find('\'', i + 1);
            result += text.substr(i + 1, end - i - 1);
            i = end;
        } else if (text[i] != ' ') {
            result += static_cast<char>(std::stoi(text.substr(i++, 2), nullptr, 16));
        }
    }
    return result;
}

FarEnd::FarEnd() : handle(fileserver_handle_byte) {
    active_config.port_type = PORT_SERIAL;
    EXPECT_EQ(port_open(pty_.device, 38400), 1);
}

FarEnd::~FarEnd() {
    port_close();
}

std::string FarEnd::ask(const std::string& request, bool hang_up) {
    std::string answer;
    sent = 0;
    std::atomic<bool> arrived = false; // all of a request that ends in a hang-up: nothing is lost
    std::thread target([&] {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (pty_.master >= 0 && !answer.ends_with(mark)) {
            const bool sending = sent < request.size();
            pollfd line = {pty_.master, static_cast<short>(sending ? POLLIN | POLLOUT : POLLIN), 0};
            poll(&line, 1, hang_up ? 1 : 1000);
            if (sending) {
                const ssize_t put = write(pty_.master, &request[sent], request.size() - sent);
                sent += put > 0 ? static_cast<std::size_t>(put) : 0;
            }
            char got[65536];
            const ssize_t count = read(pty_.master, got, sizeof got);
            answer.append(got, count > 0 ? static_cast<std::size_t>(count) : 0);
            if ((arrived && waiting(pty_.slave) == 0) || std::chrono::steady_clock::now() > limit) {
                EXPECT_TRUE(hang_up) << "no answer to " << hex(request.substr(0, 100));
                pty_.hang_up();
            }
        }
    });
    while (hang_up && !arrived && port_wait_data(10)) {
        arrived = waiting(pty_.slave) == request.size();
    }
    result = handle(port_getc());
    unread = 0;
    std::uint8_t dropped[256];
    bool all = false, there = true; // `all` was sent before the line was looked at
    for (std::size_t got = 1; there && (got > 0 || !all); unread += got) {
        all = sent == request.size();
        there = port_wait_data(0);
        got = port_read_waiting(dropped);
    }
    port_write_block({reinterpret_cast<const std::uint8_t*>(mark.data()), mark.size()});
    target.join();
    return answer.ends_with(mark) ? answer.substr(0, answer.size() - mark.size()) : answer;
}

} // namespace kx::test
