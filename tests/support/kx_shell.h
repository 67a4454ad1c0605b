// A shell that finds kx, in a directory of its own.
#pragma once

#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

namespace kx::test {

struct KxShell : testing::Test {
    TempDir dir;
    /// There is no base directory but the shipped one, as "base".
    RunOptions options = {.env = {{"HOME", "/nonexistent"},
                                  {"XDG_DATA_HOME", ""},
                                  {"KXPATH", ""},
                                  {"base", KX_SOURCE_DIR "/base"}},
                          .cwd = dir.path()};

    /// What a line prints: names of devices become PORT, process numbers N.
    Outcome shell(const std::string& command) const {
        const std::string bin = std::string(KX_COMMAND, std::string(KX_COMMAND).rfind('/'));
        Outcome outcome =
            run_program({"/bin/sh", "-c", "PATH=" + bin + ":$PATH; " + command}, options);
        for (std::string* text : {&outcome.out, &outcome.err}) {
            *text = std::regex_replace(*text, std::regex("/dev/pts/[0-9]+"), "PORT");
            *text = std::regex_replace(*text, std::regex("pid [0-9]+"), "pid N");
        }
        return outcome;
    }
};

} // namespace kx::test
