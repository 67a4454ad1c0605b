// Smart patches: find a masked byte pattern in target memory, write bytes at a distance from
// every place where it occurs.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kx {

constexpr std::size_t PATCH_MATCHES_MAX = 64; // addresses kept for the report

/// What the last search did.
struct PatchResult {
    std::string name;                     // of the patch
    int count = 0;                        // places that were patched
    std::vector<std::uint32_t> addresses; // of the first PATCH_MATCHES_MAX of them
};
const PatchResult& patch_last_result();

/// Forgets it.
void patch_reset();

/// 1, or -1 when the user ended the search with ESC; what was patched by then stays patched.
int patch_search_apply(const std::string& name, std::span<const std::uint8_t> record,
                       std::uint32_t start, std::uint32_t size);

/// Loads the patch of that section from the active configuration's patch file and applies it to
/// [start, start + size). A section that the file lacks ends the program.
int patch_apply_named(const std::string& section, std::uint32_t start, std::uint32_t size);

/// Applies every patch listed in `patches_auto` to the range.
int patch_apply_defaults(std::uint32_t start, std::uint32_t size);

} // namespace kx
