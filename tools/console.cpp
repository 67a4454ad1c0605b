// Bytes between the library's debug console and the terminal, a few at a time.
#include "tools/console.h"

#include "core/active_config.h"
#include "fileserver/debug_console.h"
#include "link/serial.h"
#include "tools/bar.h"
#include "tools/global.h"
#include "tools/line.h"
#include "tools/report.h"
#include "util/ascii.h"
#include "util/ending.h"
#include "util/fd.h"
#include "util/text.h"

#include <cstdio>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr int BYTES_AT_A_TIME = 4096; // of a target that never pauses
constexpr char PREFIX = 'T' - '@';

struct State {
    bool open = false;
    bool gone = false;         // its line, which has been told
    bool terminal = false;     // its settings are to be put back
    bool after_return = false; // the target has sent one
    bool prefix = false;       // the prefix key was typed
    bool leaves = false;       // and then q, perhaps while a request was under way
    Fd lock;                   // the line's device
    termios saved = {};
    EndingRestorer ending; // for as long as there are settings to put back
};
State state;

std::string device() {
    return active_config.console_port.empty() ? SerialLine().device : active_config.console_port;
}

void put_back(void* /*context*/) {
    tcsetattr(STDIN_FILENO, TCSANOW, &state.saved);
}

// Keys come one by one, unechoed; Ctrl-C and Ctrl-Z keep their meaning.
void set_terminal() {
    if (isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &state.saved) != 0) {
        return;
    }
    termios settings = state.saved;
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    state.ending.restore = put_back;
    ending_add(state.ending);
    state.terminal = tcsetattr(STDIN_FILENO, TCSANOW, &settings) == 0;
}

void show_text() {
    std::string text;
    for (int i = 0; i < BYTES_AT_A_TIME; i++) {
        const char byte = static_cast<char>(target_console_poll_byte());
        if (byte == 0) {
            break;
        }
        const bool ends_line = byte == '\n' && state.after_return; // of two characters
        state.after_return = byte == '\r';
        if (byte == '\r') { // a C-64 ends its lines so
            text += '\n';
        } else if (ends_line) {
            continue;
        } else if ((byte & 0x80) == 0) {
            text += byte;
        } else { // graphics and capitals of PETSCII, which no terminal knows
            text += text_printf("\\x%02x", static_cast<unsigned char>(byte));
        }
    }
    if (text.empty()) {
        return;
    }
    text = ascii_escape(text, "\n\t\b");
    if (globals.json) {
        Json json;
        json.set("event", "console");
        json.set("text", text);
        report_event(json);
        return;
    }
    bar_hide();
    std::fputs(text.c_str(), stdout);
    report_flush();
}

// Reads of a line that has gone give nothing, as those of a silent one.
void tell_if_gone() {
    pollfd line = {state.lock.get(), 0, 0};
    if (!state.gone && poll(&line, 1, 0) > 0 && (line.revents & (POLLHUP | POLLERR)) != 0) {
        state.gone = true;
        report_warning("the console's line has gone");
    }
}

// True for the keys that leave.
bool take_key(char key) {
    if (state.prefix) {
        state.prefix = false;
        if (key == 'q') {
            return true;
        }
    } else if (key == PREFIX) {
        state.prefix = true;
        return false;
    }
    target_console_putc(static_cast<std::uint8_t>(key == '\n' ? '\r' : key));
    return false;
}

bool take_keys() {
    pollfd keys = {STDIN_FILENO, POLLIN, 0};
    char typed[64];
    const ssize_t count =
        state.terminal && poll(&keys, 1, 0) > 0 ? read(STDIN_FILENO, typed, sizeof typed) : 0;
    for (ssize_t i = 0; i < count; i++) {
        if (take_key(typed[i])) {
            return true;
        }
    }
    return false;
}

/// Whether the path is that of the line's device.
bool is_line(const std::string& path) {
    struct stat console = {}, line = {};
    return stat(path.c_str(), &console) == 0 && stat(active_config.port_name.c_str(), &line) == 0 &&
           S_ISCHR(line.st_mode) && console.st_rdev == line.st_rdev;
}

} // namespace

int console_check(const Session& session) {
    if (active_config.console != CONSOLE_SERIAL) {
        return report_fail(KxError::BadConfig, session.target + ": it names no debug console",
                           "[console] name must be serial");
    }
    if (is_line(device())) {
        return report_fail(KxError::BadConfig, session.target +
                                                   ": [console] port is the device of the line, " +
                                                   device());
    }
    // The library ends the program when it cannot open the line.
    return globals.dry_run ? 0 : line_lock_console(session, device(), state.lock);
}

void console_open() {
    target_console_init();
    set_terminal();
    state.open = true;
    report_done("console on " + device() + (state.terminal ? "; Ctrl-T q leaves" : ""));
}

bool console_poll() {
    if (!state.open) {
        return false;
    }
    show_text();
    tell_if_gone();
    state.leaves = take_keys() || state.leaves;
    return state.leaves;
}

void console_close() {
    if (state.terminal) {
        put_back(nullptr);
        ending_remove(state.ending);
    }
    if (state.open) {
        target_console_deinit();
        debug_console_reset();
    }
    state = {};
}

} // namespace kx
