// What the benchmarks of the link share: the target's end of a pseudo-terminal that the port is
// open on, and the measuring of a transfer against it.
#pragma once

#include "core/active_config.h"
#include "link/port.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <semaphore>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kx::bench {

/// What the far end does next: it gives bytes, then takes a number of them.
struct Step {
    std::string give;
    std::size_t take = 0;
};
using Script = std::vector<Step>;

/// A far end that plays one script at a time, in a thread of its own.
class FarEnd {
public:
    FarEnd() {
        master_ = posix_openpt(O_RDWR | O_NOCTTY);
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
            std::perror("no pseudo-terminal");
            std::exit(1);
        }
        active_config.port_type = PORT_SERIAL;
        if (port_open(ptsname(master_), 115200) != 1) {
            std::fputs("the port does not open\n", stderr);
            std::exit(1);
        }
        thread_ = std::thread([this] { serve(); });
    }

    ~FarEnd() {
        script_ = nullptr;
        start_.release();
        thread_.join();
        port_reset();
        close(master_);
    }

    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;

    void begin(const Script& script) {
        script_ = &script;
        start_.release();
    }

    void wait() { done_.acquire(); }

private:
    void serve() {
        std::vector<char> taken(65536);
        for (start_.acquire(); script_ != nullptr; start_.acquire()) {
            for (const Step& step : *script_) {
                for (std::size_t done = 0; done < step.give.size();) {
                    ssize_t sent = write(master_, &step.give[done], step.give.size() - done);
                    done += sent > 0 ? static_cast<std::size_t>(sent) : 0;
                }
                for (std::size_t left = step.take; left > 0;) {
                    ssize_t got = read(master_, taken.data(), std::min(left, taken.size()));
                    left -= got > 0 ? static_cast<std::size_t>(got) : 0;
                }
            }
            done_.release();
        }
    }

    int master_ = -1;
    const Script* script_ = nullptr; // null: the thread is to end
    std::binary_semaphore start_{0}, done_{0};
    std::thread thread_;
};

inline double thread_seconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Runs `transfer`, which is true on success, against the script and reports bytes per second and
/// the processor time of the host's side per MiB. `size` is what counts as transferred.
template <typename Transfer>
void measure(benchmark::State& state, const Script& script, std::size_t size, Transfer transfer) {
    FarEnd far;
    const double before = thread_seconds();
    for (auto _ : state) {
        far.begin(script);
        if (!transfer()) {
            std::fputs("the transfer failed\n", stderr);
            std::exit(1); // the far end still waits for the rest
        }
        far.wait();
    }
    const double sum = static_cast<double>(state.iterations()) * static_cast<double>(size);
    state.SetBytesProcessed(static_cast<std::int64_t>(sum));
    state.counters["cpu_ms_per_MiB"] = (thread_seconds() - before) * 1e3 * (1 << 20) / sum;
}

/// All bytes to or from a descriptor by its own calls, as a plain copy does.
inline bool write_all(int fd, const char* bytes, std::size_t length) {
    while (length > 0) {
        ssize_t sent = write(fd, bytes, length);
        if (sent <= 0)
            return false;
        bytes += sent;
        length -= static_cast<std::size_t>(sent);
    }
    return true;
}

inline bool read_all(int fd, char* bytes, std::size_t length) {
    while (length > 0) {
        ssize_t got = read(fd, bytes, length);
        if (got <= 0)
            return false;
        bytes += got;
        length -= static_cast<std::size_t>(got);
    }
    return true;
}

} // namespace kx::bench
