// The files that the program writes: the new kx.ini, and kxtest.ini, the loaded target file with
// every section and item documented.
#pragma once

#include "ini/ini.h"

#include <string>

namespace kx {

/// Builds the new main configuration in `doc`. With `loaded`, its three defaults are those of
/// `main_doc`, otherwise col_kx, none and map_ascii.
void template_main_build(IniDocument& doc, const std::string& path, const IniDocument& main_doc,
                         bool loaded);

/// Gives every section and item of the target document its comments. What the document lacks is
/// created empty, so that the written file documents everything and can be loaded.
void template_target_annotate(IniDocument& doc);

} // namespace kx
