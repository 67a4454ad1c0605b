// The table of file types and the look-ups over it.
#include "files/filetype.h"

#include "core/active_config.h"
#include "util/ascii.h"

#include <string>

namespace kx {

namespace {

constexpr std::uint32_t class_bits(std::uint8_t bits) {
    return std::uint32_t{bits} << 24;
}

} // namespace

// Meant: "loadadress" is spelt so.
const FileType filetype_table[] = {
    {FILETYPE_RAW, "", "raw binary", class_bits(0x90), CPU_NONE, MACHINE_NONE},
    {FILETYPE_PRG, "prg", "cbm-binary+2-byte loadadress", class_bits(0x88), CPU_6510, MACHINE_NONE},
    {FILETYPE_SID, "sid", "PlaySID cbm-binary+header", class_bits(0x8C), CPU_6510, MACHINE_C64},
    {FILETYPE_NES, "nes", "NES image (iNES Format)", class_bits(0x8C), CPU_6510, MACHINE_NES},
    {FILETYPE_PCE, "pce", "PCEngine image", class_bits(0x8C), CPU_6510, MACHINE_PCE},
    {FILETYPE_S, "s", "6502 Assembler Source", class_bits(0x48), CPU_6510, MACHINE_NONE},
    {FILETYPE_TXT, "txt", "plain ascii text", class_bits(0x50), CPU_NONE, MACHINE_NONE},
    {FILETYPE_KXSYMS, "ini", "KX Symbols .ini File", class_bits(0x30), CPU_NONE, MACHINE_NONE},
    {FILETYPE_VICE, "lbl", "VICE label file", class_bits(0x28), CPU_6510, MACHINE_NONE},
    {FILETYPE_CC65, "", "CC65", class_bits(0x08), CPU_6510, MACHINE_NONE},
    {FILETYPE_D64, "d64", "Commodore 1541 Disc Image", class_bits(0x12), CPU_6510, MACHINE_C64},
    {0, nullptr, nullptr, 0, 0, 0},
};

namespace {

// The first row that the test accepts, null for none.
template <typename Test>
const FileType* find_row(Test test) {
    for (const FileType* row = filetype_table; row->id != 0; row++) {
        if (test(*row)) {
            return row;
        }
    }
    return nullptr;
}

const FileType* find_id(int id) {
    return find_row([id](const FileType& row) { return row.id == id; });
}

// Meant: three characters at most, so "prg" for "demo.prgx". A first character is never taken for
// the dot: a name without one has the extension that starts at its second character.
std::string extension_of(std::string_view name) {
    if (name.empty()) {
        return {};
    }
    const std::size_t dot = name.rfind('.');
    const std::size_t stop = dot == std::string_view::npos ? 0 : dot;
    std::string extension(name.substr(stop + 1, 3));
    for (char& c : extension) {
        c = ascii_to_lower(c);
    }
    return extension;
}

} // namespace

int filetype_find_extension(std::string_view extension) {
    const FileType* found =
        find_row([extension](const FileType& row) { return row.extension == extension; });
    return found == nullptr ? 0 : found->id;
}

const char* filetype_get_extension(int id) {
    const FileType* found = find_id(id);
    return found == nullptr ? nullptr : found->extension;
}

const char* filetype_get_desc(int id) {
    const FileType* found = find_id(id);
    return found == nullptr ? nullptr : found->description;
}

std::uint8_t filetype_get_class(int id) {
    const FileType* found = find_id(id);
    return found == nullptr ? 0 : static_cast<std::uint8_t>(found->flags >> 24);
}

int filetype_from_name(std::string_view name) {
    const std::string extension = extension_of(name);
    // From the closest match to the loosest.
    struct Pass {
        std::uint8_t bit; // class that a row must have, 0 for any
        bool same_machine;
        bool same_cpu;
    };
    constexpr Pass passes[] = {
        {FILETYPE_MACHINE, true, false},
        {FILETYPE_CPU, false, true},
        {FILETYPE_BY_EXTENSION, false, false},
        {0, false, false},
    };
    for (const Pass& pass : passes) {
        const FileType* found = find_row([&](const FileType& row) {
            return (pass.bit == 0 || (row.flags & class_bits(pass.bit)) != 0) &&
                   row.extension == extension &&
                   (!pass.same_machine || row.machine == active_config.machine) &&
                   (!pass.same_cpu || row.cpu == active_config.cpu);
        });
        if (found != nullptr) {
            return found->id;
        }
    }
    return active_config.default_file_type;
}

} // namespace kx
