// What kx says: data on standard output; talk, warnings and errors on standard error; with --json
// one object on standard output. Every failure has a code, and the codes' table has the exit
// status.
#pragma once

#include "tools/json.h"

#include <cstdio>
#include <string>

namespace kx {

enum class KxError {
    Usage,
    NotFound,
    Exists,
    NoRoom,
    Locked,
    Damaged,
    Differs,
    HostFile, // a file of the host cannot be read or written
    BadType,  // no file of a kind that the verb works on
    NoBase,
    NoTarget,
    BadConfig,
    PortMissing,
    PortPermission,
    PortBusy,
    PortNotSerial,
    PortBaud,
    TargetSilent,
    TargetSurplus,
    TargetStuck,
    LineLost,
    Interrupted, // see report_interrupted
};

/// The exit status of a code.
int report_status(KxError code);

/// Sets the output up by the global options: to be called once they are read. `command` is the
/// verb's name in JSON, `usage` the hint of report_fail_usage.
void report_begin(const char* command, const std::string& usage = "");

/// Ends the output: writes the JSON object and what is still held back. Returns the exit status:
/// `status`, or 1 when standard output did not take everything.
int report_end(int status);

// Texts are one line without its end; control characters in them are escaped here.

/// "kx: error: TEXT" and, unless quiet or empty, "hint: HINT". In JSON the first failure counts.
/// Returns the exit status of the code, to be returned by the verb.
int report_fail(KxError code, const std::string& text, const std::string& hint = "");

/// The same for a command line that has not the form of the verb's: the hint is its usage.
int report_fail_usage(const std::string& text);

/// The same for a failure of the library, with the error messages that it gave since the last call
/// as the text; `otherwise` when it gave none. `before` is put in front, as in "demo.d64: ".
int report_fail_library(KxError code, const std::string& before, const std::string& otherwise);

/// Drops those error messages: what failed is no failure of the verb.
void report_forget_library();

/// "kx: TEXT": the signal has ended the work. Returns 128 + signal.
int report_interrupted(int signal, const std::string& text);

/// "kx: warning: TEXT", unless quiet.
void report_warning(const std::string& text);

/// What was done, one line on standard error unless quiet.
void report_done(const std::string& text);

/// For a dry run, where something would have been changed: that nothing was is said at the end.
void report_held_off();

/// What is being done: with -v, on standard error.
void report_detail(const std::string& text);

/// Data: one line on standard output, unless JSON is wanted. The text is written as it is; names in
/// it must have been escaped.
void report_line(const std::string& text);

/// Writes the lines out now. 0, or -1: standard output took not all, which `report_end` tells.
int report_flush();

/// The object that --json prints, to be filled by the verb. `kx`, `command` and `ok` are there, and
/// `error` comes by itself; `ok` is whether the exit status is 0.
Json& report_json();

/// A line of JSON of its own, at once: {"event":...}. Nothing without --json.
void report_event(const Json& event);

// Colours.

enum class Paint { Error, Warning, Reverse, Strong };

/// The text in a colour when `stream` (stdout or stderr) is to have colours.
std::string report_paint(std::FILE* stream, Paint paint, const std::string& text);

/// Whether `stream` gets the progress line: see --progress.
bool report_wants_progress();

} // namespace kx
