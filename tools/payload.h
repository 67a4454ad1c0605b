// A program file as it goes to the target: its bytes, where they go, what of them the target's
// memory map takes, patched on the host.
#pragma once

#include "tools/parse.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kx {

struct PayloadOptions {
    std::string file;
    std::string type;                 // prg, raw, sid, nes, pce; empty: by the name
    std::string at;                   // address or symbol; empty: the file's own
    bool patch = false;               // the target's automatic patches
    std::vector<std::string> patches; // sections of its patch file
};

struct Payload {
    std::string name; // of the file, without its directory
    std::uint32_t start = 0;
    std::uint64_t end = 0;
    std::uint32_t execute = 0;
    std::vector<std::uint8_t> bytes; // from start to end
    std::vector<AddressRange> parts; // of that, which the memory map has
};

/// Whether the file can be read, and is no disc image, text or symbol file; needs no target. 0, or
/// the exit status of the failure, which has been reported.
int payload_check(const PayloadOptions& options);

/// Loads the file into the simulator of the open session and takes it from there. Warns about what
/// goes into I/O, and what is left out. 0, or the exit status of the failure, which has been
/// reported.
int payload_load(const PayloadOptions& options, Payload& payload);

/// The bytes of a part.
std::span<std::uint8_t> payload_part(Payload& payload, const AddressRange& part);

/// The sum of the parts' lengths.
std::uint64_t payload_size(const Payload& payload);

/// The ranges of those addresses that the memory map has; `left_out` gets the others.
std::vector<AddressRange> memory_parts(const AddressRange& range,
                                       std::vector<AddressRange>& left_out);

/// "$DE00-$DFFF, $E100"; some of them.
std::string memory_text(const std::vector<AddressRange>& ranges);

} // namespace kx
