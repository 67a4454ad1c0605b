// The shipped base directory, every file read through the library. A finding names file, section
// and item.
#include "core/config/config.h"
#include "files/filetype.h"
#include "symfiles/symfiles.h"
#include "ui/col.h"
#include "ui/msg.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <set>

namespace kx {
namespace {

using namespace testing;

const std::string base = KX_SOURCE_DIR "/base/";

std::string get(const IniDocument& doc, std::string_view section, std::string_view key) {
    std::string value;
    EXPECT_EQ(ini_get_string(doc, value, section, key), 0) << section << ": no " << key;
    return value;
}

std::vector<std::string> list(const IniDocument& doc, std::string_view section) {
    std::vector<std::string> values;
    while (values.size() < ini_get_number(doc, section, "num")) {
        values.push_back(get(doc, section, "n" + std::to_string(values.size())));
    }
    return values;
}

void check_symbols(const IniDocument& doc) {
    const std::unique_ptr<SymTable, void (*)(SymTable*)> table(sym_table_new({}), sym_table_free);
    filehandler_readsymfile(table.get(), doc.file_name, FILETYPE_KXSYMS);
    std::size_t items = 0;
    for (const IniSection& section : doc.sections) {
        items += section.items.count - 1; // less `num`
    }
    EXPECT_EQ(table->entries.size(), items) << "a name stands twice, or num is wrong";
}

void check_patches(const IniDocument& doc) {
    EXPECT_EQ(list(doc, "patches_auto").size() + 1, doc.sections.count) << "unlisted patches";
    for (const std::string& patch : list(doc, "patches_auto")) {
        std::uint8_t bytes[256];
        for (const auto& [array, length] :
             {std::pair{"match", "mlen"}, {"mask", "mlen"}, {"patch", "plen"}}) {
            EXPECT_EQ(ini_get_byte_array(doc, bytes, patch, array),
                      ini_get_number(doc, patch, length))
                << patch << ": " << array;
        }
    }
}

void check_target(const IniDocument& doc) {
    IniDocument wanted, loaded;
    config_target_complete(wanted);
    for (const IniSection& section : wanted.sections) {
        for (const IniItem& item : section.items) {
            get(doc, section.name, item.name);
        }
    }
    config_load_target(loaded, doc.file_name);
    config_load_symbols(base, doc);
    if (!get(doc, "patches", "data").empty()) {
        EXPECT_TRUE(std::filesystem::exists(active_config.patch_file)) << active_config.patch_file;
    }
    EXPECT_NE(filetype_find_extension(get(doc, "files", "defaulttype")), 0) << "defaulttype";
    EXPECT_EQ(get(doc, "roms", "num"), "0") << "images are not ours to ship";
    std::vector<MemoryRegion>& map = active_config.memory_map.regions;
    EXPECT_EQ(ini_find_section(doc, "memory")->items.count - 1, map.size()) << "memory: num";
    std::ranges::sort(map, {}, &MemoryRegion::base);
    for (std::int64_t end = -1; const MemoryRegion& region : map) {
        EXPECT_LT(end, region.base) << "memory";
        EXPECT_LE(region.base, region.last) << "memory";
        EXPECT_LE(end = region.last, addr_mask()) << "memory";
    }
}

void check_colours(const IniDocument& doc) {
    std::fill_n(key_textcolour, COL_KEYS, -1);
    std::fill_n(key_backcolour, COL_KEYS, -1);
    col_scheme_path = doc.file_name;
    col_loadscheme("colors");
    EXPECT_EQ(ini_find_section(doc, "colors")->items.count, COL_KEYS + 0U) << "unknown keys";
    for (int key = 0; key < COL_KEYS; key++) {
        const int text = static_cast<std::uint8_t>(key_textcolour[key]);
        const int back = static_cast<std::uint8_t>(key_backcolour[key]);
        ASSERT_LT(text, 16) << col_keys[key];
        ASSERT_LT(back, 16) << col_keys[key];
        ASSERT_EQ(back, key_backcolour[key | 1]) << col_keys[key];
        // Many terminals show the bright colours as the dark ones in bold, and those of 256
        // colours have no background but black, on which blue can hardly be read.
        EXPECT_GT(text & 7, 1) << col_keys[key];
        EXPECT_NE(text & 7, back & 7) << col_keys[key];
    }
    for (const auto& [selected, normal] : {std::pair{"menuselectedtext", "menutext"},
                                           {"windowlistselectedtext", "windowlisttext"}}) {
        const auto is_bold = [](const char* key) {
            return key_textcolour[std::ranges::find(col_keys, std::string_view(key)) - col_keys] >
                   7;
        };
        EXPECT_NE(is_bold(selected), is_bold(normal))
            << "no difference without colours: " << normal;
    }
}

void check_charset(const IniDocument& doc) {
    std::int32_t row[17];
    for (int i = 0; i < 16; i++) {
        for (const char* section : {"toasc", "fromasc"}) {
            EXPECT_EQ(ini_get_number_list(doc, row, section, "n" + std::to_string(i)), 16) << i;
        }
    }
}

TEST(Base, FilesAreWholeAndListed) {
    const auto check_type = std::map<std::string, void (*)(const IniDocument&)>{
        {"target", check_target}, {"colors", check_colours}, {"charset", check_charset}};
    std::map<std::string, std::set<std::string>> names; // by types
    active_config.base_dir = base;
    sym_table_new(&sym_store);
    verbosity.warn = 1;
    internal::CaptureStderr(); // the library's complaints
    for (const auto& entry : std::filesystem::recursive_directory_iterator(base)) {
        IniDocument doc;
        if (entry.path().extension() != ".ini" || ini_read(entry.path(), doc) != 0) {
            continue;
        }
        SCOPED_TRACE(doc.file_name);
        if (ini_find_section(doc, "config")) {
            const std::string type = get(doc, "config", "type");
            const std::string name = entry.path().stem();
            const bool has_gap = get(doc, "config", "desc").starts_with(' ');
            EXPECT_EQ(has_gap, name.size() > 3) << "lists show a longer name right before it";
            names[type].insert(name);
            check_type.at(type)(doc);
        } else if (ini_find_section(doc, "patches_auto")) {
            check_patches(doc);
        } else if (entry.path().stem() != "kx") {
            check_symbols(doc);
        }
    }
    IniDocument main;
    ini_read(base + "kx.ini", main);
    for (const auto& [type, found] : names) {
        const std::string section = type == "colors" ? type : type + "s";
        EXPECT_THAT(list(main, section), UnorderedElementsAreArray(found)) << section;
        EXPECT_THAT(found, Contains(get(main, section, "default"))) << section;
    }
    for (const char* key : {"upasc", "loasc", "upscr", "loscr"}) {
        EXPECT_THAT(names["charset"], Contains(get(main, "charsets", key))) << key;
    }
    EXPECT_EQ(internal::GetCapturedStderr(), "");
}

} // namespace
} // namespace kx
