// The configuration loader: text on disc becomes the active configuration, section by section.
#include "core/config/config.h"

#include "files/filetype.h"
#include "files/loader.h"
#include "files/membank.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "ui/col.h"
#include "ui/msg.h"
#include "ui/msg_items.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace kx {

namespace {

// What a target file holds, in the order of a written one. A null key names a section that may be
// empty. `config` comes first so that a written file can be put into the configuration directory.
// "endianess" is how every target file spells it.
struct TargetItem {
    const char* section;
    const char* key;
};
constexpr TargetItem target_items[] = {
    {"config", "type"},       {"config", "desc"},       {"port", "name"},
    {"port", "addr"},         {"port", "baud"},         {"port", "maxspeed"},
    {"port", "sendblocklen"}, {"port", "recvblocklen"}, {"cable", "name"},
    {"stub", "name"},         {"stub", "endianess"},    {"dropper", "name"},
    {"dropper", "portaddr"},  {"fileserver", "name"},   {"console", "name"},
    {"target", "machine"},    {"target", "addrbits"},   {"target", "bankbits"},
    {"target", "cpu"},        {"target", "cpuregs"},    {"target", "asmmode"},
    {"memory", "num"},        {"roms", "num"},          {"patches", "data"},
    {"patches", "autoload"},  {"symbols", "num"},       {"labels", nullptr},
    {"debuginfo", nullptr},   {"files", "defaulttype"},
};

struct State {
    Failure main_failure;
};
State state;

std::string get_string(const IniDocument& doc, const char* section, const char* key) {
    std::string value;
    ini_get_string(doc, value, section, key);
    return value;
}

std::int32_t get_number(const IniDocument& doc, const char* section, const char* key) {
    return static_cast<std::int32_t>(ini_get_number(doc, section, key));
}

/// For the fields of one byte: the low 8 bits, without a range check.
std::uint8_t get_byte(const IniDocument& doc, const char* section, const char* key) {
    return static_cast<std::uint8_t>(ini_get_number(doc, section, key));
}

/// The elements of item n`index`, with room for one more than `expected`, so that too many are
/// noticed as well as too few. A wrong count is reported, and what was read is returned.
std::vector<std::string> get_array(const IniDocument& doc, const char* section, int index,
                                   int expected) {
    std::vector<std::string> elements(static_cast<std::size_t>(expected) + 1);
    const std::string key = "n" + std::to_string(index);
    if (ini_get_string_list(doc, elements, section, key) != expected) {
        msg_error("%s: item %s in section %s isnt of expected array length (%d).",
                  doc.file_name.c_str(), key.c_str(), section, expected);
    }
    return elements;
}

std::uint32_t parse_address(const std::string& text) {
    return static_cast<std::uint32_t>(ini_parse_number(text));
}

// One component of the target: where it is named, what messages call it, and what stands in for
// an unknown one.
struct Component {
    const char* section;
    const char* kind;
    std::uint8_t (*find_tag)(const char* tag);
    std::uint8_t fallback; // the identifier of `none`; 0 disables the component, with a warning
};
constexpr Component cable{"cable", "cable type", port_find_tag, PORT_NONE};
constexpr Component dropper{"dropper", "stub dropper", target_find_tag, TARGET_NONE};
constexpr Component stub{"stub", "stub", target_find_tag, TARGET_NONE};
constexpr Component console{"console", "console", console_find_tag, 0};
constexpr Component fileserver{"fileserver", "fileserver", fileserver_find_tag, 0};

/// The component's identifier; `tag` becomes its tag, "none" for an unknown one.
std::uint8_t load_component(const IniDocument& doc, const Component& component, std::string& tag) {
    tag = get_string(doc, component.section, "name");
    if (const std::uint8_t id = component.find_tag(tag.c_str())) {
        return id;
    }
    if (component.fallback == 0) {
        msg_warning("(%s) unknown %s '%s', %s disabled.", doc.file_name.c_str(), component.kind,
                    tag.c_str(), component.kind);
    } else {
        msg_error("(%s) unknown %s '%s'.", doc.file_name.c_str(), component.kind, tag.c_str());
    }
    tag = "none";
    return component.fallback;
}

std::uint8_t load_component(const IniDocument& doc, const Component& component) {
    std::string tag;
    return load_component(doc, component, tag);
}

/// Selects the CPU or machine that `[target] kind` names. An unknown one is reported and `none`
/// put into `tag`; `retry` then has one try. 1, or -1 with a second report.
int load_selection(const IniDocument& doc, const char* kind, int (*select)(const char* tag),
                   std::string& tag, const std::string& retry) {
    const std::string written = get_string(doc, "target", kind);
    tag = written;
    if (select(tag.c_str()) == 1) {
        return 1;
    }
    msg_error("(%s) unknown %s '%s'.", doc.file_name.c_str(), kind, written.c_str());
    tag = "none";
    if (select(retry.c_str()) == 1) {
        return 1;
    }
    msg_error("(%s) unknown %s '%s'.", doc.file_name.c_str(), kind, written.c_str());
    return -1;
}

int load_cpu_and_machine(const IniDocument& doc) {
    ActiveConfig& config = active_config;
    if (load_selection(doc, "cpu", cpu_select, config.cpu_tag, "none") != 1) {
        return -1;
    }
    config.cpu_regs = get_byte(doc, "target", "cpuregs");
    // Meant: the second try is the CPU's tag. An unknown machine passes only beside CPU `none`;
    // a real CPU in a machine nobody knows is refused.
    return load_selection(doc, "machine", machine_select, config.machine_tag, config.cpu_tag);
}

void load_port(const IniDocument& doc) {
    ActiveConfig& config = active_config;
    config.port_name = get_string(doc, "port", "name");
    config.port_addr = static_cast<std::uint16_t>(ini_get_number(doc, "port", "addr"));
    config.port_baud = get_number(doc, "port", "baud");
    config.max_speed = get_number(doc, "port", "maxspeed");
    config.send_block_len = get_number(doc, "port", "sendblocklen");
    config.recv_block_len = get_number(doc, "port", "recvblocklen");
}

/// What console and fileserver may have beside their names.
void load_service_settings(const IniDocument& doc) {
    ActiveConfig& config = active_config;
    config.console_port = get_string(doc, "console", "port");
    const std::int32_t baud = get_number(doc, "console", "baud");
    config.console_baud = baud != 0 ? baud : ActiveConfig{}.console_baud;
    config.fileserver_root = get_string(doc, "fileserver", "root");
    config.fileserver_read_only = get_number(doc, "fileserver", "readonly") != 0;
}

/// The code of a region's type in a memory item, MEMORY_UNTYPED for any other text.
int memory_type(const std::string& text) {
    struct Type {
        const char* name;
        int code;
    };
    constexpr Type types[] = {
        {"none", MEMORY_NONE}, {"io", MEMORY_IO}, {"ram", MEMORY_RAM_ROM}, {"rom", MEMORY_RAM_ROM}};
    for (const Type& type : types) {
        if (text == type.name) {
            return type.code;
        }
    }
    return MEMORY_UNTYPED;
}

void load_memory_item(const IniDocument& doc, int index) {
    // bank, baseaddr, lastaddr, addr-and-op (used by nobody here), type
    const std::vector<std::string> item = get_array(doc, "memory", index, 5);
    const std::uint32_t bank = parse_address(item[0]);
    const std::uint32_t base = parse_address(item[1]);
    const std::uint32_t last = parse_address(item[2]);
    const std::size_t region = memory_map_add(active_config.memory_map, bank, base, last);
    const int type = memory_type(item[4]);
    if (type == MEMORY_UNTYPED) {
        msg_error("%s: item n%d in section memory is malformed.", doc.file_name.c_str(), index);
        return;
    }
    memory_map_set_type(active_config.memory_map, region, type);
    if (type != MEMORY_NONE && last >= base) {
        // Meant: the length does not count the last address itself.
        membank_alloc_block(bank, base, last - base);
    }
}

void load_memory(const IniDocument& doc) {
    memory_map_clear(active_config.memory_map);
    membank_free_all(); // the banks of a target loaded earlier go with its map
    const int count = msg_items_count(doc, "memory");
    for (int i = 0; i < count; i++) {
        load_memory_item(doc, i);
    }
}

/// Memory access goes to the simulator and, unless verbose, messages are silent for as long as
/// the owner lives.
class QuietSimulatorAccess {
public:
    QuietSimulatorAccess() : mode_(mem_mode), silent_(verbosity.silent) {
        mem_mode = MEM_SIMULATOR;
        if (!verbosity.verbose) {
            verbosity.silent = 1;
        }
    }
    ~QuietSimulatorAccess() {
        mem_mode = mode_;
        verbosity.silent = silent_;
    }
    QuietSimulatorAccess(const QuietSimulatorAccess&) = delete;
    QuietSimulatorAccess& operator=(const QuietSimulatorAccess&) = delete;

private:
    int mode_;
    int silent_;
};

/// The failure, or none at all when it means that there is nothing to lose.
Failure unless_missing(const Failure& failure) {
    const bool missing =
        failure.kind == FailureKind::Ended || failure.error == ENOENT || failure.error == ENOTDIR;
    return missing ? Failure() : failure;
}

} // namespace

std::string config_find_base_dir(const std::string& program_path, const char* variable) {
    if (const char* value = std::getenv(variable)) {
        return std::string(value) + "/"; // Meant: also behind a separator, which doubles it.
    }
    const std::size_t separator = program_path.find_last_of("/\\");
    if (separator == std::string::npos || separator == 0) {
        return "./"; // Meant: for "/kxsetup" as well, the root is nobody's base.
    }
    return program_path.substr(0, separator + 1);
}

std::string config_make_path(const std::string& directory, const std::string& file_name) {
    return directory + file_name;
}

std::string config_path_of(const std::string& name) {
    return config_make_path(active_config.base_dir, "config/" + name + ".ini");
}

void config_load_scheme(const std::string& name) {
    col_scheme_path = config_path_of(name);
    col_loadscheme("colors");
}

int config_load(IniDocument& main_doc, IniDocument& target_doc, const std::string& program_path,
                const std::string& main_file_name) {
    active_config.base_dir = config_find_base_dir(program_path, "KXPATH");
    config_reset();
    const std::string main_path = config_make_path(active_config.base_dir, main_file_name);
    if (ini_read(main_path, main_doc) != 0) {
        state.main_failure = unless_missing(ini_last_error());
        ini_create(main_doc, main_path); // a later look-up that fails names the file
        config_load_scheme("col_kx");
        return -1;
    }
    config_load_scheme(get_string(main_doc, "colors", "default"));
    config_load_target(target_doc, config_path_of(get_string(main_doc, "targets", "default")));
    return 1;
}

void config_load_or_exit(IniDocument& main_doc, IniDocument& target_doc,
                         const std::string& program_path, const std::string& main_file_name) {
    if (config_load(main_doc, target_doc, program_path, main_file_name) != 1) {
        std::exit(1);
    }
}

const Failure& config_main_failure() {
    return state.main_failure;
}

void config_reset() {
    state = {};
}

int config_load_target(IniDocument& target_doc, const std::string& path) {
    if (ini_read(path, target_doc) != 0) {
        ini_create(target_doc, path);
        config_target_complete(target_doc);
    }
    return config_use_target(target_doc);
}

int config_use_target(const IniDocument& target_doc) {
    ActiveConfig& config = active_config;
    config.patch_file =
        config_make_path(config.base_dir, get_string(target_doc, "patches", "data"));
    config.patch_autoload = get_number(target_doc, "patches", "autoload");
    if (load_cpu_and_machine(target_doc) != 1) {
        return -1;
    }
    config.port_type = load_component(target_doc, cable, config.cable_tag);
    load_port(target_doc);
    config.dropper = load_component(target_doc, dropper);
    config.stub = load_component(target_doc, stub);
    config.stub_endianness = get_byte(target_doc, "stub", "endianess");
    config.console = load_component(target_doc, console);
    config.fileserver = load_component(target_doc, fileserver);
    load_service_settings(target_doc);
    config.addr_bits = get_byte(target_doc, "target", "addrbits");
    load_memory(target_doc);
    const int type = filetype_find_extension(get_string(target_doc, "files", "defaulttype"));
    config.default_file_type = type != 0 ? type : FILETYPE_RAW;
    return 1;
}

int config_load_roms(const std::string& directory, const IniDocument& target_doc,
                     std::string* failed) {
    msg_info("loading default roms.");
    const QuietSimulatorAccess access;
    const int count = msg_items_count(target_doc, "roms");
    for (int i = 0; i < count; i++) {
        // file name, flags (used by nobody here), load address
        const std::vector<std::string> item = get_array(target_doc, "roms", i, 3);
        const std::string path = config_make_path(directory, item[0]);
        if (file_load(path, parse_address(item[2])) != 1) {
            if (failed != nullptr) {
                *failed = path;
            }
            return -1;
        }
    }
    return 0;
}

int config_load_symbols(const std::string& directory, const IniDocument& target_doc) {
    const int count = msg_items_count(target_doc, "symbols");
    for (int i = 0; i < count; i++) {
        const std::string name = get_array(target_doc, "symbols", i, 1)[0];
        // A file that cannot be read is reported by its reader; the others are still wanted.
        filehandler_readsymfile(sym_store, config_make_path(directory, name),
                                filetype_from_name(name));
    }
    return 0;
}

const char* config_missing_section(const IniDocument& target_doc) {
    for (const TargetItem& item : target_items) {
        // What the menu reads, and what may be empty, the loader does not look into.
        const bool is_read = item.key != nullptr && std::strcmp(item.section, "config") != 0;
        if (is_read && ini_find_section(target_doc, item.section) == nullptr) {
            return item.section;
        }
    }
    return nullptr;
}

void config_target_complete(IniDocument& target_doc) {
    const bool empty = target_doc.sections.empty();
    for (const TargetItem& item : target_items) {
        ini_add_section(target_doc, item.section);
        if (empty && item.key != nullptr) {
            ini_set_item(target_doc, item.section, item.key, "");
        }
    }
}

} // namespace kx
