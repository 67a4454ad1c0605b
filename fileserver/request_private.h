// The request in hand: whether it may go on waiting, and what is told of it when it ends.
#pragma once

#include "fileserver/fileserver.h"
#include "link/serial.h"

#include <cstdint>
#include <string>

namespace kx {

constexpr const char* UNKNOWN_REQUEST = "unknown"; // the `request` of what begins none

/// A request from its first byte on; when this goes, it has ended and is told. There is one at a
/// time.
class RequestScope {
public:
    RequestScope();
    ~RequestScope();
    RequestScope(const RequestScope&) = delete;
    RequestScope& operator=(const RequestScope&) = delete;

private:
    SerialStop others_; // the program's own stop of the line's writes, back in force at the end
};

/// What will be told. Without a `request` nothing is.
FileserverEvent& request_event();

/// Whether a program shows the requests.
bool request_is_watched();

/// Why the request will have failed, should it; the first reason stays.
void request_note(const std::string& why);
void request_note_errno();

/// It has failed, for the reason noted before, otherwise for this one.
void request_fail(const std::string& why);

/// Drops the request: nothing is read or written for it any more.
void request_drop(const std::string& why);
bool request_is_dropped();

/// Whether a wait that has lasted so long is to end, as patience and the stop hook have it; the
/// request is then dropped.
bool request_gives_up(std::uint32_t waited_ms);

/// How long to wait at most before the next `request_gives_up`, in milliseconds.
int request_look_ms();

/// Puts back what a program has set, and forgets the last request.
void request_reset();

} // namespace kx
