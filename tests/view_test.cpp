// The text viewer and its line document: what is drawn of hostile text, what arrives late, keys.
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"
#include "ui/col.h"
#include "ui/con.h"
#include "ui/view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <fcntl.h>
#include <fstream>
#include <sys/resource.h>
#include <tuple>
#include <unistd.h>

namespace kx::test {
namespace {

TEST(LineCells, AreSafeAndCountedInColumns) {
    const struct {
        const char *locale, *text;
        int offset, width;
        std::string shown;
        int cells;
    } table[] = {
        {"C.UTF-8", "a\tb\t\tc\rd", 3, 80, "     b               c.d", 24},
        {"C.UTF-8", "\u6f22\u5b57x", 1, 3, " \u5b57", 3}, // a wide character cut by either edge
        {"C.UTF-8", "\u6f22\u0301be\u0301", 1, 3, " be\u0301", 3},
        {"C.UTF-8", "\u0301\u0301\u0301\u0301\u0301a", 0, 9, ".a", 2}, // marks without an end
        {"C.UTF-8", "\xe2\x82z\x80\xff\xc0\xaf\xed\xa0\x80", 0, 9, "..z......", 9},
        {"C.UTF-8", "\x1b[\x7f\u009b\u202ex\ufeff\xc3", 0, 9, ".[...x..", 8},
        {"C", "gr\u00fc\x9b", 0, 80, "gr...", 5},
    };
    for (const auto& c : table) {
        ASSERT_NE(std::setlocale(LC_CTYPE, c.locale), nullptr);
        int cells = -1;
        EXPECT_EQ(linedoc_cells(c.text, c.offset, c.width, cells), c.shown) << c.text;
        EXPECT_EQ(cells, c.cells) << c.text;
    }
}

/// Eight cells of each of these lines as they are drawn from column `offset` on.
std::string drawn(const LineDoc& doc, const std::vector<std::size_t>& lines, int offset = 0) {
    testing::internal::CaptureStdout();
    for (const std::size_t index : lines) {
        linedoc_draw(doc, index, offset, 8);
    }
    con_refresh();
    return testing::internal::GetCapturedStdout();
}

TEST(LineDoc, KeepsLinesWholeWhereverReadsEnd) {
    const std::string text =
        std::string(65'535, 'a') + "\r\n" + std::string(140'000, 'x') + "end\r\n\n\nz\rz\nlast\r";
    const TempDir dir;
    const struct {
        bool file;
        std::size_t piece;
    } rows[] = {{false, 1}, {false, 4093}, {false, 65'536}, {true, 4093}, {true, 300'000}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "file " << row.file << " pieces of " << row.piece);
        int ends[2]; // to read from and to write to
        if (row.file) {
            const std::string path = dir.write("text", "before");
            ends[0] = open(path.c_str(), O_RDONLY);
            ends[1] = open(path.c_str(), O_WRONLY | O_APPEND);
            lseek(ends[0], 0, SEEK_END);
        } else {
            ASSERT_EQ(pipe(ends), 0);
        }
        LineSource source(ends[0], true);
        LineDoc doc;
        for (std::size_t at = 0; at < text.size(); at += row.piece) {
            const std::size_t size = std::min(row.piece, text.size() - at);
            ASSERT_EQ(write(ends[1], &text[at], size), static_cast<ssize_t>(size));
            while (linedoc_read(doc, source) > 0) {
            }
        }
        ASSERT_EQ(linedoc_count(doc), 6U);
        EXPECT_EQ(drawn(doc, {0}, 65'533), "aa      ");
        EXPECT_EQ(drawn(doc, {1}, 139'998), "xxend   ");
        EXPECT_EQ(drawn(doc, {2, 4, 5}), "        z.z     last    ");
        close(ends[1]);
        EXPECT_EQ(linedoc_read(doc, source), row.file ? 0 : -1);
    }
}

TEST(LineDoc, FileIsReadAgainAndMayHaveShrunk) {
    const TempDir dir;
    const std::string path = dir.write("f", "first\n");
    std::ofstream file(path, std::ios::app);
    for (int i = 0; i < 8'000'000; ++i) { // 56 MB, never all in memory
        file << "abcdef\n";
    }
    file.close();
    LineDoc doc;
    LineSource source = linedoc_open(doc, "", path);
    rusage before = {};
    getrusage(RUSAGE_SELF, &before);
    while (linedoc_read(doc, source) > 0) {
    }
    rusage after = {};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 4 << 10) << "KiB";
    EXPECT_EQ(drawn(doc, {7'999'999, 0}), "abcdef  first   ");
    std::fstream(path) << std::string(60'000, 'x'); // in place of lines
    EXPECT_EQ(drawn(doc, {1'000'000, 2'000'000}), "abcdef  abcdef  ");
    EXPECT_EQ(drawn(doc, {3'000'000}), "abcdef  ");
    EXPECT_EQ(drawn(doc, {0, 9'000}), "xxxxxxxx        ");
    ASSERT_EQ(truncate(path.c_str(), 100'003), 0);
    for (const std::size_t line : {50'000U, 4'000'000U, 8'000'000U}) {
        EXPECT_EQ(drawn(doc, {line}), "        ") << line;
    }
    EXPECT_EQ(drawn(doc, {14'285, 14'286}), "abcdef  ab      ");
    EXPECT_EQ(linedoc_read(doc, source), 0);
}

TEST(LineDoc, TellsThatADirectoryIsOne) {
    const TempDir dir;
    LineDoc doc;
    EXPECT_EQ(linedoc_open(doc, dir.path(), "").fd, -1);
    EXPECT_EQ(errno, EISDIR);
}

std::string numbered(int from, int to) {
    std::string text;
    for (int line = from; line <= to; ++line) {
        text += "line " + std::to_string(line) + "\n";
    }
    return text;
}

void expect_row(Terminal& terminal, int y, const std::string& text) {
    terminal.wait_until([&] { return terminal.row(y) == text; }, text);
}

void expect_lines(Terminal& terminal, int first_row, int last_row, int line) {
    expect_row(terminal, first_row, "line " + std::to_string(line));
    expect_row(terminal, last_row, "line " + std::to_string(line + last_row - first_row));
}

TEST(Viewer, ShowsAShortFileWhatItGainsAndFollowsTheTerminalsSize) {
    const TempDir dir;
    const std::string path = dir.write("h\x1b]0;x", numbered(1, 4) + "half \xc3");
    Terminal terminal(80, 25);
    terminal.run([path] {
        std::fill_n(key_textcolour, COL_KEYS, std::int8_t{7});
        key_textcolour[COL_MENUBAR_HOTKEY] = 14;
        key_backcolour[COL_TEXT + 1] = 1;
        key_backcolour[COL_MENUBAR + 1] = 2;
        key_backcolour[COL_STATUSBAR + 1] = 4;
        con_open();
        return view_file("", path);
    });
    const std::string title = " [KXVIEW 0.2] [" + dir.path() + "/h.]0;x]";
    const std::string status = " lines 1-23 of 5 - [Cursor/PageUp-Down/Home/End] Scroll";
    expect_row(terminal, 24, status + std::string(68 - status.size(), '-') + " [ESC] Quit");
    EXPECT_EQ(terminal.row(0), title + std::string(79 - title.size(), '-'));
    EXPECT_EQ(terminal.looks({{70, 24}, {75, 24}}), "3/0+ 7/0");
    // The title's text, line and end, a line, a row below the text, the status bar.
    EXPECT_EQ(terminal.looks({{1, 0}, {78, 0}, {79, 0}, {0, 1}, {9, 9}, {79, 9}, {0, 24}, {1, 24}}),
              "7/2 7/2 7/2 7/4 7/4 7/4 7/1 7/1");
    terminal.type(END + "\x1bOD\x1bOC"); // End stays at the first line, left at the first column
    expect_row(terminal, 5, "alf .");
    std::ofstream(path, std::ios::app) << "\xbc line\n" << numbered(6, 5000); // a screenful at once
    expect_row(terminal, 23, "ine 23");
    expect_row(terminal, 5, "alf \u00fc line");
    terminal.resize(60, 3);
    terminal.wait_until([&] { return terminal.screen() == "\n\n\n"; }, "a cleared screen");
    terminal.wait_looks({{0, 1}}, "7/4");
    terminal.resize(40, 12);
    terminal.wait_for("lines 1-10 of 5000 -");
    expect_row(terminal, 10, "ine 10");
    terminal.type(ESCAPE);
    EXPECT_EQ(terminal.wait_exit(), 0);
}

TEST(Viewer, DrawsNothingWhileAKeyWaits) {
    Terminal terminal(40, 10);
    terminal.run([] {
        con_open();
        con_ungetkey('x'); // typed ahead
        ViewPane pane;
        view_drawpane(pane, 0, 0, 10);
        con_refresh();
        return con_getkey();
    });
    EXPECT_EQ(terminal.wait_exit(), 'x');
    EXPECT_EQ(terminal.output().find("KXVIEW"), std::string::npos);
}

TEST(Viewer, LeavesNothingBehind) {
    const TempDir dir;
    const std::string path = dir.write("file", numbered(1, 99));
    const std::string bar = " lines 1-23 of 99 - [Cursor/PageUp-Down/Home/End] Scroll [ESC] Quit";
    Terminal terminal(static_cast<int>(bar.size()) + 1, 25);
    terminal.run([path] {
        con_open();
        view_file("", path);
        return con_getkey();
    });
    expect_row(terminal, 24, bar);
    terminal.type(END);
    terminal.wait_for(" lines 77-99 of 99 "); // a bar that reaches the last cell
    terminal.type(HOME);
    expect_row(terminal, 24, bar);
    terminal.type("q");
    terminal.wait_until([&] { return terminal.screen() == times(25, "\n"); }, "a cleared screen");
}

TEST(Viewer, KeysScrollStandardInputOrTheSecondTextThatTabMovesThemTo) {
    const TempDir dir;
    const std::string path = dir.write("lower", numbered(101, 150));
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const auto arrives = [&](const std::string& text) { // at once: less than a pipe holds
        EXPECT_EQ(write(pipe_ends[1], text.data(), text.size()), std::ssize(text));
    };
    Terminal terminal(80, 24);
    terminal.run([&] {
        dup2(pipe_ends[0], STDIN_FILENO);
        con_open();
        ViewPane panes[2];
        panes[0].first = 100; // a line that does not come
        LineSource first(STDIN_FILENO, false);
        LineSource second = linedoc_open(panes[1].doc, "", path);
        return view_run(panes[0], first, &panes[1], &second);
    });
    arrives("qq\n"); // text, no keys
    expect_row(terminal, 1, "qq");
    arrives(numbered(2, 50));
    terminal.wait_for(" lines 35-50 of 50 -"); // or the keys would find too short a text
    const std::string up_and_down = UP + DOWN; // from the first line: it stays the first
    for (const auto& [keys, top, second_top] : {std::tuple{HOME + times(2, DOWN), 3, 101},
                                                {UP, 2, 101},
                                                {END + DOWN, 35, 101},
                                                {PAGE_UP, 19, 101},
                                                {HOME + up_and_down, 2, 101},
                                                {"\t" + END, 2, 147},
                                                {"\t" + PAGE_DOWN, 18, 147}}) {
        terminal.type(keys);
        expect_lines(terminal, 1, 16, top);
        expect_lines(terminal, 19, 22, second_top);
    }
    terminal.type("q");
    EXPECT_EQ(terminal.wait_exit(), 0);
}

} // namespace
} // namespace kx::test
