// The stub's commands against a target: the bytes that go out, the data both ways, and
// every way in which the target can fail.
#include "link/stub.h"

#include "core/active_config.h"
#include "link/port.h"
#include "link/seams_private.h"
#include "tests/support/pty.h"

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <optional>

namespace kx {

using Bytes = std::vector<std::uint8_t>;

namespace {

/// A target that has its answer ready before it is asked.
struct Target : test::Pty {
    Target(std::uint8_t addr_bits, const Bytes& answer) {
        port_reset();
        active_config.port_type = PORT_SERIAL;
        active_config.addr_bits = addr_bits;
        EXPECT_EQ(port_open(device, 38400), 1);
        send(answer);
    }
};

} // namespace

TEST(Stub, SendsItsCommandsByteForByte) {
    const struct {
        std::uint8_t addr_bits;
        std::uint32_t address;
        const char* bytes;
        std::size_t count;
    } rows[] = {
        {16, 0xC000, "41 43 01 C0 00 C0", 6},
        {9, 0x1FF, "41 43 00 02 FF 01", 6},
        {17, 0x12345, "41 43 46 23 01 45 23 01", 8},
        {25, 0x1234567, "41 43 68 45 23 01 67 45 23 01", 10},
        {32, 0xFFFFFFFF, "41 43 00 00 00 00 FF FF FF FF", 10},
    };
    std::uint8_t byte[1] = {};
    for (const auto& row : rows) {
        const Target target(row.addr_bits, {5});
        EXPECT_EQ(stub_read_memory(row.address, byte), 1);
        EXPECT_EQ(byte[0], 5);
        EXPECT_EQ(target.take(row.count), row.bytes);
    }
    const Target target(24, {9});
    EXPECT_EQ(stub_read_image({35, 16, 255}, byte), 1);
    EXPECT_EQ(byte[0], 9);
    active_config.addr_bits = 16;
    EXPECT_EQ(stub_write_memory(0x801, 0x805, Bytes{1, 2, 3}), 1);
    stub_set_pc(0x1234);
    stub_execute();
    EXPECT_EQ(stub_write_image({18, 1, 2}, Bytes{7, 8}), 1);
    EXPECT_EQ(target.take(41), "41 4D 23 00 00 10 00 00 FF 00 00 01 00 00 "
                               "41 42 05 08 01 08 01 02 03 41 44 34 12 41 4B "
                               "41 4C 12 00 01 00 02 00 02 00 07 08");
}

int sleeps = 0;
std::function<void()> late; // what happens at every 9000th sleep

TEST(Stub, FailsWithTheTargetAndWorksAgain) {
    std::optional<Target> target;
    const struct {
        const char* what;
        std::size_t answer; // bytes of 200 that are there at once
        bool image;
        int result, sleeps, again; // and the result of the next command
        FailureKind kind;
        std::function<void()> late = [] {};
    } rows[] = {
        {"silent", 0, false, -1, 9992, 1, FailureKind::Silent},
        {"half", 100, true, -1, 9992, 1, FailureKind::Silent},
        {"slow", 100, false, 1, 18000, 1, FailureKind::None, [&] { target->send(Bytes(50)); }},
        {"a byte too many", 201, false, -1, 0, 1, FailureKind::Surplus},
        {"hangs up", 100, true, -1, 9000, -1, FailureKind::Gone, [&] { target->hang_up(); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        stub_reset();
        target.emplace(16, Bytes(row.answer));
        sleeps = 0;
        late = row.late;
        stub_set_sleep([] { ++sleeps % 9000 == 0 ? late() : void(); });
        Bytes bytes(200);
        const auto read = [&] {
            return row.image ? stub_read_image({1, 0, 0}, bytes) : stub_read_memory(0x400, bytes);
        };
        EXPECT_EQ(read(), row.result);
        EXPECT_EQ(stub_last_error().kind, row.kind);
        EXPECT_NEAR(sleeps, row.sleeps, 50); // the first polls of 10000 may wait without a sleep
        if (row.again == 1) {
            target->send(Bytes(200, 'x'));
        }
        EXPECT_EQ(read(), row.again);
        EXPECT_EQ(bytes, Bytes(200, row.again == 1 ? 'x' : 0));
    }
    EXPECT_EQ(stub_write_memory(0x400, 0x401, Bytes(1)), -1);
    EXPECT_EQ(stub_last_error().kind, FailureKind::Gone);
    EXPECT_FALSE(port_write_error) << "stays set";
}

TEST(Stub, WaitsAsLongAsItIsTold) {
    const Target target(16, {});
    Bytes bytes(2);
    sleeps = 0;
    stub_set_sleep([] { sleeps++; });
    stub_set_timeout(100);
    EXPECT_EQ(stub_read_memory(0x400, bytes), -1);
    EXPECT_NEAR(sleeps, 92, 8);
    EXPECT_EQ(stub_last_error().kind, FailureKind::Silent);
    stub_set_stop([](std::uint32_t waited) { return waited == 50; });
    EXPECT_EQ(stub_read_memory(0x400, bytes), -1);
    EXPECT_NEAR(sleeps, 92 + 42, 16);
    EXPECT_EQ(stub_last_error().error, ECANCELED);
}

} // namespace kx
