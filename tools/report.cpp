// Failures, talk and data, on the terminal and as JSON.
#include "tools/report.h"

#include "ini/ini.h"
#include "tools/bar.h"
#include "tools/global.h"
#include "ui/msg.h"
#include "util/ascii.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kx {

Globals globals;

namespace {

// In the order of KxError.
struct ErrorRow {
    KxError code;
    const char* name; // in JSON
    int status;
};
constexpr ErrorRow error_table[] = {
    {KxError::Usage, "usage", 2},
    {KxError::NotFound, "not-found", 1},
    {KxError::Exists, "exists", 1},
    {KxError::NoRoom, "no-room", 1},
    {KxError::Locked, "locked", 1},
    {KxError::Damaged, "damaged", 1},
    {KxError::Differs, "differs", 1},
    {KxError::HostFile, "host-file", 1},
    {KxError::BadType, "bad-type", 1},
    {KxError::NoBase, "no-base", 3},
    {KxError::NoTarget, "no-target", 3},
    {KxError::BadConfig, "bad-config", 3},
    {KxError::PortMissing, "port-missing", 4},
    {KxError::PortPermission, "port-permission", 4},
    {KxError::PortBusy, "port-busy", 4},
    {KxError::PortNotSerial, "port-not-serial", 4},
    {KxError::PortBaud, "port-baud", 4},
    {KxError::TargetSilent, "target-silent", 5},
    {KxError::TargetSurplus, "target-surplus", 5},
    {KxError::TargetStuck, "target-stuck", 5},
    {KxError::LineLost, "line-lost", 5},
    {KxError::Interrupted, "interrupted", 128 + SIGINT},
};

const ErrorRow& row_of(KxError code) {
    const ErrorRow& row = error_table[static_cast<std::size_t>(code)];
    return row.code == code ? row : error_table[0];
}

struct State {
    std::string usage;
    Json result;
    bool failed = false;   // the result has an error
    bool held_off = false; // see report_held_off
    std::string told;      // error messages of the library that nobody has asked for yet
    int out_error = 0;     // errno of the first write to standard output that failed
    bool out_color = false;
    bool err_color = false;
};
State state;

/// Empty when it is not set.
std::string_view variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool is_capable_terminal(int fd) {
    return isatty(fd) != 0 && !variable("TERM").empty() && variable("TERM") != "dumb";
}

bool wants_color(int fd) {
    if (globals.color != "auto") {
        return globals.color == "always";
    }
    if (!variable("NO_COLOR").empty()) {
        return false;
    }
    if (!variable("CLICOLOR_FORCE").empty() && variable("CLICOLOR_FORCE") != "0") {
        return true;
    }
    return is_capable_terminal(fd);
}

/// A line on standard error: "kx: " and the text.
void talk(const std::string& text) {
    report_flush(); // on a terminal the two stay in their order
    bar_hide();
    std::fputs((text + "\n").c_str(), stderr);
}

// What the library says ----------------------------------------------------------------------

/// One line of a text that may have several.
std::string one_line(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\b';
        if (!blank) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    while (line.ends_with(' ') || line.ends_with('.')) {
        line.pop_back();
    }
    return line;
}

void keep_error(const std::string& text) {
    const std::string line = one_line(text);
    if (state.told.find(line) == std::string::npos) { // the loader says some things twice
        state.told += (state.told.empty() ? "" : "; ") + line;
    }
}

// What the library tells is for those who look for something.
void library_warning(const std::string& text) {
    if (globals.verbose > 0) {
        report_warning(one_line(text));
    }
}

void library_info(const std::string& text) {
    if (globals.verbose > 2) {
        report_detail(one_line(text));
    }
}

/// The INI module says that a file is not there, and goes on, or that a section is not, and ends
/// the program with a status that means nothing here.
void ini_report(const char* text) {
    const std::string line = one_line(text);
    if (!line.starts_with("error")) {
        library_info(line);
        return;
    }
    const int status = report_fail(KxError::BadConfig, line.substr(line.find(' ') + 1));
    std::_Exit(report_end(status));
}

} // namespace

int report_status(KxError code) {
    return row_of(code).status;
}

void report_begin(const char* command, const std::string& usage) {
    state.usage = usage;
    state.out_color = wants_color(STDOUT_FILENO);
    state.err_color = wants_color(STDERR_FILENO);
    if (globals.json) {
        state.result.set("kx", 1);
        state.result.set("command", command);
        state.result.set("ok", true);
        if (globals.dry_run) {
            state.result.set("dry_run", true);
        }
    }
    const MsgOutput output = {.info = library_info,
                              .warning = library_warning,
                              .error = keep_error,
                              .message = library_info,
                              .print = library_info};
    msg_set_table(output);
    ini_set_reporter(ini_report);
}

int report_end(int status) {
    bar_end();
    if (!state.told.empty()) {
        report_warning(std::exchange(state.told, ""));
    }
    if (state.held_off) {
        report_done("nothing was changed (dry run)");
    }
    if (globals.json) {
        state.result.set("ok", status == 0);
        std::puts(state.result.text().c_str());
    }
    if (report_flush() != 0) {
        talk(std::string("kx: error: standard output: ") + std::strerror(state.out_error));
        return status != 0 ? status : report_status(KxError::HostFile);
    }
    return status;
}

int report_fail(KxError code, const std::string& text, const std::string& hint) {
    const bool broken_off = code == KxError::Interrupted;
    talk("kx: " + (broken_off ? "" : report_paint(stderr, Paint::Error, "error") + ": ") +
         ascii_escape(text));
    if (!hint.empty() && !globals.quiet) {
        talk("hint: " + ascii_escape(hint));
    }
    const ErrorRow& row = row_of(code);
    if (globals.json && !state.failed) {
        Json error;
        error.set("code", row.name);
        error.set("text", text);
        error.set("hint", hint);
        state.result.set("error", std::move(error));
        state.failed = true;
    }
    return row.status;
}

int report_fail_usage(const std::string& text) {
    return report_fail(KxError::Usage, text, state.usage);
}

int report_interrupted(int signal, const std::string& text) {
    report_fail(KxError::Interrupted, text);
    return 128 + signal;
}

void report_forget_library() {
    state.told.clear();
}

int report_fail_library(KxError code, const std::string& before, const std::string& otherwise) {
    const std::string told = std::exchange(state.told, "");
    return report_fail(code, before + (told.empty() ? otherwise : told));
}

void report_warning(const std::string& text) {
    if (!globals.quiet) {
        talk("kx: " + report_paint(stderr, Paint::Warning, "warning") + ": " + ascii_escape(text));
    }
}

void report_done(const std::string& text) {
    if (!globals.quiet) {
        talk(ascii_escape(text));
    }
}

void report_held_off() {
    state.held_off = true;
}

void report_detail(const std::string& text) {
    if (globals.verbose > 0 && !globals.quiet) {
        talk("kx: " + ascii_escape(text));
    }
}

void report_line(const std::string& text) {
    if (!globals.json) {
        bar_hide();
        std::fputs(text.c_str(), stdout);
        std::fputc('\n', stdout);
    }
}

int report_flush() {
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (failed && state.out_error == 0) {
        state.out_error = errno;
    }
    return failed ? -1 : 0;
}

Json& report_json() {
    return state.result;
}

void report_event(const Json& event) {
    if (globals.json) {
        std::puts(event.text().c_str());
        report_flush();
    }
}

std::string report_paint(std::FILE* stream, Paint paint, const std::string& text) {
    if (!(stream == stdout ? state.out_color : state.err_color)) {
        return text;
    }
    const char* const codes[] = {"31;1", "33", "7", "1"}; // in the order of Paint
    return std::string("\x1b[") + codes[static_cast<std::size_t>(paint)] + "m" + text + "\x1b[0m";
}

bool report_wants_progress() {
    if (globals.progress != "auto" || globals.quiet) {
        return globals.progress == "always" && !globals.quiet;
    }
    return is_capable_terminal(STDERR_FILENO);
}

} // namespace kx
