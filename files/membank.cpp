// Memory banks: one list of banks, each a list of blocks whose bytes exist once written.
#include "files/membank.h"

#include "ui/msg.h"

namespace kx {

namespace {

struct State {
    std::vector<std::unique_ptr<MemBank>> banks; // empty: there is no list
};

State state;

MemBank* append_bank(std::uint32_t number) {
    state.banks.push_back(std::make_unique<MemBank>());
    state.banks.back()->number = number;
    return state.banks.back().get();
}

MemBlock* find_block(std::uint32_t number, std::uint32_t address) {
    const MemBank* bank = membank_find(number);
    return bank == nullptr ? nullptr : membank_find_block(*bank, address);
}

} // namespace

MemBank* membank_get(std::uint32_t number) {
    msg_info("allocating memory bank %d", number); // Meant: also for a bank that exists.
    if (state.banks.empty()) {
        return nullptr;
    }
    MemBank* bank = membank_find(number);
    return bank != nullptr ? bank : append_bank(number);
}

MemBank* membank_find(std::uint32_t number) {
    for (const std::unique_ptr<MemBank>& bank : state.banks) {
        if (bank->number == number) {
            return bank.get();
        }
    }
    return nullptr;
}

MemBlock* membank_find_block(const MemBank& bank, std::uint32_t address) {
    for (const std::unique_ptr<MemBlock>& block : bank.blocks) {
        // By distance: the sum of start and size would wrap at the top of the 32-bit space.
        if (block->start <= address && address - block->start < block->size) {
            return block.get();
        }
    }
    return nullptr;
}

MemBlock* membank_alloc_block(std::uint32_t number, std::uint32_t start, std::uint32_t size) {
    msg_info("allocating memory block %d:%08x-%08x", number, start, start + size);
    if (state.banks.empty()) {
        append_bank(0);
    }
    MemBank* bank = membank_find(number);
    if (bank == nullptr) {
        msg_info("allocating memory bank %d", number);
        bank = append_bank(number);
    }
    bank->blocks.push_back(std::make_unique<MemBlock>());
    MemBlock* block = bank->blocks.back().get();
    block->start = start;
    block->size = size;
    return block;
}

std::uint8_t membank_read(std::uint32_t number, std::uint32_t address) {
    const MemBlock* block = find_block(number, address);
    return block == nullptr ? 0 : paged_read(block->data, address - block->start);
}

void membank_write(std::uint32_t number, std::uint32_t address, std::uint8_t value) {
    MemBlock* block = find_block(number, address);
    if (block != nullptr) {
        paged_write(block->data, address - block->start, value);
    }
}

void membank_free_all() {
    for (const std::unique_ptr<MemBank>& bank : state.banks) {
        msg_info("deallocating memory bank:%d numblocks:%d", bank->number,
                 static_cast<int>(bank->blocks.size()));
        for (const std::unique_ptr<MemBlock>& block : bank->blocks) {
            msg_info("deallocating memory block:%08x-%08x", block->start,
                     block->start + block->size);
        }
    }
    state.banks.clear();
}

void membank_reset() {
    membank_free_all();
    append_bank(0);
}

} // namespace kx
