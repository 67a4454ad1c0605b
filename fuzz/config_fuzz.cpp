// The configuration loader: kx.ini, target, scheme, character set, patches and symbols from one
// input. What the setup program writes from what was loaded loads again, and to the same.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/config/config.h"
#include "core/simulator.h"
#include "link/patch.h"
#include "setup/templates.h"
#include "symfiles/symfiles.h"
#include "ui/msg.h"

#include <cstdlib>

namespace kx::fuzz {

namespace {

std::string loaded() {
    const ActiveConfig& now = active_config;
    std::string all = now.cpu_tag + "," + now.machine_tag + "," + now.cable_tag + "," +
                      now.port_name + "," + now.patch_file;
    for (const long number :
         {long{now.cpu_regs}, long{now.addr_bits}, long{now.port_type}, long{now.port_addr},
          long{now.port_baud}, long{now.max_speed}, long{now.stub}, long{now.console},
          long{now.fileserver}, long{now.default_file_type}}) {
        all += "," + std::to_string(number);
    }
    for (const MemoryRegion& region : now.memory_map.regions) {
        all += "\n" + std::to_string(region.base) + "-" + std::to_string(region.last) + " " +
               std::to_string(region.type);
    }
    return all;
}

/// What a program does with the loaded configuration; any of it may end the program.
void use(const IniDocument& main_doc, const IniDocument& target_doc) {
    check(sim_init() == 1, "the simulator starts");
    sym_table_new(&sym_store);
    charset_load_defaults("", main_doc);
    config_load_roms("", target_doc);
    config_load_symbols("", target_doc);
    patch_apply_defaults(0, 0x200);
}

} // namespace

void run(const std::uint8_t* data, std::size_t size) {
    const char* const names[] = {
        "kx.ini",      "config/it.ini", "config/col_it.ini", "config/charset.ini",
        "patches.ini", "symbols.ini"};
    const auto parts = texts(data, size, std::size(names));
    for (std::size_t i = 0; i < std::size(names); i++) {
        put(names[i], parts[i]);
    }
    setenv("KXPATH", ".", 1);
    IniDocument main_doc, target_doc, new_main, again;
    int result = 0;
    if (!ends([&] { result = config_load(main_doc, target_doc, "kxsetup", "kx.ini"); }) &&
        result == 1 && !ends([&] { template_main_build(new_main, "kx.ini", main_doc, true); })) {
        check(ini_write("kx.ini", new_main) == 0, "the main file can be written");
        check(!ends([&] { check(ini_read("kx.ini", again) == 0, "kx.ini can be read"); }),
              "the main file loads again");
    }
    active_config_reset();
    if (ends([&] { result = config_load_target(target_doc, "./config/it.ini"); })) {
        return;
    }
    const std::string before = loaded();
    (void)ends([&] { use(main_doc, target_doc); });
    sym_table_free(sym_store);
    sim_shutdown();
    template_target_annotate(target_doc);
    check(ini_write("config/again.ini", target_doc) == 0, "the target file can be written");
    active_config_reset();
    check(!ends([&] {
        check(config_load_target(again, "./config/again.ini") == result, "it loads as before");
    }),
          "no section is missing in the written file");
    check(loaded() == before, "the written target is the loaded one");
}

} // namespace kx::fuzz
