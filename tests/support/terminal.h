// A program in a pseudo-terminal, and the screen that its user would see, rendered by libvterm.
#pragma once

#include "tests/support/pty.h"

#include <functional>
#include <map>

struct VTerm;
struct VTermScreen;

namespace kx::test {

// Keys as xterm sends them, cursor keys once curses has asked for them.
const std::string UP = "\x1bOA", DOWN = "\x1bOB", HOME = "\x1bOH", END = "\x1bOF";
const std::string PAGE_UP = "\x1b[5~", PAGE_DOWN = "\x1b[6~", F1 = "\x1bOP", ESCAPE = "\x1b";

std::string times(int n, const std::string& keys);

struct RunOptions {
    /// Beside TERM=xterm and LANG=C.UTF-8; "" removes a variable.
    std::map<std::string, std::string> env = {};
    std::string cwd = "."; // the test's own
};

/// Waits for conditions, never for times: every `wait_` fails the test after a minute and
/// prints the screen.
class Terminal {
public:
    Terminal(int cols, int rows);
    ~Terminal(); // kills what still runs
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Starts a program, or a function in a forked child (its result is the exit status), with
    /// the pseudo-terminal as controlling terminal.
    void spawn(const std::vector<std::string>& argv, const RunOptions& options = {});
    void run(const std::function<int()>& body, const RunOptions& options = {});

    void type(const std::string& bytes); // what the keyboard sends
    void resize(int cols, int rows);     // with SIGWINCH
    void signal(int number);             // to the child
    void hang_up();                      // closes the terminal's side

    void wait_for(const std::string& text); // until a row of the screen holds it
    void wait_until(const std::function<bool()>& condition, const std::string& what);
    /// Until the cells have these `looks`: what is drawn may come in pieces.
    void wait_looks(const std::vector<std::pair<int, int>>& cells, const std::string& want);
    /// Until the child has ended: its exit status, or 128 + the signal that ended it.
    int wait_exit();

    std::string row(int y); // trailing blanks removed
    std::string screen();   // all rows, each with "\n"
    /// The text and background colours of cells (x, y), -1 for the terminal's own, and whether
    /// they are bold: "7/4 -1/-1+".
    std::string looks(const std::vector<std::pair<int, int>>& cells);
    std::string cursor();        // "x,y"
    const std::string& output(); // every byte written so far
    long cpu_ms();               // processor time of the child so far

    // Its settings are the program's, and stay when that has ended.
    Pty pty;

private:
    struct Report;

    void keep(const std::function<int()>& body, const RunOptions& options);
    bool pump(int ms);
    void take_all();

    int cols_, rows_;
    VTerm* vterm_;
    VTermScreen* screen_;
    std::string output_;
    Report* report_;
    pid_t keeper_ = 0;
};

/// Runs a program without a terminal, standard input from /dev/null, to its end: five minutes at
/// most.
struct Outcome {
    int status; // exit status, or 128 + signal
    std::string out, err;
};
Outcome run_program(const std::vector<std::string>& argv, const RunOptions& options = {});

} // namespace kx::test
