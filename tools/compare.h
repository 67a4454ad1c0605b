// A program and what the target has in its place.
#pragma once

#include "tools/payload.h"

namespace kx {

struct Difference {
    std::uint32_t address = 0;
    std::uint8_t file = 0;
    std::uint8_t target = 0;
};

struct Comparison {
    std::uint64_t count = 0;       // of bytes that differ
    std::vector<Difference> first; // of them, at most COMPARE_MAX
};

constexpr std::size_t COMPARE_MAX = 65536;

/// Reads back what the program's parts should be. 0, or the exit status of the failure, which has
/// been reported; that they differ is none.
int compare_payload(Payload& payload, Comparison& comparison);

/// "17 of 40550 bytes differ"
std::string compare_count_text(const Comparison& comparison, std::uint64_t size);

/// "$080D: file A9, target 00  (START)"
std::string compare_text(const Difference& difference);

} // namespace kx
