// The reader of VICE label files, as VICE's monitor and cc65's linker write them:
// "al 00c000 .name" and "al C:c000 .name".
#pragma once

#include "symfiles/symfiles.h"

namespace kx {

/// Reads the file into the table. 1, or -1 when it cannot be read.
int sym_vice_readfile(SymTable* table, const std::string& path);

} // namespace kx
