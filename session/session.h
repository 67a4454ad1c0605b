// A session: everything a program needs before it can work with a target, in the one order that
// works, and in one call. Base directory, target file, character sets, simulator, symbols, line.
#pragma once

#include "ini/ini.h"
#include "util/failure.h"

#include <cstdint>
#include <string>

namespace kx {

/// Why a session could not be opened, or ended. A program turns it into its exit status.
enum class SessionCause {
    None,
    NoBase,    // there is no base directory
    NoTarget,  // no target is chosen, or the chosen one has no file
    BadConfig, // a file cannot be used: unreadable, a section missing, machine unknown, ROM missing
    NoMemory,  // for the simulator
    NoPort,    // the line cannot be had
    LineLost,  // the line has gone while it was served
};

struct SessionOptions {
    std::string base_dir; // the toolkit's; empty: that of KXPATH, or else the current directory
    std::string target;   // NAME of config/NAME.ini, with a "/" the path of a target file; empty:
                          // what kx.ini has as default
    std::string port;     // device, before [port] name; empty: as configured
    long baud = 0;        // before [port] baud; 0: as configured
    bool line = true;     // whether the target is to be reached; without, the simulator alone is
    int fd = -1;          // the device as an open (and locked) descriptor, which the port then owns
                          // in every case; -1: the session opens the device, waiting while it is
                          // busy
    int timeout_ms = 0;   // for one byte of the target's answers; 0: STUB_TIMEOUT_MS
};

/// A session. One can be open at a time, because configuration, symbol store, simulator and port
/// are the process's own: opening another closes it. Closed when it is destroyed.
struct Session {
    IniDocument main_doc;                    // kx.ini; empty when there is none
    IniDocument target_doc;                  // the target file
    std::string target;                      // its path
    SessionCause cause = SessionCause::None; // of the last call that failed
    std::string text;                        // what was said then, without a line end
    Failure failure;                         // of the port, for NoPort and LineLost
    bool is_open = false;

    Session() = default;
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

/// Opens a session: fills the active configuration from the one target file, loads the character
/// sets, the target's ROM images (into the simulator) and symbols, and connects to the target.
/// Memory accesses then reach simulator and target (`mem_mode` 2); without a line, the simulator
/// (1). A target whose cable is no serial one has no line. Memory of the target is reached by the
/// Retro Replay stub alone; with another one only file requests can be served.
/// 1; -1 with one error message (a machine that is unknown is reported twice), cause and text, and
/// nothing is left open.
int session_open(Session& session, const SessionOptions& options);

/// What a program that serves wants to be asked and told; null for not.
struct SessionServing {
    bool (*stop)() = nullptr;                     // true ends the serving
    void (*unknown)(std::uint8_t byte) = nullptr; // a byte that begins no request
};

/// Serves the file requests of the target, by the fileserver of the configuration: waits without
/// using the processor, hands each request to fileserver_handle_byte(), and asks `stop` between
/// requests and every 50 ms while none comes. Patience and stop within a request, and a call for
/// each request that was served, are the fileserver's (fileserver/fileserver.h).
/// 1 when `stop` ended it; -1 with one error message, cause and text, when there is no fileserver,
/// its root cannot be opened, or the line has gone.
int session_serve(Session& session, const SessionServing& serving);

/// Gives the line back as it was found, and releases simulator, symbols, character sets and what
/// the target left open on the host; the active configuration is empty then, access mode 1.
/// Cause and text stay. Harmless when the session is not open.
void session_close(Session& session);

} // namespace kx
