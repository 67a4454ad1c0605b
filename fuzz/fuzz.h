// What the fuzzers share: a directory of their own, ends of the program as exceptions, a check that
// stops the fuzzer where an oracle does not hold, and a line in memory.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kx::fuzz {

/// The frame calls a fuzzer with an empty directory, which is the current one, and with the
/// library's modules as they are at program start. Time passes only where something is waited for,
/// and every descriptor must be closed again.
using Fuzzer = void (*)(FuzzedDataProvider& input);
extern const std::map<std::string, Fuzzer> fuzzers;

/// Whether `body` would have ended the program, by exit with any status.
bool ends(const std::function<void()>& body);

/// Stops the fuzzer with `what` unless `holds`.
void check(bool holds, std::string_view what);

// Names count from the fuzzer's directory, wherever the current one is.
void put(const std::string& name, std::string_view content); // makes the directories on the way
std::string get(const std::string& name);                    // "" when there is no such file

/// A line in memory to the port, which is opened on it: `sent` has come when this returns, and
/// nothing comes behind it, or the far end hangs up then. `line_answer` is what the host has
/// written since; it closes the port.
void line_open(std::string_view sent, bool hang_up = false);
std::string line_answer();

} // namespace kx::fuzz
