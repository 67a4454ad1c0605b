// The serving: settings for the library's fileservers, and what it tells turned into lines.
#include "tools/serve.h"

#include "core/active_config.h"
#include "fileserver/fileserver.h"
#include "link/port.h"
#include "tools/bar.h"
#include "tools/console.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/line.h"
#include "tools/parse.h"
#include "tools/report.h"
#include "tools/signals.h"
#include "ui/msg.h"
#include "util/ascii.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kx {

namespace {

constexpr int PATIENCE_MS = 30000;
constexpr std::uint32_t STILL_MS = 1000;    // a request stands still
constexpr std::size_t UNKNOWN_SHOWN = 8;    // bytes
constexpr std::uint64_t UNKNOWN_MAX = 1024; // of them before it is told in any case

struct State {
    std::uint32_t idle_ms = 0; // the line was idle last
    bool in_request = false;
    std::uint32_t began_ms = 0;   // the request in hand
    std::uint64_t line_began = 0; // bytes that had gone out by then
    std::string title;            // of its progress
    std::uint64_t moved = 0;      // its bytes
    std::uint32_t moved_ms = 0;   // when they were
    bool dropped = false;         // by a signal
    bool once = false;
    bool ended = false; // by `once`
    unsigned requests = 0;
    std::uint64_t bytes_out = 0;
    std::uint64_t bytes_in = 0;
    std::uint64_t unknown = 0;
    std::vector<std::uint8_t> unknown_bytes;
    std::uint32_t unknown_ms = 0;
};
State state;

// Settings ---------------------------------------------------------------------------------------

std::string directory_of(const ServeOptions& options) {
    return options.directory.empty() ? "." : options.directory;
}

std::string current_directory() {
    char directory[PATH_MAX];
    return getcwd(directory, sizeof directory) != nullptr ? directory : "";
}

// The directory becomes the root that no request leaves.
int use_directory(const ServeOptions& options) {
    const std::string path = directory_of(options);
    std::string real;
    if (chdir(path.c_str()) != 0 || (real = current_directory()).empty()) {
        return host_fail(path, errno);
    }
    active_config.fileserver_root = options.anywhere ? "" : real;
    return 0;
}

const char* protocol_tag() {
    return fileserver_get_tag(static_cast<std::int8_t>(active_config.fileserver));
}

// "/home/me/c64 (cbm, read-only)"
std::string serving_text() {
    return text_printf("%s (%s, %s)", current_directory().c_str(), protocol_tag(),
                       active_config.fileserver_read_only ? "read-only" : "writable");
}

int find_patience(const ServeOptions& options, int& milliseconds) {
    milliseconds = PATIENCE_MS;
    std::uint32_t given = 0;
    std::string error;
    if (options.patience == "0") {
        milliseconds = 0;
    } else if (!options.patience.empty()) {
        if (parse_seconds(options.patience, given, error) != 0) {
            return report_fail(KxError::Usage, "--patience: " + error + ", nor 0");
        }
        milliseconds = static_cast<int>(given);
    }
    return 0;
}

// Requests ---------------------------------------------------------------------------------------

// As names look on the target, control and graphics characters as codes.
std::string shown_name(const std::string& name) {
    std::string text;
    for (const char c : name) {
        text += ascii_is_print(c) ? std::string(1, c)
                                  : text_printf("\\x%02x", static_cast<unsigned char>(c));
    }
    return text;
}

std::string size_text(std::uint64_t bytes) {
    return bytes < 1024 ? text_count(bytes, "byte")
                        : text_printf("%.1f KiB", static_cast<double>(bytes) / 1024);
}

bool is_save(const FileserverEvent& event) {
    const std::string_view request = event.request;
    return request == "save" || request == "dbgSave" || request == "dhWrite";
}

// Calls on open files come by the hundred, and are told with -v only.
bool is_detail(const FileserverEvent& event) {
    constexpr std::string_view details[] = {"dbgRead", "dhWrite", "dbgLseek", "dbgTell",
                                            "dbgFindnext"};
    for (const std::string_view detail : details) {
        if (event.request == detail) {
            return event.result == FileserverResult::Done || detail == "dbgFindnext";
        }
    }
    return false;
}

// "500 of 1002 bytes", "1.5 KiB of 9.9 KiB".
std::string part_text(std::uint64_t bytes, std::uint64_t all) {
    return (all < 1024 ? std::to_string(bytes) : size_text(bytes)) + " of " + size_text(all);
}

// A reason of the system in the words of the fileservers.
std::string reason(const std::string& why) {
    const bool missing = why == std::strerror(ENOENT) || why == std::strerror(ENOTDIR);
    return why.empty() ? "failed" : missing ? "not found" : why;
}

std::string outcome(const FileserverEvent& event, std::uint32_t milliseconds) {
    const std::string part = part_text(event.bytes, event.expected);
    switch (event.result) {
    case FileserverResult::Failed:
        return reason(event.why);
    case FileserverResult::Dropped:
        return "dropped: " + event.why + (event.expected > 0 ? " (" + part + ")" : "") +
               (is_save(event) ? ", nothing is kept" : "");
    default:
        break;
    }
    if (event.entries > 0) {
        return text_count(event.entries, "entry", "entries");
    }
    if (event.expected == 0 && event.bytes == 0) {
        return event.why.empty() ? "ok" : event.why;
    }
    return (event.bytes < event.expected ? part + " only" : size_text(event.bytes)) + " in " +
           line_time_text(milliseconds);
}

std::string time_text(const char* format, bool utc) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
    std::tm fields = {};
    utc ? gmtime_r(&seconds, &fields) : localtime_r(&seconds, &fields);
    char text[40];
    std::strftime(text, sizeof text, format, &fields);
    return utc ? text_printf("%s.%03dZ", text, static_cast<int>(ms.count() % 1000)) : text;
}

void tell_json(const FileserverEvent& event, std::uint32_t milliseconds) {
    Json json;
    json.set("event", event.request);
    json.set("name", shown_name(event.name));
    json.set("file", event.file);
    json.set("bytes", event.bytes);
    json.set("expected", event.expected);
    json.set("entries", event.entries);
    json.set("ok", event.result == FileserverResult::Done);
    json.set("why", event.why);
    json.set("milliseconds", milliseconds);
    json.set("time", time_text("%FT%T", true));
    report_event(json);
}

// "12:03:11  load  GAME          game.prg      9.9 KiB in 2.6 s"
void tell_text(const FileserverEvent& event, std::uint32_t milliseconds) {
    const std::string text =
        text_printf("%s  %-*s %-16s  %-16s  %s", time_text("%T", false).c_str(),
                    active_config.fileserver == FILESERVER_GENERIC ? 12 : 5, event.request,
                    shown_name(event.name).c_str(), ascii_escape(event.file).c_str(),
                    ascii_escape(outcome(event, milliseconds)).c_str());
    if (is_detail(event)) {
        report_detail(text);
        return;
    }
    bar_hide();
    report_line(text);
    report_flush();
}

void tell_request(const FileserverEvent& last) {
    const std::uint32_t milliseconds = clock_ms() - state.idle_ms;
    FileserverEvent event = last;
    if (event.result == FileserverResult::Dropped && state.in_request) {
        // A piece that was on its way does not count there.
        event.bytes = std::max(event.bytes, std::min(event.expected, state.moved));
    }
    const bool gone = event.result == FileserverResult::Dropped && line_has_gone();
    if (gone) {
        event.why = "the line is gone";
    }
    bar_end();
    state.in_request = false;
    state.requests++;
    (is_save(event) ? state.bytes_in : state.bytes_out) += event.bytes;
    state.ended = state.ended || (state.once && !gone); // else the lost line ends it
    globals.json ? tell_json(event, milliseconds) : tell_text(event, milliseconds);
}

// Waiting ----------------------------------------------------------------------------------------

// A request's name and length come in the course of it.
void begin_progress(const FileserverEvent& event) {
    const std::string title =
        event.name.empty() ? event.request
                           : std::string(event.request) + " \"" + shown_name(event.name) + "\"";
    if (!state.in_request) {
        state.in_request = true;
        state.began_ms = state.moved_ms = clock_ms();
        state.line_began = port_line.written;
        state.moved = 0;
        state.title.clear();
    }
    const std::string whole = title + std::to_string(event.expected);
    if (state.title != whole) {
        state.title = whole;
        bar_begin(title, event.expected);
    }
}

// How many bytes have moved. What goes to the target is taken by the system long before the line
// has carried it.
std::uint64_t moved_bytes(const FileserverEvent& event) {
    return is_save(event) ? event.bytes
                          : std::min(port_line.written - state.line_began,
                                     line_carries(clock_ms() - state.began_ms));
}

// Asked while a request is under way. The first signal drops it.
bool stops_request() {
    const FileserverEvent& event = fileserver_last_request();
    begin_progress(event);
    const std::uint32_t now = clock_ms();
    const std::uint64_t moved = moved_bytes(event);
    if (moved != state.moved) {
        state.moved = moved;
        state.moved_ms = now;
    }
    bar_update(moved, now - state.moved_ms < STILL_MS
                          ? ""
                          : "waiting for the rest (" + part_text(moved, event.expected) + ")");
    console_poll();
    state.dropped = signals_pending() != 0;
    return state.dropped;
}

// Bytes that no protocol knows: told once when they have ceased.
void tell_unknown() {
    const bool over = clock_ms() - state.unknown_ms > STILL_MS;
    if (state.unknown == 0 || (!over && state.unknown < UNKNOWN_MAX)) {
        return;
    }
    const char* const protocol = protocol_tag();
    report_warning(text_count(state.unknown, "byte") + " of no " + protocol + " request (" +
                   text_hex(state.unknown_bytes) +
                   (state.unknown > state.unknown_bytes.size() ? " ...)" : ")"));
    if (!globals.quiet) {
        report_done(text_printf("hint: is %d baud what the target speaks, and %s its protocol "
                                "(--protocol)?",
                                active_config.port_baud, protocol));
    }
    state.unknown = 0;
    state.unknown_bytes.clear();
}

void note_unknown(std::uint8_t byte) {
    state.unknown++;
    state.unknown_ms = clock_ms();
    if (state.unknown_bytes.size() < UNKNOWN_SHOWN) {
        state.unknown_bytes.push_back(byte);
    }
}

// Asked between requests.
bool stops_serving() {
    state.idle_ms = clock_ms();
    tell_unknown();
    if (console_poll()) {
        return true;
    }
    if (state.dropped && signals_pending() == SIGINT && signals_count() == 1) {
        signals_take(); // it was for the request; the next one ends the serving
        report_done(std::string("the request is dropped") +
                    (state.ended ? "" : "; Ctrl-C again ends"));
    }
    state.dropped = false;
    return state.ended || signals_pending() != 0;
}

// The line has gone: waits until there is one again. 0, or the exit status.
int reconnect(Session& session) {
    report_warning("the line " + active_config.port_name + " has gone; waiting for it");
    const int status = line_reconnect(session);
    if (status == 0) {
        report_done("the line is back");
    }
    return status;
}

void begin(const ServeOptions& options) {
    state = {};
    state.once = options.once;
    state.idle_ms = clock_ms();
    const bool open = active_config.fileserver_root.empty();
    if (open) {
        report_warning("the target may name any file of this host (--anywhere)");
    }
    report_done(text_printf("serving %s to the target on %s at %d baud; Ctrl-C ends",
                            serving_text().c_str(), active_config.port_name.c_str(),
                            active_config.port_baud));
    if (globals.json) {
        Json json;
        json.set("event", "ready");
        json.set("directory", current_directory());
        json.set("device", active_config.port_name);
        report_event(json);
    }
}

int end(int status) {
    tell_unknown();
    Json& json = report_json();
    json.set("requests", state.requests);
    json.set("bytes_out", state.bytes_out);
    json.set("bytes_in", state.bytes_in);
    report_done("served " + text_count(state.requests, "request") + ", " +
                size_text(state.bytes_out) + " out, " + size_text(state.bytes_in) + " in");
    return status;
}

int signal_status() {
    const int signal = signals_pending();
    return signal == 0 || signal == SIGINT
               ? 0
               : report_interrupted(signal, "interrupted: the serving has ended");
}

int serve_until_end(Session& session, const ServeOptions& options) {
    const SessionServing serving = {.stop = stops_serving, .unknown = note_unknown};
    while (session_serve(session, serving) != 1) {
        if (session.cause != SessionCause::LineLost) {
            return report_fail_library(KxError::BadConfig, "", session.text);
        }
        report_forget_library();
        if (options.once) {
            return report_fail(KxError::LineLost,
                               "the line " + active_config.port_name + " has gone");
        }
        if (const int status = reconnect(session)) {
            return signals_pending() != 0 ? signal_status() : status;
        }
    }
    return signal_status();
}

} // namespace

int serve_check(const ServeOptions& options) {
    if (options.read_only && options.writable) {
        return report_fail_usage("--read-only and --writable exclude each other");
    }
    const std::string path = directory_of(options);
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return host_fail(path, errno);
    }
    return S_ISDIR(status.st_mode)
               ? 0
               : report_fail(KxError::Usage,
                             path + ": a file, and it is directories that are served",
                             "kx get takes files out of disc images");
}

int serve_prepare(const Session& session, const ServeOptions& options) {
    if (!options.protocol.empty()) {
        active_config.fileserver = fileserver_find_tag(options.protocol.c_str());
    }
    if (active_config.fileserver == 0 || active_config.fileserver == fileserver_default_id()) {
        return report_fail(KxError::BadConfig, session.target + ": it names no fileserver",
                           "give --protocol cbm, generic or serialslave");
    }
    if (const int status = options.console ? console_check(session) : 0) {
        return status;
    }
    if (options.read_only || options.writable) {
        active_config.fileserver_read_only = options.read_only;
    }
    active_config.fileserver_open_match = !options.exact;
    active_config.fileserver_translate_save = !options.exact;
    verbosity.silent = globals.verbose < 3; // the library's own lines, some for each byte
    int patience = 0;
    if (const int status = find_patience(options, patience)) {
        return status;
    }
    if (const int status = use_directory(options)) {
        return status;
    }
    fileserver_set_patience(patience);
    fileserver_set_stop(stops_request);
    fileserver_set_event(tell_request);
    return fileserver_start() == 0
               ? 0
               : report_fail_library(KxError::HostFile, "", "the directory cannot be opened");
}

int serve_dry_run() {
    Json& json = report_json();
    json.set("directory", current_directory());
    json.set("protocol", protocol_tag());
    json.set("read_only", active_config.fileserver_read_only);
    json.set("device", active_config.port_name);
    json.set("baud", active_config.port_baud);
    report_done(serving_text() + " would be served");
    return 0;
}

int serve_run(Session& session, const ServeOptions& options) {
    if (options.console) {
        console_open();
    }
    line_begin_serving();
    begin(options);
    const int status = serve_until_end(session, options);
    bar_end();
    console_close();
    return end(status);
}

} // namespace kx
