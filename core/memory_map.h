// The hardware memory map: regions of the target's address space and what they may be used for.
#pragma once

#include <cstdint>
#include <vector>

namespace kx {

// Type codes of regions. `ram` and `rom` share one.
constexpr int MEMORY_UNTYPED = 0;
constexpr int MEMORY_NONE = 4; // accesses may lock up the machine
constexpr int MEMORY_RAM_ROM = 68;
constexpr int MEMORY_IO = 69;

struct MemoryRegion {
    std::uint32_t bank = 0;
    std::uint32_t base = 0;
    std::uint32_t last = 0; // last address of the region, included
    int type = MEMORY_UNTYPED;

    bool operator==(const MemoryRegion&) const = default;
};

struct MemoryMap {
    std::vector<MemoryRegion> regions; // in the order they were added

    bool operator==(const MemoryMap&) const = default;
};

/// Makes the map empty.
void memory_map_clear(MemoryMap& map);

/// Adds an untyped region at the end; returns its index.
std::size_t memory_map_add(MemoryMap& map, std::uint32_t bank, std::uint32_t base,
                           std::uint32_t last);

/// Gives the region at `index` one of the type codes above.
void memory_map_set_type(MemoryMap& map, std::size_t index, int type);

/// The first region that holds the address, whatever its bank; null when there is none. Good
/// until the map changes.
const MemoryRegion* memory_map_find(const MemoryMap& map, std::uint32_t address);

/// Whether the address may be accessed: its first region is RAM, ROM or I/O.
bool memory_map_is_mapped(const MemoryMap& map, std::uint32_t address);

} // namespace kx
