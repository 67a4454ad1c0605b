// Smart patches: what a patch file has of them, and applied to bytes of the host.
#pragma once

#include "link/patch.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx {

/// A patch that was applied, and where.
struct PatchedBy {
    std::string section;
    PatchResult result;
};

// Each that gives an int returns 0, or the exit status of the failure, which has been reported.

/// Puts those that the file's section `patches_auto` lists into `sections` when it is empty. All of
/// them must be in the file.
int patching_choose(const std::string& patch_file, std::vector<std::string>& sections);

/// Applies patches of the file to bytes that belong to the addresses from `address` on, chosen as
/// above. Uses the simulator, so not while a session is open; the active configuration is left as
/// it was. After a failure the bytes are as they were.
int patching_apply(const std::string& patch_file, const std::vector<std::string>& sections,
                   std::uint32_t address, std::vector<std::uint8_t>& bytes,
                   std::vector<PatchedBy>& applied);

/// A patch of a file.
struct PatchInfo {
    std::string section;
    std::string name;
    bool automatic = false; // `patches_auto` lists it
};
int patching_list(const std::string& patch_file, std::vector<PatchInfo>& patches);

/// "no colour marks: 2 places: $0912 $0A40"
std::string patching_text(const PatchedBy& patch);

} // namespace kx
