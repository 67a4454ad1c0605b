// The search in the current directory: pattern rule, entries, and the texts of BASIC directories.
#include "fileserver/directory_search_private.h"

#include "tests/support/temp_dir.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>

namespace kx {

TEST(DirectorySearch, MatchesNamesByThePatternRule) {
    std::istringstream rows(
        "1 ab ab 1 ab abc 1 ab a 0 ab Ab 0 ab b 1 *.* a 1 *.* .. 1 ?b bbc 1 ?b x "
        "0 ?b ac 1 *b abc 1 *b x 1 *b b 1 *bc bc 0 *bc abbc 1 a*c*d abcxd "
        "0 a*c*d bcd 1 *?z a?z 0 *?z x?y 1 a*.prg ab.prgs 0 a*.prg a.p.prg");
    bool matches = false;
    for (std::string pattern, name; rows >> matches >> pattern >> name;) {
        EXPECT_EQ(directory_matches(name, pattern), matches) << name << " " << pattern;
    }
}

TEST(DirectorySearch, FindsEntriesUntilAStatusFails) {
    setenv("TZ", "FAR-14", 1); // no matter for dates
    const test::TempDir dir;
    std::filesystem::current_path(dir.path());
    DirectorySearch search;
    DirectoryEntry entry;
    std::filesystem::resize_file(dir.write("big", ""), 0x123456789);
    ASSERT_EQ(directory_find_first(search, "big" + std::string(300, 'x'), entry), 0);
    EXPECT_EQ(entry.name, "big");
    EXPECT_EQ(entry.attribute, 0);
    EXPECT_EQ(entry.size, 0xFFFFFFFF);
    EXPECT_EQ(directory_find_next(search, entry), -1);
    std::filesystem::create_symlink("nowhere", "link");
    EXPECT_EQ(directory_find_first(search, "l", entry), -1);
    for (int i = 0; i < 20; i++) {
        std::filesystem::create_directory("big" + std::to_string(i));
    }
    EXPECT_EQ(directory_find("big", entry), 0);
    EXPECT_EQ(entry.attribute, 0);                  // the file it names
    EXPECT_EQ(directory_date(2335219199), 0x7F9FU); // the last second of 2043, in UTC
    EXPECT_EQ(directory_date(2335219200), 0x0021U); // 2044, with six bits of year
}

TEST(DirectorySearch, TextsStandInColumns) {
    for (const std::uint32_t blocks : {9U, 10U, 99U, 100U, 999U, 1000U, 9999U, 10000U}) {
        const DirectoryEntry entry = {.name = "abc", .size = blocks * 254 - 253};
        const std::string number = std::to_string(blocks);
        std::string line = (number + "   ").substr(0, blocks < 10000 ? 4 : 5) + "\"abc\"";
        line.resize(line.size() + 14, ' ');
        EXPECT_EQ(number + directory_entry_text(entry, DirectoryStyle::Cbm), line + "prg ");
        EXPECT_EQ(number + directory_entry_text(entry, {}), line.substr(0, 23) + "prg ");
    }
    const DirectoryEntry entry = {.name = "eighteen letters..", .attribute = 16, .size = 2541};
    EXPECT_EQ(directory_entry_text(entry, {}), "   \"eighteen letters..\" dir ");
}

} // namespace kx
