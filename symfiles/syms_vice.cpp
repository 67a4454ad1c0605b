// The reader of VICE label files. They are scripts for VICE's monitor: only the commands that add
// a label concern us.
#include "symfiles/syms_vice_private.h"

#include "ui/msg.h"
#include "util/ascii.h"
#include "util/file.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

namespace kx {

namespace {

constexpr std::size_t LINE_KEPT = 4096; // bytes; far beyond any label

struct Line {
    std::string text; // without its line end
    bool cut = false; // there was more of it than is kept
};

/// False at the end of the file.
bool read_line(std::FILE* file, Line& line) {
    line.text.clear();
    line.cut = false;
    int c = std::getc(file);
    if (c == EOF) {
        return false;
    }
    for (; c != EOF && c != '\n'; c = std::getc(file)) {
        if (line.text.size() < LINE_KEPT) {
            line.text += static_cast<char>(c);
        } else {
            line.cut = true;
        }
    }
    if (!line.text.empty() && line.text.back() == '\r') {
        line.text.pop_back();
    }
    return true;
}

/// The next word, up to a blank; empty at the end of the text.
std::string_view take_word(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
    const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
    rest.remove_prefix(word.size());
    return word;
}

/// Hexadecimal, with or without "$".
std::optional<std::uint32_t> parse_address(std::string_view text) {
    if (text.starts_with('$')) {
        text.remove_prefix(1);
    }
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

enum class Parsed { label, other, malformed };

/// "al 00c000 .name" or "al C:c000 .name"; what follows is ignored. Labels of other address spaces
/// ("8:" is a disc drive's) are nothing of the target's.
Parsed parse_label(const Line& line, std::uint32_t& address, std::string& name) {
    std::string_view rest = line.text;
    const std::string_view command = take_word(rest);
    if (command != "al" && command != "add_label") {
        return Parsed::other;
    }
    std::string_view where = take_word(rest);
    const std::size_t colon = where.find(':');
    if (colon != std::string_view::npos) {
        if (where.substr(0, colon) != "C" && where.substr(0, colon) != "c") {
            return Parsed::other;
        }
        where.remove_prefix(colon + 1);
    }
    std::string_view label = take_word(rest);
    if (label.starts_with('.')) {
        label.remove_prefix(1); // the mark of a label, not part of its name
    }
    const std::optional<std::uint32_t> parsed = parse_address(where);
    if (!parsed || label.empty() || line.cut ||
        std::any_of(label.begin(), label.end(), ascii_is_control)) {
        return Parsed::malformed;
    }
    address = *parsed;
    name = label;
    return Parsed::label;
}

} // namespace

int sym_vice_readfile(SymTable* table, const std::string& path) {
    const FilePtr file = file_open(path, "rb");
    if (!file || file_size(file.get()) < 0) { // a FIFO might be waited for
        msg_error("couldn't read symbol file %s.", path.c_str());
        return -1;
    }
    Line line;
    bool any = false;
    for (unsigned long number = 1; read_line(file.get(), line); number++) {
        std::uint32_t address = 0;
        std::string name;
        const Parsed parsed = parse_label(line, address, name);
        any = any || parsed != Parsed::other;
        switch (parsed) {
        case Parsed::label:
            sym_add(table, address, 0, 0, name.c_str(), nullptr, 0);
            any = true;
            break;
        case Parsed::malformed:
            msg_error("%s: line %lu is malformed.", path.c_str(), number);
            break;
        case Parsed::other:
            break;
        }
    }
    if (std::ferror(file.get()) != 0) {
        msg_error("couldn't read symbol file %s to its end.", path.c_str());
        return -1;
    }
    if (!any) {
        msg_warning("%s holds no labels.", path.c_str());
    }
    return 1;
}

} // namespace kx
