// The signals that would end a verb which must not be ended anywhere: they are noted, and the verb
// asks for them where it can stop.
#pragma once

namespace kx {

/// From here on SIGINT, SIGTERM and SIGHUP are noted.
void signals_catch();

/// The signal that came first; 0 for none. It stays.
int signals_pending();

/// How many have come.
int signals_count();

/// The same as signals_pending, and forgets it, so that the next one counts anew.
int signals_take();

} // namespace kx
