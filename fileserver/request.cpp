// The request in hand, and the patience, the stop hook and the event hook of who serves.
#include "fileserver/request_private.h"

#include "link/port.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kx {

namespace {

constexpr int LOOK_MS = 100;   // between two looks at who serves
constexpr int IDLE_MS = 60000; // and when nobody is to be looked at
constexpr std::uint32_t QUIET_MS = 100;
constexpr std::uint32_t DRAIN_MS = 2000;

struct State {
    int patience_ms = 0; // 0: for ever
    bool (*stop)() = nullptr;
    void (*event_hook)(const FileserverEvent&) = nullptr;
    FileserverEvent event;
    bool stopped = false; // by the hook: the target may still be sending
};
State state;

/// Drops what comes until the line is quiet: the rest of a request must not be taken for new ones.
void drain() {
    std::uint8_t dropped[4096];
    const std::uint32_t start = clock_ms();
    std::uint32_t last = start;
    while (clock_ms() - last < QUIET_MS && clock_ms() - start < DRAIN_MS &&
           port_wait_data(static_cast<int>(QUIET_MS))) {
        if (port_read_waiting(dropped) > 0) {
            last = clock_ms();
        }
    }
}

} // namespace

void fileserver_set_patience(int milliseconds) {
    state.patience_ms = milliseconds;
}

void fileserver_set_stop(bool (*stop)()) {
    state.stop = stop;
}

void fileserver_set_event(void (*event)(const FileserverEvent&)) {
    state.event_hook = event;
}

const FileserverEvent& fileserver_last_request() {
    return state.event;
}

RequestScope::RequestScope() : others_(serial_set_write_stop(nullptr)) {
    state.event = {};
    state.stopped = false;
    const bool asks = state.stop != nullptr || state.patience_ms > 0;
    serial_set_write_stop(asks ? request_gives_up : others_);
}

RequestScope::~RequestScope() {
    serial_set_write_stop(others_);
    if (state.stopped) {
        drain();
    }
    if (state.event.result == FileserverResult::UnderWay) {
        state.event.result = FileserverResult::Done;
        state.event.why.clear();
    }
    if (state.event_hook != nullptr && *state.event.request != '\0') {
        state.event_hook(state.event);
    }
}

bool request_is_watched() {
    return state.event_hook != nullptr;
}

FileserverEvent& request_event() {
    return state.event;
}

void request_note(const std::string& why) {
    if (state.event.why.empty()) {
        state.event.why = why;
    }
}

void request_note_errno() {
    request_note(std::strerror(errno));
}

void request_fail(const std::string& why) {
    request_note(why);
    if (!request_is_dropped()) {
        state.event.result = FileserverResult::Failed;
    }
}

void request_drop(const std::string& why) {
    if (!request_is_dropped()) {
        state.event.result = FileserverResult::Dropped;
        state.event.why = why;
    }
}

bool request_is_dropped() {
    return state.event.result == FileserverResult::Dropped;
}

bool request_gives_up(std::uint32_t waited_ms) {
    if (state.patience_ms > 0 && waited_ms >= static_cast<std::uint32_t>(state.patience_ms)) {
        request_drop(text_printf("given up after %g s", state.patience_ms / 1000.0));
    } else if (!request_is_dropped() && state.stop != nullptr && state.stop()) {
        state.stopped = true;
        request_drop("stopped");
    }
    return request_is_dropped();
}

int request_look_ms() {
    if (state.patience_ms > 0) {
        return std::min(state.patience_ms, LOOK_MS);
    }
    return state.stop != nullptr ? LOOK_MS : IDLE_MS;
}

void request_reset() {
    state = {};
}

} // namespace kx
