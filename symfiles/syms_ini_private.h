// The reader of symbol .ini files: sections `registers`, `datazones`, `syscalls` and `labels`,
// each with `num` and the items n0, n1, ... See doc/symbol-files.md for the elements.
#pragma once

#include "symfiles/symfiles.h"

namespace kx {

/// Reads the file into the table. 1, or -1 when it cannot be read or has none of the sections.
int sym_ini_readfile(SymTable* table, const std::string& path);

} // namespace kx
