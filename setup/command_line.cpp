// The options: one table that the parser and the usage text walk.
#include "setup/command_line.h"

#include "core/config/config.h"
#include "core/simulator.h"
#include "files/d64.h"
#include "setup/program.h"
#include "setup/version.h"
#include "ui/msg.h"
#include "ui/msg_items.h"
#include "util/ascii.h"
#include "util/file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace kx {

CommandLine command_line;

namespace {

// Meant: what is longer is cut without a word, as target files' names were kept to these lengths.
constexpr std::size_t TARGET_NAME_MAX = 15; // characters used of --target's name
constexpr std::size_t LISTED_NAME_MAX = 64; // characters of a listed name that are used in a path

// What the options' actions work with.
struct Run {
    const char* program_name;
    const IniDocument& main_doc;
    IniDocument& target_doc;
};

[[noreturn]] void fail(const std::string& text) {
    std::fputs(text.c_str(), stderr);
    std::exit(1);
}

[[noreturn]] void fail_unknown(const char* argument) {
    fail("error: unknown option or file:" + ascii_escape(argument) + "\n");
}

// Listings -------------------------------------------------------------------------------------

void list_registry(const char* name, const RegistryEntry* table) {
    std::fprintf(stderr, "supported %s: (id-tag-description)\n", name);
    for (const RegistryEntry* row = table; row->id != 0; row++) {
        std::fprintf(stderr, "%3d [%12s] %s\n", row->id, row->tag, row->description);
    }
}

void show_supported(const Run&, const char*) {
    list_registry("cpus", cpu_table);
    list_registry("machines", machine_table);
    list_registry("targets", target_table);
    list_registry("ports", port_table);
    std::exit(0);
}

/// Lists the configurations that an earlier run recorded in `section` of the main configuration.
[[noreturn]] void list_configurations(const IniDocument& main_doc, const char* kind,
                                      const char* section) {
    std::fprintf(stderr, "available %s configurations:\n", kind);
    const int count = msg_items_count(main_doc, section);
    for (int i = 0; i < count; i++) {
        std::string name;
        ini_get_string(main_doc, name, section, "n" + std::to_string(i));
        std::fprintf(stderr, "%s\t- ", name.c_str());
        IniDocument doc;
        std::string desc;
        // A file that is gone has been reported by the reader; the others are still listed.
        if (ini_read(config_path_of(name.substr(0, LISTED_NAME_MAX)), doc) == 0) {
            ini_get_string(doc, desc, "config", "desc");
        }
        std::fprintf(stderr, "%s\n", desc.c_str());
    }
    std::exit(0);
}

void show_targets(const Run& run, const char*) {
    list_configurations(run.main_doc, "target", "targets");
}

void show_colours(const Run& run, const char*) {
    list_configurations(run.main_doc, "color", "colors");
}

void show_charsets(const Run& run, const char*) {
    list_configurations(run.main_doc, "charset", "charsets");
}

const char* or_na(const char* text) {
    return text != nullptr ? text : "n/a";
}

void show_component(const char* name, std::int32_t id, const char* (*get_tag)(std::int8_t id),
                    const char* (*get_desc)(std::int8_t id)) {
    const auto id8 = static_cast<std::int8_t>(id);
    std::fprintf(stderr, "%-8s [%12s] %s\n", name, or_na(get_tag(id8)), or_na(get_desc(id8)));
}

void show_config(const Run&, const char*) {
    const ActiveConfig& config = active_config;
    std::fprintf(stderr, "active configuration:\n");
    show_component("cpu:", config.cpu, cpu_get_tag, cpu_get_desc);
    std::fprintf(stderr, "         %d Registers\n", config.cpu_regs);
    show_component("machine:", config.machine, machine_get_tag, machine_get_desc);
    show_component("dropper:", config.dropper, target_get_tag, target_get_desc);
    show_component("link:", config.stub, target_get_tag, target_get_desc);
    std::fprintf(stderr, "         %d Addressbits (%s endian)\n", config.addr_bits,
                 config.stub_endianness != 0 ? "big" : "little");
    show_component("port:", config.port_type, port_get_tag, port_get_desc);
    std::fprintf(stderr, "         %s\n", config.port_name.c_str());
    std::fprintf(stderr, "         %d\n", config.port_addr);
    std::fprintf(stderr, "         %ld\n", static_cast<long>(config.port_baud));
    std::fprintf(stderr, "         bps limit:  %ld\n", static_cast<long>(config.max_speed));
    std::fprintf(stderr, "         send block: %ld\n", static_cast<long>(config.send_block_len));
    std::fprintf(stderr, "         recv block: %ld\n", static_cast<long>(config.recv_block_len));
    std::exit(0);
}

// Actions --------------------------------------------------------------------------------------

void show_help(const Run& run, const char*) {
    command_line_usage(run.program_name);
    std::exit(0);
}

void show_version(const Run&, const char*) {
    std::fputs(version_line().c_str(), stderr);
    std::exit(0);
}

void set_extfs(const Run&, const char*) {
    command_line.extfs = 1;
    d64_ls_style = 1; // what an external file system reads
}

void set_input_file(const Run&, const char* value) {
    command_line.input_file = value;
}

void set_output_file(const Run&, const char* value) {
    command_line.output_file = value;
}

void set_remote(const Run&, const char*) {
    command_line.remote = 1;
}

void set_silent(const Run&, const char*) {
    verbosity = {.silent = 1, .verbose = 0, .warn = 0};
}

void set_verbose(const Run&, const char*) {
    verbosity = {.silent = 0, .verbose = 1, .warn = 1};
    msg_info("running in verbose mode");
}

void set_warn(const Run&, const char*) {
    verbosity.silent = 0;
    verbosity.warn = 1;
}

void set_cpu(const Run&, const char* value) {
    cpu_leave();
    if (cpu_select(value) != 1) {
        // Meant: CR after LF, unlike the other errors.
        fail("error: unknown cpu '" + ascii_escape(value) + "'.\n\r");
    }
    active_config.cpu_tag = value;
    cpu_enter();
}

void set_target(const Run& run, const char* value) {
    const std::string name = std::string(value).substr(0, TARGET_NAME_MAX);
    cpu_leave();
    sim_shutdown();
    if (config_load_target(run.target_doc, config_path_of(name)) != 1) {
        std::exit(1); // the loader has said why
    }
    program_init_simulator();
    if (config_load_roms(active_config.base_dir, run.target_doc) != 0) {
        fail("error: couldn't load default roms.\n");
    }
    if (config_load_symbols(active_config.base_dir, run.target_doc) == -1) {
        fail("error: couldn't load default symbols.\n");
    }
    cpu_enter();
}

void leave(const Run&, const char*) {
    std::exit(0);
}

struct Option {
    const char* names[4]; // null for none; compared exactly
    bool takes_value;
    void (*run)(const Run& run, const char* value);
    const char* usage; // what the usage text calls it; null leaves it out
    const char* help;
};

// In the order of the usage text. Names are compared whole and differ, so the order means nothing
// to the parser.
// Meant: the texts as they stand, "shemes" included; scripts look for them.
constexpr Option options[] = {
    {{"help", "-?", "-h", "--help"}, false, show_help, "help -? -h --help", "this help"},
    {{"--version"}, false, show_version, "--version", "print program version"},
    {{"--show-config"}, false, show_config, "--show-config", "show active configuration"},
    {{"--show-targets"}, false, show_targets, "--show-targets", "show available targets"},
    {{"--show-supported"},
     false,
     show_supported,
     "--show-supported",
     "show supported architectures"},
    {{"--show-colors"}, false, show_colours, "--show-colors", "show supported color shemes"},
    {{"--show-charsets"}, false, show_charsets, "--show-charsets", "show supported charsets"},
    {{"--extfs"}, false, set_extfs, nullptr, nullptr},
    {{"--cpu"}, true, set_cpu, nullptr, nullptr},
    {{"-t", "--target"}, true, set_target, "-t --target [system]", "set target system"},
    {{"-f", "--file"},
     true,
     set_input_file,
     "-f --file [filename]",
     "name input file (else stdin)"},
    {{"-o"}, true, set_output_file, "-o [filename]", "name output file (else stdout)"},
    {{"--remote"}, false, set_remote, "--remote", "work in remote mode"},
    {{"-s", "--silent"}, false, set_silent, "-s --silent", "silent mode (only fatal errors)"},
    {{"-v", "--verbose"}, false, set_verbose, "-v --verbose", "verbose mode (all messages)"},
    {{"-W", "--warn"}, false, set_warn, "-W --warn", "enable some warnings"},
    {{"--exit"}, false, leave, "--exit", "exit commandline"},
};

const Option* find_option(const char* argument) {
    for (const Option& option : options) {
        for (const char* name : option.names) {
            if (name != nullptr && std::strcmp(name, argument) == 0) {
                return &option;
            }
        }
    }
    return nullptr;
}

/// An argument that is no option: the name of an existing file.
void take_file(const char* argument) {
    msg_info("checking arg/file '%s'.", argument);
    if (file_open(argument, "rb") == nullptr) {
        fail_unknown(argument);
    }
    command_line.input_file = argument;
}

} // namespace

void command_line_reset() {
    command_line = {};
}

bool command_line_early_verbose(int argc, char** argv) {
    return argc > 1 && (std::strcmp(argv[1], "--verbose") == 0 || std::strcmp(argv[1], "-v") == 0);
}

const std::string& command_line_parse(int argc, char** argv, const IniDocument& main_doc,
                                      IniDocument& target_doc) {
    const Run run{argv[0], main_doc, target_doc};
    for (int i = 1; i < argc && argv[i] != nullptr; i++) {
        const char* argument = argv[i];
        msg_info("arg no %d:[%s]", i, argument);
        const Option* option = find_option(argument);
        if (option == nullptr) {
            take_file(argument);
        } else if (!option->takes_value) {
            option->run(run, nullptr);
        } else if (i + 1 < argc && argv[i + 1] != nullptr) {
            option->run(run, argv[++i]);
        } else {
            fail_unknown(argument); // its value is missing
        }
    }
    return command_line.output_file;
}

std::vector<CommandLineName> command_line_names() {
    std::vector<CommandLineName> names;
    for (const Option& option : options) {
        for (const char* name : option.names) {
            if (name != nullptr) {
                const bool has_help = option.help != nullptr;
                names.push_back({name, has_help ? option.help : "", option.takes_value});
            }
        }
    }
    return names;
}

void command_line_usage(const char* program_name) {
    std::fprintf(stderr, "usage: %s [options] - %s\n", program_name, "setup program");
    for (const Option& option : options) {
        if (option.usage != nullptr) {
            std::fprintf(stderr, "%-47s%s\n", option.usage, option.help);
        }
    }
    std::fputs("the commandline is processed from left to right. all numeric values may be\n"
               "either decimal (1234), hex (0x1234, $1234) or bin (%1011). short options may\n"
               "change, please use long options in scripts. "
               "\nreport bugs and suggestions: section Reporting of README.md or kxsetup(1)\n",
               stderr);
}

} // namespace kx
