// Bytes of a large address range of which little is used: pages that exist once written.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>

namespace kx {

constexpr int PAGED_SHIFT = 12; // 4 KiB: a few pages for a 64 KiB machine, small beside its tables
using PagedPage = std::array<std::uint8_t, std::size_t{1} << PAGED_SHIFT>;

struct PagedBytes {
    std::unordered_map<std::uint32_t, std::unique_ptr<PagedPage>> pages; // by offset >> PAGED_SHIFT
};

/// The byte at `offset`; 0 when it was never written.
std::uint8_t paged_read(const PagedBytes& bytes, std::uint32_t offset);

/// Stores a byte. Out of memory ends the program with status -1 and a line on standard error.
void paged_write(PagedBytes& bytes, std::uint32_t offset, std::uint8_t value);

} // namespace kx
