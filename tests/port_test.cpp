// The port over a real pseudo-terminal: settings, bytes both ways, the throttle under a faked
// clock, lines that fail; and the rate meter.
#include "link/port.h"

#include "core/active_config.h"
#include "link/clock.h"
#include "link/rate.h"
#include "link/target_memory.h"
#include "tests/support/scripted_target.h"
#include "ui/msg.h"

#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

using test::ScriptedTarget;
using namespace testing::internal; // CaptureStderr and its kin
using Bytes = std::vector<std::uint8_t>;

namespace {

// A clock that goes on by a millisecond whenever it is read, but may jump once.
struct FakeClock {
    std::uint32_t now, jump_at, jump_to;
} fake;

void set_clock(const FakeClock& clock) {
    fake = clock;
    clock_wall_set_source([] {
        const std::uint32_t now = fake.now;
        fake.now = now == fake.jump_at ? fake.jump_to : now + 1;
        return now;
    });
}

class Port : public testing::Test {
protected:
    Port() { active_config.port_type = PORT_SERIAL; }

    void open() { ASSERT_EQ(port_open(target.device(), 38400), 1); }

    std::vector<tcflag_t> settings() {
        termios now = {};
        EXPECT_EQ(tcgetattr(target.slave(), &now), 0);
        return {now.c_iflag, now.c_oflag,    now.c_cflag,
                now.c_lflag, now.c_cc[VMIN], now.c_cc[VTIME]};
    }

    ScriptedTarget target;
};

} // namespace

TEST_F(Port, SetsTheLineUpAndPutsBackWhatItFound) {
    const std::vector<tcflag_t> before = settings();
    const std::pair<long, tcflag_t> speeds[] = {
        {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}};
    for (auto [baud, speed] : speeds) {
        EXPECT_EQ(port_open(target.device(), baud), 1);
        const tcflag_t control = CS8 | CREAD | CLOCAL | CRTSCTS | speed;
        EXPECT_EQ(settings(), (std::vector<tcflag_t>{IGNPAR, 0, control, FLUSHO, 1, 0})) << baud;
        EXPECT_EQ(fcntl(port_line.fd, F_GETFL) & (O_NONBLOCK | O_APPEND), 0);
        port_close();
        EXPECT_EQ(settings(), before) << baud;
    }
    auto leave = [&] { std::exit(port_open(target.device(), 9600) == 1 && settings() != before); };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(1), "");
    EXPECT_EQ(settings(), before);
}

TEST_F(Port, FailsToOpenWhatIsNoUsableLine) {
    const struct {
        std::string device;
        long baud;
        int type, result;
        const char* out;
    } rows[] = {
        {"/nonexistent", 38400, PORT_SERIAL, -1, ""},
        {target.device(), 38400, PORT_NONE, -1, ""},
        {"/dev/null", 38400, PORT_SERIAL, 0, ""},
        {target.device(), 4800, PORT_SERIAL, 0, "error: 4800baud not supported.\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.device);
        active_config.port_type = row.type;
        CaptureStdout();
        errno = EBUSY; // stale, and decides nothing
        EXPECT_EQ(port_open(row.device, row.baud), row.result);
        EXPECT_EQ(GetCapturedStdout(), row.out);
        EXPECT_EQ(port_state.is_open, row.result + 1);
        EXPECT_EQ(port_getc(), 0); // and does not wait
        port_putc(1);
        EXPECT_EQ(port_state.read_error + port_state.write_error, 2);
        port_reset();
    }
}

TEST_F(Port, WaitsForABusyDevice) {
    // Exclusive use holds against everybody but the superuser.
    EXPECT_EQ(fchmod(target.slave(), 0666) + ioctl(target.slave(), TIOCEXCL), 0);
    const uid_t user = geteuid();
    EXPECT_EQ(user == 0 ? seteuid(65534) : 0, 0);
    ASSERT_EQ(::open(target.device().c_str(), O_RDWR | O_NOCTTY), -1);
    const std::string task = "/proc/self/task/" + std::to_string(gettid()) + "/wchan";
    std::thread other([&] {
        // Once the opener sleeps, it has found the device busy.
        for (std::string where; where.find("nanosleep") == std::string::npos;)
            std::getline(std::ifstream(task), where);
        ioctl(target.slave(), TIOCNXCL);
    });
    open();
    other.join();
    EXPECT_EQ(seteuid(user) + prctl(PR_SET_DUMPABLE, 1), 0); // the leak check wants it back
}

TEST_F(Port, RaisesAndDropsDtr) {
    static int bits = TIOCM_RTS, sets = 0, refused = 0;
    const SerialModem modem = {.get = [](int, int* to) { return refused ? -1 : (*to = bits, 0); },
                               .set = [](int, int to) { return sets++, bits = to, 0; }};
    serial_set_modem(&modem);
    open();
    EXPECT_EQ(bits, TIOCM_RTS | TIOCM_DTR);
    port_close();
    EXPECT_EQ(bits, TIOCM_RTS);
    refused = 1; // bits that could not be read are not written back
    open();
    port_close();
    EXPECT_EQ(sets, 2);
}

TEST_F(Port, MovesBytesNumbersAndTexts) {
    open();
    EXPECT_EQ(port_open("/nonexistent", 1), 1); // is open
    EXPECT_EQ(port_getc_nowait(), 0);
    EXPECT_EQ(port_state.read_error, 1);
    EXPECT_EQ(port_flush_input(), 0);
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
    EXPECT_EQ(port_state.read_error, 0);
    EXPECT_TRUE(port_wait_data(10000));
    EXPECT_EQ(port_flush_input(), 1);
    EXPECT_EQ(port_has_data(), 0);
}

// Every operation comes back, on a line that has gone as on a port of another type.
TEST_F(Port, GivesNothingWithoutALine) {
    open();
    target.fault = test::Fault::HangUp;
    port_write_block(Bytes{'A', 'K'});
    for (int type : {PORT_SERIAL, PORT_NONE}) {
        Bytes block(2, 9);
        port_read_block(block);
        EXPECT_EQ(block, Bytes(2));
        EXPECT_EQ(port_getc() + port_getc_nowait() + port_has_data() + port_flush_input(), 0);
        EXPECT_EQ(port_get_string(), "");
        port_put32(1);
        EXPECT_EQ(port_state.write_error, 1);
        EXPECT_FALSE(port_wait_data(10000)) << type;
        active_config.port_type = PORT_NONE;
    }
    EXPECT_EQ(target.count, 2U);
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
        {"at its spacing; starts at 1021", 500000, {1021, 1021, 1021}, 1021},
        {"stepped back behind the start; starts at 900", 500000, {900, 900, 900}, 900},
        {"steps back in the wait; starts at 902", 500000, {902, 908, 901}, 903},
        {"too fast for a spacing", 5000001, {903, 903, 903}, 903},
        {"a negative limit", -1, {903, 903, 903}, 903},
    };
    open();
    verbosity.verbose = 1;
    CaptureStderr();
    for (const auto& row : rows) {
        active_config.max_speed = row.max_speed;
        set_clock(row.before);
        port_putc('x');
        EXPECT_EQ(fake.now, row.after) << row.what;
        EXPECT_EQ(target.take(1), "78") << row.what;
    }
    const std::string text = GetCapturedStderr();
    EXPECT_NE(text.find("portglue.c: problem here!\n"), std::string::npos);
    EXPECT_EQ(text.find("problem"), text.rfind("problem"));
    active_config.max_speed = 500000;
    set_clock({2000, ~0U, 0});
    port_put_string("abc"); // every byte is throttled
    EXPECT_GE(fake.now, 2000U + 3 * 10);
    EXPECT_EQ(target.take(4), "61 62 63 00");
}

TEST(WallTimer, LosesAMillisecondWhereTheClockWraps) {
    const std::uint32_t rows[][3] = {{5, 9, 4}, {0xFFFFFFF0, 0x10, 0x1F}, {9, 5, ~4U}};
    for (const auto& [start, now, elapsed] : rows) {
        WallTimer timer = {.start = start};
        set_clock({now, now, now});
        EXPECT_EQ(wall_timer_elapsed(timer), elapsed) << start << " to " << now;
    }
}

TEST_F(Port, ConnectsToTheTargetOnce) {
    verbosity.verbose = 1;
    const std::string connecting = "connecting to target stub [";
    const struct {
        int mode, result;
        std::string device, text;
    } rows[] = {
        {MEM_SIMULATOR, 1, "/nonexistent", ""},
        {MEM_IMAGE, -1, "/nonexistent", "couldnt open port /nonexistent."},
        {MEM_IMAGE, 1, target.device(), connecting + target.device() + ":0x0378:38400 baud]"},
        {MEM_IMAGE, 1, "/x", "target stub [/x:0x0378:38400 baud] already initialized."},
    };
    for (const auto& row : rows) {
        mem_mode = row.mode;
        CaptureStderr();
        EXPECT_EQ(target_connect(row.device, 38400, 0x378), row.result) << row.text;
        EXPECT_THAT(GetCapturedStderr(), testing::HasSubstr(row.text));
        EXPECT_EQ(port_state.is_open, row.result == 1 && row.mode == MEM_IMAGE) << row.text;
    }
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
        {0, 7, 2, {0, 1}, " (0 bytes/sec, 0 baud, 0% of 2 baud)\n\r"},
        {~0U,
         1000000,
         1 << 20,
         {0, 1},
         " (4294967 bytes/sec, 38654704 baud, 3686% of 1048576 baud)\n\r"},
        {38400, 10000, 1, {0, 1}, ""},
        {38400, 10000, 38400, {0, 0}, ""},
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
