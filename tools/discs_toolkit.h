// The disc verbs by the toolkit's own rules, which its programs expect and a drive does not: a
// written file's chain is left open, the free counts stay, the last block gives a byte more. Each
// file is a change of its own. All return the exit status; failures have been reported.
#pragma once

#include "files/disc.h"

#include <string>
#include <vector>

namespace kx {

/// The file, as it was found, to `path`; one that is there is replaced.
int toolkit_get(const std::string& image, const DiscEntry& entry, const std::string& path);

/// The files under their own names without ".prg"; the only one under `name` unless that is empty.
int toolkit_put(const std::string& image, const std::vector<std::string>& files,
                const std::string& name);

/// The file, as it was found, locked or not.
int toolkit_rm(const std::string& image, const DiscEntry& entry);

} // namespace kx
