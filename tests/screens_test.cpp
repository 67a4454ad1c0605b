// The screens in README.md and doc/screens.md are what the programs show. With KX_REWRITE set, as
// by script/screens, the documents are changed instead.
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

namespace kx::test {
namespace {

namespace fs = std::filesystem;

/// The lines without what differs from run to run: times, and the order of a directory.
std::multiset<std::string> comparable(const std::string& text) {
    const std::regex times("[0-9:]{8}|in [0-9.]+ m?s( \\([^)]*\\))?"), line("[^\n]+");
    const std::string masked = std::regex_replace(text, times, "TIME");
    return {std::sregex_token_iterator(masked.begin(), masked.end(), line), {}};
}

/// Compares, or replaces, what stands in the document between the caption and the next "$ " or
/// "```".
bool fits(const std::string& document, const std::string& caption, const std::string& shown) {
    std::string text = read_file(KX_SOURCE_DIR + document);
    const std::size_t begin = text.find("\n$ " + caption + "\n") + caption.size() + 4;
    const std::size_t end = std::min(text.find("\n$ ", begin), text.find("\n```", begin));
    const bool same = comparable(text.substr(begin, end - begin)) == comparable(shown);
    if (!same && std::getenv("KX_REWRITE") != nullptr) {
        std::ofstream(KX_SOURCE_DIR + document) << text.replace(begin, end - begin, shown);
    }
    return same;
}

TEST(Screens, InTheDocumentsAreWhatTheProgramsShow) {
    const std::string fake = "kx fake --speed 38400 --request 'load GAME' --request dir "
                             "--request 'save SCORES 300' -- ";
    const struct {
        std::string caption, prefix, first, keys, last; // what is shown before and behind the keys
        bool in_readme;
    } screens[] = {
        {"kx ls demo.d64", "", "0", "", "FREE.", true},
        {"kx run hello.prg", fake, "hello", "", "started", true},
        {"kx serve .", fake, "serving", "", "SCORES", true},
        {"kxsetup", "", "[ESC]", "", "ESC leaves", false},
        {"kxsetup    # Return", "", "ESC leaves", "\r", "ESC back", false},
        {"kxsetup    # F1", "", "ESC leaves", F1, "lines 1", false},
    };
    TempDir dir;
    fs::copy(KX_SOURCE_DIR "/base", dir.file("base"), fs::copy_options::recursive);
    fs::copy(KX_SOURCE_DIR "/base/examples/hello.prg", dir.file("hello.prg"));
    dir.write("game.prg", std::string(120, 'x'));
    RunOptions options{.env = {{"KXPATH", "base"}}, .cwd = dir.path()};
    options.env["PATH"] = fs::path(KX_COMMAND).parent_path().string() + ":" + std::getenv("PATH");
    run_program({KX_COMMAND, "mkfs", "demo.d64", "-N", "MY DISK", "-I", "AB", "hello.prg"},
                options);
    for (const auto& screen : screens) {
        Terminal terminal(screen.prefix.empty() ? 80 : 160, 20);
        terminal.spawn({"sh", "-c", screen.prefix + screen.caption}, options);
        terminal.wait_for(screen.first);
        terminal.type(screen.keys);
        terminal.wait_for(screen.last);
        const auto is_shown = [&] {
            std::string shown = terminal.screen();
            for (const auto& [from, to] : {std::pair<std::string, std::string>{"^\n+|\n+$", ""},
                                           {"/dev/pts/[0-9]+", "/dev/ttyUSB0"},
                                           {dir.path(), "/home/you/c64"}}) {
                shown = std::regex_replace(shown, std::regex(from), to);
            }
            const bool in_document = fits("/doc/screens.md", screen.caption, shown);
            return (!screen.in_readme || fits("/README.md", screen.caption, shown)) && in_document;
        };
        terminal.wait_until(is_shown, "the documents' picture, else see script/screens");
    }
}

} // namespace
} // namespace kx::test
