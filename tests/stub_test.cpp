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

std::function<int()> read_from(std::uint32_t address) {
    return [=, byte = std::uint8_t{0}]() mutable { return stub_read_memory(address, {&byte, 1}); };
}
int write_memory() {
    return stub_write_memory(0x801, 0x805, Bytes{1, 2, 3});
}
int write_image() {
    return stub_write_image({18, 1, 2}, Bytes{7, 8});
}
int read_image() {
    return stub_read_image({35, 16, 255}, {});
}

} // namespace

TEST(Stub, SendsItsCommandsByteForByte) {
    const struct {
        int addr_bits;
        std::string bytes;
        std::function<int()> command;
    } rows[] = {
        {16, "41 43 01 C0 00 C0", read_from(0xC000)},
        {9, "41 43 00 02 FF 01", read_from(0x1FF)},
        {17, "41 43 46 23 01 45 23 01", read_from(0x12345)},
        {25, "41 43 68 45 23 01 67 45 23 01", read_from(0x1234567)},
        {32, "41 43 00 00 00 00 FF FF FF FF", read_from(0xFFFFFFFF)},
        {16, "41 42 05 08 01 08 01 02 03", write_memory},
        {16, "41 44 34 12", [] { return stub_set_pc(0x1234), 1; }},
        {16, "41 4B", [] { return stub_execute(), 1; }},
        {16, "41 4C 12 00 01 00 02 00 02 00 07 08", write_image},
        {24, "41 4D 23 00 00 10 00 00 FF 00 00 00 00 00", read_image},
    };
    for (const auto& row : rows) {
        auto target = connect(row.addr_bits);
        EXPECT_EQ(row.command(), 1) << row.bytes;
        EXPECT_EQ(target->take((row.bytes.size() + 1) / 3), row.bytes);
    }
}

TEST(Stub, FailsWithTheTargetAndWorksAgain) {
    const struct {
        Fault fault;
        bool image;
        int sleeps, again; // and the result of the next command
    } rows[] = {
        {Fault::Silent, false, 9992, 1},
        {Fault::Half, true, 9992, 1},
        {Fault::Surplus, false, 0, 1},
        {Fault::HangUp, true, 0, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        auto target = connect(16);
        target->fault = row.fault;
        sleeps = 0;
        // Where a time-out is expected: long enough for the half that does come, then short.
        if (row.sleeps > 0)
            stub_set_sleep([] { usleep(sleeps++ < 200 ? 1000 : 0); });
        Bytes bytes(200);
        auto read = [&] {
            return row.image ? stub_read_image({1, 0, 0}, bytes) : stub_read_memory(0x400, bytes);
        };
        EXPECT_EQ(read(), -1);
        EXPECT_NEAR(sleeps, row.sleeps, 50); // the first polls of 10000 may wait without a sleep
        stub_set_sleep(nullptr);
        target->take(row.image ? 10 : 6);
        target->fault = Fault::None;
        EXPECT_EQ(read(), row.again);
    }
}

} // namespace kx
