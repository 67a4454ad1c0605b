// The disc verbs by the toolkit's own rules, which its programs expect and a drive does not: a
// written file's chain is left open, the free counts stay, the last block gives a byte more. Each
// file is a change of its own. All return the exit status; failures have been reported.
#pragma once

#include <string>
#include <vector>

namespace kx {

/// All files without names, scratched ones included, into the directory; or the named ones, which
/// is one when `output` is given. Without `replace` nothing is copied when one is there already.
int toolkit_get(const std::string& image, const std::vector<std::string>& names,
                const std::string& directory, const std::string& output, bool replace);

/// The files under their own names without ".prg"; the only one under `name` unless that is empty.
int toolkit_put(const std::string& image, const std::vector<std::string>& files,
                const std::string& name);

/// Of a locked one none is scratched without `locked_too`.
int toolkit_rm(const std::string& image, const std::vector<std::string>& names, bool locked_too);

} // namespace kx
