// kxsetup: reads the toolkit's configuration, lets the user choose its defaults, writes it back.
#include "core/config/config.h"
#include "link/target_memory.h"
#include "setup/command_line.h"
#include "setup/main_menu.h"
#include "setup/program.h"
#include "setup/templates.h"
#include "symfiles/symfiles.h"
#include "ui/con.h"
#include "ui/msg.h"
#include "util/fd.h"
#include "util/signals.h"

#include <cstdio>
#include <new>

namespace {

int run(int argc, char** argv) {
    using namespace kx;

    signals_ignore_failed_writes();
    msg_set_output(MSG_CONSOLE);
    verbosity.verbose = command_line_early_verbose(argc, argv);
    mem_mode = MEM_SIMULATOR;
    const bool loaded = config_load(program.main_doc, program.target_doc, argv[0], "kx.ini") == 1;
    const std::string main_path = config_make_path(active_config.base_dir, "kx.ini");
    template_main_build(program.new_main, main_path, program.main_doc, loaded);
    program_init_simulator();
    sym_table_new(&sym_store);
    program_register_cleanup();
    command_line_parse(argc, argv, program.main_doc, program.target_doc);
    scan_configurations(program.new_main);
    run_main_menu(program.new_main);
    program_write_main(main_path);
    template_target_annotate(program.target_doc);
    ini_write("kxtest.ini", program.target_doc); // a failed write is not reported
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    kx::fd_fill_standard();
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        kx::con_close(); // what follows can be read then
        std::fputs("error: not enough memory\n", stderr);
        return 1;
    }
}
