// What can stand at the last word of a command line, for the shells: bash, zsh and fish ask
// `kx complete PROGRAM WORD...` at each Tab, so that what they offer is what the tables hold.
#pragma once

#include <string>
#include <vector>

namespace kx {

/// Prints, a line each, what fits where the last word stands, whatever is typed of it so far, with
/// a tab and a few words on it where there are any; nothing where the name of a file goes. `words`
/// is the line from its program on, kx, kxsetup or kx-init; the word that is typed is the last one,
/// and may be empty. Returns the exit status.
int complete_run(const std::vector<std::string>& words);

} // namespace kx
