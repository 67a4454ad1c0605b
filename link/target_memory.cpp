// Routes every access to target memory by the access mode: into the simulator, over the stub's
// commands to the target, into the file of the disc image opened last.
#include "link/target_memory.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "link/image.h"
#include "link/port.h"
#include "link/stub.h"
#include "ui/msg.h"
#include "util/file.h"

#include <algorithm>
#include <array>
#include <climits>

namespace kx {

int mem_mode = MEM_SIMULATOR;

namespace {

constexpr std::array<std::uint8_t, 4> FILLER = {0xDE, 0xAD, 0xBE, 0xAF};

// Large enough that a 16-bit target's whole memory is one command.
constexpr std::size_t PIECE = 0x10000;

struct State {
    std::uint32_t window_start = 0;
    std::vector<std::uint8_t> window;
};
State state;

bool stub_is_used() {
    return active_config.stub == TARGET_C64RR;
}

bool map_has(std::uint32_t address) {
    return memory_map_is_mapped(active_config.memory_map, address);
}

bool image_has(std::uint32_t address) {
    return address < IMAGE_ACCESS_LIMIT;
}

// The byte of the host-side copy for the address; null when it lies outside.
const std::uint8_t* window_find(std::uint32_t address) {
    if (state.window.empty() || address > addr_mask()) {
        return nullptr;
    }
    const std::uint32_t offset = (address - state.window_start) & addr_mask();
    return offset < state.window.size() ? &state.window[offset] : nullptr;
}

std::uint8_t filler(std::uint32_t address) {
    return FILLER[address & 3];
}

std::uint8_t target_read8(std::uint32_t address) {
    std::uint8_t byte = 0;
    if (!stub_is_used() || stub_read_memory(address, {&byte, 1}) != 1) {
        return 0;
    }
    return byte;
}

void target_write8(std::uint32_t address, std::uint8_t value) {
    if (stub_is_used()) {
        stub_write_memory(address, address + 1, {&value, 1});
    }
}

// Bytes of a block write.
struct Progress {
    std::uint64_t done = 0;
    std::uint64_t total = 0;
};

// The display counts as far as an int goes.
void show(const Progress& progress) {
    const auto count = [](std::uint64_t n) {
        return static_cast<int>(std::min<std::uint64_t>(n, INT_MAX));
    };
    progress_update(count(progress.done), count(progress.total));
}

void sim_write_piece(std::uint32_t address, std::span<const std::uint8_t> bytes,
                     Progress& progress) {
    for (const std::uint8_t byte : bytes) {
        if (map_has(address)) {
            sim_write8(address, byte);
        }
        address++;
        progress.done++;
        show(progress);
    }
}

// Bytes that would lie beyond 32 bits go nowhere: addresses do not come round to 0.
std::uint64_t in_address_space(std::uint32_t start, std::uint64_t length) {
    return std::min(length, ADDRESS_SPACE - start);
}

int sim_write_block(std::uint32_t address, std::uint32_t /*end*/,
                    std::span<const std::uint8_t> bytes) {
    bytes = bytes.first(in_address_space(address, bytes.size()));
    Progress progress = {.total = bytes.size()};
    sim_write_piece(address, bytes, progress);
    return 1;
}

int sim_read_block(std::span<std::uint8_t> bytes, std::uint32_t address) {
    for (std::uint8_t& byte : bytes) {
        byte = map_has(address) ? sim_read8(address) : filler(address);
        address++;
    }
    return 1;
}

// From the file's position on. What stands behind a whole address space of the target is not
// read: it could only come round to where bytes of the file are already.
int sim_write_file(std::FILE* file, std::uint32_t start, std::uint64_t length) {
    std::array<std::uint8_t, PIECE> buffer;
    Progress progress = {.total = in_address_space(start, length)};
    const std::uint64_t end = std::min(progress.total, std::uint64_t{addr_mask()} + 1);
    while (progress.done < end) {
        const auto at = static_cast<std::uint32_t>(start + progress.done);
        const auto piece =
            std::span(buffer).first(std::min<std::uint64_t>(PIECE, end - progress.done));
        if (file_read(file, piece) != static_cast<long>(piece.size())) {
            return -1;
        }
        sim_write_piece(at, piece, progress);
    }
    progress.done = progress.total;
    show(progress);
    return 1;
}

// `end` is the end address as it is sent.
int both_write_block(std::uint32_t address, std::uint32_t end,
                     std::span<const std::uint8_t> bytes) {
    sim_write_block(address, end, bytes);
    if (stub_is_used()) {
        return stub_write_memory(address, end, bytes);
    }
    // Meant: other stubs are written to byte by byte, mapped or not. As nothing is sent to them,
    // this shows in the simulator alone, and the write error does not survive.
    port_write_error = false;
    for (const std::uint8_t byte : bytes.first(in_address_space(address, bytes.size()))) {
        mem_write8(address++, byte);
    }
    return 1;
}

int target_read_block(std::span<std::uint8_t> bytes, std::uint32_t address) {
    if (stub_is_used()) {
        return stub_read_memory(address, bytes);
    }
    std::ranges::fill(bytes, std::uint8_t{0});
    return 1;
}

int image_write_block(std::uint32_t address, std::uint32_t /*end*/,
                      std::span<const std::uint8_t> bytes) {
    return image_file_write(address, bytes);
}

int image_read_block(std::span<std::uint8_t> bytes, std::uint32_t address) {
    return image_file_read(address, bytes);
}

// Where accesses go in one mode.
struct Route {
    int mode;
    bool simulator; // bytes and numbers are written to the simulator
    bool target;    // and to the target, which then has the program counter as well
    bool (*is_mapped)(std::uint32_t address);
    std::uint8_t (*read8)(std::uint32_t address); // of a mapped address
    int (*write_block)(std::uint32_t address, std::uint32_t end,
                       std::span<const std::uint8_t> bytes);
    int (*read_block)(std::span<std::uint8_t> bytes, std::uint32_t address);
};

constexpr Route routes[] = {
    {.mode = MEM_SIMULATOR,
     .simulator = true,
     .target = false,
     .is_mapped = map_has,
     .read8 = sim_read8,
     .write_block = sim_write_block,
     .read_block = sim_read_block},
    {.mode = MEM_SIMULATOR_AND_TARGET,
     .simulator = true,
     .target = true,
     .is_mapped = map_has,
     .read8 = target_read8,
     .write_block = both_write_block,
     .read_block = target_read_block},
    {.mode = MEM_IMAGE,
     .simulator = false,
     .target = true,
     .is_mapped = image_has,
     .read8 = target_read8, // Meant: only blocks are the image's, a single byte is the target's.
     .write_block = image_write_block,
     .read_block = image_read_block},
};

// The row of the mode in force; an unknown mode stays in the simulator.
const Route& find_route() {
    for (const Route& row : routes) {
        if (row.mode == mem_mode) {
            return row;
        }
    }
    return routes[0];
}

void write8(const Route& route, std::uint32_t address, std::uint8_t value) {
    if (route.simulator) {
        sim_write8(address, value);
    }
    if (route.target) {
        target_write8(address, value);
    }
}

} // namespace

void mem_reset() {
    mem_mode = MEM_SIMULATOR;
    state = {};
}

bool mem_reaches_target() {
    return find_route().target;
}

void mem_set_window(std::uint32_t start, std::span<const std::uint8_t> bytes) {
    state.window_start = start;
    state.window.assign(bytes.begin(), bytes.end());
}

void mem_clear_window() {
    state = {};
}

bool mem_is_mapped(std::uint32_t address) {
    return find_route().is_mapped(address);
}

std::uint32_t mem_top() {
    return addr_mask();
}

std::uint8_t mem_read8(std::uint32_t address) {
    if (const std::uint8_t* byte = window_find(address)) {
        return *byte;
    }
    const Route& route = find_route();
    return route.is_mapped(address) ? route.read8(address) : filler(address);
}

void mem_write8(std::uint32_t address, std::uint8_t value) {
    write8(find_route(), address, value);
}

void mem_write16(std::uint32_t address, std::uint16_t value) {
    const Route& route = find_route();
    const auto low = static_cast<std::uint8_t>(value);
    const auto high = static_cast<std::uint8_t>(value >> 8);
    const bool big = active_config.stub_endianness == 1;
    write8(route, address, big ? high : low);
    write8(route, address + 1, big ? low : high);
}

void mem_write32(std::uint32_t address, std::uint32_t value) {
    const Route& route = find_route();
    const bool big = active_config.stub_endianness == 1;
    for (std::uint32_t i = 0; route.simulator && i < 4; i++) {
        const std::uint32_t shift = 8 * (big ? 3 - i : i);
        sim_write8(address + i, static_cast<std::uint8_t>(value >> shift));
    }
    // Meant: towards the target the byte order of the stub counts for 16-bit values only, and
    // 32-bit ones always go lowest byte first.
    for (std::uint32_t i = 0; route.target && i < 4; i++) {
        target_write8(address + i, static_cast<std::uint8_t>(value >> 8 * i));
    }
}

int mem_write_block(std::uint32_t address, std::span<const std::uint8_t> bytes) {
    // Meant: a block write names an end address one further than a block read does.
    const auto length = static_cast<std::uint32_t>(bytes.size());
    return find_route().write_block(address, address + length + 1, bytes);
}

int mem_read_block(std::span<std::uint8_t> bytes, std::uint32_t address) {
    return find_route().read_block(bytes, address);
}

int mem_write_file(std::FILE* file, long offset, std::uint32_t start, std::uint64_t end) {
    const Route& route = find_route();
    // A command cannot name an end beyond the address space; the simulator leaves the rest out.
    const bool too_far = end > ADDRESS_SPACE && route.target;
    const std::uint64_t length = end - start;
    const long size = file_size(file);
    if (offset < 0 || end < start || too_far || size < offset ||
        length > static_cast<std::uint64_t>(size - offset) ||
        std::fseek(file, offset, SEEK_SET) != 0) {
        return -1;
    }
    if (!route.target) {
        return sim_write_file(file, start, length);
    }
    std::vector<std::uint8_t> bytes;
    if (file_read_bytes(file, length, bytes) != 0) {
        return -1;
    }
    // The end address is sent as the caller gave it, without the one that blocks add.
    return route.write_block(start, static_cast<std::uint32_t>(end), bytes);
}

void target_set_pc(std::uint32_t address) {
    if (!mem_reaches_target()) {
        sim_registers().pc = address;
    } else if (stub_is_used()) {
        stub_set_pc(address);
    }
}

void target_execute() {
    if (mem_reaches_target() && stub_is_used()) {
        stub_execute();
    }
}

} // namespace kx
