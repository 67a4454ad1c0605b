// The hardware memory map: a list of regions, searched in the order they were added.
#include "core/memory_map.h"

namespace kx {

void memory_map_clear(MemoryMap& map) {
    map.regions.clear();
}

std::size_t memory_map_add(MemoryMap& map, std::uint32_t bank, std::uint32_t base,
                           std::uint32_t last) {
    map.regions.push_back({bank, base, last, MEMORY_UNTYPED});
    return map.regions.size() - 1;
}

void memory_map_set_type(MemoryMap& map, std::size_t index, int type) {
    map.regions[index].type = type;
}

const MemoryRegion* memory_map_find(const MemoryMap& map, std::uint32_t address) {
    for (const MemoryRegion& region : map.regions) {
        if (region.base <= address && address <= region.last) {
            return &region;
        }
    }
    return nullptr;
}

bool memory_map_is_mapped(const MemoryMap& map, std::uint32_t address) {
    const MemoryRegion* region = memory_map_find(map, address);
    return region != nullptr && (region->type == MEMORY_RAM_ROM || region->type == MEMORY_IO);
}

} // namespace kx
