// INI documents: what was read, written and read again is the same, and look-ups find every name.
#include "fuzz/fuzz.h"

#include "ini/ini.h"

namespace kx::fuzz {

namespace {

std::string contents(const IniDocument& doc) {
    std::string all;
    for (const IniSection& section : doc.sections) {
        all += "[" + std::string(section.name) + "]";
        check(ini_find_section(doc, section.name) == &section, "every section is found");
        for (const IniItem& item : section.items) {
            all += std::string(item.name) + "=" + std::string(item.value) + ";";
            check(ini_find_item(section, item.name) == &item, "every item is found");
        }
    }
    return all;
}

} // namespace

void run(const std::uint8_t* data, std::size_t size) {
    put("first.ini", {reinterpret_cast<const char*>(data), size});
    IniDocument first, second;
    if (ini_read("first.ini", first) != 0) {
        check(size == 0, "only an empty file is refused");
        return;
    }
    const std::string all = contents(first);
    check(ini_write("second.ini", first) == 0, "it can be written");
    if (!all.empty()) {
        check(ini_read("second.ini", second) == 0, "what was written can be read");
        check(contents(second) == all, "read again it is the same document");
    }
    for (const IniSection& section : first.sections) {
        for (const IniItem& item : section.items) {
            std::string value;
            std::int32_t numbers[4];
            check(ini_get_string(first, value, section.name, item.name) == 0 && value == item.value,
                  "a string is its item's value");
            check(ini_get_number_list(first, numbers, section.name, item.name) <= 4,
                  "a list stays in its room");
        }
    }
}

} // namespace kx::fuzz
