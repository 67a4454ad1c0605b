// Lists in configuration files: how many of their items are wanted, with a limit that is told.
#pragma once

#include "ini/ini.h"

#include <string>

namespace kx {

constexpr int MSG_ITEMS_MAX = 4096; // no real file comes near it, a damaged one may

/// `num` of the section: how many items n0, n1, ... it lists. Above MSG_ITEMS_MAX an error message
/// says so, and that is the result. A missing section ends the program.
int msg_items_count(const IniDocument& doc, const std::string& section);

} // namespace kx
