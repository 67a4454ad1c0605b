// Memory banks: a sparse model of target memory on the host. Numbered banks hold blocks of bytes
// at target addresses; what is not covered by a block reads as 0.
#pragma once

#include "util/paged_bytes.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace kx {

struct MemBlock {
    std::uint32_t start = 0;
    std::uint32_t size = 0; // bytes
    PagedBytes data;        // what was written, at its distance from `start`
};

struct MemBank {
    std::uint32_t number = 0;
    std::vector<std::unique_ptr<MemBlock>> blocks; // in the order of allocation
};

// Banks and blocks stay where they are until the list is freed or reset.

/// The bank of that number, made when there is none; null while there is no list of banks.
MemBank* membank_get(std::uint32_t number);

/// The same without making one.
MemBank* membank_find(std::uint32_t number);

/// The bank's first block that holds the address, null for none.
MemBlock* membank_find_block(const MemBank& bank, std::uint32_t address);

/// Adds a block of `size` bytes from `start` on to the bank, making list and bank as needed.
MemBlock* membank_alloc_block(std::uint32_t number, std::uint32_t start, std::uint32_t size);

/// The byte at the address, 0 when nothing is there.
std::uint8_t membank_read(std::uint32_t number, std::uint32_t address);

/// Stores the byte; ignored when nothing is there.
void membank_write(std::uint32_t number, std::uint32_t address, std::uint8_t value);

/// Frees everything; there is no list afterwards.
void membank_free_all();

/// Frees everything and starts a list with one empty bank, number 0.
void membank_reset();

} // namespace kx
