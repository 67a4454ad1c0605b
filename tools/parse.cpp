// Numbers, addresses and ranges as users write them.
#include "tools/parse.h"

#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace kx {

namespace {

constexpr std::uint64_t ADDRESS_MAX = 0xFFFFFFFF;

std::string quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

bool all_digits(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, ascii_is_digit);
}

/// All of `text` as a number of that base.
bool convert(std::string_view text, int base, std::uint64_t& value) {
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value, base);
    if (failure == std::errc::result_out_of_range && stop == end) {
        value = UINT64_MAX;
        return true;
    }
    return failure == std::errc() && stop == end && !text.empty();
}

/// "'010' is ambiguous: write 8, 10 or 0x10"
std::string ambiguous(std::string_view text) {
    const std::string digits(text.substr(std::min(text.find_first_not_of('0'), text.size() - 1)));
    std::vector<std::string> meanings;
    std::uint64_t octal = 0;
    if (digits.size() > 1 && convert(text, 8, octal)) {
        meanings.push_back(std::to_string(octal) + ", ");
    }
    const std::string decimal = digits + " or ";
    return quoted(text) + " is ambiguous: write " + (meanings.empty() ? "" : meanings[0]) +
           decimal + "0x" + digits;
}

} // namespace

int parse_number(std::string_view text, std::uint64_t max, std::uint64_t& value,
                 std::string& error) {
    struct Prefix {
        std::string_view text;
        int base;
    };
    constexpr Prefix prefixes[] = {{"0x", 16}, {"0X", 16}, {"$", 16}, {"%", 2}, {"", 10}};
    const Prefix& prefix = *std::ranges::find_if(
        prefixes, [&](const Prefix& each) { return text.starts_with(each.text); });
    if (prefix.base == 10 && text.size() > 1 && text[0] == '0' && all_digits(text)) {
        error = ambiguous(text);
        return -1;
    }
    std::uint64_t number = 0;
    if (!convert(text.substr(prefix.text.size()), prefix.base, number)) {
        error = quoted(text) + " is no number";
        return -1;
    }
    if (number > max) {
        error =
            text_printf("%s is too large: %llu ($%llX) at most", quoted(text).c_str(),
                        static_cast<unsigned long long>(max), static_cast<unsigned long long>(max));
        return -1;
    }
    value = number;
    return 0;
}

int parse_address(std::string_view text, const SymTable* symbols, std::uint32_t& address,
                  std::string& error) {
    std::uint64_t number = 0;
    if (text.empty() || ascii_is_digit(text[0]) || text[0] == '$' || text[0] == '%') {
        if (parse_number(text, ADDRESS_MAX, number, error) != 0) {
            return -1;
        }
        address = static_cast<std::uint32_t>(number);
        return 0;
    }
    const std::size_t plus = text.rfind('+');
    const std::string name(text.substr(0, plus));
    if (plus != std::string_view::npos &&
        parse_number(text.substr(plus + 1), ADDRESS_MAX, number, error) != 0) {
        return -1;
    }
    const SymEntry* const symbol =
        symbols != nullptr ? sym_find_name(symbols, name.c_str(), 0) : nullptr;
    if (symbol == nullptr) {
        error = symbols != nullptr ? "there is no symbol " + quoted(name)
                                   : quoted(text) + " is no number";
        return -1;
    }
    if (symbol->address + number > ADDRESS_MAX) {
        error = quoted(text) + " is beyond the last address";
        return -1;
    }
    address = symbol->address + static_cast<std::uint32_t>(number);
    return 0;
}

int parse_range(std::string_view text, const SymTable* symbols, AddressRange& range,
                std::string& error) {
    const std::size_t colon = text.rfind(':');
    if (colon != std::string_view::npos) {
        std::uint32_t first = 0;
        std::uint64_t length = 0;
        if (parse_address(text.substr(0, colon), symbols, first, error) != 0 ||
            parse_number(text.substr(colon + 1), ADDRESS_MAX + 1 - first, length, error) != 0) {
            return -1;
        }
        if (length == 0) {
            error = quoted(text) + " is an empty range";
            return -1;
        }
        range = {first, first + length};
        return 0;
    }
    // A name may have a "-" in it: as a whole it goes first.
    std::uint32_t first = 0, last = 0;
    const std::size_t dash = text.rfind('-');
    if (parse_address(text, symbols, first, error) == 0) {
        last = first;
    } else if (dash == std::string_view::npos ||
               parse_address(text.substr(0, dash), symbols, first, error) != 0 ||
               parse_address(text.substr(dash + 1), symbols, last, error) != 0) {
        return -1;
    }
    if (last < first) {
        error = quoted(text) + " ends before it begins";
        return -1;
    }
    range = {first, std::uint64_t{last} + 1};
    return 0;
}

int parse_seconds(std::string_view text, std::uint32_t& milliseconds, std::string& error) {
    constexpr std::uint32_t LEAST = 100, MOST = 600'000;
    const std::size_t dot = std::min(text.find('.'), text.size());
    std::string decimals(text.substr(std::min(dot + 1, text.size())));
    const bool well_formed = all_digits(text.substr(0, dot)) && dot <= 3 && decimals.size() <= 3 &&
                             (dot == text.size() || all_digits(decimals));
    std::uint64_t whole = 0, fraction = 0;
    decimals.resize(3, '0');
    if (!well_formed || !convert(text.substr(0, dot), 10, whole) ||
        !convert(decimals, 10, fraction) || whole * 1000 + fraction < LEAST ||
        whole * 1000 + fraction > MOST) {
        error = quoted(text) + " is no number of seconds from 0.1 to 600";
        return -1;
    }
    milliseconds = static_cast<std::uint32_t>(whole * 1000 + fraction);
    return 0;
}

std::string address_text(std::uint64_t address) {
    return text_printf("$%04llX", static_cast<unsigned long long>(address));
}

} // namespace kx
