// The registries' tables, and one pair of look-ups that all of them share.
#include "core/registry.h"

#include "core/active_config.h"

#include <string_view>

namespace kx {

const RegistryEntry machine_table[] = {
    {MACHINE_NONE, "none", "dummy target"},
    {MACHINE_C64, "c64", "Commodore C-64"},
    {MACHINE_NES, "nes", "Nintendo Entertainment System (FamiCom)"},
    {MACHINE_PCE, "pce", "NEC PCEngine (Turbografx)"},
    {0, nullptr, nullptr},
};

const RegistryEntry target_table[] = {
    {TARGET_NONE, "none", "none"},
    {TARGET_C64RR, "c64rr", "Retro Replay"},
    {2, "pc64rr", "pc64rr"},
    {0, nullptr, nullptr},
};

const RegistryEntry port_table[] = {
    {PORT_NONE, "none", "none"},
    {PORT_SERIAL, "serial", "standard rs232"},
    {2, "pc64", "pc64 (lpt to userport)"},
    {0, nullptr, nullptr},
};

const RegistryEntry cpu_table[] = {
    {CPU_NONE, "none", "no cpu support"},
    {CPU_6510, "6510", "NMOS 6510"},
    {CPU_65C02, "65C02", "NMOS 65C02"}, // Meant: a CMOS part, named so for its readers.
    {CPU_6280, "6280", "HuC 6280"},
    {CPU_65816, "65816", "WesternDigital 65816"},
    {0, nullptr, nullptr},
};

// The last two tables name what is not in them: their end rows carry texts, which a look-up by
// identifier that finds nothing returns.
const RegistryEntry fileserver_table[] = {
    {4, "none", "no fileserver"},
    {FILESERVER_GENERIC, "generic", "generic iso fileserver"},
    {FILESERVER_SERIALSLAVE, "serialslave", "serialslave fileserver"},
    {FILESERVER_CBM, "cbm", "cbm fileserver"},
    {0, "n/a", "not available or invalid"},
};

const RegistryEntry console_table[] = {
    {3, "none", "no debug console"},
    {CONSOLE_SERIAL, "serial", "dumb serial terminal"},
    {0, "n/a", "not available or invalid"},
};

namespace {

// The end row is never compared, so that "n/a" is not found.
std::uint8_t find_tag(const RegistryEntry* table, const char* tag) {
    const std::string_view wanted = tag == nullptr ? "" : tag;
    const RegistryEntry* entry = table;
    while (entry->id != 0 && wanted != entry->tag) {
        entry++;
    }
    return static_cast<std::uint8_t>(entry->id);
}

// The end row when there is no such identifier.
const RegistryEntry& find_id(const RegistryEntry* table, std::int32_t id) {
    const RegistryEntry* entry = table;
    while (entry->id != 0 && entry->id != id) {
        entry++;
    }
    return *entry;
}

int select(const RegistryEntry* table, const char* tag, std::uint8_t& active) {
    const std::uint8_t id = find_tag(table, tag);
    if (id == 0) {
        return -1;
    }
    active = id;
    return 1;
}

} // namespace

std::uint8_t machine_find_tag(const char* tag) {
    return find_tag(machine_table, tag);
}
std::uint8_t target_find_tag(const char* tag) {
    return find_tag(target_table, tag);
}
std::uint8_t port_find_tag(const char* tag) {
    return find_tag(port_table, tag);
}
std::uint8_t cpu_find_tag(const char* tag) {
    return find_tag(cpu_table, tag);
}
std::uint8_t fileserver_find_tag(const char* tag) {
    return find_tag(fileserver_table, tag);
}
std::uint8_t console_find_tag(const char* tag) {
    return find_tag(console_table, tag);
}

const char* machine_get_tag(std::int8_t id) {
    return find_id(machine_table, id).tag;
}
const char* target_get_tag(std::int8_t id) {
    return find_id(target_table, id).tag;
}
const char* port_get_tag(std::int8_t id) {
    return find_id(port_table, id).tag;
}
const char* cpu_get_tag(std::int8_t id) {
    return find_id(cpu_table, id).tag;
}
const char* fileserver_get_tag(std::int8_t id) {
    return find_id(fileserver_table, id).tag;
}
const char* console_get_tag(std::int8_t id) {
    return find_id(console_table, id).tag;
}

const char* machine_get_desc(std::int8_t id) {
    return find_id(machine_table, id).description;
}
const char* target_get_desc(std::int8_t id) {
    return find_id(target_table, id).description;
}
const char* port_get_desc(std::int8_t id) {
    return find_id(port_table, id).description;
}
const char* cpu_get_desc(std::int8_t id) {
    return find_id(cpu_table, id).description;
}
const char* fileserver_get_desc(std::int8_t id) {
    return find_id(fileserver_table, id).description;
}
const char* console_get_desc(std::int8_t id) {
    return find_id(console_table, id).description;
}

std::int32_t fileserver_default_id() {
    return fileserver_table[0].id;
}
std::int32_t console_default_id() {
    return console_table[0].id;
}

int cpu_select(const char* tag) {
    return select(cpu_table, tag, active_config.cpu);
}
int machine_select(const char* tag) {
    return select(machine_table, tag, active_config.machine);
}

} // namespace kx
