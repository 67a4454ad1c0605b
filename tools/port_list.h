// The serial ports of this host, from what the kernel shows of them in its file systems.
#pragma once

#include <string>
#include <vector>

namespace kx {

/// A program that has a device open.
struct PortHolder {
    int pid = 0;      // 0: nobody, or nobody that this user may see
    std::string name; // "tio"
};

struct PortEntry {
    std::string device; // "/dev/ttyUSB0"
    std::string by_id;  // its name in /dev/serial/by-id; empty: none
    std::string what;   // the adapter's own name, or the driver's
    std::string driver; // empty: not known
    bool access = false;
    PortHolder holder;
};

/// All ports, by name. Built-in ones without a chip behind them only with `all`. `root` stands
/// before /sys, /dev and /proc; empty but in tests.
std::vector<PortEntry> port_list(const std::string& root, bool all);

/// Who, beside this process, has the device open; symbolic links are followed.
PortHolder port_list_holder(const std::string& root, const std::string& device);

/// "root:dialout, rw-rw----"; empty when the device is not there.
std::string port_list_rights(const std::string& device);

/// How this user gets the right to it, for a hint: by the group that may read and write it. Empty
/// when there is none.
std::string port_list_way_in(const std::string& device);

/// The device of a name that `port_list` gave as `by_id`, or the name itself.
std::string port_list_find(const std::string& root, const std::string& name);

} // namespace kx
