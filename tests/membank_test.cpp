// Memory banks: what they hold, and the lines that tell of them.
#include "files/membank.h"

#include "ui/msg.h"

#include <gtest/gtest.h>

#include <utility>

using namespace kx;

namespace {

TEST(Membank, BlocksHoldWhatWasWrittenAndTheRestIsZero) {
    membank_write(0, 0x1000, 1); // no list yet
    EXPECT_EQ(membank_read(0, 0x1000), 0);
    membank_alloc_block(0, 0x1000, 0x100);
    membank_alloc_block(0, 0x10F0, 0x20);       // overlaps
    membank_alloc_block(3, 0xFFFFF000, 0x1000); // up to the top of the space
    membank_alloc_block(4, 0, 0xFFFFFFFF);      // a whole space: only pages that are used
    membank_alloc_block(5, 0x2000, 0);          // nothing
    using Place = std::pair<std::uint32_t, std::uint32_t>; // bank and address
    const Place held[] = {Place(0, 0x1000),     Place(0, 0x10FF),     Place(0, 0x110F),
                          Place(3, 0xFFFFF000), Place(3, 0xFFFFFFFF), Place(4, 0),
                          Place(4, 0x80000000), Place(4, 0xFFFFFFFE)};
    for (const auto& [bank, address] : held) {
        EXPECT_EQ(membank_read(bank, address), 0) << bank << ":" << address;
        membank_write(bank, address, 0x5A);
        EXPECT_EQ(membank_read(bank, address), 0x5A) << bank << ":" << address;
    }
    const Place not_held[] = {Place(0, 0x0FFF), Place(0, 0x1110),     Place(1, 0x1000),
                              Place(3, 0),      Place(3, 0xFFFFEFFF), Place(4, 0xFFFFFFFF),
                              Place(5, 0x2000)};
    for (const auto& [bank, address] : not_held) {
        membank_write(bank, address, 0x5A);
        EXPECT_EQ(membank_read(bank, address), 0) << bank << ":" << address;
    }
    const MemBank* bank = membank_find(0);
    EXPECT_EQ(membank_find_block(*bank, 0x10F8), bank->blocks[0].get()) << "allocated first";
    membank_reset();
    EXPECT_EQ(membank_read(0, 0x1000), 0);
    EXPECT_NE(membank_find(0), nullptr);
    EXPECT_EQ(membank_get(0), membank_find(0));
    EXPECT_EQ(membank_find(3), nullptr);
}

TEST(Membank, TellsWhatItDoes) {
    membank_free_all();
    msg_reset();
    verbosity.verbose = 1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(membank_get(0), nullptr);
    membank_alloc_block(0, 0xD000, 0xFFF);
    membank_alloc_block(2, 0xFFFFFF00, 0x100);
    EXPECT_EQ(membank_get(2)->number, 2U);
    EXPECT_EQ(membank_get(7)->blocks.size(), 0U);
    EXPECT_EQ(membank_find(9), nullptr);
    membank_free_all();
    EXPECT_EQ(membank_get(2), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "info: allocating memory bank 0 \n"
              "info: allocating memory block 0:0000d000-0000dfff \n"
              "info: allocating memory block 2:ffffff00-00000000 \n"
              "info: allocating memory bank 2 \n"
              "info: allocating memory bank 2 \n"
              "info: allocating memory bank 7 \n"
              "info: deallocating memory bank:0 numblocks:1 \n"
              "info: deallocating memory block:0000d000-0000dfff \n"
              "info: deallocating memory bank:2 numblocks:1 \n"
              "info: deallocating memory block:ffffff00-00000000 \n"
              "info: deallocating memory bank:7 numblocks:0 \n"
              "info: allocating memory bank 2 ");
}

} // namespace
