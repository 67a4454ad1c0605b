// The active configuration: one plain record, read everywhere, written only by the loader
// (core/config) and the command line.
#pragma once

#include "core/file_type_ids.h"
#include "core/memory_map.h"
#include "core/registry.h"

#include <cstdint>
#include <string>

namespace kx {

/// The values before anything is loaded name `none` for every component.
struct ActiveConfig {
    std::uint8_t cpu = CPU_NONE;
    std::string cpu_tag = "none";
    std::uint8_t cpu_regs = 0; // number of CPU registers
    std::uint8_t machine = MACHINE_NONE;
    std::string machine_tag = "none";
    std::uint8_t addr_bits = 0; // width of a target address
    std::int32_t port_type = PORT_NONE;
    std::string cable_tag = "none";
    std::string port_name; // device path of a serial link
    std::uint16_t port_addr = 0;
    std::int32_t port_baud = 1;
    std::int32_t max_speed = 0; // of the write throttle; 0 = no limit
    std::int32_t send_block_len = 1;
    std::int32_t recv_block_len = 1;
    std::uint8_t dropper = TARGET_NONE;
    std::uint8_t stub = TARGET_NONE;
    std::uint8_t stub_endianness = 0; // 1 = big endian, any other value little
    std::uint8_t console = 0;         // 0 = disabled
    std::string console_port;         // device path; empty: the serial line's default
    std::int32_t console_baud = 38400;
    std::uint8_t fileserver = 0;       // 0 = disabled
    std::string fileserver_root;       // what every path of the target stays in; empty: anywhere
    bool fileserver_read_only = false; // refuses all that would change the disc
    // Of the drive servers; no target file sets them, a program that serves may.
    bool fileserver_open_match = false;     // a load takes the file that the search found
    bool fileserver_translate_save = false; // the CBM's save names, too, are PETSCII
    MemoryMap memory_map;
    std::int32_t default_file_type = FILETYPE_RAW;
    std::string patch_file;
    std::int32_t patch_autoload = 0;
    std::string base_dir; // the toolkit's base directory, ends in a separator

    bool operator==(const ActiveConfig&) const = default;
};

extern ActiveConfig active_config;

/// Puts the record back to the values before anything is loaded.
void active_config_reset();

/// How many addresses 32 bits can tell: the most that a target has.
constexpr std::uint64_t ADDRESS_SPACE = std::uint64_t{1} << 32;

/// All addresses of the target: 0xFF, 0xFFFF, 0xFFFFFF for 8, 16 and 24 bits, otherwise 0xFFFFFFFF.
std::uint32_t addr_mask();

/// Hexadecimal digits that an address of the target is printed with, 1 to 8.
int addr_digits();

} // namespace kx
