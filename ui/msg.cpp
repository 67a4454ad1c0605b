// Messages and progress: the console and the windowed output, and the table that chooses.

#include "ui/msg.h"

#include "ui/cells_private.h"
#include "ui/col.h"
#include "ui/con.h"
#include "ui/msgbox.h"
#include "util/ascii.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <unistd.h>

namespace kx {

Verbosity verbosity;

namespace {

extern const MsgOutput CONSOLE_OUTPUT;

struct Counter {
    int cur = 0;
    int total = 1;
    std::optional<int> last; // reduced value last drawn; none since the display began
};

struct State {
    const MsgOutput* output = &CONSOLE_OUTPUT;
    MsgOutput own;          // of `msg_set_table`
    int line_len = 0;       // of what stands on the output line; 0: a fresh line
    int progress_width = 0; // of the progress text; the cursor stands at its start
    Counter first;
    Counter second;
    unsigned spin = 0;
    bool running = false;         // a progress display is shown
    std::uint32_t started_ms = 0; // when it began
    // Quarter of a second of the last redraw. None since the display began, so that its first
    // update is drawn however soon it comes.
    std::optional<std::uint32_t> tick_last;
    ConRect box; // of the windowed display
};
State state;

// Texts --------------------------------------------------------------------------------------

__attribute__((format(printf, 1, 0))) std::string format_text(const char* format, va_list args) {
    // Names of files and bytes from the target come through here and must not steer the terminal.
    return ascii_escape(text_vprintf(format, args), "\n\r\t\b");
}

// Counters, shared by all outputs ------------------------------------------------------------

void start_counters() {
    state.first = {};
    state.second = {};
    state.tick_last.reset();
    state.started_ms = clock_ms();
    state.running = true;
}

// Most updates cost no look at the clock: totals are counted in some 4096 steps. Meant: those above
// a million in steps of a millionth, which are more.
int reduce(int cur, int total) {
    if (total <= 0x1000) {
        return cur;
    }
    return cur / (total <= 0x100000 ? total >> 12 : total >> 20);
}

// Whether the display has to follow: a step has been made, and in another quarter of a second.
bool advance(Counter& counter, int cur, int total) {
    counter.cur = cur;
    counter.total = total == 0 ? 1 : total;
    const int value = reduce(counter.cur, counter.total);
    if (!state.running || counter.last == value) {
        return false;
    }
    counter.last = value;
    const std::uint32_t tick = (clock_ms() - state.started_ms) / 250;
    if (state.tick_last == tick) {
        return false;
    }
    state.tick_last = tick;
    return true;
}

// In 64 bits: a hundred times a file's length may not fit into 32.
int percent(const Counter& counter) {
    const std::int64_t value = std::int64_t{counter.cur} * 100 / counter.total;
    return static_cast<int>(std::clamp<std::int64_t>(value, INT_MIN, INT_MAX));
}

char next_spinner() {
    return "-/|\\"[state.spin++ % 4];
}

// Console ------------------------------------------------------------------------------------

// What is written to the terminal under the screen would spoil the screen and be gone with it.
bool is_covered() {
    return con_screen_covers(STDERR_FILENO);
}

void emit(const std::string& text) {
    if (is_covered()) {
        con_after_screen(text.c_str());
        return;
    }
    std::fflush(stdout); // what erases the progress comes first
    std::fputs(text.c_str(), stderr);
}

void break_line() {
    const bool in_line = !con_screen_active() || is_covered() || con_wherex() > 0;
    if (in_line && state.line_len >= 1) {
        emit("\n");
    }
}

void move_left(int cells) {
    for (int i = 0; i < cells; i++) {
        con_left();
    }
}

void erase_progress() {
    con_spaces(state.progress_width);
    move_left(state.progress_width);
    state.progress_width = 0;
}

// The line stays open; that it counts as full makes the next message break it.
void leave_line_open() {
    state.line_len = con_cols();
}

void console_info(const std::string& text) {
    if (verbosity.silent != 0 || verbosity.verbose == 0) {
        return;
    }
    erase_progress();
    break_line();
    emit("info: " + text + " ");
    leave_line_open();
}

void console_warning(const std::string& text) {
    if (verbosity.silent != 0 || (verbosity.verbose == 0 && verbosity.warn == 0)) {
        return;
    }
    erase_progress();
    break_line();
    {
        const ColScope colours(COL_CONSOLE_WARNING);
        emit("warning");
    }
    emit(": " + text + " ");
    leave_line_open();
}

// Meant: errors and plain messages leave the progress text where it is, on the line before.
void console_error(const std::string& text) {
    break_line();
    emit("error");
    { // Meant: set after the word, the colours colour nothing
        const ColScope colours(COL_CONSOLE_ERROR);
    }
    emit(": " + text + " ");
    leave_line_open();
}

void console_message(const std::string& text) {
    break_line();
    emit(text + " ");
    leave_line_open();
}

void console_print(const std::string& text) {
    if (verbosity.silent != 0) {
        return;
    }
    erase_progress();
    emit(text);
    leave_line_open();
}

void console_tick() { // Meant: also when silent
    con_putch('*');
    con_refresh();
}

void console_begin(const std::string& title) {
    break_line();
    state.line_len = cell_columns(title);
    state.progress_width = 0;
    start_counters();
    if (verbosity.silent == 0) {
        con_puts(title.c_str());
        con_refresh();
    }
}

// Cells for a number up to `total`, 1 to 9: the columns follow the size of the total.
int field_width(int total) {
    int width = 1;
    for (; total >= 10 && width < 9; total /= 10) {
        width++;
    }
    return width;
}

bool is_used(const Counter& counter) {
    return counter.total != 1 || counter.cur != 0;
}

std::string console_progress_text() {
    std::string text = {'[', next_spinner(), ']'};
    if (is_used(state.first)) {
        const int width = field_width(state.first.total);
        text += text_printf(" %*d/%*d %03d%%", width, state.first.cur, width, state.first.total,
                            percent(state.first));
    }
    if (is_used(state.second)) {
        const int width = field_width(state.second.total);
        text += text_printf(" (%*d/%*d)", width, state.second.cur, width, state.second.total);
    }
    return text;
}

// The cursor goes back to the start of the text, and the next one overwrites it in place.
void console_draw() {
    if (verbosity.silent != 0) {
        return;
    }
    const std::string text = console_progress_text();
    const int width = static_cast<int>(text.size());
    con_showcursor(0);
    if (state.line_len + width < con_cols()) {
        if (width < state.progress_width) {
            erase_progress();
        }
    } else {
        erase_progress();
        con_puts("\n\r");
        state.line_len = 0;
    }
    {
        const ColScope colours(COL_CONSOLE_PROGRESS);
        con_puts(text.c_str());
    }
    state.progress_width = width;
    move_left(width);
    con_refresh();
}

void console_update(int cur, int total) {
    if (advance(state.first, cur, total)) {
        console_draw();
    }
}

void console_update2(int cur, int total) {
    if (advance(state.second, cur, total)) {
        console_draw();
    }
}

void console_end(int result) {
    if (verbosity.silent == 0) {
        const bool failed = result == -1;
        con_puts("[");
        {
            const ColScope colours(failed ? COL_CONSOLE_PROGRESS_ERROR : COL_CONSOLE_PROGRESS_OK);
            con_puts(failed ? "error" : "ok");
        }
        con_puts(failed ? "]" : "]   "); // seven cells either way
        con_spaces(state.progress_width - 7);
        con_puts("\n\r");
        con_refresh();
    }
    state.progress_width = 0;
    state.line_len = 0;
    state.running = false;
}

// Windowed -----------------------------------------------------------------------------------

void windowed_error(const std::string& text) {
    msgbox_run("error: " + text);
}

void windowed_message(const std::string& text) {
    msgbox_run(text);
}

// The last row of the box is the progress line's.
int progress_row() {
    return state.box.y + state.box.height - 2;
}

void windowed_begin(const std::string& title) {
    const std::string text = title + "\n\r" + std::string(2 + 36 + 2, ' ');
    msgbox_size(state.box, text);
    msgbox_draw(state.box, text);
    con_refresh();
    start_counters();
}

void windowed_draw() {
    const Counter& first = state.first;
    const Counter& second = state.second;
    const std::string line =
        text_printf("%d/%d %3d%% - %d/%d %3d%% [%c]", first.cur, first.total, percent(first),
                    second.cur, second.total, percent(second), next_spinner());
    const int length = static_cast<int>(line.size());
    const ColScope colours(COL_WINDOW_PROGRESS);
    con_gotoxy(state.box.x + 1, progress_row());
    con_spaces(state.box.width - length - 2);
    cell_puts(line, state.box.width - 2);
    con_refresh();
}

void windowed_update(int cur, int total) {
    if (advance(state.first, cur, total)) {
        windowed_draw();
    }
}

void windowed_update2(int cur, int total) {
    if (advance(state.second, cur, total)) {
        windowed_draw();
    }
}

void windowed_end(int result) {
    const bool failed = result == -1;
    const ColScope colours(COL_WINDOW_PROGRESS);
    con_gotoxy(state.box.x + 1, progress_row());
    con_spaces(state.box.width - 2);
    con_gotoxy(state.box.x + std::max(state.box.width - 9, 1), progress_row());
    con_puts("[");
    col_set(failed ? COL_WINDOW_PROGRESS_ERROR : COL_WINDOW_PROGRESS_OK);
    con_puts(failed ? "error" : "ok");
    col_set(COL_WINDOW);
    con_puts("]");
    con_refresh();
    if (failed) {
        con_getkey();
    }
    state.running = false;
}

// The modes ----------------------------------------------------------------------------------

const MsgOutput CONSOLE_OUTPUT = {
    .info = console_info,
    .warning = console_warning,
    .error = console_error,
    .message = console_message,
    .print = console_print,
    .tick = console_tick,
    .progress_begin = console_begin,
    .progress_update = console_update,
    .progress_update2 = console_update2,
    .progress_end = console_end,
};

constexpr MsgOutput QUIET_OUTPUT = {};

constexpr MsgOutput WINDOWED_OUTPUT = {
    .error = windowed_error,
    .message = windowed_message,
    .progress_begin = windowed_begin,
    .progress_update = windowed_update,
    .progress_update2 = windowed_update2,
    .progress_end = windowed_end,
};

// By mode number.
constexpr const MsgOutput* OUTPUTS[] = {&CONSOLE_OUTPUT, &CONSOLE_OUTPUT, &QUIET_OUTPUT,
                                        &WINDOWED_OUTPUT, &QUIET_OUTPUT};

template <typename... Values, typename... Given>
void tell(void (*entry)(Values...), Given&&... given) {
    if (entry != nullptr) {
        entry(std::forward<Given>(given)...);
    }
}

} // namespace

void msg_set_output(int mode) {
    if (mode >= 0 && mode < static_cast<int>(std::size(OUTPUTS))) {
        state.output = OUTPUTS[mode];
    }
}

void msg_set_table(const MsgOutput& output) {
    state.own = output;
    state.output = &state.own;
}

void msg_info(const char* format, ...) {
    va_list args;
    va_start(args, format);
    tell(state.output->info, format_text(format, args));
    va_end(args);
}

void msg_warning(const char* format, ...) {
    va_list args;
    va_start(args, format);
    tell(state.output->warning, format_text(format, args));
    va_end(args);
}

void msg_error(const char* format, ...) {
    va_list args;
    va_start(args, format);
    tell(state.output->error, format_text(format, args));
    va_end(args);
}

void msg_message(const char* format, ...) {
    va_list args;
    va_start(args, format);
    tell(state.output->message, format_text(format, args));
    va_end(args);
}

void msg_print(const char* format, ...) {
    va_list args;
    va_start(args, format);
    tell(state.output->print, format_text(format, args));
    va_end(args);
}

void msg_tick() {
    tell(state.output->tick);
}

void progress_begin(const char* format, ...) {
    va_list args;
    va_start(args, format);
    tell(state.output->progress_begin, format_text(format, args));
    va_end(args);
}

void progress_update(int cur, int total) {
    tell(state.output->progress_update, cur, total);
}

void progress_update2(int cur, int total) {
    tell(state.output->progress_update2, cur, total);
}

void progress_end(int result) {
    tell(state.output->progress_end, result);
}

void msg_reset() {
    state = {};
    verbosity = {};
}

} // namespace kx
