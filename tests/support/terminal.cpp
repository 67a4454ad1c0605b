// The pseudo-terminal behind the tests of screens. A small keeper process leads the terminal's
// session, as a login shell would: when a session leader ends the kernel resets the terminal, and
// a test could no longer see in which state the program under test left it.
#include "tests/support/terminal.h"

#include "tests/support/temp_dir.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>
#include <vterm.h>

namespace kx::test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto WAIT_LIMIT = std::chrono::minutes(1);
constexpr unsigned RUN_LIMIT = 300; // seconds

// Waits for the end of a process of ours.
int exit_code(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// What the runner of the tests has set must not change what a program shows.
void prepare_child(const RunOptions& options) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LINES", "COLUMNS", "ESCDELAY", "NO_COLOR",
                             "KXPATH", "KX_PORT", "KX_TARGET", "KX_BAUD"}) {
        unsetenv(name);
    }
    setenv("LANG", "C.UTF-8", 1);
    setenv("TERM", "xterm", 1);
    for (const auto& [name, value] : options.env) {
        value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
    }
    if (chdir(options.cwd.c_str()) != 0) {
        _exit(126);
    }
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE, SIGTTOU}) {
        std::signal(number, SIG_DFL);
    }
}

[[noreturn]] void exec_child(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    args.reserve(argv.size() + 1);
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    execvp(args[0], args.data());
    std::perror(args[0]);
    _exit(127);
}

volatile sig_atomic_t kept_child = 0;

// A shell passes a hang-up on to its jobs; the kernel tells the session leader only.
void forward_hangup(int) {
    kill(-kept_child, SIGHUP);
}

} // namespace

std::string times(int n, const std::string& keys) {
    return n == 0 ? "" : keys + times(n - 1, keys);
}

// What the keeper tells the test of the child.
struct Terminal::Report {
    volatile pid_t child;
    volatile int exited; // -1 while it runs
};

Terminal::Terminal(int cols, int rows)
    : vterm_(vterm_new(rows, cols)), screen_(vterm_obtain_screen(vterm_)),
      report_(static_cast<Report*>(mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE,
                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    vterm_set_utf8(vterm_, 1);
    vterm_screen_enable_altscreen(screen_, 1);
    vterm_screen_reset(screen_, 1);
    // What the terminal answers (its cursor's place, its kind) goes to the program.
    const auto answer = [](const char* bytes, std::size_t n, void* user) {
        static_cast<Terminal*>(user)->type({bytes, n});
    };
    vterm_output_set_callback(vterm_, answer, this);
    resize(cols, rows);
}

Terminal::~Terminal() {
    if (keeper_ > 0) {
        kill(keeper_, SIGKILL); // and the child with it
        exit_code(keeper_);
    }
    vterm_free(vterm_);
    munmap(report_, sizeof *report_);
}

void Terminal::spawn(const std::vector<std::string>& argv, const RunOptions& options) {
    run([&]() -> int { exec_child(argv); }, options);
}

void Terminal::run(const std::function<int()>& body, const RunOptions& options) {
    std::fflush(nullptr); // or the child would write it once more
    report_->exited = -1;
    keeper_ = fork();
    if (keeper_ == 0) {
        keep(body, options);
    }
    wait_until([&] { return report_->child > 0; }, "the start of the child");
}

void Terminal::keep(const std::function<int()>& body, const RunOptions& options) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pty.hang_up(); // for this process
    login_tty(dup(pty.slave));
    const pid_t pid = fork();
    if (pid == 0) { // a process group of its own, in the foreground
        setpgid(0, 0);
        std::signal(SIGTTOU, SIG_IGN);
        tcsetpgrp(0, getpid());
        prepare_child(options);
        // As it is for a program that starts on a terminal, whatever the test's own output is.
        static char buffer[BUFSIZ];
        std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
        std::exit(body());
    }
    kept_child = pid;
    std::signal(SIGHUP, forward_hangup);
    report_->child = pid;
    report_->exited = exit_code(pid);
    for (;;) {
        pause();
    }
}

void Terminal::type(const std::string& bytes) {
    EXPECT_EQ(write(pty.master, bytes.data(), bytes.size()), std::ssize(bytes));
}

void Terminal::resize(int cols, int rows) {
    take_all();
    cols_ = cols;
    rows_ = rows;
    vterm_set_size(vterm_, rows, cols);
    const winsize size = {static_cast<unsigned short>(rows), static_cast<unsigned short>(cols), 0,
                          0};
    ioctl(pty.master, TIOCSWINSZ, &size);
}

void Terminal::signal(int number) {
    kill(report_->child, number);
}

void Terminal::hang_up() {
    take_all();
    pty.hang_up();
}

// Takes in what the child has written, waiting at most `ms` for it. False when nothing came.
bool Terminal::pump(int ms) {
    pollfd line = {pty.master, POLLIN, 0};
    char bytes[4096];
    const ssize_t n = poll(&line, 1, ms) > 0 ? ::read(pty.master, bytes, sizeof bytes) : 0;
    if (n <= 0) {
        return false;
    }
    output_.append(bytes, static_cast<std::size_t>(n));
    vterm_input_write(vterm_, bytes, static_cast<std::size_t>(n));
    return true;
}

void Terminal::take_all() {
    while (pump(0)) {
    }
}

void Terminal::wait_for(const std::string& text) {
    wait_until([&] { return screen().find(text) != std::string::npos; }, text);
}

void Terminal::wait_until(const std::function<bool()>& condition, const std::string& what) {
    const auto end = Clock::now() + WAIT_LIMIT;
    // Conditions may look at files and terminal settings too: no turn waits long.
    while (!condition()) {
        pump(10);
        if (Clock::now() > end) {
            throw std::runtime_error("waited in vain for: " + what + "\nthe child's result: " +
                                     std::to_string(report_->exited) + "\n" + screen());
        }
    }
}

void Terminal::wait_looks(const std::vector<std::pair<int, int>>& cells, const std::string& want) {
    wait_until([&] { return looks(cells) == want; }, want);
}

int Terminal::wait_exit() {
    wait_until([&] { return report_->exited >= 0; }, "the end of the child");
    take_all();
    return report_->exited;
}

std::string Terminal::row(int y) {
    take_all();
    char utf8[4096];
    const std::size_t size =
        vterm_screen_get_text(screen_, utf8, sizeof utf8, {y, y + 1, 0, cols_});
    const std::string text(utf8, size);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string Terminal::screen() {
    std::string text;
    for (int y = 0; y < rows_; ++y) {
        text += row(y) + "\n";
    }
    return text;
}

std::string Terminal::looks(const std::vector<std::pair<int, int>>& cells) {
    take_all();
    std::string looks;
    for (const auto& [x, y] : cells) {
        VTermScreenCell cell;
        EXPECT_EQ(vterm_screen_get_cell(screen_, {y, x}, &cell), 1);
        const int text = VTERM_COLOR_IS_DEFAULT_FG(&cell.fg) ? -1 : cell.fg.indexed.idx;
        const int back = VTERM_COLOR_IS_DEFAULT_BG(&cell.bg) ? -1 : cell.bg.indexed.idx;
        looks += (looks.empty() ? "" : " ") + std::to_string(text) + "/" + std::to_string(back);
        looks += cell.attrs.bold != 0 ? "+" : "";
    }
    return looks;
}

std::string Terminal::cursor() {
    take_all();
    VTermPos at;
    vterm_state_get_cursorpos(vterm_obtain_state(vterm_), &at);
    return std::to_string(at.col) + "," + std::to_string(at.row);
}

const std::string& Terminal::output() {
    take_all();
    return output_;
}

long Terminal::cpu_ms() {
    clockid_t clock = 0;
    timespec used = {};
    EXPECT_EQ(clock_getcpuclockid(report_->child, &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &used), 0);
    return static_cast<long>(used.tv_sec * 1000 + used.tv_nsec / 1000000);
}

Outcome run_program(const std::vector<std::string>& argv, const RunOptions& options) {
    const TempDir dir;
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setsid(); // no terminal to fall back on
        if (std::freopen("/dev/null", "r", stdin) == nullptr ||
            std::freopen(dir.file("out").c_str(), "w", stdout) == nullptr ||
            std::freopen(dir.file("err").c_str(), "w", stderr) == nullptr) {
            _exit(126);
        }
        prepare_child(options);
        alarm(RUN_LIMIT);
        exec_child(argv);
    }
    const int status = exit_code(pid);
    return {status, read_file(dir.file("out")), read_file(dir.file("err"))};
}

} // namespace kx::test
