// Character set tables and the conversions through them.
#include "charsets/charset.h"

#include "ui/msg.h"
#include "util/ascii.h"

#include <algorithm>
#include <span>
#include <unistd.h>

namespace kx {

namespace {

struct State {
    Charset modes[4] = {}; // CHARSET_UPASC to CHARSET_LOSCR
};
State state;

/// The main configuration's keys, in the order in which they are loaded.
constexpr struct {
    const char* key;
    unsigned mode;
} default_keys[] = {
    {"loasc", CHARSET_LOASC},
    {"upasc", CHARSET_UPASC},
    {"loscr", CHARSET_LOSCR},
    {"upscr", CHARSET_UPSCR},
};

unsigned mode_of(unsigned flags) {
    return flags & 0x0F;
}

unsigned form_of(unsigned flags) {
    return flags & (CHARSET_ESCAPE | CHARSET_DOT);
}

/// Sixteen rows of sixteen numbers.
/// Meant: the row that is read into is not cleared between them, so a missing or short one repeats
/// the one before in the places it lacks.
void load_table(CharsetTable& table, std::int32_t (&row)[16], const IniDocument& doc,
                const char* section) {
    for (std::size_t k = 0; k < 16; k++) {
        ini_get_number_list(doc, row, section, "n" + std::to_string(k));
        std::transform(std::begin(row), std::end(row), table.begin() + static_cast<long>(k * 16),
                       [](std::int32_t number) { return static_cast<std::uint8_t>(number); });
    }
}

/// The file of a mode's tables.
std::string default_path(const std::string& base_dir, const IniDocument& main_doc,
                         const std::string& key) {
    const std::string directory = base_dir + "config/";
    std::string name;
    // The setup program writes the main configuration without these keys.
    if (ini_get_string(main_doc, name, "charsets", key) != 0) {
        std::string shipped = directory + "pet_" + key + ".ini";
        if (access(shipped.c_str(), F_OK) == 0) {
            return shipped;
        }
    }
    return directory + name.append(".ini");
}

char* put_escaped(char* out, std::uint8_t code) {
    static constexpr char digits[] = "0123456789abcdef";
    *out++ = '%';
    *out++ = digits[code >> 4];
    *out++ = digits[code & 15];
    return out;
}

/// The value of an escape's digit.
/// Meant: letters give their distance from "a", not 10 to 15, and anything else -1. Programs on the
/// target rely on how such names were read so far.
int digit_value(char c) {
    if (ascii_is_digit(c)) {
        return c - '0';
    }
    const char lower = ascii_to_lower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' : -1;
}

} // namespace

Charset* charset_of_mode(unsigned mode) {
    return mode >= CHARSET_UPASC && mode <= CHARSET_LOSCR ? &state.modes[mode - 1] : nullptr;
}

bool charset_is_loaded(unsigned mode) {
    const Charset* charset = charset_of_mode(mode);
    return charset && std::any_of(charset->to_ascii.begin(), charset->to_ascii.end(),
                                  [](std::uint8_t code) { return code != 0; });
}

int charset_load(CharsetTable& to_table, CharsetTable& from_table, const std::string& path) {
    msg_info("loading charset: %s", path.c_str());
    IniDocument doc;
    if (ini_read(path, doc) != 0) {
        return 1;
    }
    std::int32_t row[16] = {}; // Meant: zeroed once per file; fromasc starts with toasc's last row.
    msg_info("loading: %s (toasc)", path.c_str());
    load_table(to_table, row, doc, "toasc");
    msg_info("loading: %s (fromasc)", path.c_str());
    load_table(from_table, row, doc, "fromasc");
    return 1;
}

int charset_load_defaults(const std::string& base_dir, const IniDocument& main_doc) {
    msg_info("loading default charsets.");
    for (const auto& [key, mode] : default_keys) {
        Charset* charset = charset_of_mode(mode);
        charset_load(charset->to_ascii, charset->from_ascii, default_path(base_dir, main_doc, key));
    }
    return 0;
}

std::string charset_check_defaults(const std::string& base_dir, const IniDocument& main_doc) {
    for (const auto& [key, mode] : default_keys) {
        const std::string path = default_path(base_dir, main_doc, key);
        IniDocument doc;
        if (access(path.c_str(), F_OK) != 0 || ini_read(path, doc) != 0) {
            continue;
        }
        for (const char* section : {"toasc", "fromasc"}) {
            if (ini_find_section(doc, section) == nullptr) {
                return path + " has no section [" + section + "].";
            }
        }
    }
    return {};
}

char* charset_to_ascii(char* destination, const std::uint8_t* source, std::size_t length,
                       unsigned flags) {
    const Charset* charset = charset_of_mode(mode_of(flags));
    // Meant: without a translation only the dot bit counts, also beside the escape bit.
    const unsigned form = charset ? form_of(flags) : flags & CHARSET_DOT;
    char* out = destination;
    for (const std::uint8_t code : std::span(source, length)) {
        const char c = static_cast<char>(charset ? charset->to_ascii[code] : code);
        if (ascii_is_print(c) || (form != CHARSET_ESCAPE && form != CHARSET_DOT)) {
            *out++ = c;
        } else if (form == CHARSET_DOT) {
            *out++ = '.';
        } else {
            out = put_escaped(out, code);
        }
    }
    const bool returns_end = charset && (form == CHARSET_ESCAPE || form == CHARSET_DOT);
    return returns_end ? out : destination;
}

std::uint8_t* charset_from_ascii(std::uint8_t* destination, const char* source,
                                 std::size_t source_length, std::size_t length, unsigned flags) {
    const Charset* charset = charset_of_mode(mode_of(flags));
    if (!charset) {
        std::copy_n(source, std::min(length, source_length), destination);
        return destination;
    }
    const char* const end = source + source_length;
    std::uint8_t* out = destination;
    while (length-- > 0 && source < end) {
        const char c = *source++;
        if (c == '%' && (flags & CHARSET_ESCAPE) != 0) {
            if (end - source < 2) {
                break; // an escape that is cut off at the text's end gives nothing
            }
            *out++ =
                static_cast<std::uint8_t>(digit_value(source[0]) * 16 + digit_value(source[1]));
            source += 2;
        } else {
            *out++ = charset->from_ascii[static_cast<std::uint8_t>(c)];
        }
    }
    return out;
}

void charset_reset() {
    state = {};
}

} // namespace kx
