// The options that every verb takes, as the command line left them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kx {

struct Globals {
    std::string target; // a name, or a path when it has a "/"; empty: not given
    std::string port;   // device path or by-id name; empty: not given
    std::string baud;   // as given; empty: not given
    std::string base;   // base directory; empty: not given
    std::uint32_t timeout_ms = 10000;
    bool dry_run = false;
    bool quiet = false;
    int verbose = 0; // 2 and more: each command of the link, 3: all that the library says
    bool json = false;
    std::string color = "auto"; // auto, always, never
    std::string progress = "auto";
    std::vector<std::string> symbols; // files, of the verbs that take names of addresses
    bool help = false;
    bool version = false;
};
extern Globals globals;

} // namespace kx
