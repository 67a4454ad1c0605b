// The debug console of the target on this terminal.
#pragma once

#include "session/session.h"

namespace kx {

/// Whether the target file names a console whose line can be had; from then on it is locked. In a
/// dry run the line is left alone. 0, or the exit
/// status of the failure, which has been reported.
int console_check(const Session& session);

/// Behind that: opens the line for good, and sets the terminal so that each key goes out at once.
void console_open();

/// Moves what has come (with --json an event) and what was typed; nothing when it is not open. True
/// once the user wants to leave: Ctrl-T, then q.
bool console_poll();

/// The terminal as it was. Harmless when it is not open.
void console_close();

} // namespace kx
