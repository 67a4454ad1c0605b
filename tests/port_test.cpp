// The port over a real pseudo-terminal: settings, bytes both ways, the throttle under a faked
// clock, lines that fail; and the rate meter.
#include "link/port.h"

#include "core/active_config.h"
#include "link/rate.h"
#include "link/seams_private.h"
#include "tests/support/pty.h"
#include "ui/msg.h"
#include "util/clock.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

// Stand before the system's own: an opening fails with the first of these, while there are any,
// and seconds pass without a wait.
std::vector<int> refusals;
int naps = 0;

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : mode_t{0};
    va_end(rest);
    if (!refusals.empty()) {
        errno = refusals.front();
        refusals.erase(refusals.begin());
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

unsigned sleep(unsigned seconds) {
    naps += static_cast<int>(seconds);
    return 0;
}

namespace kx {

using namespace testing::internal; // CaptureStderr and its kin
using Bytes = std::vector<std::uint8_t>;

namespace {

// A clock that goes on by a millisecond whenever it is read, but may jump once.
struct FakeClock {
    std::uint32_t now, jump_at, jump_to;
} fake;

std::uint32_t read_fake() {
    return std::exchange(fake.now, fake.now == fake.jump_at ? fake.jump_to : fake.now + 1);
}

void set_clock(const FakeClock& clock) {
    fake = clock;
    clock_wall_set_source(read_fake);
}

struct Port : testing::Test {
    Port() { active_config.port_type = PORT_SERIAL; }

    void open() { ASSERT_EQ(port_open(target.device, 38400), 1); }

    test::Pty target;
};

} // namespace

TEST_F(Port, SetsTheLineUpAndPutsBackWhatItFound) {
    const std::vector<tcflag_t> before = target.settings();
    std::vector<tcflag_t> raw(before.size()); // what is not named below is 0
    raw[0] = IGNPAR;
    raw[3] = FLUSHO;
    raw[4 + VMIN] = 1;
    const std::pair<long, tcflag_t> speeds[] = {
        {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}};
    for (const auto& [baud, speed] : speeds) {
        EXPECT_EQ(port_open(target.device, baud), 1);
        raw[2] = CS8 | CREAD | CLOCAL | CRTSCTS | speed;
        EXPECT_EQ(target.settings(), raw) << baud;
        port_close();
        EXPECT_EQ(target.settings(), before) << baud;
    }
    auto leave = [&] { std::exit(port_open(target.device, 9600) == 1); };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(1), "");
    EXPECT_EQ(target.settings(), before);
}

TEST_F(Port, MovesBytesNumbersAndTexts) {
    open();
    EXPECT_EQ(port_getc_nowait(), 0);
    EXPECT_TRUE(port_read_error);
    port_put32(0x12345678);
    port_put_string("ab");
    port_write_block(Bytes{0x11, 0x13, 0x03, 0x0D, 0xFF}); // what a terminal would act on
    EXPECT_EQ(target.take(12), "12 34 56 78 61 62 00 11 13 03 0D FF");
    Bytes sent = {0x12, 0x34, 0x56, 0x78};
    sent.insert(sent.end(), 300, 'x');
    sent.insert(sent.end(), {0, 0x11, 0x13, 0x0D, 0xFF, 5, 7, 8});
    target.send(sent);
    EXPECT_EQ(port_get32(), 0x12345678U);
    EXPECT_EQ(port_get_string(), std::string(255, 'x'));
    Bytes block(5);
    port_read_block(block);
    EXPECT_EQ(test::hex(block), "11 13 0D FF 05");
    EXPECT_TRUE(port_wait_data(10000));
    EXPECT_EQ(port_getc_nowait(), 7);
    EXPECT_TRUE(port_wait_data(10000));
    EXPECT_EQ(port_flush_input(), 1);
    EXPECT_EQ(port_has_data(), 0);
    EXPECT_FALSE(port_read_error);
}

TEST_F(Port, TriesSixteenTimesAndWaitsForABusyLine) {
    std::vector<int> busy(20, EBUSY);
    busy.resize(20 + 16, ENOENT);
    const struct {
        const char* what;
        std::vector<int> refusals;
        int result, naps, messages;
    } rows[] = {
        {"the last attempt", std::vector<int>(15, EACCES), 1, 0, 0},
        {"one too many", std::vector<int>(16, EACCES), -1, 0, 0},
        {"busy", std::vector<int>(20, EBUSY), 1, 20, 1},
        {"busy, then gone", busy, -1, 20, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        port_reset();
        msg_reset();
        refusals = row.refusals;
        naps = 0;
        CaptureStderr();
        EXPECT_EQ(port_open(target.device, 38400), row.result);
        EXPECT_EQ(refusals.size(), 0U);
        EXPECT_EQ(naps, row.naps);
        const std::string text = target.device + " is busy, waiting for it.";
        EXPECT_EQ(GetCapturedStderr(), row.messages == 1 ? text + " " : "");
    }
    EXPECT_EQ(port_last_error().error, ENOENT);
}

int modem = 0; // the line's modem bits

TEST_F(Port, RaisesDtrAndDropsItOnEveryWayOut) {
    const SerialModem watched = {.get = [](int, int* bits) { return *bits = modem, 0; },
                                 .set = [](int, int bits) { return modem = bits, 0; }};
    serial_set_modem(&watched);
    const std::vector<tcflag_t> before = target.settings();
    for (const bool adopted : {false, true}) {
        modem = TIOCM_RTS;
        if (adopted) {
            EXPECT_EQ(port_adopt(Fd(dup(target.slave)), "mine", 38400), 1);
            EXPECT_EQ(port_adopt(Fd(dup(target.slave)), "another", 38400), -1);
            EXPECT_EQ(port_line.device, "mine");
        } else {
            open();
        }
        EXPECT_NE(target.settings(), before);
        EXPECT_EQ(modem, TIOCM_RTS | TIOCM_DTR);
        port_putc('x');
        EXPECT_EQ(target.take(1), "78");
        port_close();
        EXPECT_EQ(modem, TIOCM_RTS);
        EXPECT_EQ(target.settings(), before);
    }
}

TEST_F(Port, IsRestoredWhenASignalEndsTheProgram) {
    static constexpr SerialModem watched = {
        .get = [](int, int* bits) { return *bits = TIOCM_DTR, 0; },
        .set = [](int, int bits) { return write(2, bits == 0 ? "low " : "high", 4) > 0 ? 0 : -1; }};
    const std::vector<tcflag_t> before = target.settings();
    const auto end_by = [&](int number) {
        serial_set_modem(&watched);
        const bool opened = port_open(target.device, 9600) == 1;
        raise(opened && target.settings() != before ? number : SIGKILL);
    };
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EXIT(end_by(number), testing::KilledBySignal(number), "high.*low");
        EXPECT_EQ(target.settings(), before) << number;
    }
}

TEST_F(Port, TellsWhyItFailed) {
    const auto none = [] { active_config.port_type = PORT_NONE; };
    const struct {
        std::string device;
        long baud;
        int result;
        const char* step;
        int error;
        std::function<void()> before = [] {};
    } openings[] = {
        {"/dev/null/none", 9600, -1, "open", ENOTDIR},
        {"/proc/self/comm", 9600, 0, "settings", ENOTTY}, // can be opened, is no terminal
        {target.device, 4800, 0, "baud", EINVAL},
        {target.device, 9600, -1, "open", ENODEV, none},
    };
    for (const auto& row : openings) {
        SCOPED_TRACE(row.device + "/" + std::to_string(row.baud));
        port_reset();
        row.before();
        CaptureStdout();
        EXPECT_EQ(port_open(row.device, row.baud), row.result);
        EXPECT_EQ(GetCapturedStdout(), row.baud == 4800 ? "error: 4800baud not supported.\n" : "");
        EXPECT_STREQ(port_last_error().step, row.step);
        EXPECT_EQ(port_last_error().error, row.error);
        EXPECT_EQ(port_getc(), 0);
    }
    active_config.port_type = PORT_SERIAL;
    open();
    serial_set_write_limit(1); // the far end takes nothing
    port_write_block(Bytes(1 << 20));
    EXPECT_TRUE(port_write_error);
    EXPECT_EQ(port_last_error().kind, FailureKind::Silent);
    serial_set_write_limit(SERIAL_WRITE_LIMIT_MS); // an hour in which the host was stopped is none
    clock_set_source([] { return fake.now += 3600000; });
    static auto& far_end = target;
    serial_set_write_stop([](std::uint32_t waited_ms) {
        if (waited_ms > 0) {
            far_end.take(8192);
        }
        return false;
    });
    port_write_block(Bytes(1 << 15));
    EXPECT_FALSE(port_write_error);
    target.hang_up();
    EXPECT_EQ(port_getc(), 0);
    EXPECT_STREQ(port_last_error().step, "read");
    EXPECT_EQ(port_last_error().kind, FailureKind::Gone);
    port_putc(0);
    EXPECT_STREQ(port_last_error().step, "write");
    EXPECT_EQ(port_last_error().kind, FailureKind::Gone);
    port_close();
    port_putc(0);
    EXPECT_EQ(port_last_error().error, ENOTCONN);
}

TEST_F(Port, SpacesBytesByTheClock) {
    const struct {
        const char* what;
        std::int32_t max_speed;
        FakeClock before;
        std::uint32_t after; // the clock stands when a byte need not wait
    } rows[] = {
        {"no limit", 0, {500, 500, 500}, 500},
        {"long after the start; starts at 1000", 500000, {1000, 1000, 1000}, 1000},
        {"in the same millisecond", 500000, {1000, 1000, 1000}, 1000},
        {"after one millisecond; starts at 1011", 500000, {1001, ~0U, 0}, 1012},
        {"stepped back behind the start; starts at 900", 500000, {900, 900, 900}, 900},
        {"steps back in the wait; starts at 902", 500000, {902, 908, 901}, 903},
        {"starts at the clock's last millisecond", 500000, {~0U, ~0U, ~0U}, ~0U},
        {"across the wrap a millisecond is lost", 500000, {0, ~1U, 0}, 1},
        {"too fast for a spacing", 5000001, {903, 903, 903}, 903},
        {"a negative limit", -1, {903, 903, 903}, 903},
    };
    open();
    verbosity.verbose = 1;
    CaptureStderr();
    for (const auto& row : rows) {
        active_config.max_speed = row.max_speed;
        set_clock(row.before);
        port_write_block(Bytes{'x'});
        EXPECT_EQ(fake.now, row.after) << row.what;
        EXPECT_EQ(target.take(1), "78") << row.what;
    }
    EXPECT_EQ(GetCapturedStderr(), "info: portglue.c: problem here!\n ");
}

TEST(Rate, ReportsWhatTheLineCarried) {
    const struct {
        std::uint32_t bytes, elapsed;
        std::int32_t port_baud;
        Verbosity verbosity;
        const char* text;
    } rows[] = {
        {38400, 10000, 38400, {0, 1}, " (3840 bytes/sec, 34560 baud, 90% of 38400 baud)\n\r"},
        {5, 0, 9600, {0, 1}, " (5000 bytes/sec, 45000 baud, 468% of 9600 baud)\n\r"},
        {5, 0x80000000, 9600, {0, 1}, " (5000 bytes/sec, 45000 baud, 468% of 9600 baud)\n\r"},
        // Single precision shows in the last digits.
        {~0U, 1000000, 2, {0, 1}, " (4294967 bytes/sec, 38654704 baud, 1932735200% of 2 baud)\n\r"},
        {38400, 10000, 1, {0, 1}, ""},
        {38400, 10000, 38400, {1, 1}, ""},
    };
    for (const auto& row : rows) {
        active_config.port_baud = row.port_baud;
        verbosity = row.verbosity;
        set_clock({0xFFFFFF00, ~0U, 0});
        rate_start();
        set_clock({0xFFFFFF00 + row.elapsed, ~0U, 0});
        CaptureStderr();
        rate_stop_report(row.bytes);
        EXPECT_EQ(GetCapturedStderr(), row.text);
    }
}

} // namespace kx
