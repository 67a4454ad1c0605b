// The progress line: one line on standard error that is drawn over itself, four times a second at
// most, and gone when the work is.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// Begins a display of `total` bytes (0: not known). It appears after half a second, at once with
/// --progress=always, on a terminal only otherwise.
void bar_begin(const std::string& title, std::uint64_t total);

/// So many bytes are done. `note` replaces the numbers, as in "waiting for the target".
void bar_update(std::uint64_t done, const std::string& note = "");

/// Takes the line away. Harmless when there is none.
void bar_end();

/// Takes the line away for now, so that something else can be written; it comes back.
void bar_hide();

} // namespace kx
