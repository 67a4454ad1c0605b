// The documents of one setup run, the simulator core's start, and the clean-up at every exit.
#include "setup/program.h"

#include "core/config/config.h"
#include "core/simulator.h"
#include "symfiles/symfiles.h"
#include "ui/msg.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

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
    program_reset();
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

void program_reset() {
    ini_free(program.main_doc);
    ini_free(program.target_doc);
    ini_free(program.new_main);
}

void program_init_simulator() {
    if (sim_init() != 1) {
        msg_error("couldn't init simulator core.");
        std::exit(1);
    }
}

void program_write_main(const std::string& path) {
    const Failure& failure = config_main_failure();
    if (failure.kind == FailureKind::None) {
        ini_write(path, program.new_main);
    } else {
        msg_error("'%s' could not be read (%s): it stays as it is, no choice is kept.",
                  path.c_str(), std::strerror(failure.error));
    }
}

} // namespace kx
