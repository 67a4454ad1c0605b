// The command line, processed from left to right. Its options are shared by the toolkit's
// programs; kxsetup itself has no use for some of them.
#pragma once

#include "ini/ini.h"

#include <string>
#include <vector>

namespace kx {

/// What the options set, beside verbosity and the active configuration.
struct CommandLine {
    int extfs = 0;           // external filesystem flag
    int remote = 0;          // remote mode flag
    std::string input_file;  // -f, or a bare existing file name
    std::string output_file; // -o
};
extern CommandLine command_line;

/// As before the options.
void command_line_reset();

/// Whether the first argument asks for verbose mode: checked before anything is loaded.
bool command_line_early_verbose(int argc, char** argv);

/// Processes the arguments. Many options print and end the program; errors end it with status 1.
/// Returns the output file name, empty when none was given.
const std::string& command_line_parse(int argc, char** argv, const IniDocument& main_doc,
                                      IniDocument& target_doc);

/// A name of an option, for the shells' completion.
struct CommandLineName {
    std::string name;
    std::string help; // empty for what the usage text leaves out
    bool takes_value;
};

/// All of them, in the order of the usage text.
std::vector<CommandLineName> command_line_names();

/// Prints the usage text to standard error.
void command_line_usage(const char* program_name);

} // namespace kx
