// Runs program files on the configured target, saves and loads ranges of its memory.
#include "core/config/config_exec.h"

#include "core/active_config.h"
#include "files/loader.h"
#include "link/patch.h"
#include "link/target_memory.h"
#include "ui/msg.h"
#include "util/file.h"

#include <cerrno>

namespace kx {

namespace {

/// Whether there is nothing at a path, as its opening found.
bool is_missing(const Failure& failure) {
    return failure.error == ENOENT || failure.error == ENOTDIR || failure.error == ELOOP ||
           failure.error == ENAMETOOLONG;
}

/// 1, or -1 when the user ended it.
int patch_loaded() {
    if (active_config.patch_autoload == 0) {
        return 1;
    }
    const LoadedFile& loaded = file_loaded();
    return patch_apply_defaults(loaded.start,
                                static_cast<std::uint32_t>(loaded.end - loaded.start));
}

} // namespace

int core_execfile(const std::string& path, std::uint32_t load_address,
                  std::uint32_t start_address) {
    const ProgramFile program = program_open(path);
    if (program.file == nullptr && is_missing(file_last_error())) {
        msg_error("file '%s' doees not exist.", path.c_str()); // Meant: misspelt.
        return 0;
    }
    if (start_address == 0) {
        start_address = program_start_address(program);
    }
    if (start_address == 0) {
        start_address = load_address;
    }
    msg_info("core_execfile: %s %08x:%08x", path.c_str(), load_address, start_address);
    if (program.file == nullptr) {
        msg_error("couldn't open file '%s'.", path.c_str());
        return -1;
    }
    if (program_load(program, load_address) != 1 || patch_loaded() != 1) {
        return -1;
    }
    msg_message("set PC=0x%08lx", static_cast<unsigned long>(start_address));
    target_set_pc(start_address);
    msg_message("execute PC=0x%08lx", static_cast<unsigned long>(start_address));
    target_execute();
    return 1;
}

int core_save_range(const std::string& path, std::uint32_t start, std::uint64_t end) {
    if (start < end && !file_can_write(path)) {
        msg_error("couldn't get file '%s'.", path.c_str());
        return -1;
    }
    return file_save(path, start, end);
}

int core_load_range(const std::string& path, std::uint32_t start, std::uint64_t end) {
    const ProgramFile program = program_open(path);
    if (program.file == nullptr) {
        msg_error("couldn't open file '%s'.", path.c_str());
        return -1;
    }
    return program_load(program, start, end);
}

} // namespace kx
