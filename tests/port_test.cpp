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
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

using test::Fault;
using test::ScriptedTarget;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;
using Bytes = std::vector<std::uint8_t>;

namespace {

// A clock that goes on by a millisecond whenever it is read, and may step back once.
struct {
    std::uint32_t now = 0;
    std::uint32_t step_at = 0xFFFFFFFF; // when it gets there
    std::uint32_t step_to = 0;
} fake;

std::uint32_t fake_clock() {
    const std::uint32_t now = fake.now;
    fake.now = now == fake.step_at ? fake.step_to : now + 1;
    return now;
}

void hold_clock(std::uint32_t now) {
    fake = {now, now, now};
    clock_wall_set_source(fake_clock);
}

class Port : public testing::Test {
protected:
    void SetUp() override { active_config.port_type = PORT_SERIAL; }

    void open() { ASSERT_EQ(port_open(target.device(), 38400), 1); }

    void wait_data() {
        while (port_has_data() == 0)
            usleep(1000);
    }

    termios settings() {
        termios now = {};
        EXPECT_EQ(tcgetattr(target.slave(), &now), 0);
        return now;
    }

    ScriptedTarget target;
};

bool same(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && std::equal(a.c_cc, a.c_cc + NCCS, b.c_cc) &&
           cfgetospeed(&a) == cfgetospeed(&b) && cfgetispeed(&a) == cfgetispeed(&b);
}

} // namespace

TEST_F(Port, SetsRawEightBitsAndPutsBackWhatItFound) {
    const termios before = settings();
    const struct {
        long baud;
        speed_t speed;
    } rows[] = {
        {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.baud);
        ASSERT_EQ(port_open(target.device(), row.baud), 1);
        const termios now = settings();
        EXPECT_EQ(now.c_iflag, tcflag_t{IGNPAR});
        EXPECT_EQ(now.c_oflag, tcflag_t{0});
        EXPECT_EQ(now.c_cflag & ~tcflag_t{CBAUD}, tcflag_t{CS8 | CREAD | CLOCAL | CRTSCTS});
        EXPECT_EQ(now.c_lflag, tcflag_t{FLUSHO});
        EXPECT_EQ(now.c_cc[VMIN], 1);
        EXPECT_EQ(now.c_cc[VTIME], 0);
        EXPECT_EQ(cfgetospeed(&now), row.speed);
        EXPECT_EQ(cfgetispeed(&now), row.speed);
        EXPECT_EQ(fcntl(port_line.fd, F_GETFL) & (O_NONBLOCK | O_APPEND), 0);
        port_close();
        EXPECT_TRUE(same(settings(), before));
    }
    EXPECT_EQ(port_state.is_open + port_state.read_error + port_state.write_error, 0);
    EXPECT_EQ(port_line.fd, -1);
}

TEST_F(Port, PutsTheSettingsBackWhenTheProgramExits) {
    const termios before = settings();
    auto leave = [&] {
        SerialLine console; // closed by its destructor, or here not at all
        open();
        std::exit(same(settings(), before) ? 1 : 0);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(same(settings(), before));
}

TEST_F(Port, FailsToOpenWhatIsNoUsableLine) {
    const struct {
        std::string device;
        long baud;
        int type, result;
        const char* out;
    } rows[] = {
        {"/nonexistent", 38400, PORT_SERIAL, -1, ""},
        {"/", 38400, PORT_SERIAL, -1, ""},
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
    EXPECT_EQ(fchmod(target.slave(), 0666), 0);
    EXPECT_EQ(ioctl(target.slave(), TIOCEXCL), 0);
    EXPECT_EQ(geteuid() == 0 ? seteuid(65534) : 0, 0);
    ASSERT_EQ(::open(target.device().c_str(), O_RDWR | O_NOCTTY), -1);
    ASSERT_EQ(errno, EBUSY);
    const std::string task = "/proc/self/task/" + std::to_string(gettid()) + "/wchan";
    std::thread other([&] {
        // The opener sleeps: it has tried, and found the device busy.
        for (std::string where; where.find("nanosleep") == std::string::npos;)
            std::getline(std::ifstream(task), where);
        ioctl(target.slave(), TIOCNXCL);
    });
    open();
    other.join();
}

TEST_F(Port, RaisesAndDropsDtr) {
    static int bits, sets, answer;
    const SerialModem modem = {.get = [](int, int* to) { return answer == 0 ? *to = bits, 0 : -1; },
                               .set = [](int, int to) { return sets++, bits = to, 0; }};
    serial_set_modem(&modem);
    bits = TIOCM_RTS;
    open();
    EXPECT_EQ(bits, TIOCM_RTS | TIOCM_DTR);
    port_close();
    EXPECT_EQ(bits, TIOCM_RTS);
    EXPECT_EQ(sets, 2);
    answer = -1; // bits that could not be read are not written back
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
    sent.insert(sent.end(), {0, 0x11, 0x13, 0x0D, 0xFF, 5, 0, 7, 8});
    target.send(sent);
    EXPECT_EQ(port_get32(), 0x12345678U);
    EXPECT_EQ(port_get_string(), std::string(255, 'x'));
    Bytes block(5);
    port_read_block(block);
    EXPECT_EQ(test::hex(block), "11 13 0D FF 05");
    EXPECT_EQ(port_getc(), 0);
    EXPECT_EQ(port_state.read_error, 0);
    wait_data();
    EXPECT_EQ(port_getc_nowait(), 7);
    EXPECT_EQ(port_state.read_error, 0);
    wait_data();
    EXPECT_EQ(port_flush_input(), 1);
    EXPECT_EQ(port_has_data(), 0);
}

TEST_F(Port, DoesNothingOnAnotherType) {
    active_config.port_type = PORT_NONE;
    Bytes block(3, 9);
    port_read_block(block);
    EXPECT_EQ(block, Bytes(3));
    EXPECT_EQ(port_getc() + port_getc_nowait() + port_has_data() + port_flush_input(), 0);
    EXPECT_EQ(port_get32(), 0U);
    EXPECT_EQ(port_get_string(), "");
    port_put32(1);
    port_put_string("x");
    port_close();
    EXPECT_EQ(target.count, 0U);
}

TEST_F(Port, EndsEveryWaitWhenTheLineGoes) {
    open();
    target.fault = Fault::HangUp;
    port_write_block(Bytes{'A', 'K'});
    EXPECT_EQ(port_getc(), 0);
    EXPECT_EQ(port_state.read_error, 1);
    EXPECT_EQ(port_get_string(), "");
    Bytes block(2, 9);
    port_read_block(block);
    EXPECT_EQ(block, Bytes(2));
    port_write_block(block);
    EXPECT_EQ(port_state.write_error, 1);
    EXPECT_FALSE(port_wait_data(0));
    port_close();
}

TEST_F(Port, SpacesBytesByTheClock) {
    open();
    const struct {
        const char* what;
        std::int32_t max_speed;
        std::uint32_t now, step_at, step_to; // before the byte
        std::uint32_t after;                 // the clock, when it has been sent
    } rows[] = {
        // The clock stands when a byte need not wait. The timer starts at the times in brackets.
        {"no limit", 0, 500, 500, 500, 500},
        {"first byte, long after the start", 500000, 1000, 1000, 1000, 1000}, // [1000]
        {"in the same millisecond", 500000, 1000, 1000, 1000, 1000},
        {"again, after one millisecond", 500000, 1001, ~0U, 0, 1012},          // [1011]
        {"at its spacing", 500000, 1021, 1021, 1021, 1021},                    // [1021]
        {"the clock steps back behind the start", 500000, 900, 900, 900, 900}, // [900]
        {"the clock steps back while it waits", 500000, 902, 908, 901, 903},   // [902]
        {"too fast for a spacing", 5000001, 903, 903, 903, 903},
        {"a negative limit", -1, 903, 903, 903, 903},
    };
    verbosity.verbose = 1;
    std::string text;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        active_config.max_speed = row.max_speed;
        fake = {row.now, row.step_at, row.step_to};
        clock_wall_set_source(fake_clock);
        CaptureStderr();
        port_putc('x');
        text += GetCapturedStderr();
        EXPECT_EQ(fake.now, row.after);
        EXPECT_EQ(target.take(1), "78");
    }
    EXPECT_THAT(text, HasSubstr("portglue.c: problem here!\n"));
    EXPECT_EQ(text.find("problem"), text.rfind("problem"));
    active_config.max_speed = 500000;
    hold_clock(2000);
    port_putc(0);
    fake = {2001, ~0U, 0};
    port_put_string("abc"); // every byte is throttled
    EXPECT_GE(fake.now, 2000U + 4 * 10);
    EXPECT_EQ(target.take(5), "00 61 62 63 00");
}

TEST(WallTimer, LosesAMillisecondWhereTheClockWraps) {
    const std::uint32_t rows[][3] = {{5, 5, 0}, {5, 9, 4}, {0xFFFFFFF0, 0x10, 0x1F}, {9, 5, ~4U}};
    for (const auto& [start, now, elapsed] : rows) {
        WallTimer timer = {.start = start};
        hold_clock(now);
        EXPECT_EQ(wall_timer_elapsed(timer), elapsed) << start << " to " << now;
        EXPECT_EQ(timer.last, now);
    }
}

TEST_F(Port, ConnectsToTheTargetOnce) {
    verbosity.verbose = 1;
    const struct {
        int mode;
        std::string device;
        int result;
        std::string text;
    } rows[] = {
        {MEM_SIMULATOR, "/nonexistent", 1, ""},
        {MEM_IMAGE, "/nonexistent", -1, "couldnt open port /nonexistent."},
        {MEM_SIMULATOR_AND_TARGET, target.device(), 1,
         "connecting to target stub [" + target.device() + ":0x0378:38400 baud]"},
        {MEM_IMAGE, "/nonexistent", 1,
         "target stub [/nonexistent:0x0378:38400 baud] already initialized."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.device);
        mem_mode = row.mode;
        CaptureStderr();
        EXPECT_EQ(target_connect(row.device, 38400, 0x378), row.result);
        EXPECT_THAT(GetCapturedStderr(), HasSubstr(row.text));
    }
    EXPECT_EQ(port_state.is_open, 1);
}

TEST(Rate, ReportsWhatTheLineCarried) {
    const struct {
        std::uint32_t bytes, elapsed;
        std::int32_t port_baud;
        int verbose, silent;
        const char* text;
    } rows[] = {
        {38400, 10000, 38400, 1, 0, " (3840 bytes/sec, 34560 baud, 90% of 38400 baud)\n\r"},
        {5, 0, 9600, 1, 0, " (5000 bytes/sec, 45000 baud, 468% of 9600 baud)\n\r"},
        {0, 7, 2, 1, 0, " (0 bytes/sec, 0 baud, 0% of 2 baud)\n\r"},
        {2, 3, 38400, 1, 0, " (666 bytes/sec, 6000 baud, 15% of 38400 baud)\n\r"},
        {0xFFFFFFFF, 1000000, 9600, 1, 0,
         " (4294967 bytes/sec, 38654704 baud, 402653% of 9600 baud)\n\r"},
        {7, 0x80000000, 9600, 1, 0, " (7000 bytes/sec, 63000 baud, 656% of 9600 baud)\n\r"},
        {38400, 10000, 1, 1, 0, ""},
        {38400, 10000, 38400, 0, 0, ""},
        {38400, 10000, 38400, 1, 1, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        active_config.port_baud = row.port_baud;
        verbosity = {.silent = row.silent, .verbose = row.verbose};
        hold_clock(0xFFFFFF00);
        rate_start();
        hold_clock(0xFFFFFF00 + row.elapsed);
        CaptureStderr();
        rate_stop_report(row.bytes);
        EXPECT_EQ(GetCapturedStderr(), row.text);
    }
}

} // namespace kx
