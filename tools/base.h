// Which base directory and which target the command line, the environment and the files name.
#pragma once

#include "ini/ini.h"

#include <string>
#include <vector>

namespace kx {

/// What a serial line can be set to.
constexpr int baud_rates[] = {9600, 19200, 38400, 57600, 115200};
std::string baud_rates_text(); // "9600, 19200, 38400, 57600 or 115200"

/// Finds the base directory: --base, KXPATH, ${XDG_DATA_HOME:-~/.local/share}/kx, share/kx beside
/// the program's folder. Puts it into the active configuration. 0, or the exit status of the
/// failure, which has been reported.
int base_find();

/// The same for verbs that can do without one: false, and not a word, when there is none.
bool base_find_quietly();

/// Finds the base directory and loads the target into the active configuration: --target,
/// KX_TARGET, `[targets] default`, or c64 when only a port was named. Port and baud rate are those
/// of the options, the environment or the file. `document` is what was read. 0, or the exit status
/// of the failure, which has been reported.
int target_load(IniDocument& document);

/// A value of kx.ini in the base directory that has been found; `otherwise` for none.
std::string base_setting(const char* section, const char* key, const std::string& otherwise);

/// The names of the files config/NAME.ini of the base directory that has been found, sorted; with
/// `type` ("target", "colors", "charset") only those of that type.
std::vector<std::string> base_config_names(const std::string& type = "");

} // namespace kx
