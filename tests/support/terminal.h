// A program in a pseudo-terminal, and the screen that its user would see, rendered by libvterm.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kx::test {

struct Cell {
    std::string text; // UTF-8; empty for a blank never written
    int fg = -1;      // palette index, -1: the terminal's default
    int bg = -1;
    bool bold = false;
    bool reverse = false;
};

struct RunOptions {
    /// Beside TERM and LANG=C.UTF-8; "" removes a variable.
    std::map<std::string, std::string> env = {};
    std::string cwd = {};       // empty: the test's own
    std::string term = "xterm"; // TERM
    bool split_stderr = false;  // standard error to `error_text` instead of the screen
};

/// Waits for conditions, never for times: every `wait_` fails the test after ten seconds and
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
    void wait_until(const std::function<bool()>& condition, const char* what);
    /// Until the child has ended: its exit status, or 128 + the signal that ended it.
    int wait_exit();

    std::string row(int y); // trailing blanks removed
    std::string screen();   // all rows, each with "\n"
    Cell cell(int x, int y);
    int cursor_x();
    int cursor_y();
    const std::string& output(); // every byte written so far
    std::string error_text();    // with split_stderr
    int slave();   // the slave side, open for as long as the Terminal lives: tcgetattr
    long cpu_ms(); // processor time of the child so far

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Runs a program without a terminal, standard input from /dev/null, to its end: a minute at most.
struct Outcome {
    int status; // exit status, or 128 + signal
    std::string out, err;
};
Outcome run_program(const std::vector<std::string>& argv, const RunOptions& options = {});

} // namespace kx::test
