// What the two servers that play a Commodore's drive, serial-slave and CBM, do alike: load and
// save, with the change of directory that a load may be.
#pragma once

#include <cstdint>
#include <string>

namespace kx {

/// How one of them speaks.
struct Drive {
    std::uint8_t changed;    // its answer when the directory has been changed
    std::uint8_t ready;      // and when it is ready to receive
    std::uint32_t uncounted; // bytes that a save has beside those announced
    bool tells_kind;         // its log tells why a directory was changed
    bool meters;             // it reports the rate of transfers
    const char* line_end;    // of its log
    int (*send_directory)();
    int (*send_file)(const std::string& name); // in the current directory
};

/// A name up to CR, in the target's codes, which are noted in the request's event; then `behind`
/// bytes that are dropped.
std::string drive_get_name(int behind);

/// Whether a name, in either's codes, asks for the directory.
bool drive_is_directory_name(const std::string& name);

/// Carries out a load of the host's `name`: 0, or -1 when the failure is still to be answered.
int drive_load(const Drive& drive, const std::string& name);

/// Receives a file and saves it as the host's `name`: 0, or -1 when the failure is still to be
/// answered.
int drive_save(const Drive& drive, const std::string& name);

/// Notes in the request's event that a directory is sent.
void drive_note_directory(std::size_t bytes, std::size_t entries);

} // namespace kx
