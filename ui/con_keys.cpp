// Keys without a screen: from standard input, whose escape sequences are decoded here. With one
// they and the mouse are the screen's business.
#include "ui/con.h"
#include "ui/con_private.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr int INPUT_ENDED = -2;
constexpr int SEQUENCE_MS = 25; // within which a key's bytes follow each other

struct State {
    unsigned size_changes = 0;
    bool raw_active = false;
    TerminalSettings before_raw;
};
State state;

// The bytes after an Escape. '#' stands for any digit, '?' for any byte.
struct KeySequence {
    const char* bytes;
    int key;
};
constexpr KeySequence key_sequences[] = {
    {"OP", KEYCODE_F1},
    {"OQ", KEYCODE_F1 + 1},
    {"OR", KEYCODE_F1 + 2},
    {"OS", KEYCODE_F1 + 3},
    {"[[A", KEYCODE_F1},
    {"[[B", KEYCODE_F1 + 1},
    {"[[C", KEYCODE_F1 + 2},
    {"[[D", KEYCODE_F1 + 3},
    {"[[E", KEYCODE_F1 + 4},
    {"[A", KEYCODE_UP},
    {"[B", KEYCODE_DOWN},
    {"[C", KEYCODE_RIGHT},
    {"[D", KEYCODE_LEFT},
    {"[1~", KEYCODE_HOME},
    {"[2~", KEYCODE_INSERT},
    {"[3~", KEYCODE_DELETE},
    {"[4~", KEYCODE_END},
    {"[5~", KEYCODE_PAGE_UP},
    {"[6~", KEYCODE_PAGE_DOWN},
    {"[11?", KEYCODE_F1},
    {"[12?", KEYCODE_F1 + 1},
    {"[13?", KEYCODE_F1 + 2},
    {"[14?", KEYCODE_F1 + 3},
    {"[15?", KEYCODE_F1 + 4},
    {"[17?", KEYCODE_F1 + 5},
    {"[18?", KEYCODE_F1 + 6},
    {"[19?", KEYCODE_F1 + 7},
    {"[20?", KEYCODE_F1 + 8},
    {"[21?", KEYCODE_F1 + 9},
    {"[23?", KEYCODE_F1 + 10},
    {"[24?", KEYCODE_F1 + 11},
    {"[1#?", 0},
    {"[2#?", 0}, // unknown ones are read to their end. Meant: which may be any byte
};

// Whether the bytes are a beginning of the sequence.
bool begins(const char* sequence, const std::string& bytes) {
    for (const char byte : bytes) {
        const char want = *sequence++;
        const bool same = want == '#' ? byte >= '0' && byte <= '9' : want == byte;
        if (want == 0 || (want != '?' && !same)) {
            return false;
        }
    }
    return true;
}

// Canonical input and echo off while it lives, unless they are off for good or this is no
// terminal; then put back with `action`.
class RawInput {
public:
    explicit RawInput(int action) : action_(action) {
        if (state.raw_active || tcgetattr(STDIN_FILENO, &before_) != 0) {
            return;
        }
        con_hold_terminal();
        applied_ = true;
        apply(before_);
    }
    ~RawInput() {
        if (applied_) {
            tcsetattr(STDIN_FILENO, action_, &before_);
            con_release_terminal();
        }
    }
    RawInput(const RawInput&) = delete;
    RawInput& operator=(const RawInput&) = delete;

    static void apply(termios settings) {
        settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    }

private:
    int action_;
    bool applied_ = false;
    termios before_ = {};
};

// Waits for one byte; INPUT_ENDED when there will be none.
int read_byte() {
    unsigned char byte = 0;
    ssize_t n = 0;
    do {
        n = read(STDIN_FILENO, &byte, 1);
    } while (n < 0 && (errno == EINTR || (errno == EAGAIN && con_waiting_bytes(-1) >= 0)));
    return n == 1 ? byte : INPUT_ENDED;
}

// The key of the sequence after an Escape, 0 for one that is not known.
int read_sequence() {
    std::string bytes;
    for (;;) {
        const int byte = read_byte();
        if (byte == INPUT_ENDED) {
            return KEYCODE_ESCAPE;
        }
        if (bytes.empty() && byte != '[' && byte != 'O') {
            return byte; // Meant: the Escape is dropped, so a lone one waits for the next key
        }
        bytes += static_cast<char>(byte);
        bool more = false;
        for (const KeySequence& sequence : key_sequences) {
            if (begins(sequence.bytes, bytes)) {
                if (std::strlen(sequence.bytes) == bytes.size()) {
                    return sequence.key;
                }
                more = true;
            }
        }
        if (!more) {
            return 0;
        }
    }
}

int line_getkey() {
    std::fflush(stdout); // a prompt
    // Held over the whole sequence. Meant: TCSAFLUSH, with which all typed ahead is lost.
    const RawInput raw(TCSAFLUSH);
    const int byte = read_byte();
    switch (byte) {
    case INPUT_ENDED:
        return KEYCODE_ESCAPE;
    case KEYCODE_ESCAPE:
        return read_sequence();
    case '\n':
        return KEYCODE_ENTER;
    case '\b':
    case 127:
        return KEYCODE_BACKSPACE;
    default:
        return byte;
    }
}

int line_kbhit() {
    const RawInput raw(TCSANOW); // in canonical mode unfinished lines do not count
    return con_waiting_bytes(0) != 0 ? 1 : 0;
}

bool line_take_escape() {
    const RawInput raw(TCSAFLUSH); // the rest of a sequence goes with it
    int byte = read_byte();
    if (byte == KEYCODE_ESCAPE && con_waiting_bytes(SEQUENCE_MS) != 0) {
        byte = read_byte();
    }
    return byte == KEYCODE_ESCAPE || byte == INPUT_ENDED;
}

} // namespace

ConMouse con_mouse;

int con_waiting_bytes(int ms) {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, ms) <= 0) {
        return 0;
    }
    int count = 0;
    if (ioctl(STDIN_FILENO, FIONREAD, &count) != 0 || count <= 0) {
        return -1;
    }
    return count;
}

void con_count_size_change() {
    ++state.size_changes;
}

unsigned con_size_changes() {
    return state.size_changes;
}

void con_rawmode() {
    if (con_screen_active() || state.raw_active) {
        return;
    }
    con_hold_terminal();
    state.before_raw = con_settings_now();
    if (state.before_raw.known[STDIN_FILENO]) {
        RawInput::apply(state.before_raw.settings[STDIN_FILENO]);
    }
    state.raw_active = true;
}

void con_leave_rawmode() {
    if (state.raw_active) {
        state.raw_active = false;
        con_settings_restore(state.before_raw);
        con_release_terminal();
    }
}

void con_reset_keys() {
    con_leave_rawmode();
    con_mouse = {};
    state = {};
}

int con_getkey() {
    return con_keyboard() != nullptr ? con_keyboard()->get() : line_getkey();
}

int con_kbhit() {
    return con_keyboard() != nullptr ? con_keyboard()->is_waiting() : line_kbhit();
}

bool con_take_escape() {
    if (con_kbhit() == 0) {
        return false;
    }
    return con_keyboard() != nullptr ? con_keyboard()->get() == KEYCODE_ESCAPE : line_take_escape();
}

void con_idle(int ms) {
    // A screen may hold a key already, of which the operating system knows nothing.
    if (con_keyboard() == nullptr || con_keyboard()->is_waiting() == 0) {
        con_waiting_bytes(ms);
    }
}

void con_drain() {
    if (con_keyboard() != nullptr) {
        con_keyboard()->drain();
        return;
    }
    const RawInput raw(TCSANOW);
    for (int i = 0; i < CON_DRAIN_MAX && con_waiting_bytes(0) > 0; ++i) {
        read_byte();
    }
}

void con_ungetkey(int c) {
    if (con_keyboard() != nullptr) {
        con_keyboard()->unget(c);
    }
}

void con_mouse_poll() {
    if (con_keyboard() != nullptr) {
        con_keyboard()->poll_mouse();
    }
}

int con_mouse_left() {
    con_mouse_poll();
    return con_mouse.left_down;
}

int con_mouse_right() {
    con_mouse_poll();
    return con_mouse.right_down;
}

int con_mouse_x() {
    con_mouse_poll();
    return con_mouse.x;
}

int con_mouse_y() {
    con_mouse_poll();
    return con_mouse.y;
}

} // namespace kx
