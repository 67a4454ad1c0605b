// The dispatcher of program files by type.
#include "files/loader.h"

#include "files/bin_private.h"
#include "files/filetype.h"
#include "files/nes_private.h"
#include "files/pce_private.h"
#include "files/prg_private.h"
#include "files/sid_private.h"
#include "files/transfer_private.h"
#include "ui/msg.h"

namespace kx {

namespace {

// `prg_send` leaves it to its callers to say that a file cannot be opened.
long load_prg(const ProgramFile& program, std::uint32_t start, std::uint64_t end) {
    return transfer_is_open(program, "Failed to open input prg file '%s'")
               ? prg_send(program, start, end, 0)
               : -1;
}

long load_raw(const ProgramFile& program, std::uint32_t start, std::uint64_t end) {
    return bin_send(program, start, end, 0);
}

// Formats that bring their addresses along.
template <long (*Send)(const ProgramFile&)>
long load_fixed(const ProgramFile& program, std::uint32_t start, std::uint64_t end) {
    if (start != 0 || end != 0) {
        msg_warning("'%s' goes to its own addresses.", program.name.c_str());
    }
    return Send(program);
}

struct Loader {
    int type;
    // The number of bytes, or -1 with a message.
    long (*load)(const ProgramFile& program, std::uint32_t start, std::uint64_t end);
    long (*save)(const std::string& name, std::uint32_t start, std::uint64_t end); // null: not
    std::uint32_t (*start_address)(const ProgramFile& program); // null: the file does not tell
};

// The first row is for all types that have none.
constexpr Loader loaders[] = {
    {FILETYPE_RAW, load_raw, bin_get, nullptr},
    {FILETYPE_PRG, load_prg, prg_get, prg_exec_address},
    {FILETYPE_SID, load_fixed<sid_send>, nullptr, sid_start_address},
    {FILETYPE_NES, load_fixed<nes_send>, nullptr, nes_start_address},
    // `pce_get` fetches nothing, so memory that is to be saved had better be refused.
    {FILETYPE_PCE, load_fixed<pce_send>, nullptr, pce_start_address},
};

// Of the file's own name: a folder's dot would be taken for the file's.
int type_of(const std::string& name) {
    return filetype_from_name(name.substr(name.rfind('/') + 1));
}

const Loader& find_loader(int type) {
    for (const Loader& loader : loaders) {
        if (loader.type == type) {
            return loader;
        }
    }
    return loaders[0];
}

// Whether files of the type hold no program; with an error message.
bool is_refused(const std::string& name, int type) {
    if ((filetype_get_class(type) & (FILETYPE_TEXT | FILETYPE_SYMBOLS | FILETYPE_DISC)) == 0) {
        return false;
    }
    msg_error("'%s' is no program (%s).", name.c_str(), filetype_get_desc(type));
    return true;
}

} // namespace

ProgramFile program_open(const std::string& path) {
    ProgramFile program;
    program.name = transfer_trim(path);
    program.type = type_of(program.name);
    program.file = file_open(program.name, "rb");
    program.size = program.file ? file_size(program.file.get()) : -1;
    if (program.size < 0) {
        program.file.reset();
    }
    return program;
}

int program_load(const ProgramFile& program, std::uint32_t load_address, std::uint64_t end) {
    return !is_refused(program.name, program.type) &&
                   find_loader(program.type).load(program, load_address, end) >= 0
               ? 1
               : -1;
}

std::uint32_t program_start_address(const ProgramFile& program) {
    const auto start_address = find_loader(program.type).start_address;
    return start_address != nullptr ? start_address(program) : 0;
}

int file_load(const std::string& path, std::uint32_t load_address, std::uint64_t end) {
    return program_load(program_open(path), load_address, end);
}

std::uint32_t file_start_address(const std::string& path) {
    return program_start_address(program_open(path));
}

int file_save(const std::string& path, std::uint32_t start, std::uint64_t end) {
    const std::string name = transfer_trim(path);
    const int type = type_of(name);
    if (is_refused(name, type)) {
        return -1;
    }
    const auto save = find_loader(type).save;
    if (save == nullptr) {
        msg_error("'%s': memory cannot be saved as %s.", name.c_str(), filetype_get_desc(type));
        return -1;
    }
    return save(name, start, end) >= 0 ? 1 : -1;
}

} // namespace kx
