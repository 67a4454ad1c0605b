// Sessions: what opening refuses and says, that what is written reaches the line, and serving.
#include "session/session.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/simulator.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tests/support/base_dir.h"
#include "tests/support/pty.h"
#include "ui/msg.h"

#include <fcntl.h>
#include <gmock/gmock.h>

namespace kx {
namespace {

struct SessionTest : testing::Test {
    test::BaseDir base;
    Session session;
    SessionOptions options;

    SessionTest() { options.base_dir = base.dir.path(); }

    std::string open(int result) {
        msg_reset();
        testing::internal::CaptureStderr();
        EXPECT_EQ(session_open(session, options), result);
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(SessionTest, WhatKeepsItFromOpeningIsNamedOnce) {
    const struct {
        const char* target;
        const char* from; // in the file of target "t"
        const char* to;
        SessionCause cause;
        std::string text; // B is the base directory
    } rows[] = {
        {"", "", "", SessionCause::NoTarget,
         "no target is chosen: B/kx.ini has no default in section targets."},
        {"gone", "", "", SessionCause::NoTarget,
         "B/config/gone.ini cannot be read: No such file or directory"},
        {"/", "", "", SessionCause::BadConfig, "/ cannot be read: Is a directory"},
        {"t", "[roms]", "[rams]", SessionCause::BadConfig, "B/config/t.ini has no section [roms]."},
        {"t", "[stub]", "[stab]", SessionCause::BadConfig, "B/config/t.ini has no section [stub]."},
        {"t", "roms/a.bin", "roms/b.bin", SessionCause::BadConfig,
         "couldn't load the rom B/roms/b.bin of B/config/t.ini"},
        {"t", "serial\n[stub]", "none\n[stub]", SessionCause::NoPort,
         "B/config/t.ini has no line: its cable is none."},
        {"t", "/dev/ttyS7", "/none", SessionCause::NoPort,
         "couldnt open port /none at 38400 baud: No such file or directory"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        base.dir.write("config/t.ini", test::target_text(row.from, row.to));
        options.target = row.target;
        const std::string said = open(-1);
        EXPECT_EQ(session.cause, row.cause);
        std::string text = session.text;
        for (std::size_t at; (at = text.find(base.dir.path())) != std::string::npos;) {
            text.replace(at, base.dir.path().size(), "B");
        }
        EXPECT_EQ(text, row.text);
        EXPECT_EQ(said.rfind("error: "), 0U) << said; // the first message, and the last one
        EXPECT_FALSE(session.is_open);
        EXPECT_FALSE(sim_is_initialised());
        EXPECT_EQ(mem_mode, MEM_SIMULATOR);
    }
    base.dir.write("config/pet_loscr.ini", "[toasc]\n");
    EXPECT_THAT(open(-1), testing::HasSubstr("config/pet_loscr.ini has no section [fromasc]."));
    options.base_dir = base.dir.file("config");
    EXPECT_THAT(open(-1), testing::HasSubstr("is no base directory"));
    EXPECT_EQ(session.cause, SessionCause::NoBase);
}

TEST_F(SessionTest, ReachesTheTargetUntilItIsClosed) {
    const test::Pty pty;
    base.write_main();
    options.port = pty.device;
    EXPECT_EQ(open(1), ""); // kx.ini's default target
    active_config.max_speed = 0;
    EXPECT_EQ(sim_read8(0xC000), 0x11);
    EXPECT_NE(sym_find_name(sym_store, "start", 0), nullptr);
    mem_write8(0xC000, 5);
    EXPECT_EQ(pty.take(7), "41 42 01 C0 00 C0 05");
    EXPECT_EQ(sim_read8(0xC000), 5);
    session_close(session);
    EXPECT_EQ(sym_store, nullptr);
    EXPECT_EQ(mem_mode, MEM_SIMULATOR);

    options.line = false;
    options.port = "/none";
    EXPECT_EQ(open(1), "");
    EXPECT_EQ(mem_mode, MEM_SIMULATOR);
}

TEST_F(SessionTest, ServesUntilItIsStoppedOrTheLineGoes) {
    test::Pty pty;
    base.dir.write("config/t.ini", test::target_text("cbm", "generic"));
    options.target = base.dir.file("config/t.ini");
    options.port = "a line of mine"; // its descriptor is all that counts
    options.baud = 9600;
    options.fd = ::open(pty.device.c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(open(1), "");
    active_config.max_speed = 0;
    static std::vector<int> unknown;
    const SessionServing serving = {.stop = [] { return !unknown.empty(); },
                                    .unknown = [](std::uint8_t byte) { unknown.push_back(byte); }};
    pty.send({0x01, 0xAC, 0x03, 'x', 0, 0x7E}); // dbgSystem is answered by -1
    EXPECT_EQ(session_serve(session, serving), 1);
    EXPECT_EQ(pty.take(4), "FF FF FF FF");
    EXPECT_THAT(unknown, testing::ElementsAre(0x7E));
    pty.hang_up();
    EXPECT_EQ(session_serve(session, {}), -1);
    EXPECT_EQ(session.cause, SessionCause::LineLost);
    EXPECT_EQ(session.failure.kind, FailureKind::Gone);
}

} // namespace
} // namespace kx
