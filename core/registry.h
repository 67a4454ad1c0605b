// The supported machines, CPUs, ports (cables), debug stubs, fileservers and consoles: constant
// tables that turn the tags of configuration files into identifiers and back.
#pragma once

#include <cstdint>

namespace kx {

struct RegistryEntry {
    std::int32_t id; // 0 ends a table
    const char* tag; // compared exactly
    const char* description;
};

// Identifiers that the code compares with.
constexpr int MACHINE_NONE = 1;
constexpr int MACHINE_C64 = 2;
constexpr int MACHINE_NES = 8;
constexpr int MACHINE_PCE = 9;
constexpr int TARGET_C64RR = 1;
constexpr int TARGET_NONE = 6;
constexpr int PORT_SERIAL = 1;
constexpr int PORT_NONE = 5;
constexpr int CPU_NONE = 1;
constexpr int CPU_6510 = 2;
constexpr int CPU_65C02 = 5;
constexpr int CPU_6280 = 6;
constexpr int CPU_65816 = 11;
constexpr int FILESERVER_GENERIC = 1;
constexpr int FILESERVER_SERIALSLAVE = 2;
constexpr int FILESERVER_CBM = 3;
constexpr int CONSOLE_SERIAL = 1;

// In listing order, each ended by a row whose id is 0. The target table holds the debug stubs and
// serves both `stub` and `dropper`.
extern const RegistryEntry machine_table[];
extern const RegistryEntry target_table[];
extern const RegistryEntry port_table[];
extern const RegistryEntry cpu_table[];
extern const RegistryEntry fileserver_table[];
extern const RegistryEntry console_table[];

/// The identifier of the first entry with exactly this tag; 0 when there is none.
std::uint8_t machine_find_tag(const char* tag);
std::uint8_t target_find_tag(const char* tag);
std::uint8_t port_find_tag(const char* tag);
std::uint8_t cpu_find_tag(const char* tag);
std::uint8_t fileserver_find_tag(const char* tag);
std::uint8_t console_find_tag(const char* tag);

/// Tag and description of an identifier. An unknown one gives null, but "n/a" and "not available
/// or invalid" for fileservers and consoles.
const char* machine_get_tag(std::int8_t id);
const char* target_get_tag(std::int8_t id);
const char* port_get_tag(std::int8_t id);
const char* cpu_get_tag(std::int8_t id);
const char* fileserver_get_tag(std::int8_t id);
const char* console_get_tag(std::int8_t id);
const char* machine_get_desc(std::int8_t id);
const char* target_get_desc(std::int8_t id);
const char* port_get_desc(std::int8_t id);
const char* cpu_get_desc(std::int8_t id);
const char* fileserver_get_desc(std::int8_t id);
const char* console_get_desc(std::int8_t id);

/// The identifier of the first entry of the table: the `none` entries, 4 and 3.
std::int32_t fileserver_default_id();
std::int32_t console_default_id();

/// Makes the tag's CPU or machine the active one: 1, or -1 (and nothing stored) when unknown.
int cpu_select(const char* tag);
int machine_select(const char* tag);

} // namespace kx
