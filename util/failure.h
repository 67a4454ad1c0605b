// Why something failed, for the program that talks to the user. The modules that keep such a record
// (port, stub, file) hand it out by a function of their own, `port_last_error()` and so on.
#pragma once

namespace kx {

enum class FailureKind {
    None,    // nothing has failed yet
    System,  // a call of the operating system: `error` is its errno
    Silent,  // nobody answered in time
    Surplus, // more came than was asked for
    Gone,    // the other side has hung up
    Ended,   // a file ended before all that was wanted from it was read
};

/// The last failure of a module: kept until its next call that fails.
struct Failure {
    const char* step = ""; // what was tried, as in "open"; a constant text
    FailureKind kind = FailureKind::None;
    int error = 0; // errno, for System and Gone; otherwise 0
};

} // namespace kx
