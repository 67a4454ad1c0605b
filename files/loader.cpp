// The loader of program files: a table of the types that can be loaded, each with its own idea of
// where the bytes go.
#include "files/loader.h"

#include "core/active_config.h"
#include "core/bytes.h"
#include "files/filetype.h"
#include "ini/ascii.h"
#include "ini/file.h"
#include "link/target_memory.h"
#include "ui/msg.h"

namespace kx {

namespace {

// What a type's loader works out: which bytes of the file go where.
struct Placement {
    long offset;         // of the first byte in the file
    std::uint32_t start; // target address
    std::uint64_t end;   // the address behind the last byte
};

// Where each type's bytes go; `size` is the file's. False, with an error message, for a damaged
// file.
bool place_raw(std::FILE*, const std::string&, long size, std::uint32_t load_address,
               Placement& place) {
    place = {0, load_address, load_address + static_cast<std::uint64_t>(size)};
    if (place.end > std::uint64_t{addr_mask()} + 1) {
        msg_warning("end >%08x", addr_mask());
    }
    if (load_address == 0) {
        msg_warning("start:0x00000000, are you sure you want to do this?");
    }
    return true;
}

bool place_prg(std::FILE* file, const std::string& path, long size, std::uint32_t load_address,
               Placement& place) {
    std::uint8_t header[2]; // the file's own load address, lowest byte first
    if (std::fread(header, 1, sizeof header, file) != sizeof header) {
        msg_error("'%s' is too short for a prg file: it has no load address.", path.c_str());
        return false;
    }
    const auto length = static_cast<std::uint64_t>(size) - sizeof header;
    const std::uint32_t start = load_address != 0 ? load_address : get16le(header);
    place = {sizeof header, start, start + length};
    // One stricter than for raw files: a program that ends exactly at the top is warned about.
    // This is meant.
    if (place.end > addr_mask()) {
        msg_warning("end >%08x", addr_mask());
    }
    return true;
}

struct Loader {
    int type;
    bool (*place)(std::FILE* file, const std::string& path, long size, std::uint32_t load_address,
                  Placement& place);
    // Formats: of the path, and for the title also of start, end and length.
    const char* title;
    const char* cannot_open;
    const char* cannot_send;
};

constexpr Loader loaders[] = {
    {.type = FILETYPE_RAW,
     .place = place_raw,
     .title = "sending binary '%s' (%08lx-%08lx:%04lx) ... ",
     .cannot_open = "Failed to open input bin file '%s'",
     .cannot_send = "Failed to send raw file '%s'"},
    {.type = FILETYPE_PRG,
     .place = place_prg,
     .title = "sending prg %s (%04lx-%04lx:%04lx) ...",
     .cannot_open = "Failed to open input prg file '%s'",
     .cannot_send = "Failed to send prg file '%s'"},
};

// Null, with an error message, for a type that cannot be loaded.
const Loader* find_loader(const std::string& path, int type) {
    for (const Loader& loader : loaders) {
        if (loader.type == type) {
            return &loader;
        }
    }
    const char* description = filetype_get_desc(type);
    if (description == nullptr) {
        description = "unknown";
    }
    msg_error((filetype_get_class(type) & FILETYPE_LOADABLE) != 0
                  ? "'%s': loading files of this type (%s) is not supported yet."
                  : "'%s' is not a program that can be loaded (%s).",
              path.c_str(), description);
    return nullptr;
}

// The path up to its first control character: names that come from a line of text bring their
// line end along. Other bytes stay, they may be UTF-8.
std::string trimmed(const std::string& path) {
    std::size_t length = 0;
    while (length < path.size() && !ascii_is_control(path[length])) {
        length++;
    }
    return path.substr(0, length);
}

} // namespace

int file_load(const std::string& path, std::uint32_t load_address) {
    const std::string name = trimmed(path);
    // Of the file's own name: a folder's dot would be taken for the file's.
    const Loader* loader = find_loader(name, filetype_from_name(name.substr(name.rfind('/') + 1)));
    if (loader == nullptr) {
        return -1;
    }
    const FilePtr file = file_open(name, "rb");
    const long size = file ? file_size(file.get()) : -1; // -1 also for what cannot be sought in
    if (size < 0) {
        msg_error(loader->cannot_open, name.c_str());
        return -1;
    }
    Placement place{};
    if (!loader->place(file.get(), name, size, load_address, place)) {
        return -1;
    }
    progress_begin(loader->title, name.c_str(), static_cast<unsigned long>(place.start),
                   static_cast<unsigned long>(place.end),
                   static_cast<unsigned long>(place.end - place.start));
    const int result = mem_write_file(file.get(), place.offset, place.start, place.end);
    progress_end(result);
    if (result != 1) {
        msg_error(loader->cannot_send, name.c_str());
    }
    return result;
}

} // namespace kx
