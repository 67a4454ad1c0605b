// Identifiers of the file types that the toolkit knows, for all who store or compare them.
// `filetype_table` (files/filetype.h) tells what each is.
#pragma once

namespace kx {

constexpr int FILETYPE_KXSYMS = 1;
constexpr int FILETYPE_CC65 = 3;
constexpr int FILETYPE_PRG = 8;
constexpr int FILETYPE_SID = 9;
constexpr int FILETYPE_S = 10;
constexpr int FILETYPE_TXT = 11;
constexpr int FILETYPE_VICE = 12;
constexpr int FILETYPE_NES = 13;
constexpr int FILETYPE_PCE = 14;
constexpr int FILETYPE_RAW = 15;
constexpr int FILETYPE_D64 = 22;

} // namespace kx
