// The services with which a running target uses the host as its disc: dispatch among the three
// fileservers, their log, and what a program that serves a target wants to know and to decide.
//
// The servers never read from the link on their own: whoever polls the port hands them the first
// byte of a request. They then read the rest of it, carry it out and answer before they return.
// The active configuration has the settings: `fileserver`, `fileserver_root`,
// `fileserver_read_only`, `fileserver_open_match` and `fileserver_translate_save`.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// Opens the root, when there is one; the port and the servers need no start. 0, or -1 with an
/// error message that names the root when it cannot be opened: all requests are then refused until
/// it can, which each of them tries.
int fileserver_start();

/// Hands `byte`, read from the port, to the fileserver of the active configuration. What its
/// request function returns; -1 without reading anything when there is none.
int fileserver_handle_byte(std::uint8_t byte);

// What follows lasts until it is set again or `fileserver_reset`.

/// How long a request waits for its next byte, and its answer for a line that takes no byte, in
/// milliseconds; 0, at first, is for ever (an answer waits for SERIAL_WRITE_LIMIT_MS at most). When
/// it is over the request is dropped. Longer than any pause that a target makes, please: what comes
/// after that is taken for requests.
void fileserver_set_patience(int milliseconds);

/// `stop` is asked about ten times a second while a request waits, with each piece of its data,
/// with each byte that `max_speed` spaces, and with each that an endless name is too long by: when
/// it says true the request is dropped, and what the target still sends of it is read and dropped
/// too, until the line is quiet for 100 ms or two seconds have passed. Null, at first: nobody is
/// asked. It may call `fileserver_last_request`, and nothing else of the servers. Where it or a
/// patience is set, a `serial_set_write_stop` of the program is not asked during a request.
void fileserver_set_stop(bool (*stop)());

/// How a request ended. A dropped one is not answered (further). When half of it has come nothing
/// is done, but that a dhWrite has written the bytes that came; a file that was being saved is as
/// before. When it was the answer that nobody took, what was asked for is done all the same: a
/// directory made or removed, a handle opened, the current directory changed.
enum class FileserverResult { UnderWay, Done, Failed, Dropped };

/// A request, for a program that shows a line for each.
struct FileserverEvent {
    const char* request = "";   // "load", "save", "ping", "dbgOpen", ...; "unknown": not understood
    std::string name;           // as received, in the target's codes and unescaped; or empty
    std::string file;           // the host's file or directory by the path that was used, unescaped
    std::uint64_t bytes = 0;    // of the file's data, or of the directory sent, moved so far,
    std::uint64_t expected = 0; // of so many announced
    std::uint32_t entries = 0;  // of the directory sent
    FileserverResult result = FileserverResult::UnderWay;
    std::string why; // it failed or was dropped: "refused: read-only", "the line is gone", ...
};

/// `event` is called at the end of every request, and by the serial-slave server for bytes that
/// begin none. Nothing is told of what `fileserver_handle_byte` answers with -1. Null: nobody.
/// Who takes events shows what there is to be seen: the CBM server does not print the directories
/// that it sends then.
void fileserver_set_event(void (*event)(const FileserverEvent&));

/// The request in hand, or the last one; with an empty `request` when there was none.
const FileserverEvent& fileserver_last_request();

/// Logs printf-style by `msg_print`, unless messages are silent. The text is formatted into 256
/// characters, its zero byte included, and cut there before its line end. Texts from the target or
/// the disc must have been through `ascii_escape`.
void fileserver_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Forgets what the servers and the host's side of them keep between requests, closes what they
/// hold open, and puts back what was set above.
void fileserver_reset();

} // namespace kx
