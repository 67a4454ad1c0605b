// The stub's block commands over a pseudo-terminal, beside a plain copy over the same pair: what
// the link adds is what it costs.
#include "bench/far_end.h"
#include "link/stub.h"

namespace {

using namespace kx::bench;

constexpr std::size_t BLOCK = 65536;
constexpr std::size_t COMMAND = 10; // "A", the letter and two addresses of 32 bits

const Script taking = {{"", COMMAND + BLOCK}};
const Script giving = {{"", COMMAND}, {std::string(BLOCK, 0x55), 0}};
std::string buffer(COMMAND + BLOCK, 0x55);
std::vector<std::uint8_t> block(BLOCK, 0x55);

void plain_write(benchmark::State& state) {
    measure(state, taking, BLOCK,
            [] { return write_all(kx::port_line.fd, buffer.data(), COMMAND + BLOCK); });
}

void stub_write(benchmark::State& state) {
    kx::active_config.addr_bits = 32;
    measure(state, taking, BLOCK, [] { return kx::stub_write_memory(0, BLOCK, block) == 1; });
}

void plain_read(benchmark::State& state) {
    measure(state, giving, BLOCK, [] {
        return write_all(kx::port_line.fd, buffer.data(), COMMAND) &&
               read_all(kx::port_line.fd, buffer.data(), BLOCK);
    });
}

void stub_read(benchmark::State& state) {
    kx::active_config.addr_bits = 32;
    measure(state, giving, BLOCK, [] { return kx::stub_read_memory(0, block) == 1; });
}

BENCHMARK(plain_write)->UseRealTime();
BENCHMARK(stub_write)->UseRealTime();
BENCHMARK(plain_read)->UseRealTime();
BENCHMARK(stub_read)->UseRealTime();

} // namespace
