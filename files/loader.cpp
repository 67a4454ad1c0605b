// Program files: a table of the types that can be loaded and saved, each with its own idea of where
// the bytes go and where execution starts.
#include "files/loader.h"

#include "core/active_config.h"
#include "core/bytes.h"
#include "files/filetype.h"
#include "ini/ascii.h"
#include "ini/file.h"
#include "link/rate.h"
#include "link/target_memory.h"
#include "ui/msg.h"

#include <vector>

namespace kx {

namespace {

constexpr std::uint32_t BASIC_START = 0x0801;
constexpr std::uint32_t BASIC_RUN = 0xA7AE; // the interpreter's run entry

struct {
    LoadedFile loaded;
} state;

// What a type's loader works out: which bytes of the file go where.
struct Placement {
    long offset;         // of the first byte in the file
    std::uint32_t start; // target address
    std::uint64_t end;   // the address behind the last byte
};

// Where each type's bytes go; `size` is the file's, `end` 0 or the address to stop before. False,
// with an error message, for a damaged file.
bool place_raw(std::FILE*, const std::string&, long size, std::uint32_t load_address,
               std::uint64_t end, Placement& place) {
    const std::uint64_t file_end = load_address + static_cast<std::uint64_t>(size);
    place = {0, load_address, end != 0 ? end : file_end};
    if (place.end > std::uint64_t{addr_mask()} + 1) {
        msg_warning("end >%08x", addr_mask());
    }
    if (load_address == 0) {
        msg_warning("start:0x00000000, are you sure you want to do this?");
    }
    return true;
}

bool place_prg(std::FILE* file, const std::string& path, long size, std::uint32_t load_address,
               std::uint64_t end, Placement& place) {
    std::uint8_t header[2]; // the file's own load address, lowest byte first
    if (std::fread(header, 1, sizeof header, file) != sizeof header) {
        msg_error("'%s' is too short for a prg file: it has no load address.", path.c_str());
        return false;
    }
    const auto length = static_cast<std::uint64_t>(size) - sizeof header;
    const std::uint32_t start = load_address != 0 ? load_address : get16le(header);
    // An end without a start means nothing: the file then goes where it wants, as a whole.
    place = {sizeof header, start, load_address != 0 && end != 0 ? end : start + length};
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
                  std::uint64_t end, Placement& place);
    std::uint32_t (*start_address)(const std::string& path); // null: the type does not tell
    bool saves_start;                                        // as two bytes before the others
    // Formats: of the path, and for the title also of start, end and length.
    const char* title;
    const char* cannot_open;
    const char* cannot_send;
    const char* cannot_get;
    const char* cannot_create;
};

constexpr Loader loaders[] = {
    {.type = FILETYPE_RAW,
     .place = place_raw,
     .start_address = nullptr,
     .saves_start = false,
     .title = "sending binary '%s' (%08lx-%08lx:%04lx) ... ",
     .cannot_open = "Failed to open input bin file '%s'",
     .cannot_send = "Failed to send raw file '%s'",
     .cannot_get = "Failed to get raw file '%s'",
     .cannot_create = "Failed to open output bin file '%s'"},
    {.type = FILETYPE_PRG,
     .place = place_prg,
     .start_address = prg_exec_address,
     .saves_start = true,
     .title = "sending prg %s (%04lx-%04lx:%04lx) ...",
     .cannot_open = "Failed to open input prg file '%s'",
     .cannot_send = "Failed to send prg file '%s'",
     .cannot_get = "Failed to get prg file '%s'",
     .cannot_create = "Failed to open output prg file '%s'"},
};

const Loader* find_loader(int type) {
    for (const Loader& loader : loaders) {
        if (loader.type == type) {
            return &loader;
        }
    }
    return nullptr;
}

void report_type(const std::string& path, int type) {
    const char* description = filetype_get_desc(type);
    if (description == nullptr) {
        description = "unknown";
    }
    msg_error((filetype_get_class(type) & FILETYPE_LOADABLE) != 0
                  ? "'%s': loading and saving files of this type (%s) is not supported yet."
                  : "'%s' is not a program that can be loaded or saved (%s).",
              path.c_str(), description);
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

// Whether there is a byte from `start` to before `end`; false with an error message.
bool is_range(std::uint32_t start, std::uint64_t end) {
    if (start < end && end <= std::uint64_t{1} << 32) {
        return true;
    }
    msg_error("%08lx-%08lx is no range of addresses.", static_cast<unsigned long>(start),
              static_cast<unsigned long>(end));
    return false;
}

// Of the file's own name: a folder's dot would be taken for the file's.
int type_of(const std::string& name) {
    return filetype_from_name(name.substr(name.rfind('/') + 1));
}

// Two bytes at a place in the file, lowest first. False when they are not there.
bool read16(std::FILE* file, long offset, std::uint32_t& value) {
    std::uint8_t bytes[2];
    if (std::fseek(file, offset, SEEK_SET) != 0 ||
        std::fread(bytes, 1, sizeof bytes, file) != sizeof bytes) {
        return false;
    }
    value = get16le(bytes);
    return true;
}

// The first byte behind a BASIC program of one line, which ends with a zero and a link of zero: an
// address. 0 when the program goes on, and when its link leaves the file.
std::uint32_t behind_basic_line(std::FILE* file) {
    std::uint32_t link = 0;
    // The line's last byte stands before the one that its link points to, and the file's two
    // address bytes before the program.
    constexpr std::uint32_t END_OF_LINE = BASIC_START - 1;
    if (!read16(file, 2, link) || link < END_OF_LINE) {
        return 0;
    }
    std::uint8_t marker[3];
    if (std::fseek(file, static_cast<long>(link - END_OF_LINE), SEEK_SET) != 0 ||
        std::fread(marker, 1, sizeof marker, file) != sizeof marker || marker[0] != 0 ||
        marker[1] != 0 || marker[2] != 0) {
        return 0;
    }
    std::uint32_t address = link + 2;
    while (std::fgetc(file) == 0) {
        address++;
    }
    return address;
}

} // namespace

int file_load(const std::string& path, std::uint32_t load_address, std::uint64_t end) {
    const std::string name = trimmed(path);
    const Loader* loader = find_loader(type_of(name));
    if (loader == nullptr) {
        report_type(name, type_of(name));
        return -1;
    }
    if (end != 0 && !is_range(load_address, end)) {
        return -1;
    }
    const FilePtr file = file_open(name, "rb");
    const long size = file ? file_size(file.get()) : -1; // -1 also for what cannot be sought in
    if (size < 0) {
        msg_error(loader->cannot_open, name.c_str());
        return -1;
    }
    Placement place{};
    if (!loader->place(file.get(), name, size, load_address, end, place)) {
        return -1;
    }
    progress_begin(loader->title, name.c_str(), static_cast<unsigned long>(place.start),
                   static_cast<unsigned long>(place.end),
                   static_cast<unsigned long>(place.end - place.start));
    rate_start();
    const int result = mem_write_file(file.get(), place.offset, place.start, place.end);
    if (result == 1) {
        rate_stop_report(static_cast<std::uint32_t>(place.end - place.start));
    }
    progress_end(result);
    if (result != 1) {
        msg_error(loader->cannot_send, name.c_str());
        return -1;
    }
    const auto start_address = loader->start_address;
    state.loaded = {place.start, place.end, start_address ? start_address(name) : place.start};
    return 1;
}

const LoadedFile& file_loaded() {
    return state.loaded;
}

int file_save(const std::string& path, std::uint32_t start, std::uint64_t end) {
    const std::string name = trimmed(path);
    const Loader* loader = find_loader(type_of(name));
    if (loader == nullptr) {
        report_type(name, type_of(name));
        return -1;
    }
    if (!is_range(start, end)) {
        return -1;
    }
    if (loader->saves_start && end > addr_mask()) {
        msg_warning("end >%08x", addr_mask());
    }
    const std::string what = loader->saves_start ? "prg file '" + name + "' " : "binary file ";
    progress_begin("getting %s(%08lx-%08lx:%04lx)...", what.c_str(),
                   static_cast<unsigned long>(start), static_cast<unsigned long>(end),
                   static_cast<unsigned long>(end - start));
    std::vector<std::uint8_t> bytes(end - start);
    rate_start();
    if (mem_read_block(bytes, start) != 1) {
        progress_end(-1);
        msg_error(loader->cannot_get, name.c_str());
        return -1;
    }
    rate_stop_report(static_cast<std::uint32_t>(bytes.size()));
    std::string content;
    if (loader->saves_start) {
        std::uint8_t header[2];
        put16le(header, start);
        content.assign(header, header + sizeof header);
    }
    content.append(bytes.begin(), bytes.end());
    const bool written = file_replace(name, content) == 0;
    progress_end(written ? 1 : -1);
    if (!written) {
        msg_error(loader->cannot_create, name.c_str());
        return -1;
    }
    return 1;
}

std::uint32_t file_start_address(const std::string& path) {
    const std::string name = trimmed(path);
    const Loader* loader = find_loader(type_of(name));
    return loader != nullptr && loader->start_address ? loader->start_address(name) : 0;
}

std::uint32_t prg_exec_address(const std::string& path) {
    const FilePtr file = file_open(trimmed(path), "rb");
    if (!file) {
        msg_error("Failed to open input exec file '%s'", path.c_str());
        return 0;
    }
    std::uint32_t load_address = 0;
    read16(file.get(), 0, load_address);
    if (load_address != BASIC_START) {
        return load_address;
    }
    const std::uint32_t address = behind_basic_line(file.get());
    return address != 0 ? address : BASIC_RUN;
}

} // namespace kx
