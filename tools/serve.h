// Serving a directory of the host to the running target: a line for each request, Ctrl-C, a line
// that goes and comes back.
#pragma once

#include "session/session.h"

#include <string>

namespace kx {

struct ServeOptions {
    std::string directory; // empty: the current one
    std::string protocol;  // cbm, generic, serialslave; empty: the target file's
    std::string patience;  // seconds that half a request is waited for, "0" for ever; empty: 30
    bool read_only = false;
    bool writable = false; // neither: as the target file says
    bool anywhere = false; // no root
    bool exact = false;    // names as they come, for searches and saves
    bool once = false;     // one request
    bool console = false;  // the debug console on this terminal
};

// Each returns 0, or the exit status of the failure, which has been reported.

/// Whether there is such a directory; needs no target.
int serve_check(const ServeOptions& options);

/// Sets what needs no line, after `line_begin`. The directory becomes the current one.
int serve_prepare(const Session& session, const ServeOptions& options);

/// Tells, after that, what would be served.
int serve_dry_run();

/// Serves on the line that `line_connect` opened, until a signal ends it. 0 for Ctrl-C.
int serve_run(Session& session, const ServeOptions& options);

} // namespace kx
