// kx dump: a file, a part of it, or a block of a disc image, in hexadecimal.
#include "charsets/charset.h"
#include "core/config/config.h"
#include "files/hexdump.h"
#include "link/image.h"
#include "tools/base.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/parse.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/text.h"

#include <algorithm>
#include <string>
#include <vector>

namespace kx {

namespace {

struct State {
    std::string file = "-";
    std::string range;
    std::string at;
    std::string charset;
    std::string block;
};
State state;

constexpr const char* CHARSETS = "upasc|loasc|upscr|loscr";

constexpr Option options[] = {
    {"[FILE]", &state.file, "", "the file; standard input without one"},
    {"--range", &state.range, "OFFSET:LENGTH", "that part of the file; also OFFSET-LAST"},
    {"--at", &state.at, "ADDRESS", "address of the first byte shown"},
    {"--charset", &state.charset, CHARSETS, "the text column in a character set of the C-64"},
    {"--block", &state.block, "TRACK/SECTOR", "that block of a disc image"},
};

/// The mode of a character set's name, in the order of CHARSETS.
unsigned charset_mode(const std::string& name) {
    return static_cast<unsigned>(std::string(CHARSETS).find(name) / 6) + CHARSET_UPASC;
}

/// The tables of the set, from the file that kx.ini names or the one that comes with the toolkit.
int load_charset(const std::string& name) {
    if (const int status = base_find()) {
        return status;
    }
    const std::string path = config_path_of(base_setting("charsets", name.c_str(), "pet_" + name));
    Charset& set = *charset_of_mode(charset_mode(name));
    charset_load(set.to_ascii, set.from_ascii, path);
    return charset_is_loaded(charset_mode(name))
               ? 0
               : report_fail(KxError::BadConfig, path + ": no character set");
}

std::string text_column(std::span<const std::uint8_t> bytes) {
    std::string text(bytes.size(), '.');
    charset_to_ascii(text.data(), bytes.data(), bytes.size(),
                     charset_mode(state.charset) | CHARSET_DOT);
    return text;
}

void print_lines(std::span<const std::uint8_t> bytes, std::uint64_t place) {
    for (std::size_t at = 0; at < bytes.size(); at += HEXDUMP_BYTES) {
        const auto line = bytes.subspan(at, std::min(HEXDUMP_BYTES, bytes.size() - at));
        const std::string text = state.charset.empty() ? "" : text_column(line);
        report_line(hexdump_line(place + at, line, text));
    }
}

void fill_json(std::span<const std::uint8_t> bytes, std::uint64_t place) {
    Json& json = report_json();
    json.set("file", state.file);
    json.set("at", place);
    json.set("bytes", bytes.size());
    json.set("hex", json_hex(bytes));
}

/// "18/1" as the place of that block in a 1541's image.
int block_part(const std::string& text, AddressRange& part) {
    const std::size_t slash = std::min(text.find('/'), text.size());
    std::uint64_t track = 0, sector = 0;
    std::string error;
    if (parse_number(text.substr(0, slash), 42, track, error) != 0 || track == 0 ||
        slash == text.size() || parse_number(text.substr(slash + 1), 20, sector, error) != 0 ||
        d64_sectors_before(static_cast<int>(track)) + static_cast<int>(sector) >=
            d64_sectors_before(static_cast<int>(track) + 1)) {
        return report_fail(KxError::Usage, "--block: no block '" + text + "' on a 1541's disc");
    }
    constexpr std::uint32_t BLOCK = 256;
    const auto number =
        static_cast<std::uint32_t>(d64_sectors_before(static_cast<int>(track))) + sector;
    part = {static_cast<std::uint32_t>(number * BLOCK), (number + 1) * BLOCK};
    return 0;
}

/// The part of the file that the options name.
int find_part(AddressRange& part) {
    std::string error;
    if (!state.block.empty() && !state.range.empty()) {
        return report_fail_usage("--block and --range exclude each other");
    }
    if (!state.block.empty()) {
        return block_part(state.block, part);
    }
    if (!state.range.empty() && parse_range(state.range, nullptr, part, error) != 0) {
        return report_fail(KxError::Usage, "--range: " + error);
    }
    return 0;
}

/// The bytes of the part. One that the file has nothing of is a failure.
int read_part(const AddressRange& part, std::vector<std::uint8_t>& bytes) {
    const std::uint64_t wanted = part.end - part.first;
    if (const int status = host_read_part(state.file, part.first, wanted, bytes)) {
        return status;
    }
    const std::string file = state.file == "-" ? "standard input" : state.file;
    const std::string what = state.block.empty() ? state.range : "block " + state.block;
    if (bytes.empty()) {
        return report_fail(KxError::NotFound, file + " ends before " + what);
    }
    if (bytes.size() < wanted) {
        report_warning(file + " ends within " + what);
    }
    return 0;
}

int run() {
    std::string error;
    std::uint32_t at = 0;
    AddressRange part;
    if (!state.at.empty() && parse_address(state.at, nullptr, at, error) != 0) {
        return report_fail(KxError::Usage, "--at: " + error);
    }
    if (const int status = find_part(part)) {
        return status;
    }
    if (const int status = state.charset.empty() ? 0 : load_charset(state.charset)) {
        return status;
    }
    std::vector<std::uint8_t> bytes;
    const bool whole = state.range.empty() && state.block.empty();
    if (const int status = whole ? host_read(state.file, bytes) : read_part(part, bytes)) {
        return status;
    }
    const std::uint64_t place = state.at.empty() ? part.first : at;
    if (globals.json) {
        fill_json(bytes, place);
    } else {
        print_lines(bytes, place);
    }
    return 0;
}

} // namespace

extern const Verb verb_dump = {
    .name = "dump",
    .alias = "hexdump",
    .synopsis = "[FILE|-] [--range OFFSET:LENGTH] [--at ADDRESS] [--block TRACK/SECTOR]",
    .summary = "hexadecimal dump of a file",
    .options = options,
    .run = run,
};

} // namespace kx
