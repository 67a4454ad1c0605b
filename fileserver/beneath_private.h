// Opening paths that cannot lead out of a directory, whatever "..", absolute paths and links say.
#pragma once

#include "fileserver/host_files_private.h"

#include <string>
#include <sys/types.h>

namespace kx {

/// As openat(root, path, flags, mode), but nothing outside `root` is opened or made on the way:
/// none with errno EXDEV for a path that leads out.
using BeneathOpen = HostFd (*)(int root, const std::string& path, int flags, mode_t mode);

/// The kernel does it (openat2).
HostFd beneath_open_kernel(int root, const std::string& path, int flags, mode_t mode);

/// A walk of our own, name by name, for kernels and sandboxes without openat2.
HostFd beneath_open_walk(int root, const std::string& path, int flags, mode_t mode);

/// The first of the two that works here.
BeneathOpen beneath_open_for(int root);

} // namespace kx
