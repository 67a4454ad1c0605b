// The state of one setup run, and its clean-up.
#pragma once

#include "ini/ini.h"

#include <string>

namespace kx {

struct Program {
    IniDocument main_doc;   // kx.ini as it was found at start
    IniDocument target_doc; // the loaded target configuration
    IniDocument new_main;   // kx.ini as it will be written
};
extern Program program;

/// Registers the clean-up with the C library's exit handlers, once: the simulator core is shut
/// down and the three documents are released at every exit from here on.
void program_register_cleanup();

/// Releases the documents.
void program_reset();

/// Initialises the simulator core of the active machine; ends the program with status 1 and an
/// error message when it cannot.
void program_init_simulator();

/// Writes the new main configuration to `path`; a failure is not reported, and the old file is
/// whole then. A file that is there and could not be read at the start may hold what is not in the
/// new one: it is left alone, with an error message.
void program_write_main(const std::string& path);

} // namespace kx
