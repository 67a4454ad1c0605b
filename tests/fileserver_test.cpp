// All fileservers: which one is asked, what is told of requests, and what ends half of one.
#include "fileserver/fileserver.h"

#include "core/active_config.h"
#include "link/port.h"
#include "tests/support/far_end.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"
#include "util/clock.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx {

namespace fs = std::filesystem;

/// What is told of requests, a line each.
struct Served : testing::Test {
    Served() {
        msg_set_output(MSG_QUIET);
        fs::current_path(dir.path());
        dir.write("f", "old");
        told.clear();
        fileserver_set_event([](const FileserverEvent& event) {
            std::ostringstream line;
            line << event.request << " " << event.name << " " << event.file << " " << event.bytes
                 << "/" << event.expected << " " << event.entries << " "
                 << "udfx"[static_cast<int>(event.result)] << " " << event.why << "\n";
            told += line.str();
        });
    }

    std::string ask(std::uint8_t server, const std::string& request) {
        active_config.fileserver = server;
        return test::hex(far.ask(test::bytes(request)));
    }

    test::TempDir dir;
    test::FarEnd far;
    static std::string told;
};
std::string Served::told;

TEST_F(Served, DropsHalfARequestWithoutAnswerAndGoesOn) {
    const std::tuple<std::uint8_t, const char*, const char*, const char*> rows[] = {
        {FILESERVER_GENERIC, "01AC 02 'f' 00 00000005 'ha'", "00", "dbgSave f f 2/5"},
        {FILESERVER_GENERIC, "01AC 02 'n' 00 00000005 'ha'", "00", "dbgSave n n 2/5"},
        {FILESERVER_GENERIC, "01AC 07 00000040 00000005 'ha'", "", "dhWrite   2/5"},
        {FILESERVER_GENERIC, "01AC", "", "unknown   0/0"},
        {FILESERVER_CBM, "02", "", "unknown   0/0"},
        {FILESERVER_SERIALSLAVE, "'B'", "", "unknown   0/0"},
        {FILESERVER_GENERIC, "01AC 0C 'f'", "", "dbgMkdir f  0/0"},
        {FILESERVER_SERIALSLAVE, "'>F' 0D0A 0500 'ha'", "21", "save F f 2/7"},
        {FILESERVER_SERIALSLAVE, "'<F' 0D", "", "load F  0/0"},
        {FILESERVER_SERIALSLAVE, "'BR' 00", "", "read blocks   0/0"},
        {FILESERVER_CBM, "02 04 'f' 0D 0500 'ha'", "21", "save f f 2/5"},
        {FILESERVER_CBM, "02 05 01", "", "open   0/0"},
    };
    static int size;
    fileserver_set_patience(20);
    far.handle = [](std::uint8_t byte) { // only when all of it is there
        for (int count = 0; count + 1 < size;) {
            EXPECT_EQ(ioctl(port_line.fd, FIONREAD, &count), 0);
        }
        return fileserver_handle_byte(byte);
    };
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), {});
    };
    EXPECT_EQ(dup2(open(dir.write("w", "").c_str(), O_WRONLY), 0x40), 0x40);
    const std::ptrdiff_t before = descriptors();
    for (const auto& [server, request, reply, event] : rows) {
        told.clear();
        size = static_cast<int>(test::bytes(request).size());
        EXPECT_EQ(ask(server, request), test::hex(test::bytes(reply))) << request;
        EXPECT_EQ(told, event + std::string(" 0 x given up after 0.02 s\n")) << request;
        EXPECT_EQ(test::read_file("f"), "old") << request;
        EXPECT_FALSE(fs::exists("n"));
    }
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(test::read_file("w"), "ha") << "all that came of the write";
    size = 1;
    EXPECT_EQ(ask(FILESERVER_SERIALSLAVE, "'BC'"), "3F"); // is answered
}

TEST_F(Served, DropsWhatStillComesOfAStoppedRequest) {
    fileserver_set_stop([] { return fileserver_last_request().bytes > 0; });
    const std::string rest(100000, '\xAC'); // 0x186A0
    static const std::atomic<std::size_t>* sent;
    sent = &far.sent;
    clock_set_source([] { // stands still until all has been sent: the line is not quiet before
        static std::uint32_t now;
        return *sent == 100009 ? now += 10 : now;
    });
    EXPECT_EQ(ask(FILESERVER_GENERIC, "01AC 02 'f' 00 000186A0 '" + rest + "'"), "00");
    EXPECT_EQ(far.unread, 0U);
    EXPECT_THAT(told, testing::MatchesRegex("dbgSave f f [0-9]+/100000 0 x stopped\n"));
    EXPECT_EQ(test::read_file("f"), "old");
}

TEST_F(Served, StopsARequestThatNeverWaits) {
    const SerialStop others = [](std::uint32_t) { return false; };
    serial_set_write_stop(others);
    dir.write("f", std::string(300, 'x'));
    active_config.max_speed = 5000000; // a byte in a millisecond
    static std::uint64_t before;
    before = port_line.written;
    fileserver_set_stop([] { return port_line.written > before + 8; });
    ask(FILESERVER_GENERIC, "01AC 01 'f' 00");
    EXPECT_EQ(told, "dbgLoad f f 0/300 0 x stopped\n");
    active_config.max_speed = 0;
    fileserver_set_stop([] { return port_has_data() == 1; });
    far.ask(test::bytes("01AC 01 '" + std::string(3000, 'x') + "'"), true); // a name without an end
    EXPECT_TRUE(told.ends_with(" 0 x stopped\n"));
    EXPECT_EQ(serial_set_write_stop(nullptr), others); // as the program had it
}

TEST_F(Served, WaitsOnceForALineThatTakesNothing) {
    const test::Pty pty; // nobody reads at its far end
    port_close();
    ASSERT_EQ(port_open(pty.device, 38400), 1);
    serial_set_write_limit(20);
    static int asked; // once in a wait
    fileserver_set_stop([] { return ++asked < 0; });
    active_config.fileserver = FILESERVER_SERIALSLAVE;
    for (int dropped = 0; dropped < 20;) { // the line is really full then
        asked = 0;
        EXPECT_EQ(fileserver_handle_byte('?'), 0);
        dropped += fileserver_last_request().result == FileserverResult::Dropped ? 1 : 0;
    }
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(told.ends_with("ping   0/0 0 x the line takes no bytes\n"));
    active_config.fileserver = FILESERVER_GENERIC;
    pty.send({0xAC, 0x0C, 'd', 0});
    EXPECT_EQ(fileserver_handle_byte(0x01), 0);
    EXPECT_TRUE(told.ends_with("dbgMkdir d  0/0 0 x the line takes no bytes\n"));
    EXPECT_TRUE(fs::exists("d")) << "done all the same";
}

TEST_F(Served, TellsWhatBecameOfARequest) {
    dir.write("game.prg", "12345");
    for (const char digit : std::string("0123456789")) {
        dir.write(std::string("game") + digit + ".prg", "12345");
    }
    fs::create_directory("sub");
    fs::create_directory("games");
    const std::string none = "0/0 0 f No such file or directory\n";
    const std::tuple<std::uint8_t, const char*, std::string> rows[] = {
        {FILESERVER_CBM, "02 03 'GAME' 0D", "load GAME  " + none},
        {FILESERVER_CBM, "02 04 'X' 0D 0100 'a'", "save X X 1/1 0 d \n"},
        {FILESERVER_CBM, "02 03 'X' 0D", "load X  0/0 0 f not found\n"},
        {FILESERVER_SERIALSLAVE, "'<GAME' 0D0A", "load GAME  " + none},
        {0, "", "open_match and translate_save"},
        {FILESERVER_CBM, "02 03 'GAME' 0D", "load GAME game.prg 5/5 0 d \n"},
        {FILESERVER_CBM, "02 03 'GAME2' 0D", "load GAME2 game2.prg 5/5 0 d \n"},
        {FILESERVER_CBM, "02 03 'GA*2' 0D", "load GA*2 game2.prg 5/5 0 d \n"},
        {FILESERVER_CBM, "02 03 'FF' 0D", "load FF  " + none}, // which "f" matches, too
        {FILESERVER_CBM, "02 04 'X' 0D 0200 'ab'", "save X x 2/2 0 d \n"},
        {FILESERVER_CBM, "02 03 'X' 0D", "load X x 2/2 0 d \n"},
        {FILESERVER_CBM, "02 03 '$' 0D", "load $  616/616 18 d \n"},
        {FILESERVER_SERIALSLAVE, "'<GAME' 0D0A", "load GAME game.prg 5/5 0 d \n"},
        {FILESERVER_SERIALSLAVE, "'<GAMES' 0D0A", "load GAMES ~/games 0/0 0 d \n"},
        {FILESERVER_SERIALSLAVE, "'<*' 0D0A", "load *  " + none}, // and not "."
        {FILESERVER_SERIALSLAVE, "'x'", "unknown x  0/0 0 f no such command\n"},
        {FILESERVER_GENERIC, "01AC 01 '../f' 00", "dbgLoad ../f ../f 3/3 0 d \n"},
        {FILESERVER_GENERIC, "01AC 0D '..' 00", "dbgRmdir ..  0/0 0 f Directory not empty\n"},
        {FILESERVER_GENERIC, "01AC 09 00000000", "dbgTell   0/0 0 f no such handle\n"},
        {FILESERVER_GENERIC, "01AC FF", ""},
    };
    for (auto [server, request, event] : rows) {
        told.clear();
        if (server == 0) {
            active_config.fileserver_open_match = true;
            active_config.fileserver_translate_save = true;
            continue;
        }
        if (const std::size_t at = event.find('~'); at != std::string::npos) {
            event.replace(at, 1, dir.path());
        }
        ask(server, request);
        EXPECT_EQ(told, event) << request;
    }
}

TEST(Fileserver, StartNamesARootThatCannotBeOpened) {
    EXPECT_EQ(fileserver_start(), 0); // there is none
    const test::TempDir dir;
    active_config.fileserver_root = dir.path();
    EXPECT_EQ(fileserver_start(), 0);
    active_config.fileserver_root = dir.write("file", "");
    testing::internal::CaptureStderr();
    EXPECT_EQ(fileserver_start(), -1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("couldn't open fileserver root '" + dir.path() +
                                   "/file': Not a directory."));
}

TEST(Fileserver, AsksNobodyWhenNoneIsConfigured) {
    active_config.port_type = PORT_SERIAL;
    port_read_error = false; // the port is closed: a byte asked for would set it
    for (const std::uint8_t none : {std::uint8_t{0}, std::uint8_t{4}}) {
        active_config.fileserver = none;
        EXPECT_EQ(fileserver_handle_byte(1), -1);
        EXPECT_FALSE(port_read_error);
    }
}

} // namespace kx
