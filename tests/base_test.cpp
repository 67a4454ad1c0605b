// The shipped base directory, every file read through the library. A finding names file, section
// and item.
#include "core/config.h"
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
std::set<std::string> files_read;

struct File : IniDocument { // its name stands with all findings while it is open
    ScopedTrace trace;
    explicit File(const std::string& path) : trace(__FILE__, __LINE__, path) {
        EXPECT_EQ(ini_read(base + path, *this), 0);
        files_read.insert(base + path);
    }
};

std::string get(const IniDocument& doc, std::string_view section, std::string_view key) {
    std::string value;
    EXPECT_EQ(ini_get_string(doc, value, section, key), 0) << section << ": no " << key;
    return value;
}

/// n0, n1, ...: as many as `num` says and no more.
std::vector<std::string> list(const IniDocument& doc, std::string_view section) {
    std::vector<std::string> values;
    while (values.size() < ini_get_number(doc, section, "num"))
        values.push_back(get(doc, section, "n" + std::to_string(values.size())));
    const std::string next = "n" + std::to_string(values.size());
    EXPECT_FALSE(ini_find_item(*ini_find_section(doc, section), next)) << section << ": " << next;
    return values;
}

void check_symbols(const IniDocument& doc) {
    config_load_symbols(base, doc);
    std::set<std::string> names;
    std::set<std::pair<std::uint32_t, std::uint32_t>> uses; // an address may be read and written
    for (const std::string& path : list(doc, "symbols")) {
        const File file(path);
        for (const IniSection& section : file.sections) {
            for (const std::string& item : list(file, section.name)) {
                const std::string name = item.substr(0, item.find(','));
                const SymEntry* symbol = sym_find_name(sym_store, name.c_str(), 0);
                EXPECT_TRUE(symbol && names.insert(name).second &&
                            uses.insert({symbol->address, symbol->flags}).second)
                    << section.name << ": another of that name or address: " << item;
            }
        }
    }
}

void check_patches(const std::string& path) {
    const File doc(path);
    EXPECT_EQ(list(doc, "patches_auto").size() + 1, doc.sections.count) << "unlisted patches";
    for (const std::string& patch : list(doc, "patches_auto")) {
        std::uint8_t match[256], mask[256], bytes[256];
        const int mlen = static_cast<std::uint8_t>(ini_get_number(doc, patch, "mlen"));
        EXPECT_EQ(ini_get_byte_array(doc, match, patch, "match"), mlen) << patch;
        EXPECT_EQ(ini_get_byte_array(doc, mask, patch, "mask"), mlen) << patch;
        EXPECT_EQ(ini_get_byte_array(doc, bytes, patch, "patch"),
                  ini_get_number(doc, patch, "plen"))
            << patch;
        for (int i = 0; i < mlen; i++)
            EXPECT_EQ(match[i] & ~mask[i], 0) << patch << ": never matches at " << i;
    }
}

void check_target(const File& doc) {
    IniDocument wanted, loaded;
    config_target_complete(wanted);
    for (const IniSection& section : wanted.sections) {
        for (const IniItem& item : section.items)
            get(doc, section.name, item.name);
    }
    config_load_target(loaded, doc.file_name);
    EXPECT_NE(filetype_find_extension(get(doc, "files", "defaulttype")), 0) << "defaulttype";
    if (const std::string patches = get(doc, "patches", "data"); !patches.empty())
        check_patches(patches);
    EXPECT_THAT(list(doc, "roms"), IsEmpty()) << "images are not ours to ship";
    const std::vector<MemoryRegion>& map = active_config.memory_map.regions;
    for (std::size_t i = 0; i < list(doc, "memory").size(); i++) {
        EXPECT_TRUE(map[i].base <= map[i].last && map[i].last <= addr_mask()) << "memory: n" << i;
        for (std::size_t j = 0; j < i; j++) {
            EXPECT_TRUE(map[i].base > map[j].last || map[j].base > map[i].last)
                << "memory: n" << i << " overlaps n" << j;
        }
    }
    check_symbols(doc);
}

/// 1 to 21, of the colours of a PC's text screen.
double contrast(int a, int b) {
    constexpr double light[] = {.05, .08, .34, .37, .14, .16, .2,  .45,
                                .14, .21, .79, .86, .33, .4,  .98, 1.05};
    return std::max(light[a] / light[b], light[b] / light[a]);
}

void check_colours(const File& doc) {
    std::fill_n(key_textcolour, COL_KEYS, -1);
    std::fill_n(key_backcolour, COL_KEYS, -1);
    col_scheme_path = doc.file_name;
    col_loadscheme("colors");
    for (const IniItem& item : ini_find_section(doc, "colors")->items)
        EXPECT_THAT(col_keys, Contains(StrEq(item.name))) << "no key of an element";
    for (int key = 0; key < COL_KEYS; key++) {
        const auto text = static_cast<std::uint8_t>(key_textcolour[key]);
        const auto back = static_cast<std::uint8_t>(key_backcolour[key | 1]);
        ASSERT_TRUE(text < 16 && back < 16 && key_backcolour[key] == key_backcolour[key | 1])
            << col_keys[key];
        // Many terminals show the bright colours as the dark ones in bold, and those of 256
        // colours have no background but black.
        EXPECT_GE(contrast(text, back & 7), 2.5) << col_keys[key];
        EXPECT_GE(contrast(text & 7, back & 7), 2.5) << col_keys[key];
        EXPECT_GE(contrast(text & 7, 0), 2.5) << col_keys[key];
    }
    EXPECT_NE(key_textcolour[COL_MENU_SELECTED], key_textcolour[COL_MENU]);
}

void check_charset(const File& doc) {
    for (const char* section : {"toasc", "fromasc"}) {
        std::int32_t row[17];
        for (int i = 0; i < 16; i++)
            EXPECT_EQ(ini_get_number_list(doc, row, section, "n" + std::to_string(i)), 16) << i;
        EXPECT_EQ(ini_find_section(doc, section)->items.count, 16U) << section;
    }
}

TEST(Base, ConfigurationsAreWholeAndListed) {
    const std::map<std::string, void (*)(const File&)> checks = {
        {"target", check_target}, {"colors", check_colours}, {"charset", check_charset}};
    std::map<std::string, std::set<std::string>> names;
    sym_table_new(&sym_store);
    verbosity.warn = 1;
    internal::CaptureStderr(); // the library's complaints
    for (const auto& entry : std::filesystem::directory_iterator(base + "config")) {
        const std::string name = entry.path().stem();
        const File doc("config/" + name + ".ini");
        const std::string type = get(doc, "config", "type");
        ASSERT_TRUE(checks.contains(type) && !get(doc, "config", "desc").empty());
        names[type == "colors" ? type : type + "s"].insert(name);
        checks.at(type)(doc);
    }
    EXPECT_EQ(internal::GetCapturedStderr(), "");
    const File main("kx.ini");
    for (const auto& [section, found] : names) {
        EXPECT_THAT(list(main, section), UnorderedElementsAreArray(found)) << section;
        EXPECT_THAT(found, Contains(get(main, section, "default"))) << section;
    }
    for (const char* key : {"upasc", "loasc", "upscr", "loscr"})
        EXPECT_THAT(names["charsets"], Contains(get(main, "charsets", key))) << key;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(base)) {
        EXPECT_TRUE(entry.path().extension() != ".ini" || files_read.contains(entry.path()))
            << "no target names " << entry.path();
    }
}

} // namespace
} // namespace kx
