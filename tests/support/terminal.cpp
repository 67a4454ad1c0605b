// The pseudo-terminal behind the tests of screens. A small keeper process leads the terminal's
// session, as a login shell would: when a session leader ends the kernel resets the terminal, and
// a test could no longer see in which state the program under test left it.
#include "tests/support/terminal.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>
#include <vterm.h>

namespace kx::test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto WAIT_LIMIT = std::chrono::seconds(10);
constexpr auto RUN_LIMIT = std::chrono::seconds(60);

struct Fd {
    int fd = -1;
    Fd() = default;
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    void reset(int other = -1) {
        if (fd >= 0) {
            ::close(fd);
        }
        fd = other;
    }
    /// Appends what can be read now. False at the end.
    bool drain(std::string& text) {
        char buffer[4096];
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            text.append(buffer, static_cast<std::size_t>(n));
        } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        }
        return true;
    }
};

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

void make_pipe(Fd& reader, Fd& writer) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        fail("pipe");
    }
    reader.reset(ends[0]);
    writer.reset(ends[1]);
}

winsize window_size(int cols, int rows) {
    return {static_cast<unsigned short>(rows), static_cast<unsigned short>(cols), 0, 0};
}

int exit_code(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// What the runner of the tests has set must not change what a program shows.
void prepare_child(const RunOptions& options) {
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

void send_number(int fd, int number) {
    if (::write(fd, &number, sizeof number) != sizeof number) {
        _exit(125);
    }
}

} // namespace

struct Terminal::State {
    VTerm* vterm = nullptr;
    VTermScreen* screen = nullptr;
    int cols;
    int rows;
    Fd master;
    Fd slave;
    Fd status; // from the keeper: the child's pid, then how it ended
    Fd errors;
    std::string output;
    std::string error_text;
    std::string status_bytes;
    pid_t keeper = 0;
    pid_t child = 0;
    int exited = -1;

    void child_main(const std::function<int()>& body, const RunOptions& options, int error_fd);
    void keep(const std::function<int()>& body, const RunOptions& options, int status_fd,
              int error_fd);
    bool pump(int ms);
    void take_all() {
        while (pump(0)) {
        }
    }
    VTermPos cursor() {
        take_all();
        VTermPos pos;
        vterm_state_get_cursorpos(vterm_obtain_state(vterm), &pos);
        return pos;
    }
    void send(const char* bytes, std::size_t size);
};

// The child: a process group of its own, in the foreground.
void Terminal::State::child_main(const std::function<int()>& body, const RunOptions& options,
                                 int error_fd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    std::signal(SIGTTOU, SIG_IGN);
    tcsetpgrp(0, getpid());
    if (error_fd >= 0) {
        dup2(error_fd, 2);
        ::close(error_fd);
    }
    prepare_child(options);
    // As it is for a program that starts on a terminal, whatever the test's own output is.
    static char buffer[BUFSIZ];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
    std::exit(body());
}

void Terminal::State::keep(const std::function<int()>& body, const RunOptions& options,
                           int status_fd, int error_fd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    master.reset();
    status.reset();
    errors.reset();
    login_tty(dup(slave.fd));
    slave.reset();
    const pid_t pid = fork();
    if (pid == 0) {
        ::close(status_fd);
        child_main(body, options, error_fd);
    }
    kept_child = pid;
    std::signal(SIGHUP, forward_hangup);
    if (error_fd >= 0) {
        ::close(error_fd);
    }
    send_number(status_fd, pid);
    int result = 0;
    while (waitpid(pid, &result, 0) < 0 && errno == EINTR) {
    }
    send_number(status_fd, exit_code(result));
    for (;;) {
        pause();
    }
}

// Takes in what the child has written, waiting at most `ms` for it. False when nothing came.
bool Terminal::State::pump(int ms) {
    pollfd fds[] = {{master.fd, POLLIN, 0}, {status.fd, POLLIN, 0}, {errors.fd, POLLIN, 0}};
    if (poll(fds, 3, ms) <= 0) {
        return false;
    }
    const std::size_t seen = output.size();
    if (fds[0].revents != 0 && !master.drain(output)) {
        master.reset();
    }
    vterm_input_write(vterm, output.data() + seen, output.size() - seen);
    if (fds[2].revents != 0 && !errors.drain(error_text)) {
        errors.reset();
    }
    if (fds[1].revents != 0 && !status.drain(status_bytes)) {
        status.reset();
    }
    if (exited < 0 && status_bytes.size() == 2 * sizeof exited) {
        std::memcpy(&exited, status_bytes.data() + sizeof exited, sizeof exited);
    }
    return true;
}

void Terminal::State::send(const char* bytes, std::size_t size) {
    const auto end = Clock::now() + WAIT_LIMIT;
    while (size > 0 && master.fd >= 0 && Clock::now() < end) {
        const ssize_t n = ::write(master.fd, bytes, size);
        if (n > 0) {
            bytes += n;
            size -= static_cast<std::size_t>(n);
        } else {
            pollfd room = {master.fd, POLLOUT, 0};
            poll(&room, 1, 10);
        }
    }
}

Terminal::Terminal(int cols, int rows) : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.cols = cols;
    s.rows = rows;
    const winsize size = window_size(cols, rows);
    int master = -1;
    int slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) {
        fail("openpty");
    }
    s.master.reset(master);
    s.slave.reset(slave);
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);
    fcntl(master, F_SETFL, O_NONBLOCK);
    s.vterm = vterm_new(rows, cols);
    vterm_set_utf8(s.vterm, 1);
    s.screen = vterm_obtain_screen(s.vterm);
    vterm_screen_enable_altscreen(s.screen, 1);
    vterm_screen_reset(s.screen, 1);
    // What the terminal answers (its cursor's place, its kind) goes to the program.
    vterm_output_set_callback(
        s.vterm,
        [](const char* bytes, std::size_t n, void* user) {
            static_cast<State*>(user)->send(bytes, n);
        },
        &s);
}

Terminal::~Terminal() {
    State& s = *state_;
    if (s.keeper > 0) {
        if (s.exited < 0) {
            kill(-s.child, SIGKILL);
            kill(s.child, SIGKILL);
        }
        kill(s.keeper, SIGKILL);
        waitpid(s.keeper, nullptr, 0);
    }
    vterm_free(s.vterm);
}

void Terminal::spawn(const std::vector<std::string>& argv, const RunOptions& options) {
    run([&]() -> int { exec_child(argv); }, options);
}

void Terminal::run(const std::function<int()>& body, const RunOptions& options) {
    State& s = *state_;
    Fd status_end;
    Fd error_end;
    make_pipe(s.status, status_end);
    if (options.split_stderr) {
        make_pipe(s.errors, error_end);
    }
    std::fflush(nullptr); // or the child would write it once more
    s.keeper = fork();
    if (s.keeper == 0) {
        s.keep(body, options, status_end.fd, error_end.fd);
    }
    status_end.reset();
    error_end.reset();
    wait_until([&] { return s.status_bytes.size() >= sizeof s.child; }, "the start of the child");
    std::memcpy(&s.child, s.status_bytes.data(), sizeof s.child);
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
    kill(state_->child, number);
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
            fail(std::string("waited in vain for: ") + what + "\nchild " +
                 (s.exited < 0 ? "runs" : "ended with " + std::to_string(s.exited)) +
                 ", the screen:\n" + screen() + s.error_text);
        }
    }
}

int Terminal::wait_exit() {
    State& s = *state_;
    wait_until([&] { return s.exited >= 0; }, "the end of the child");
    s.take_all();
    return s.exited;
}

std::string Terminal::row(int y) {
    std::string text;
    for (int x = 0; x < state_->cols; ++x) {
        const std::string one = cell(x, y).text;
        text += one.empty() ? " " : one;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string Terminal::screen() {
    std::string text;
    for (int y = 0; y < state_->rows; ++y) {
        text += row(y) + "\n";
    }
    return text;
}

namespace {

std::string utf8(std::uint32_t c) {
    if (c < 0x80) {
        return std::string(1, static_cast<char>(c));
    }
    std::string tail;
    std::uint32_t lead = 0x80;
    for (std::uint32_t limit = 0x40; c >= limit; limit >>= 1) {
        tail.insert(tail.begin(), static_cast<char>(0x80 | (c & 0x3f)));
        c >>= 6;
        lead |= limit;
    }
    return static_cast<char>(lead | c) + tail;
}

} // namespace

Cell Terminal::cell(int x, int y) {
    State& s = *state_;
    s.take_all();
    Cell result;
    VTermScreenCell raw;
    if (vterm_screen_get_cell(s.screen, VTermPos{y, x}, &raw) == 0) {
        return result;
    }
    for (const std::uint32_t* c = raw.chars; *c != 0 && *c != 0xffffffffU; ++c) {
        result.text += utf8(*c);
    }
    result.fg = VTERM_COLOR_IS_DEFAULT_FG(&raw.fg) ? -1 : raw.fg.indexed.idx;
    result.bg = VTERM_COLOR_IS_DEFAULT_BG(&raw.bg) ? -1 : raw.bg.indexed.idx;
    result.bold = raw.attrs.bold != 0;
    result.reverse = raw.attrs.reverse != 0;
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

const std::string& Terminal::error_text() {
    state_->take_all();
    return state_->error_text;
}

int Terminal::slave() {
    return state_->slave.fd;
}
int Terminal::pid() {
    return state_->child;
}

long Terminal::cpu_ms() {
    clockid_t clock = 0;
    timespec used = {};
    if (clock_getcpuclockid(state_->child, &clock) != 0 || clock_gettime(clock, &used) != 0) {
        fail("cpu_ms: no such child");
    }
    return static_cast<long>(used.tv_sec * 1000 + used.tv_nsec / 1000000);
}

Outcome run_program(const std::vector<std::string>& argv, const RunOptions& options) {
    Fd out;
    Fd err;
    Fd out_end;
    Fd err_end;
    make_pipe(out, out_end);
    make_pipe(err, err_end);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setsid(); // no terminal to fall back on
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
        dup2(out_end.fd, 1);
        dup2(err_end.fd, 2);
        prepare_child(options);
        exec_child(argv);
    }
    out_end.reset();
    err_end.reset();
    Outcome outcome;
    const auto end = Clock::now() + RUN_LIMIT;
    while ((out.fd >= 0 || err.fd >= 0) && Clock::now() < end) {
        pollfd fds[] = {{out.fd, POLLIN, 0}, {err.fd, POLLIN, 0}};
        poll(fds, 2, 100);
        if (fds[0].revents != 0 && !out.drain(outcome.out)) {
            out.reset();
        }
        if (fds[1].revents != 0 && !err.drain(outcome.err)) {
            err.reset();
        }
    }
    if (out.fd >= 0 || err.fd >= 0) {
        kill(pid, SIGKILL);
        ADD_FAILURE() << argv[0] << " does not end";
    }
    int status = 0;
    waitpid(pid, &status, 0);
    outcome.status = exit_code(status);
    return outcome;
}

} // namespace kx::test
