// The program: command line in, exit status out.
#pragma once

namespace kx {

/// Runs `kx` with the words of the command line. Returns the exit status.
int kx_run(int argc, char** argv);

} // namespace kx
