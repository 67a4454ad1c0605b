// Target memory, by access mode. Only the simulator's side is built.
#include "link/target_memory.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "ini/file.h"
#include "ui/msg.h"

#include <algorithm>
#include <array>
#include <climits>

namespace kx {

int mem_mode = MEM_SIMULATOR;

namespace {

// What an unmapped address reads as, by its two lowest bits.
constexpr std::uint8_t filler[] = {0xDE, 0xAD, 0xBE, 0xAF};

bool is_mapped(std::uint32_t address) {
    return memory_map_is_mapped(active_config.memory_map, address);
}

// Whether the file has `length` bytes from `offset` on; it stands at `offset` then.
bool file_holds(std::FILE* file, long offset, std::uint64_t length) {
    const long size = file_size(file);
    return offset >= 0 && offset <= size && length <= static_cast<std::uint64_t>(size - offset) &&
           std::fseek(file, offset, SEEK_SET) == 0;
}

} // namespace

std::uint8_t mem_read8(std::uint32_t address) {
    if (!is_mapped(address)) {
        return filler[address % 4];
    }
    return mem_mode == MEM_SIMULATOR ? sim_read8(address) : 0;
}

void mem_write8(std::uint32_t address, std::uint8_t value) {
    if (mem_mode == MEM_SIMULATOR) {
        sim_write8(address, value);
    }
}

int mem_write_file(std::FILE* file, long offset, std::uint32_t start, std::uint64_t end) {
    if (mem_mode != MEM_SIMULATOR) {
        msg_error("target memory can only be written in the simulator.");
        return -1;
    }
    const std::uint64_t length = end - start;
    if (end < start || !file_holds(file, offset, length)) {
        return -1;
    }
    std::array<std::uint8_t, 4096> buffer;
    std::uint64_t done = 0;
    while (done < length) {
        const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), length - done);
        if (std::fread(buffer.data(), 1, wanted, file) != wanted) {
            return -1;
        }
        for (std::size_t i = 0; i < wanted; i++) {
            const std::uint64_t address = start + done + i;
            // Beyond 32 bits there is no target memory: the address must not come round to 0.
            if (address <= UINT32_MAX && is_mapped(static_cast<std::uint32_t>(address))) {
                sim_write8(static_cast<std::uint32_t>(address), buffer[i]);
            }
        }
        done += wanted;
        progress_update(static_cast<int>(std::min<std::uint64_t>(done, INT_MAX)),
                        static_cast<int>(std::min<std::uint64_t>(length, INT_MAX)));
    }
    return 1;
}

} // namespace kx
