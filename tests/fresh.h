// The library as a program finds it, for tests and fuzzers of which many run in one process; and
// with it the headers of all its modules that have a state.
#pragma once

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/config/config.h"
#include "core/simulator.h"
#include "files/d64.h"
#include "files/loader.h"
#include "files/membank.h"
#include "fileserver/debug_console.h"
#include "fileserver/fileserver.h"
#include "link/image_private.h"
#include "link/patch.h"
#include "link/port.h"
#include "link/rate.h"
#include "link/stub.h"
#include "link/target_memory.h"
#include "setup/command_line.h"
#include "setup/program.h"
#include "symfiles/symfiles.h"
#include "ui/col.h"
#include "ui/con_private.h"
#include "ui/msg.h"
#include "ui/view.h"
#include "util/clock.h"
#include "util/file.h"

namespace kx {

inline void fresh() {
    for (void (*reset)() :
         {msg_reset,           con_reset,    col_reset,         view_reset,
          ini_reset,           file_reset,   clock_reset,       port_reset,
          serial_reset,        stub_reset,   rate_reset,        mem_reset,
          image_reset,         patch_reset,  charset_reset,     sim_shutdown,
          membank_free_all,    d64_reset,    file_loaded_reset, fileserver_reset,
          debug_console_reset, config_reset, program_reset,     command_line_reset,
          active_config_reset}) {
        reset();
    }
    sym_table_free(sym_store);
}

} // namespace kx
