// The debug console over a real pseudo-terminal, and where there is none.
#include "fileserver/debug_console.h"

#include "core/active_config.h"
#include "tests/support/pty.h"
#include "ui/msg.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace kx {

TEST(DebugConsole, MovesBytesWordsAndTexts) {
    const test::Pty pty;
    active_config.console = CONSOLE_SERIAL;
    active_config.console_port = pty.device;
    target_console_init();
    EXPECT_EQ(target_console_poll(), 0);
    EXPECT_EQ(write(pty.master, "a\xFF!\x34\x12xy", 7), 7);
    EXPECT_EQ(serial_console_getc(), 'a'); // waits
    EXPECT_EQ(target_console_poll_byte(), 0xFF);
    EXPECT_EQ(target_console_poll(), '!');
    EXPECT_EQ(serial_console_getw(), 0x1234);
    target_console_deinit(); // drops the x, closes nothing
    EXPECT_EQ(target_console_poll(), 'y');
    target_console_putc('\r');
    serial_console_putw(0x1234);
    testing::internal::CaptureStdout();
    serial_console_puts("Hi\x1B!\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), ">>KX Hi\\x1b!\n\n");
    std::string got;
    for (char byte = 0; got.size() < 8;) {
        got += read(pty.master, &byte, 1) == 1 ? std::string(1, byte) : "";
    }
    EXPECT_EQ(got, "\r\x34\x12hI\x1B!\n");
}

TEST(DebugConsole, EndsTheProgramWhenItCannotBeOpened) {
    const std::tuple<std::uint8_t, const char*, int, const char*> rows[] = {
        {CONSOLE_SERIAL, "/nowhere", 1, "t_console_init \ninfo: serial_console_init \n?$"},
        {CONSOLE_SERIAL, "/dev/null", 1, "serial_console_init \n?$"}, // takes no settings
        {3, "/nowhere", 0, "^\n?info: target_console_init \ninfo: target_console_init done"},
    };
    verbosity.verbose = 1;
    for (const auto& [console, port, status, lines] : rows) {
        active_config.console = console;
        active_config.console_port = port;
        EXPECT_EXIT((target_console_init(), std::exit(target_console_poll())),
                    testing::ExitedWithCode(status), lines);
    }
}

} // namespace kx
