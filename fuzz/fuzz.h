// What the fuzzers share: a directory of their own, ends of the program as exceptions, a check that
// stops the fuzzer where an oracle does not hold, and a line in memory.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kx::fuzz {

/// The frame calls a fuzzer with an empty directory, which is the current one, and with the
/// library's modules as they are at program start.
using Fuzzer = void (*)(FuzzedDataProvider& input);
extern const std::map<std::string, Fuzzer> fuzzers;

/// Whether `body` would have ended the program, by exit with any status.
bool ends(const std::function<void()>& body);

/// Stops the fuzzer with `what` unless `holds`.
void check(bool holds, std::string_view what);

// Names count from the fuzzer's directory, wherever the current one is.
void put(const std::string& name, std::string_view content); // makes the directories on the way
std::string get(const std::string& name);                    // "" when there is no such file
std::set<std::string>
tree(const std::string& name); // names and contents of all files below a directory

/// A line in memory to the port, which is opened on it: `sent` has come when this returns, and
/// nothing comes behind it. `line_answer` is what the host has written since; it closes the port.
void line_open(std::string_view sent);
std::string line_answer();

/// Memory of 2^bits bytes, all mapped, in the simulator's core.
void memory_open(std::uint8_t bits);

} // namespace kx::fuzz
