// The file system of 1541 disc images, on host files and on images held by the target: listing,
// block map, extraction, writing, deletion and check. Each open image has a record of its
// directory, reached from its handle; functions without an image work on the one that was read
// last. doc/d64.md has the layout and both sets of rules, disc.h what a disc tool does with an
// image as a whole.
#pragma once

#include "link/image.h"

#include <cstdio>
#include <string>

namespace kx {

/// Listings as a Unix directory listing. Files are then named on input by the two hexadecimal
/// digits, lower case, of their place in the directory.
extern int d64_ls_style;

/// 0: files are written and read by the toolkit's own rules: a written file's chain is left open,
/// the free counts stay as they are, and the last block gives one byte more than a drive gives.
/// 1: by the rules of the drive, which accepts what is written then. An operation that fails
/// leaves the image as it was, one that is killed all old files, and what could be somebody else's
/// is neither freed nor written over; what is refused is told by an error message.
extern int d64_dos_mode;

/// Reads header, map and directory into memory. What cannot be read is empty, and a directory
/// whose chain is damaged ends there. 1; -1 for a held image at the first read that the target does
/// not answer, behind which none is tried.
int d64_read_directory(ImageHandle& image);

/// Write the header with the block map, or a line per directory entry, to `out`. 1.
int d64_print_info(std::FILE* out);
int d64_list_directory(std::FILE* out);

/// Copies every file that has a first block, scratched ones included, to the host's current
/// directory, under a form of its name that cannot leave it. Stops at the first failure, and
/// returns 1 all the same. In DOS mode: only files that are not scratched, each under a name of
/// its own, all of them; -1 when any failed.
int d64_extract_all(ImageHandle& image);

/// Copies one file to `host_path`. 1, or -1: there is no such file, its chain is damaged or the
/// host file cannot be written. A host file that was there is only replaced by a whole one, and the
/// image itself never.
int d64_extract_file(ImageHandle& image, const std::string& name, const std::string& host_path);

/// Adds a host file as a prg file. 1, or -1 with an error message when the name exists, the disc is
/// full or, in DOS mode, a drive refuses the name; without one when the host file cannot be read or
/// the image not written.
int d64_write_file(ImageHandle& image, const std::string& host_path, const std::string& name);

/// Frees a file's blocks and its slot. 1, or -1: with an error message when there is no such file
/// or, in DOS mode, when it is locked or its blocks are not, or not only, its own.
int d64_delete_file(ImageHandle& image, const std::string& name);

/// Compares the image's size, directory, chains, names, map and free counts, by the drive's rules
/// in either mode, and changes nothing. A line on `out` for each thing that is wrong,
/// DISC_MOST_FINDINGS (disc.h) at most and one with how many more. 1 when there is none, else -1.
int d64_check(ImageHandle& image, std::FILE* out);

/// Forgets which image was read last, and puts the two flags back to 0.
void d64_reset();

} // namespace kx
