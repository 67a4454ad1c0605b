// The debug console of the target on this terminal.
#pragma once

#include "session/session.h"

namespace kx {

// Both return 0, or the exit status of the failure, which has been reported.

/// Whether the target file names a console at all.
int console_check(const Session& session);

/// Opens the console's line, which the target file names, and sets the terminal so that each key
/// goes out at once.
int console_open(const Session& session);

/// Moves what has come (with --json an event) and what was typed; nothing when it is not open. True
/// once the user wants to leave: Ctrl-T, then q.
bool console_poll();

/// The terminal as it was. Harmless when it is not open.
void console_close();

} // namespace kx
