// The debug console of the target on this terminal.
#pragma once

#include "session/session.h"

namespace kx {

/// Opens the console's line, which the target file names, and sets the terminal so that each key
/// goes out at once. 0, or the exit status of the failure, which has been reported.
int console_open(const Session& session);

/// Moves what has come and what was typed; nothing when it is not open. True when the user wants
/// to leave: Ctrl-T, then q.
bool console_poll();

/// The terminal as it was. Harmless when it is not open.
void console_close();

} // namespace kx
