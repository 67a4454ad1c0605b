// The stub's block commands over a pseudo-terminal, beside a plain copy over the same pair: what
// the link adds is what it costs.
#include "core/active_config.h"
#include "link/port.h"
#include "link/stub.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <semaphore>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t BLOCK = 65536;
constexpr std::size_t COMMAND = 10; // "A", the letter and two addresses of 32 bits

// A far end that serves one transfer at a time: it takes or gives a number of bytes.
struct FarEnd {
    int master = -1;
    std::size_t take = 0, give = 0;
    bool ended = false;
    std::binary_semaphore start{0}, done{0};
    std::thread thread;

    FarEnd() {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
            std::perror("no pseudo-terminal");
            std::exit(1);
        }
        kx::active_config.port_type = kx::PORT_SERIAL;
        kx::active_config.addr_bits = 32;
        if (kx::port_open(ptsname(master), 115200) != 1) {
            std::fputs("the port does not open\n", stderr);
            std::exit(1);
        }
        thread = std::thread([this] { serve(); });
    }

    ~FarEnd() {
        ended = true;
        start.release();
        thread.join();
        kx::port_reset();
        close(master);
    }

    void serve() {
        std::vector<std::uint8_t> bytes(BLOCK);
        for (start.acquire(); !ended; start.acquire()) {
            for (std::size_t left = take; left > 0;) {
                ssize_t got = read(master, bytes.data(), std::min(left, bytes.size()));
                left -= got > 0 ? static_cast<std::size_t>(got) : 0;
            }
            for (std::size_t left = give; left > 0;) {
                ssize_t sent = write(master, bytes.data(), left);
                left -= sent > 0 ? static_cast<std::size_t>(sent) : 0;
            }
            done.release();
        }
    }

    void begin(std::size_t to_take, std::size_t to_give) {
        take = to_take;
        give = to_give;
        start.release();
    }
};

double thread_seconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Runs `transfer` against the far end and reports bytes per second and the processor time of the
// host's side per MiB.
template <typename Transfer>
void measure(benchmark::State& state, std::size_t take, std::size_t give, Transfer transfer) {
    FarEnd far;
    std::vector<std::uint8_t> bytes(BLOCK, 0x55);
    const double before = thread_seconds();
    for (auto _ : state) {
        far.begin(take, give);
        if (!transfer(bytes))
            state.SkipWithError("the transfer failed");
        far.done.acquire();
    }
    const double blocks = static_cast<double>(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(BLOCK));
    state.counters["cpu_ms_per_MiB"] =
        (thread_seconds() - before) * 1e3 * (1 << 20) / (blocks * BLOCK);
}

void plain_write(benchmark::State& state) {
    measure(state, COMMAND + BLOCK, 0, [](std::vector<std::uint8_t>& bytes) {
        bytes.resize(COMMAND + BLOCK);
        return write(kx::port_line.fd, bytes.data(), bytes.size()) ==
               static_cast<ssize_t>(bytes.size());
    });
}

void stub_write(benchmark::State& state) {
    measure(state, COMMAND + BLOCK, 0, [](std::vector<std::uint8_t>& bytes) {
        return kx::stub_write_memory(0, BLOCK, bytes) == 1;
    });
}

void plain_read(benchmark::State& state) {
    measure(state, COMMAND, BLOCK, [](std::vector<std::uint8_t>& bytes) {
        if (write(kx::port_line.fd, bytes.data(), COMMAND) != ssize_t{COMMAND})
            return false;
        for (std::size_t done = 0; done < BLOCK;) {
            ssize_t got = read(kx::port_line.fd, bytes.data() + done, BLOCK - done);
            if (got <= 0)
                return false;
            done += static_cast<std::size_t>(got);
        }
        return true;
    });
}

void stub_read(benchmark::State& state) {
    measure(state, COMMAND, BLOCK,
            [](std::vector<std::uint8_t>& bytes) { return kx::stub_read_memory(0, bytes) == 1; });
}

BENCHMARK(plain_write)->UseRealTime();
BENCHMARK(stub_write)->UseRealTime();
BENCHMARK(plain_read)->UseRealTime();
BENCHMARK(stub_read)->UseRealTime();

} // namespace
