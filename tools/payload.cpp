// Loading by the library's loaders, in the simulator alone, so that the library's patches apply.
#include "tools/payload.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "files/disc.h"
#include "files/filetype.h"
#include "files/loader.h"
#include "link/patch.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tools/host.h"
#include "tools/line.h"
#include "tools/patching.h"
#include "tools/report.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace kx {

namespace {

constexpr std::size_t RANGES_SHOWN = 4;

struct TypeName {
    const char* name;
    int type;
};
constexpr TypeName types[] = {{"prg", FILETYPE_PRG},
                              {"raw", FILETYPE_RAW},
                              {"sid", FILETYPE_SID},
                              {"nes", FILETYPE_NES},
                              {"pce", FILETYPE_PCE}};

// What a file that is no program is for.
struct Instead {
    std::uint8_t class_bit;
    const char* what;
};
constexpr Instead instead[] = {
    {FILETYPE_DISC, "kx ls lists it, kx get takes programs out of it"},
    {FILETYPE_SYMBOLS, "kx symbols lists symbols, kx lint checks settings"},
    {FILETYPE_TEXT, "kx view shows it"},
};

// Memory accesses go to the simulator alone as long as it lives.
class InSimulator {
public:
    InSimulator() : mode_(mem_mode) { mem_mode = MEM_SIMULATOR; }
    ~InSimulator() { mem_mode = mode_; }
    InSimulator(const InSimulator&) = delete;
    InSimulator& operator=(const InSimulator&) = delete;

private:
    int mode_;
};

// The type that the options name; otherwise it stays.
void name_type(const PayloadOptions& options, int& type) {
    const TypeName* named = std::ranges::find(types, options.type, &TypeName::name);
    type = named != std::end(types) ? named->type : type;
}

// The library takes no names with control characters, and files that can be sought in.
int open_program(const PayloadOptions& options, ProgramFile& program) {
    program.name = options.file;
    program.type = filetype_from_name(host_name(options.file));
    name_type(options, program.type);
    if (const int status = host_open(options.file, program.file)) {
        return status;
    }
    program.size = file_size(program.file.get());
    return program.size >= 0 ? 0 : host_fail(options.file, errno);
}

int find_address(const PayloadOptions& options, int type, std::uint32_t& address) {
    std::string error;
    const bool is_raw = (filetype_get_class(type) & (FILETYPE_CPU | FILETYPE_MACHINE)) == 0;
    if (options.at.empty()) {
        return is_raw ? report_fail(KxError::Usage, options.file + ": raw bytes need an address",
                                    "give --at ADDR, or --type prg when it has a load address")
                      : 0;
    }
    if (!is_raw && type != FILETYPE_PRG) {
        return report_fail(KxError::Usage,
                           options.file + ": it goes to its own addresses, --at means nothing");
    }
    if (parse_address(options.at, sym_store, address, error) != 0) {
        return report_fail(KxError::Usage, "--at: " + error);
    }
    return address != 0 || is_raw
               ? 0 // a loader takes 0 for the file's own address
               : report_fail(KxError::Usage, "--at: a program cannot go to $0000");
}

int check_end(const PayloadOptions& options, const LoadedFile& loaded) {
    const std::uint64_t most = std::uint64_t{mem_top()} + 1;
    return loaded.end <= most
               ? 0
               : report_fail(KxError::NoRoom,
                             options.file + ": " + text_count(loaded.end - loaded.start, "byte") +
                                 " from " + line_address_text(loaded.start) +
                                 " on do not fit, memory ends at " + line_address_text(most - 1) +
                                 "; nothing was sent");
}

int apply_patches(const PayloadOptions& options, const LoadedFile& loaded) {
    std::vector<std::string> sections = options.patches;
    if (active_config.patch_file.ends_with('/')) { // the base directory alone
        return report_fail(KxError::BadConfig, "the target names no patch file");
    }
    if (const int status = patching_choose(active_config.patch_file, sections)) {
        return status;
    }
    for (const std::string& section : sections) {
        patch_apply_named(section, loaded.start,
                          static_cast<std::uint32_t>(loaded.end - loaded.start));
    }
    return 0;
}

void take_bytes(const LoadedFile& loaded, Payload& payload) {
    payload.start = loaded.start;
    payload.end = loaded.end;
    payload.execute = loaded.execute;
    payload.bytes.clear();
    for (std::uint64_t at = loaded.start; at < loaded.end; at++) {
        payload.bytes.push_back(sim_read8(static_cast<std::uint32_t>(at)));
    }
}

// The patches in the simulator's memory, and what has become of the bytes there.
int patch(const PayloadOptions& options, Payload& payload) {
    if (!options.patch && options.patches.empty()) {
        return 0;
    }
    if (const int status = apply_patches(options, file_loaded())) {
        return status;
    }
    const std::vector<std::uint8_t> before = payload.bytes;
    take_bytes(file_loaded(), payload);
    std::size_t changed = 0;
    for (std::size_t i = 0; i < before.size(); i++) {
        changed += before[i] != payload.bytes[i] ? 1 : 0;
    }
    if (changed == 0) {
        report_warning(payload.name + ": no patch applies to it");
    } else {
        report_done(payload.name + ": " + text_count(changed, "byte") + " patched");
    }
    return 0;
}

// Bytes for I/O registers are sent, but do what they do there.
void warn_io(const Payload& payload) {
    std::vector<AddressRange> ranges;
    for (const AddressRange& part : payload.parts) {
        for (const MemoryRegion& region : active_config.memory_map.regions) {
            const std::uint32_t first = std::max(part.first, region.base);
            const std::uint64_t end = std::min(part.end, std::uint64_t{region.last} + 1);
            if (region.type == MEMORY_IO && first < end) {
                ranges.push_back({first, end});
            }
        }
    }
    if (!ranges.empty()) {
        report_warning(payload.name + ": " + memory_text(ranges) + " is I/O");
    }
}

// What of the program the target's memory has.
int find_parts(const PayloadOptions& options, Payload& payload) {
    std::vector<AddressRange> left_out;
    payload.parts = memory_parts({payload.start, payload.end}, left_out);
    if (payload.parts.empty()) {
        return report_fail(KxError::NotFound,
                           options.file + (payload.bytes.empty()
                                               ? ": there is nothing in it to be sent"
                                               : ": nothing of it is in the memory map"));
    }
    warn_io(payload);
    if (!left_out.empty()) {
        report_warning(payload.name + ": " + memory_text(left_out) +
                       " is left out (not in the memory map)");
    }
    return 0;
}

// Refuses what begins as something else than a program, unless its type has been told.
int check_content(const PayloadOptions& options, const ProgramFile& program) {
    if (!options.type.empty() || program.type == FILETYPE_SID || program.type == FILETYPE_NES) {
        return 0;
    }
    char start[16] = {};
    std::rewind(program.file.get());
    const std::size_t count = std::fread(start, 1, sizeof start, program.file.get());
    std::rewind(program.file.get());
    const char* const other = disc_other_file({start, count});
    return other == nullptr
               ? 0
               : report_fail(KxError::Usage, options.file + ": no program, but " + other,
                             "--type says what it is all the same");
}

} // namespace

int payload_check(const PayloadOptions& options) {
    if (options.file == "-") {
        return report_fail(KxError::Usage, "standard input is not taken: give a FILE");
    }
    struct stat info = {};
    ProgramFile program;
    const bool pipe = stat(options.file.c_str(), &info) == 0 && !S_ISREG(info.st_mode) &&
                      !S_ISDIR(info.st_mode); // can be read once
    if (const int status = pipe ? 0 : open_program(options, program)) {
        return status;
    }
    const std::uint8_t bits = filetype_get_class(program.type);
    for (const Instead& row : instead) {
        if ((bits & row.class_bit) != 0) {
            const char* what = filetype_get_desc(program.type);
            return report_fail(KxError::Usage, options.file + ": no program (" + what + ")",
                               row.what);
        }
    }
    return 0;
}

int payload_load(const PayloadOptions& options, Payload& payload) {
    const InSimulator simulator;
    std::uint32_t address = 0;
    payload = {};
    payload.name = host_name(options.file);
    ProgramFile program;
    if (const int status = open_program(options, program)) {
        return status;
    }
    if (const int status = check_content(options, program)) {
        return status;
    }
    if (const int status = find_address(options, program.type, address)) {
        return status;
    }
    if (program_load(program, address) != 1) {
        return report_fail_library(KxError::HostFile, "", options.file + ": cannot be loaded");
    }
    const LoadedFile& loaded = file_loaded();
    if (const int status = check_end(options, loaded)) {
        return status;
    }
    take_bytes(loaded, payload);
    const bool inside = payload.start <= payload.execute && payload.execute < payload.end;
    if (!options.at.empty() && !inside) {
        payload.execute = payload.start; // what the file tells holds for its own addresses
    }
    if (const int status = patch(options, payload)) {
        return status;
    }
    return find_parts(options, payload);
}

std::span<std::uint8_t> payload_part(Payload& payload, const AddressRange& part) {
    return std::span(payload.bytes).subspan(part.first - payload.start, part.end - part.first);
}

std::uint64_t payload_size(const Payload& payload) {
    std::uint64_t sum = 0;
    for (const AddressRange& part : payload.parts) {
        sum += part.end - part.first;
    }
    return sum;
}

std::vector<AddressRange> memory_parts(const AddressRange& range,
                                       std::vector<AddressRange>& left_out) {
    std::vector<AddressRange> parts;
    left_out.clear();
    for (std::uint64_t at = range.first; at < range.end; at++) {
        const auto address = static_cast<std::uint32_t>(at);
        std::vector<AddressRange>& list = mem_is_mapped(address) ? parts : left_out;
        if (!list.empty() && list.back().end == at) {
            list.back().end++;
        } else {
            list.push_back({address, at + 1});
        }
    }
    return parts;
}

std::string memory_text(const std::vector<AddressRange>& ranges) {
    std::string text;
    for (std::size_t i = 0; i < std::min(ranges.size(), RANGES_SHOWN); i++) {
        text += (i > 0 ? ", " : "") + line_address_text(ranges[i].first);
        if (ranges[i].end - ranges[i].first > 1) {
            text += "-" + line_address_text(ranges[i].end - 1);
        }
    }
    return text + (ranges.size() > RANGES_SHOWN ? "..." : "");
}

} // namespace kx
