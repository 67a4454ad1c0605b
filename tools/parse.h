// Numbers, addresses and ranges as users write them. The library reads numbers of INI files by
// other rules, where a leading 0 means octal; people who type one seldom do.
#pragma once

#include "symfiles/symfiles.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kx {

/// Addresses from `first` to before `end`, at least one.
struct AddressRange {
    std::uint32_t first = 0;
    std::uint64_t end = 0;
};

// Each returns 0, or -1 with what is wrong in `error`.

/// 49152, 0xc000, $c000 or %1100, at most `max`. A leading 0 is refused.
int parse_number(std::string_view text, std::uint64_t max, std::uint64_t& value,
                 std::string& error);

/// A number up to 0xFFFFFFFF, or the name of a symbol of the table, with "+number" behind it or
/// not. The table may be null: no names.
int parse_address(std::string_view text, const SymTable* symbols, std::uint32_t& address,
                  std::string& error);

/// "ADDRESS:LENGTH", "ADDRESS-LAST" or "ADDRESS", one byte. The end is 0x100000000 at most.
int parse_range(std::string_view text, const SymTable* symbols, AddressRange& range,
                std::string& error);

/// Seconds with up to three decimals, "0.1" to "600", as milliseconds.
int parse_seconds(std::string_view text, std::uint32_t& milliseconds, std::string& error);

/// "$0801": four digits, or as many as it takes.
std::string address_text(std::uint64_t address);

} // namespace kx
