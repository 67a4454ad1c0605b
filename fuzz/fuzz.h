// What the fuzzers share: a directory of their own, ends of the program as exceptions, and a check
// that stops the fuzzer where an oracle does not hold.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::fuzz {

/// A fuzzer is this function; the frame calls it with an empty directory, which is the current one,
/// and with the library's modules as they are at program start.
void run(const std::uint8_t* data, std::size_t size);

/// Whether `body` would have ended the program, by exit with any status.
bool ends(const std::function<void()>& body);

/// Stops the fuzzer with `what` unless `holds`.
void check(bool holds, std::string_view what);

// Names count from the fuzzer's directory, wherever the current one is.
void put(const std::string& name, std::string_view content); // makes the directories on the way
std::string get(const std::string& name);                    // "" when there is no such file

/// The input as texts, which form feeds separate; at least `count` of them.
std::vector<std::string> texts(const std::uint8_t* data, std::size_t size, std::size_t count);

/// A line in memory to the port, which is opened on it: `sent` has come when this returns, and
/// nothing comes behind it. `line_answer` is what the host has written since, at most some
/// 200 KiB; it closes the port.
void line_open(std::string_view sent);
std::string line_answer();

/// Names and contents of all files below the directory, each with a line end.
std::string tree(const std::string& directory);

} // namespace kx::fuzz
