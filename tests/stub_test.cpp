// The stub's commands against a scripted target: the bytes that go out, the data both ways, and
// every way in which the target can fail.
#include "link/stub.h"

#include "core/active_config.h"
#include "link/port.h"
#include "tests/support/scripted_target.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <unistd.h>

namespace kx {

using test::Fault;
using test::ScriptedTarget;
using Bytes = std::vector<std::uint8_t>;

namespace {

int sleeps = 0;

std::unique_ptr<ScriptedTarget> connect(int addr_bits) {
    port_reset();
    auto target = std::make_unique<ScriptedTarget>(addr_bits);
    active_config.port_type = PORT_SERIAL;
    active_config.addr_bits = static_cast<std::uint8_t>(addr_bits);
    EXPECT_EQ(port_open(target->device(), 38400), 1);
    return target;
}

Bytes counting(std::size_t length) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
}

int read_byte(std::uint32_t address) {
    std::uint8_t byte = 0;
    return stub_read_memory(address, {&byte, 1});
}

} // namespace

TEST(Stub, SendsItsCommandsByteForByte) {
    const struct {
        int addr_bits;
        std::function<int()> command;
        const char* bytes;
    } rows[] = {
        {16, [] { return read_byte(0xC000); }, "41 43 01 C0 00 C0"},
        {16,
         [] {
             return stub_write_memory(0x801, 0x805, Bytes{1, 2, 3});
         },
         "41 42 05 08 01 08 01 02 03"},
        {16, [] { return stub_set_pc(0x1234), 1; }, "41 44 34 12"},
        {16, [] { return stub_execute(), 1; }, "41 4B"},
        {16,
         [] {
             return stub_write_image({18, 1, 2}, Bytes{7, 8});
         },
         "41 4C 12 00 01 00 02 00 02 00 07 08"},
        {24,
         [] {
             return stub_write_image({35, 16, 255}, {});
         },
         "41 4C 23 00 00 10 00 00 FF 00 00 00 00 00"},
        {8, [] { return read_byte(0xFF); }, "41 43 00 FF"},
        {9, [] { return read_byte(0x1FF); }, "41 43 00 02 FF 01"},
        {17, [] { return read_byte(0x12345); }, "41 43 46 23 01 45 23 01"},
        {24, [] { return read_byte(0xFFFFFF); }, "41 43 00 00 00 FF FF FF"},
        {25, [] { return read_byte(0x1234567); }, "41 43 68 45 23 01 67 45 23 01"},
        {32, [] { return read_byte(0xFFFFFFFF); }, "41 43 00 00 00 00 FF FF FF FF"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        auto target = connect(row.addr_bits);
        EXPECT_EQ(row.command(), 1);
        EXPECT_EQ(target->take((std::string(row.bytes).size() + 1) / 3), row.bytes);
    }
}

TEST(Stub, MovesMemoryAndDiscBlocksBothWays) {
    auto target = connect(16);
    const Bytes all = counting(65536);
    EXPECT_EQ(stub_write_memory(0, 0x10000, all), 1);
    Bytes back(all.size());
    EXPECT_EQ(stub_read_memory(0, back), 1);
    EXPECT_EQ(back, all);
    back.resize(256);
    EXPECT_EQ(stub_write_image({18, 18, 0}, counting(256)), 1);
    EXPECT_EQ(stub_read_image({18, 18, 0}, back), 1);
    EXPECT_EQ(back, counting(256));
    EXPECT_EQ(test::peek(target->image, (357 + 18) * 256, 256), counting(256));
    stub_set_pc(0xC000);
    stub_execute();
    target->take(6 + all.size() + 6 + 10 + 256 + 10 + 4 + 2);
    EXPECT_EQ(target->pc, 0xC000U);
    EXPECT_EQ(target->executions, 1);
}

TEST(Stub, FailsWithTheTargetAndWorksAgain) {
    const struct {
        const char* name;
        Fault fault;
        int sleeps; // at least; -1: the next command cannot work
    } rows[] = {
        {"silent", Fault::Silent, 10000},
        {"half", Fault::Half, 10000},
        {"surplus", Fault::Surplus, 0},
        {"hang-up", Fault::HangUp, -1},
    };
    for (const auto& row : rows) {
        for (bool image : {false, true}) {
            SCOPED_TRACE(row.name);
            auto target = connect(16);
            target->fault = row.fault;
            sleeps = 0;
            // Long enough for the half that does come, then short.
            if (row.sleeps > 0)
                stub_set_sleep([] { usleep(sleeps++ < 200 ? 1000 : 0); });
            Bytes bytes(200);
            auto read = [&] {
                return image ? stub_read_image({1, 0, 0}, bytes) : stub_read_memory(0x400, bytes);
            };
            EXPECT_EQ(read(), -1);
            stub_set_sleep(nullptr);
            target->take(image ? 10 : 6);
            EXPECT_GE(sleeps, row.sleeps);
            EXPECT_LE(sleeps, 2 * 10000);
            target->fault = Fault::None;
            EXPECT_EQ(read(), row.sleeps >= 0 ? 1 : -1);
        }
    }
}

TEST(Stub, EndsAWriteThatTheTargetDoesNotTake) {
    auto target = connect(32);
    target->fault = Fault::Deaf;
    serial_set_write_limit(50);
    const Bytes bytes(1 << 20); // more than any buffer on the way holds
    EXPECT_EQ(stub_write_memory(0, 1 << 20, bytes), -1);
    EXPECT_EQ(port_state.write_error, 0);
}

TEST(Stub, FailsAtOnceWithoutALine) {
    port_reset();
    stub_set_sleep([] { sleeps++; });
    for (int type : {PORT_SERIAL, PORT_NONE}) {
        active_config.port_type = type;
        active_config.addr_bits = 16;
        Bytes bytes(3);
        for (int repeat = 0; repeat < 2; repeat++) {
            EXPECT_EQ(stub_write_memory(0, 4, bytes), -1);
            EXPECT_EQ(stub_read_memory(0, bytes), -1);
            EXPECT_EQ(stub_write_image({1, 0, 0}, {}), -1);
            EXPECT_EQ(stub_read_image({1, 0, 0}, bytes), -1);
        }
    }
    EXPECT_EQ(sleeps, 0);
}

} // namespace kx
