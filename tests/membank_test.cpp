// Memory banks: what they hold, and the lines that tell of them.
#include "files/membank.h"

#include "ui/msg.h"

#include <gtest/gtest.h>

using namespace kx;

TEST(Membank, BlocksHoldWhatWasWrittenAndTheRestIsZero) {
    membank_write(0, 0x1000, 1); // no list yet
    membank_alloc_block(0, 0x1000, 0x100);
    membank_alloc_block(0, 0x10F0, 0x20);       // overlaps
    membank_alloc_block(3, 0xFFFFF000, 0x1000); // up to the top of the space
    membank_alloc_block(4, 0, 0xFFFFFFFF);      // a whole space: only pages that are used
    membank_alloc_block(5, 0x2000, 0);          // nothing
    const struct {
        std::uint32_t bank, address;
        int kept; // of the byte written
    } rows[] = {{0, 0x0FFF, 0}, {0, 0x1000, 0x5A},     {0, 0x10FF, 0x5A},     {0, 0x110F, 0x5A},
                {0, 0x1110, 0}, {1, 0x1000, 0},        {3, 0xFFFFF000, 0x5A}, {3, 0xFFFFFFFF, 0x5A},
                {3, 0, 0},      {4, 0x80000000, 0x5A}, {4, 0xFFFFFFFF, 0},    {5, 0x2000, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(membank_read(row.bank, row.address), 0) << row.bank << ":" << row.address;
        membank_write(row.bank, row.address, 0x5A);
        EXPECT_EQ(membank_read(row.bank, row.address), row.kept) << row.bank << ":" << row.address;
    }
    EXPECT_EQ(membank_find_block(*membank_find(0), 0x10F8), membank_find(0)->blocks[0].get());
    membank_reset();
    EXPECT_EQ(membank_read(0, 0x1000), 0);
    EXPECT_EQ(membank_find(3), nullptr);
}

TEST(Membank, ResetLeavesBankZeroAndEveryStepIsTold) {
    EXPECT_EQ(membank_get(0), nullptr); // no list yet
    membank_reset();
    MemBank* const first = membank_find(0);
    ASSERT_NE(first, nullptr);
    verbosity.verbose = 1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(membank_get(0), first);
    membank_alloc_block(2, 0x1000, 0x10);
    EXPECT_EQ(membank_get(2), membank_find(2));
    membank_free_all();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "info: allocating memory bank 0 "
              "\ninfo: allocating memory block 2:00001000-00001010 "
              "\ninfo: allocating memory bank 2 "
              "\ninfo: allocating memory bank 2 "
              "\ninfo: deallocating memory bank:0 numblocks:0 " // one bank 0
              "\ninfo: deallocating memory bank:2 numblocks:1 "
              "\ninfo: deallocating memory block:00001000-00001010 ");
}
