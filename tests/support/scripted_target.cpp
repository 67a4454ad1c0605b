// The scripted target: takes commands off the front of what has come in.
#include "tests/support/scripted_target.h"

#include <map>
#include <poll.h>
#include <unistd.h>

namespace kx::test {

ScriptedTarget::~ScriptedTarget() {
    ended_ = true;
    thread_.join();
}

void ScriptedTarget::run() {
    std::map<std::uint32_t, std::uint8_t> image; // 0 until written
    std::vector<std::uint8_t> input;
    // After "A" and the letter: track, sector, offset and length, lowest byte first.
    const auto argument = [&](std::size_t at) -> std::uint32_t {
        return input[at] | static_cast<std::uint32_t>(input[at + 1]) << 8;
    };
    while (!ended_) {
        pollfd line = {pty.master, POLLIN, 0};
        std::uint8_t bytes[65536];
        const bool came = poll(&line, 1, 5) > 0; // the time-out is for the end of the test
        const ssize_t got = came ? read(pty.master, bytes, sizeof bytes) : 0;
        input.insert(input.end(), bytes, bytes + std::max<ssize_t>(got, 0));
        while (input.size() >= 10) {
            const bool writes = input[1] == 'L';
            const auto data = input.begin() + 10;
            const auto end = data + (writes ? argument(8) : 0);
            if (end > input.end()) {
                break;
            }
            std::uint32_t sector = argument(4);
            for (std::uint32_t track = 1; track < argument(2);
                 track++) { // one by one, of a 1541 disc
                sector += track < 18 ? 21 : track < 25 ? 19 : track < 31 ? 18 : 17;
            }
            std::uint32_t at = sector * 256 + argument(6);
            for (auto byte = data; byte < end; byte++) {
                image[at++] = *byte;
            }
            std::vector<std::uint8_t> answer;
            while (!writes && answer.size() < argument(8)) {
                answer.push_back(image[at++]);
            }
            commands.push_back(hex(std::vector(input.begin(), data)));
            pty.send(answer);
            input.erase(input.begin(), end);
        }
    }
}

} // namespace kx::test
