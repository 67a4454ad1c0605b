// An INI text with its lines.
#include "tools/lint_scan.h"

#include "util/ascii.h"

#include <algorithm>

namespace kx {

namespace {

bool is_line_end(char c) {
    return c == '\r' || c == '\n';
}

struct Reader {
    std::string_view text;
    std::size_t at = 0;
    int line = 1;
};

/// Moves on, counting lines.
void go_to(Reader& reader, std::size_t to) {
    to = std::min(to, reader.text.size());
    for (; reader.at < to; reader.at++) {
        reader.line += reader.text[reader.at] == '\n' ? 1 : 0;
    }
}

std::string_view cut_at_nul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

ScanSection take_section(Reader& reader) {
    const std::size_t end = std::min(reader.text.find(']', reader.at), reader.text.size());
    const std::string_view name = reader.text.substr(reader.at + 1, end - reader.at - 1);
    ScanSection section{std::string(cut_at_nul(name)), reader.line};
    go_to(reader, end);
    return section;
}

ScanItem take_item(Reader& reader, const std::string& section) {
    const std::string_view text = reader.text;
    const std::size_t equals = text.find('=', reader.at);
    ScanItem item;
    item.section = section;
    item.line = reader.line;
    item.has_equals = equals != std::string_view::npos;
    const std::size_t key_end = std::min(equals, text.size());
    item.key = cut_at_nul(text.substr(reader.at, key_end - reader.at));
    std::size_t end = std::min(key_end + 1, text.size());
    const std::size_t value = end;
    while (end < text.size() && ascii_is_print(text[end])) {
        end++;
    }
    item.value = text.substr(value, end - value);
    item.ends_early = end < text.size() && !is_line_end(text[end]);
    go_to(reader, end);
    return item;
}

} // namespace

Scan lint_scan(std::string_view text) {
    Scan scan;
    Reader reader{text};
    std::string section;
    go_to(reader, text.find('[')); // as in the reader, nothing before the first section counts
    while (reader.at < text.size()) {
        if (text[reader.at] == '[') {
            scan.sections.push_back(take_section(reader));
            section = scan.sections.back().name;
        } else if (text[reader.at] != ';') {
            scan.items.push_back(take_item(reader, section));
        }
        std::size_t next = reader.at;
        while (next < text.size() && !is_line_end(text[next])) {
            next++;
        }
        while (next < text.size() && (is_line_end(text[next]) || text[next] == ' ')) {
            next++;
        }
        go_to(reader, next);
    }
    return scan;
}

const ScanItem* scan_find(const Scan& scan, std::string_view section, std::string_view key) {
    const auto found = std::find_if(scan.items.rbegin(), scan.items.rend(), [&](const auto& item) {
        return item.section == section && item.key == key;
    });
    return found != scan.items.rend() ? &*found : nullptr;
}

const ScanSection* scan_section(const Scan& scan, std::string_view name) {
    const auto found = std::ranges::find(scan.sections, name, &ScanSection::name);
    return found != scan.sections.end() ? &*found : nullptr;
}

} // namespace kx
