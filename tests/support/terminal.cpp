// The pseudo-terminal behind the tests of screens. A small keeper process leads the terminal's
// session, as a login shell would: when a session leader ends the kernel resets the terminal, and
// a test could no longer see in which state the program under test left it.
#include "tests/support/terminal.h"

#include "tests/support/temp_dir.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
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
constexpr auto WAIT_LIMIT = std::chrono::seconds(10);
constexpr unsigned RUN_LIMIT = 60; // seconds

struct Fd {
    int fd = -1;
    explicit Fd(int number = -1) : fd(number) {}
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    void reset(int other = -1) {
        if (fd >= 0) {
            ::close(fd);
        }
        fd = other;
    }
};

// Takes a child's output of any length.
struct MemoryFile : Fd {
    MemoryFile() : Fd(memfd_create("output", MFD_CLOEXEC)) {}
    std::string text() const { return read_file("/proc/self/fd/" + std::to_string(fd)); }
};

// What the keeper tells the test of the child.
struct Report {
    volatile pid_t child;
    volatile int exited; // -1 while it runs
};

winsize window_size(int cols, int rows) {
    return {static_cast<unsigned short>(rows), static_cast<unsigned short>(cols), 0, 0};
}

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
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LINES", "COLUMNS", "ESCDELAY", "KXPATH"}) {
        unsetenv(name);
    }
    setenv("LANG", "C.UTF-8", 1);
    setenv("TERM", options.term.c_str(), 1);
    for (const auto& [name, value] : options.env) {
        value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
    }
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) {
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

struct Terminal::State {
    VTerm* vterm;
    VTermScreen* screen;
    int cols, rows;
    Fd master, slave;
    MemoryFile errors;
    std::string output;
    Report* report = nullptr;
    pid_t keeper = 0;

    void child_main(const std::function<int()>& body, const RunOptions& options) const;
    void keep(const std::function<int()>& body, const RunOptions& options);
    bool pump(int ms);
    void take_all() {
        while (pump(0)) {
        }
    }
    VTermPos cursor();
    std::string text(int x, int y, int width);
    void send(const char* bytes, std::size_t size) const;
};

// The child: a process group of its own, in the foreground.
void Terminal::State::child_main(const std::function<int()>& body,
                                 const RunOptions& options) const {
    setpgid(0, 0);
    std::signal(SIGTTOU, SIG_IGN);
    tcsetpgrp(0, getpid());
    if (options.split_stderr) {
        dup2(errors.fd, 2);
    }
    prepare_child(options);
    // As it is for a program that starts on a terminal, whatever the test's own output is.
    static char buffer[BUFSIZ];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
    std::exit(body());
}

void Terminal::State::keep(const std::function<int()>& body, const RunOptions& options) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    master.reset();
    login_tty(dup(slave.fd));
    slave.reset();
    const pid_t pid = fork();
    if (pid == 0) {
        child_main(body, options);
    }
    kept_child = pid;
    std::signal(SIGHUP, forward_hangup);
    report->child = pid;
    report->exited = exit_code(pid);
    for (;;) {
        pause();
    }
}

// Takes in what the child has written, waiting at most `ms` for it. False when nothing came.
bool Terminal::State::pump(int ms) {
    pollfd line = {master.fd, POLLIN, 0};
    char bytes[4096];
    const ssize_t n = poll(&line, 1, ms) > 0 ? ::read(master.fd, bytes, sizeof bytes) : 0;
    if (n <= 0) {
        return false;
    }
    output.append(bytes, static_cast<std::size_t>(n));
    vterm_input_write(vterm, bytes, static_cast<std::size_t>(n));
    return true;
}

VTermPos Terminal::State::cursor() {
    take_all();
    VTermPos pos;
    vterm_state_get_cursorpos(vterm_obtain_state(vterm), &pos);
    return pos;
}

std::string Terminal::State::text(int x, int y, int width) {
    take_all();
    char utf8[4096];
    const VTermRect cells = {y, y + 1, x, x + width};
    return {utf8, vterm_screen_get_text(screen, utf8, sizeof utf8, cells)};
}

void Terminal::State::send(const char* bytes, std::size_t size) const {
    const auto end = Clock::now() + WAIT_LIMIT;
    while (size > 0 && master.fd >= 0 && Clock::now() < end) {
        pollfd line = {master.fd, POLLOUT, 0};
        poll(&line, 1, 10);
        const ssize_t n = ::write(master.fd, bytes, size);
        if (n > 0) {
            bytes += n;
            size -= static_cast<std::size_t>(n);
        }
    }
}

Terminal::Terminal(int cols, int rows) : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.cols = cols;
    s.rows = rows;
    const winsize size = window_size(cols, rows);
    void* shared =
        mmap(nullptr, sizeof *s.report, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED || openpty(&s.master.fd, &s.slave.fd, nullptr, nullptr, &size) != 0) {
        throw std::runtime_error("no pseudo-terminal");
    }
    s.report = static_cast<Report*>(shared);
    s.report->exited = -1;
    fcntl(s.master.fd, F_SETFD, FD_CLOEXEC);
    fcntl(s.slave.fd, F_SETFD, FD_CLOEXEC);
    fcntl(s.master.fd, F_SETFL, O_NONBLOCK);
    s.vterm = vterm_new(rows, cols);
    vterm_set_utf8(s.vterm, 1);
    s.screen = vterm_obtain_screen(s.vterm);
    vterm_screen_enable_altscreen(s.screen, 1);
    vterm_screen_reset(s.screen, 1);
    // What the terminal answers (its cursor's place, its kind) goes to the program.
    const auto answer = [](const char* bytes, std::size_t n, void* user) {
        static_cast<State*>(user)->send(bytes, n);
    };
    vterm_output_set_callback(s.vterm, answer, &s);
}

Terminal::~Terminal() {
    State& s = *state_;
    if (s.keeper > 0) {
        if (s.report->exited < 0 && s.report->child > 0) {
            kill(-s.report->child, SIGKILL);
            kill(s.report->child, SIGKILL);
        }
        kill(s.keeper, SIGKILL);
        exit_code(s.keeper);
    }
    vterm_free(s.vterm);
    munmap(s.report, sizeof *s.report);
}

void Terminal::spawn(const std::vector<std::string>& argv, const RunOptions& options) {
    run([&]() -> int { exec_child(argv); }, options);
}

void Terminal::run(const std::function<int()>& body, const RunOptions& options) {
    State& s = *state_;
    std::fflush(nullptr); // or the child would write it once more
    s.keeper = fork();
    if (s.keeper == 0) {
        s.keep(body, options);
    }
    wait_until([&] { return s.report->child > 0; }, "the start of the child");
}

void Terminal::type(const std::string& bytes) {
    state_->send(bytes.data(), bytes.size());
}

void Terminal::resize(int cols, int rows) {
    State& s = *state_;
    s.take_all();
    s.cols = cols;
    s.rows = rows;
    vterm_set_size(s.vterm, rows, cols);
    const winsize size = window_size(cols, rows);
    ioctl(s.master.fd, TIOCSWINSZ, &size);
}

void Terminal::signal(int number) {
    kill(state_->report->child, number);
}

void Terminal::hang_up() {
    state_->take_all();
    state_->master.reset();
}

void Terminal::wait_for(const std::string& text) {
    wait_until([&] { return screen().find(text) != std::string::npos; }, text.c_str());
}

void Terminal::wait_until(const std::function<bool()>& condition, const char* what) {
    State& s = *state_;
    const auto end = Clock::now() + WAIT_LIMIT;
    // Conditions may look at files and terminal settings too: no turn waits long.
    while (!condition()) {
        s.pump(10);
        if (Clock::now() > end) {
            throw std::runtime_error(std::string("waited in vain for: ") + what +
                                     "\nthe child's result: " + std::to_string(s.report->exited) +
                                     "\nthe screen:\n" + screen() + error_text());
        }
    }
}

int Terminal::wait_exit() {
    State& s = *state_;
    wait_until([&] { return s.report->exited >= 0; }, "the end of the child");
    s.take_all();
    return s.report->exited;
}

std::string Terminal::row(int y) {
    std::string text = state_->text(0, y, state_->cols);
    return text.erase(text.find_last_not_of(' ') + 1);
}

std::string Terminal::screen() {
    std::string text;
    for (int y = 0; y < state_->rows; ++y) {
        text += row(y) + "\n";
    }
    return text;
}

Cell Terminal::cell(int x, int y) {
    Cell result = {.text = state_->text(x, y, 1)};
    VTermScreenCell raw;
    if (vterm_screen_get_cell(state_->screen, VTermPos{y, x}, &raw) != 0) {
        result.fg = VTERM_COLOR_IS_DEFAULT_FG(&raw.fg) ? -1 : raw.fg.indexed.idx;
        result.bg = VTERM_COLOR_IS_DEFAULT_BG(&raw.bg) ? -1 : raw.bg.indexed.idx;
        result.bold = raw.attrs.bold != 0;
        result.reverse = raw.attrs.reverse != 0;
    }
    return result;
}

int Terminal::cursor_x() {
    return state_->cursor().col;
}
int Terminal::cursor_y() {
    return state_->cursor().row;
}

const std::string& Terminal::output() {
    state_->take_all();
    return state_->output;
}

std::string Terminal::error_text() {
    return state_->errors.text();
}

int Terminal::slave() {
    return state_->slave.fd;
}

long Terminal::cpu_ms() {
    clockid_t clock = 0;
    timespec used = {};
    clock_getcpuclockid(state_->report->child, &clock);
    if (clock_gettime(clock, &used) != 0) {
        throw std::runtime_error("cpu_ms: no such child");
    }
    return static_cast<long>(used.tv_sec * 1000 + used.tv_nsec / 1000000);
}

Outcome run_program(const std::vector<std::string>& argv, const RunOptions& options) {
    const MemoryFile out;
    const MemoryFile err;
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setsid(); // no terminal to fall back on
        dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
        dup2(out.fd, 1);
        dup2(err.fd, 2);
        prepare_child(options);
        alarm(RUN_LIMIT);
        exec_child(argv);
    }
    const int status = exit_code(pid);
    return {status, out.text(), err.text()};
}

} // namespace kx::test
