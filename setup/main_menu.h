// The main menu: choosing the default target, colour scheme and charset.
#pragma once

#include "ini/ini.h"

namespace kx {

/// Fills the three selection lists from the configuration directory and records them in the new
/// main configuration, as n0, n1, ... and num of `targets`, `colors` and `charsets`.
void scan_configurations(IniDocument& new_main);

/// Runs the menu until the user leaves it; choices become the defaults in `new_main`. Without a
/// usable terminal an error message says so, and nothing is chosen.
void run_main_menu(IniDocument& new_main);

} // namespace kx
