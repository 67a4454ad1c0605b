// An INI text with the lines its parts stand on, taken apart by the same rules as ini/ has: what
// that module makes of a line is what is to be seen here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx {

struct ScanSection {
    std::string name; // whole, also where the reader cuts it
    int line = 0;     // from 1 on
};

struct ScanItem {
    std::string section; // empty: before the first, or under one without a name
    std::string key;     // whole, line ends included when the line has no "="
    std::string value;   // whole
    int line = 0;
    bool has_equals = true;  // false: no "=" up to the end of the file
    bool ends_early = false; // something that is not printable ASCII ended the value
};

struct Scan {
    std::vector<ScanSection> sections;
    std::vector<ScanItem> items;
};

Scan lint_scan(std::string_view text);

/// The item that counts: the last one of that key in the sections of that name. Null for none.
const ScanItem* scan_find(const Scan& scan, std::string_view section, std::string_view key);

/// The first section of that name; null for none.
const ScanSection* scan_section(const Scan& scan, std::string_view name);

} // namespace kx
