// The documents of one setup run, the simulator core's start, and the clean-up at every exit.
#include "setup/program.h"

#include "core/simulator.h"
#include "symfiles/symfiles.h"
#include "ui/msg.h"

#include <cstdio>
#include <cstdlib>

namespace kx {

Program program;

namespace {

struct State {
    bool registered = false;
};
State state;

/// Runs inside exit, after the screen has closed (its handler is registered later and so runs
/// earlier); nothing in here may call exit again.
void clean_up() {
    msg_set_output(MSG_CONSOLE);
    msg_info("cleaning up");
    if (sim_is_initialised()) {
        sim_shutdown();
    }
    ini_free(program.main_doc);
    ini_free(program.target_doc);
    ini_free(program.new_main);
    sym_table_free(sym_store);
    msg_info("cleanup done");
    if (!verbosity.silent) {
        std::fputs("\n", stderr);
        std::fflush(stderr);
        std::fflush(stdout);
    }
}

} // namespace

void program_register_cleanup() {
    if (!state.registered) {
        state.registered = std::atexit(clean_up) == 0;
    }
}

void program_init_simulator() {
    if (sim_init() != 1) {
        msg_error("couldn't init simulator core.");
        std::exit(1);
    }
}

} // namespace kx
