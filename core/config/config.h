// The configuration loader: finds the base directory, reads kx.ini and the target file it names,
// and fills the active configuration. Ties the other rooms together.
#pragma once

#include "core/active_config.h"
#include "ini/ini.h"
#include "util/failure.h"

#include <string>

namespace kx {

/// The toolkit's base directory, ending in a separator: the value of the environment variable
/// with "/" appended (also to a value that ends in one), otherwise the program path up to its
/// last "/" or "\", otherwise "./".
std::string config_find_base_dir(const std::string& program_path, const char* variable);

/// The directory followed by the file name.
std::string config_make_path(const std::string& directory, const std::string& file_name);

/// "%sconfig/%s.ini" of the base directory and a configuration's name.
std::string config_path_of(const std::string& name);

/// Loads the colour scheme of that name; a file that cannot be read leaves the colours as they are.
void config_load_scheme(const std::string& name);

/// Loads the main configuration, the colour scheme and the target file it names. 1 when the main
/// file was read; -1 when not (the default colour scheme is loaded then, and no target file).
/// Sets the base directory. The target file's own result is not passed on.
int config_load(IniDocument& main_doc, IniDocument& target_doc, const std::string& program_path,
                const std::string& main_file_name);

/// The same, ending the program with status 1 for any other result than 1.
void config_load_or_exit(IniDocument& main_doc, IniDocument& target_doc,
                         const std::string& program_path, const std::string& main_file_name);

/// Why the last `config_load` could not read a main file that is there, and that must not be
/// overwritten therefore. FailureKind::None when it was read, is missing or is empty.
const Failure& config_main_failure();

/// Forgets it.
void config_reset();

/// Loads one target file and fills the active configuration; unknown components are reported and
/// replaced. 1, or -1 when no CPU or machine can be selected. A file that cannot be read loads as
/// an empty one. A file that lacks a section ends the program.
int config_load_target(IniDocument& target_doc, const std::string& path);

/// The same from a document that was read already, with all its sections.
int config_use_target(const IniDocument& target_doc);

/// The first section that the loading of target, ROM images and symbols would miss, and end the
/// program for; null when all are there.
const char* config_missing_section(const IniDocument& target_doc);

/// Loads the default ROM images of `[roms]` into the simulator, silently unless verbose. 0, or -1
/// at the first failure, with the path of that file in `failed` unless null.
int config_load_roms(const std::string& directory, const IniDocument& target_doc,
                     std::string* failed = nullptr);

/// Reads the default symbol files of `[symbols]` into the symbol store. Always 0.
int config_load_symbols(const std::string& directory, const IniDocument& target_doc);

/// Adds what a target file is expected to hold and the document does not: the sections, and in a
/// document without any section their items too, all empty. Items that a loaded file leaves out
/// stay out.
void config_target_complete(IniDocument& target_doc);

} // namespace kx
