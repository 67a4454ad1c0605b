// Discs as a disc tool works on them, by the drive's rules: nothing is lost on discs that are out
// of order, when something fails, and when several work on one image.
#include "files/disc.h"

#include "charsets/charset.h"
#include "files/d64.h"
#include "files/imgfile.h"
#include "link/image_private.h"
#include "tests/support/disc_image.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/resource.h>

/// Stands before the C library's: no power cut is tried here, and a disc is slow.
extern "C" int fsync(int) {
    return 0;
}

namespace kx {
namespace {

using test::at;
using test::chars;
using test::files_of;
using test::formatted;
using test::put;
using test::random_bytes;
using test::read_file;
using test::slot;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

std::span<const std::uint8_t> bytes_of(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// What the fault seam of the images does.
struct Faults {
    int countdown = -1;              // the access that fails; below 0 for none
    std::vector<std::string> states; // the image at each write behind it, as a kill would leave it
};
Faults faults;

bool fault(bool writing) {
    if (writing && faults.countdown < 0) {
        faults.states.push_back(read_file("disc.d64"));
    }
    return faults.countdown >= 0 && faults.countdown-- == 0;
}

struct DiscTest : testing::Test {
    DiscTest() {
        d64_dos_mode = 1;
        Charset* charset = charset_of_mode(CHARSET_UPASC);
        charset_load(charset->to_ascii, charset->from_ascii,
                     KX_SOURCE_DIR "/base/config/pet_upasc.ini");
        fs::current_path(dir.path());
    }

    void open(const std::string& content, DiscAccess access = DiscAccess::Change) {
        disc_close(disc);
        dir.write("disc.d64", content);
        ASSERT_EQ(disc_open(disc, "disc.d64", access), 1) << disc.failure.text;
    }
    DiscName name(const std::string& text) {
        DiscName codes = {};
        EXPECT_EQ(disc_file_name(disc, text, codes), 1) << disc.failure.text;
        return codes;
    }
    int write(const std::string& text, const std::string& bytes, bool replace = false) {
        return disc_write(disc, {.name = name(text), .replace = replace, .bytes = bytes_of(bytes)});
    }
    /// The numbers that a pattern stands for, or why there are none.
    std::string match(const std::string& pattern) {
        std::vector<int> numbers;
        std::string text;
        if (disc_match(disc, pattern, numbers) != 1) {
            return disc.failure.text;
        }
        for (const int number : numbers) {
            text += std::to_string(number) + " ";
        }
        return text;
    }
    std::string memory() { return {disc.image.memory->begin(), disc.image.memory->end()}; }
    std::string lines(int (*operation)(Disc&, DiscFindings&)) {
        DiscFindings findings;
        std::string text = operation(disc, findings) == 1 ? "" : "-1 " + disc.failure.text + "\n";
        for (const std::string& line : findings.lines) {
            text += line + "\n";
        }
        return text;
    }
    /// Two files, and a third one that is open for a change.
    std::string two_files() {
        open(formatted());
        EXPECT_EQ(write("A", random_bytes(400)), 1); // 17/0, 17/10
        EXPECT_EQ(write("B", random_bytes(100)), 1); // 17/1
        return memory();
    }

    test::TempDir dir;
    Disc disc;
};

TEST_F(DiscTest, IsKnownByContentAndSize) {
    std::string other = formatted();
    other[at(18, 0)] = 'x'; // no header
    const auto with_start = [&](const std::string& start) {
        return other.replace(0, start.size(), start);
    };
    const std::tuple<const char*, std::string, const char*> rows[] = {
        {"a", formatted(), ""},
        {"a", formatted() + std::string(683, '\1'), ""},
        {"a", formatted(196608), ""},
        {"a", formatted(196608 + 768), ""},
        {"a", formatted(205312), ""},
        {"a", formatted(205312 + 802), ""},
        {"a", formatted().replace(0, 2, "\x1F\x8B"), ""}, // a block's link
        {"a", with_start("\x1F\x8B"), "'a' is a gzip file, to be unpacked first."},
        {"a", with_start("C64 tape image"), "'a' is a T64 archive, of a tape's files."},
        {"a", "GCR-1541", "'a' is a G64 image, of a disc's raw tracks."},
        {"a.d64", std::string(349696, '\0'), "'a.d64' is a D71 image, of a 1571's disc."},
        {"a", std::string(822400, '\0'), "'a' is a D81 image, of a 1581's disc."},
        {"a", "text", "'a' is no 1541 image, by size and content."},
        {"a\x1B[m", "text", "'a\\x1b[m' is no 1541 image, by size and content."},
    };
    for (const auto& [path, content, failure] : rows) {
        dir.write(path, content);
        const bool is_disc = *failure == '\0';
        EXPECT_EQ(disc_open(disc, path, DiscAccess::Read), is_disc ? 1 : -1) << failure;
        EXPECT_EQ(is_disc ? "" : disc.failure.text, failure) << content.size();
        EXPECT_EQ(disc_info(disc).fault, "");
    }
    for (const std::size_t size : {0U, 91648U, 174847U, 174849U, 300000U}) { // damaged ones
        dir.write("a.d64", formatted(300000).substr(0, size));
        EXPECT_EQ(disc_open(disc, "a.d64", DiscAccess::Read), 1) << size;
        EXPECT_THAT(disc_info(disc).fault, HasSubstr(std::to_string(size) + " bytes")) << size;
        EXPECT_EQ(disc_open(disc, "a.d64", DiscAccess::Change), -1) << size;
        EXPECT_EQ(disc.failure.reason, DiscReason::Damaged) << size;
    }
    EXPECT_EQ(disc_open(disc, "missing", DiscAccess::Read), -1);
    EXPECT_EQ(disc.failure.error, ENOENT);
    EXPECT_EQ(disc_open(disc, ".", DiscAccess::Read), -1);
    EXPECT_EQ(disc.failure.text, "'.' is no regular file.");
}

TEST_F(DiscTest, FormatsDiscsThatOtherProgramsTake) {
    const bool others = std::system("which cc1541 cbmconvert >/dev/null") == 0;
    for (const auto& [tracks, map_tracks, free] :
         {std::tuple{35, 35, 664}, {40, 40, 749}, {42, 35, 664}}) {
        fs::remove("new.d64");
        DiscFormat format{.tracks = tracks, .id = {'A', 'B'}};
        ASSERT_EQ(disc_create(disc, "new.d64", format), 1);
        EXPECT_EQ(disc_set_label(disc, name("MY DISK"), format.id), 1);
        EXPECT_EQ(write("FIRST", random_bytes(1000)), 1);
        EXPECT_EQ(write("ALL", random_bytes((free - 4) * 254)), 1); // every block
        EXPECT_FALSE(fs::exists("new.d64"));
        EXPECT_EQ(disc_commit(disc), 1) << disc.failure.text;
        ASSERT_EQ(disc_open(disc, "new.d64", DiscAccess::Change), 1);
        EXPECT_EQ(disc_delete(disc, 0, false), 1) << disc.failure.text;
        EXPECT_EQ(lines(disc_check), "") << tracks;
        const DiscInfo info = disc_info(disc);
        EXPECT_EQ(info.name_text + info.id_text + info.dos_text, "MY DISK         AB2A");
        EXPECT_EQ(info.tracks, tracks);
        EXPECT_EQ(info.blocks_free, 4);
        EXPECT_EQ(disc_commit(disc), 1);
        if (others && tracks != 42) {
            dir.write("one", random_bytes(700));
            const std::string cc1541 = tracks == 40 ? "cc1541 -4" : "cc1541";
            EXPECT_EQ(std::system((cc1541 + " -V -f two -w one new.d64 >/dev/null").c_str()), 0);
            if (tracks == 35) {
                EXPECT_EQ(std::system("cbmconvert -d new.d64 2>/dev/null"), 0);
            }
            ASSERT_EQ(disc_open(disc, "new.d64", DiscAccess::Read), 1);
            EXPECT_EQ(lines(disc_check), "") << tracks;
            EXPECT_EQ(match("TWO"), "0 ");
        }
        EXPECT_EQ(disc_create(disc, "new.d64", format), -1);
        EXPECT_EQ(disc.failure.reason, DiscReason::Exists);
    }
}

TEST_F(DiscTest, NamesAreCodesFirst) {
    std::string image = formatted();
    const std::string names[] = {"A\xC1", "A.", "B\xC1", "B\xC2", "C\xC1", "A#*", "", "GONE"};
    for (int i = 0; i < 8; i++) {
        put(image, at(18, 1, 32 * i + 2), slot(i == 7 ? 0 : 0x82, 0, 0, names[i], 0));
    }
    open(image);
    const std::pair<const char*, const char*> rows[] = {
        {"A.", "1 "}, // and not the first, which looks the same
        {"a.", "1 "},
        {"A#c1", "0 "},
        {"B.", "several files are shown as 'B.'."},
        {"C.", "4 "},
        {"B?", "2 3 "},
        {"A*", "0 1 5 "},
        {"?", "there is no file '?'."},
        {"*x", "0 1 2 3 4 5 6 "}, // as for a drive
        {"A###2a", "5 "},
        {"A#*", "5 "}, // its text
        {":3", "3 "},
        {":7", "entry 7 was scratched, which cannot be taken back: its blocks may be in use."},
        {":8", "there is no entry 8."},
        {":x", "':x' is no entry's number."},
        {":03", "':03' is no entry's number."},
        {"D#4", "there is no file 'D#4'."},
    };
    for (const auto& [pattern, result] : rows) {
        EXPECT_EQ(match(pattern), result) << pattern;
    }
    disc_set_charset(disc, true);
    EXPECT_EQ(match("aA"), "0 ");
    EXPECT_EQ(disc_entries(disc)[2].text, "bA");
    charset_reset(); // a drive's letters are known without tables
    EXPECT_EQ(match("bB"), "3 ");
    disc_set_charset(disc, false);
    EXPECT_EQ(match("b#C2"), "3 ");
    EXPECT_EQ(write("#2a#22#00", "x"), 1); // given as codes
    EXPECT_EQ(write("#2A#22#00", "x"), -1);
    EXPECT_EQ(disc.failure.reason, DiscReason::Exists);
    EXPECT_EQ(write("Z#A0,8,1", "x"), 1); // a drive does not look behind a shifted blank
    EXPECT_EQ(match("Z"), "8 ");
    EXPECT_EQ(write("Z", "x"), 1);
    EXPECT_EQ(match("Z"), "9 ");
}

TEST_F(DiscTest, NamesThatADriveRefusesAreRefused) {
    open(formatted());
    const std::string before = memory();
    ImageHandle image;
    dir.write("named.d64", before);
    dir.write("host", "x");
    ASSERT_EQ(image_open(image, "named.d64", false, true), 1);
    for (const char* text : {"", "*", "A?", "A,S", "A:", "\"", "$", "@A", "12345678901234567"}) {
        DiscName codes;
        EXPECT_EQ(disc_file_name(disc, text, codes), -1) << text;
        EXPECT_EQ(disc.failure.reason, DiscReason::BadName) << text;
        testing::internal::CaptureStderr();
        EXPECT_EQ(d64_write_file(image, "host", text), -1) << text;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("' is no name: ")) << text;
        EXPECT_TRUE(read_file("named.d64") == before) << text;
    }
    for (const char* text : {"#4", "\xC3\xA4", "\x01", "1234567890123456#41", "#a0#a0"}) {
        DiscName codes;
        EXPECT_EQ(disc_file_name(disc, text, codes), -1) << text;
        EXPECT_EQ(disc.failure.reason, DiscReason::BadName) << text;
    }
}

TEST_F(DiscTest, DeletesOnlyWhatIsTheFilesOwn) {
    const std::string good = two_files();
    const std::tuple<const char*, std::size_t, std::string, DiscReason> rows[] = {
        {"one block less", at(18, 1, 30), "\1", DiscReason::Damaged},
        {"one more", at(18, 1, 30), "\3", DiscReason::Damaged},
        {"the open chain of the toolkit's rules", at(17, 10), chars({17, 1}), DiscReason::Damaged},
        {"a block of another", at(18, 1, 32 + 3), chars({17, 10}), DiscReason::Shared},
        {"into the directory", at(17, 10), chars({18, 4}), DiscReason::Damaged},
        {"in a later block of it", at(18, 1, 2), slot(0x82, 18, 4, "A", 1), DiscReason::Damaged},
        {"a circle", at(17, 10), chars({17, 0}), DiscReason::Damaged},
        {"off the disc", at(17, 10), chars({43, 0}), DiscReason::Damaged},
        {"locked", at(18, 1, 2), "\xC2", DiscReason::Locked},
        {"an index of records", at(18, 1, 23), "\1\6", DiscReason::Damaged},
    };
    for (const auto& [what, offset, bytes, reason] : rows) {
        std::string bad = good;
        // The directory goes on at 18/4.
        put(bad, at(18, 1), chars({18, 4}));
        put(bad, at(18, 4), chars({0, 255}));
        put(bad, offset, bytes);
        open(bad);
        EXPECT_EQ(disc_delete(disc, 0, false), -1) << what;
        EXPECT_EQ(disc.failure.reason, reason) << what << disc.failure.text;
        EXPECT_EQ(write("A", "x", true), -1) << what;
        EXPECT_TRUE(memory() == bad) << what;
        ImageHandle image; // the named function
        disc_close(disc);
        ASSERT_EQ(image_open(image, "disc.d64", false, true), 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(d64_delete_file(image, "A"), -1) << what;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("error: ")) << what;
        EXPECT_TRUE(read_file("disc.d64") == bad) << what;
    }
    std::string rel = good; // whose size may leave its side sectors out
    put(rel, at(18, 1, 2), "\x84");
    put(rel, at(18, 1, 21), chars({17, 1, 254}));
    put(rel, at(18, 1, 32 + 2), chars({0}));
    for (const char* blocks : {"\2", "\3"}) {
        put(rel, at(18, 1, 30), blocks);
        open(rel);
        EXPECT_EQ(lines(disc_check), "") << +blocks[0];
        EXPECT_EQ(disc_delete(disc, 0, false), 1) << disc.failure.text;
        EXPECT_EQ(disc_info(disc).blocks_free, 664);
        EXPECT_EQ(write("NEXT", "x"), 1); // whose slot has nothing of the old file's
        EXPECT_EQ(memory().substr(at(18, 1, 21), 9), std::string(9, '\0'));
    }
    // A line of the listing that leads into somebody's blocks has none.
    put(rel = good, at(18, 1, 32 + 2), slot(0x80, 17, 0, "-----", 0));
    open(rel);
    EXPECT_EQ(disc_delete(disc, 1, false), 1) << disc.failure.text;
    EXPECT_FALSE(disc_is_free(disc, 17, 0));
    // A DEL file is one when it has blocks.
    put(rel = good, at(18, 1, 2), "\x80");
    open(rel);
    std::vector<std::uint8_t> bytes;
    EXPECT_EQ(disc_read(disc, 0, bytes), 1);
    EXPECT_EQ(bytes.size(), 400);
    EXPECT_EQ(disc_delete(disc, 0, false), 1);
    EXPECT_TRUE(disc_is_free(disc, 17, 0));
}

TEST_F(DiscTest, KnowsTheBlocksThatGeosHas) {
    std::string image = formatted();
    put(image, at(18, 0, 0xAB), chars({19, 8}) + "GEOS format");
    put(image, at(18, 1, 2), slot(0x83, 17, 2, "RECORDS", 4));
    put(image, at(18, 1, 21), chars({17, 3, 1, 6}));                    // info block, index
    put(image, at(17, 2), chars({0, 255, 17, 4, 0, 255, 17, 5, 0, 0})); // the second is empty
    for (const int sector : {3, 4, 5}) {
        put(image, at(17, sector), chars({0, 255}));
    }
    open(image);
    EXPECT_EQ(lines(disc_repair), "block 17/2 is used.\nblock 17/3 is used.\nblock 17/4 is used.\n"
                                  "block 17/5 is used.\ntrack 17 has 17 free blocks, not 21.\n"
                                  "block 19/8 is used.\ntrack 19 has 18 free blocks, not 19.\n");
    EXPECT_EQ(lines(disc_check), "");
    EXPECT_EQ(disc_delete(disc, 0, false), 1) << disc.failure.text;
    EXPECT_EQ(lines(disc_check), "");
    EXPECT_EQ(disc_info(disc).blocks_free, 664 - 1);
}

TEST_F(DiscTest, ReadsOnlyWhatIsAChainOfData) {
    const std::string good = two_files();
    const std::tuple<std::size_t, std::string, const char*> rows[] = {
        {at(18, 1, 3), chars({0, 0}), "'A' has no first block."},
        {at(17, 10), chars({18, 0}), "the chain of 'A' runs into the directory."},
        {at(18, 1, 3), chars({18, 1}), "the chain of 'A' runs into the directory."},
        {at(18, 1, 23), "\1\6", "'A' is an index of GEOS records."},
    };
    for (const auto& [offset, bytes, failure] : rows) {
        std::string bad = good;
        put(bad, offset, bytes);
        open(bad);
        std::vector<std::uint8_t> read;
        EXPECT_EQ(disc_read(disc, 0, read), -1) << failure;
        EXPECT_EQ(disc.failure.text, failure);
        EXPECT_EQ(disc_chain(disc, 0).fault, failure);
        EXPECT_EQ(disc_extract(disc, 0, "out", false), -1) << failure;
        EXPECT_FALSE(fs::exists("out")) << failure;
    }
}

TEST_F(DiscTest, NeverWritesOverWhatAFileOrTheDirectoryHas) {
    std::string bad = two_files();
    put(bad, at(18, 1), chars({17, 2})); // the directory goes on off its track
    put(bad, at(17, 2), chars({18, 5}));
    put(bad, at(18, 5), chars({18, 0}));                       // and then into the header
    put(bad, at(18, 1, 66), slot(DISC_PRG, 17, 3, "OPEN", 0)); // a file that was never closed
    put(bad, at(18, 1, 98), slot(0x84, 17, 4, "REL", 1));      // not counting its side sector
    put(bad, at(18, 1, 96 + 21), chars({17, 5}));
    put(bad, at(18, 1, 130), slot(0x82, 17, 6, "GEOS", 1)); // whose info block is off the disc
    put(bad, at(18, 1, 128 + 21), chars({43, 0, 0, 6}));
    put(bad, at(18, 1, 162), slot(0x82, 17, 7, "RECORDS", 2)); // the first one is off the disc
    put(bad, at(18, 1, 160 + 21), chars({0, 0, 1, 6}));
    put(bad, at(17, 7), chars({0, 255, 43, 0, 17, 8}));
    for (const int track : {17, 18}) { // and the map has it all free
        const int sectors = disc_sectors(track);
        put(bad, at(18, 0, 4 * track), chars({sectors, 255, 255, (1 << (sectors - 16)) - 1}));
    }
    open(bad);
    const std::string files = memory();
    for (int i = 0; i < 18; i++) {
        EXPECT_EQ(write("F" + std::to_string(i), "x"), 1) << disc.failure.text;
    }
    EXPECT_EQ(write("MORE", "x"), -1); // which would need a block behind the damage
    EXPECT_EQ(disc.failure.reason, DiscReason::NoRoom);
    for (const int sector : {0, 10, 1, 3, 4, 5, 6, 7, 8}) {
        EXPECT_EQ(memory().substr(at(17, sector), 256), files.substr(at(17, sector), 256));
        EXPECT_FALSE(disc_is_free(disc, 17, sector)) << sector;
    }
    EXPECT_EQ(memory().substr(at(18, 0, 0x90), 27), files.substr(at(18, 0, 0x90), 27));
    EXPECT_EQ(memory().substr(at(17, 2), 2), chars({18, 5}));
}

TEST_F(DiscTest, CheckSaysWhatIsWrongAndRepairMendsWhatADriveDoes) {
    const std::string good = two_files();
    struct Row {
        std::size_t offset;
        std::string bytes;
        const char* found;
        const char* repaired; // "-1 ..." when it is refused
    };
    const Row rows[] = {
        {at(17, 10), chars({17, 0}), "the chain of 'A' runs in a circle.\n",
         "-1 the chain of 'A' runs in a circle.\n"},
        {at(17, 10), chars({17, 1}),
         "'A' has 2 blocks by the directory and 3 by its chain.\n"
         "block 17/1 belongs to 'A' and to 'B'.\n",
         "-1 block 17/1 belongs to 'A' and to 'B'.\n"},
        {at(17, 10), chars({17, 5}),
         "'A' has 2 blocks by the directory and 3 by its chain.\n"
         "block 17/5 belongs to 'A' and is marked free.\n",
         "'A' has 3 blocks, not 2.\nblock 17/5 is used.\ntrack 17 has 17 free blocks, not 18.\n"},
        {at(18, 1, 30), "\7", "'A' has 7 blocks by the directory and 2 by its chain.\n",
         "'A' has 2 blocks, not 7.\n"},
        {at(18, 1, 32 + 5), "A", "entries 0 and 1 have the same name, 'A'.\n", ""},
        {at(17, 0), chars({0, 9}),
         "'A' has 2 blocks by the directory and 1 by its chain.\n"
         "block 17/10 belongs to nobody and is marked used.\n",
         "'A' has 1 blocks, not 2.\nblock 17/10 is free.\ntrack 17 has 19 free blocks, not 18.\n"},
        {at(18, 0, 4 * 17), "\x14",
         "track 17 has 20 free blocks by its count and 18 by its bits.\n",
         "track 17 has 18 free blocks, not 20.\n"},
        {at(18, 1, 2), "\x02", "'A' was not closed.\n",
         "'A' was not closed and is scratched.\nblock 17/0 is free.\nblock 17/10 is free.\n"
         "track 17 has 20 free blocks, not 18.\n"},
        {at(18, 1), chars({18, 1}), "the chain of the directory runs in a circle.\n",
         "-1 the chain of the directory runs in a circle.\n"},
        {at(18, 1), chars({18, 0}), "the chain of the directory runs into the directory.\n",
         "-1 the chain of the directory runs into the directory.\n"},
        {174848 + 17, "\5", "block 1/17 gives error 23 when a drive reads it.\n", ""},
    };
    msg_set_output(MSG_QUIET);
    dir.write("host", "x");
    for (const Row& row : rows) {
        std::string bad = good + std::string(683, '\1');
        put(bad, row.offset, row.bytes);
        open(bad);
        for (const int mode : {0, 1}) { // the named functions, on an image that may only be read
            d64_dos_mode = mode;
            ImageHandle image;
            ASSERT_EQ(image_open(image, "disc.d64", false, false), 1);
            testing::internal::CaptureStdout();
            EXPECT_EQ(d64_check(image, stdout), -1) << row.found;
            EXPECT_EQ(testing::internal::GetCapturedStdout(), row.found);
            d64_extract_all(image);
            EXPECT_EQ(d64_write_file(image, "host", "NEW"), -1) << row.found << mode;
            EXPECT_EQ(d64_delete_file(image, "B"), -1) << row.found << mode;
            EXPECT_TRUE(read_file("disc.d64") == bad) << row.found << mode;
        }
        disc.failure = {};
        EXPECT_EQ(lines(disc_check), "-1 \n" + std::string(row.found));
        EXPECT_EQ(lines(disc_repair), row.repaired) << row.found;
        const bool refused = row.repaired[0] == '-';
        if (refused) {
            EXPECT_TRUE(memory() == bad) << row.found;
        } else if (row.repaired[0] != '\0') {
            EXPECT_EQ(lines(disc_check), "") << row.found;
        }
    }
    dir.write("cut.d64", good.substr(0, 100000));
    ASSERT_EQ(disc_open(disc, "cut.d64", DiscAccess::Read), 1);
    EXPECT_THAT(lines(disc_check), HasSubstr("the image is cut: it has 100000 bytes of 174848.\n"));
    EXPECT_EQ(lines(disc_repair), "-1 the disc was not opened for a change.\n");

    // 144 entries of one chain of all blocks: the lines end, and so do the extracted bytes.
    std::string crafted = formatted();
    for (int block = 0; block < 570; block++) {
        const int track = block / 17 + (block / 17 >= 17 ? 2 : 1);
        put(crafted, at(track, block % 17),
            chars({(block + 1) / 17 + ((block + 1) / 17 >= 17 ? 2 : 1), (block + 1) % 17}));
    }
    for (int sector = 1; sector <= 18; sector++) {
        for (int i = 0; i < 8; i++) {
            put(crafted, at(18, sector, 32 * i + 2), slot(0x82, 1, 0, "SAME", 1));
        }
        put(crafted, at(18, sector),
            chars({sector == 18 ? 17 : 18, sector == 18 ? 20 : sector + 1}));
    }
    open(crafted);
    DiscFindings findings;
    EXPECT_EQ(disc_check(disc, findings), -1);
    EXPECT_EQ(findings.lines.size(), DISC_MOST_FINDINGS);
    EXPECT_GT(findings.count, 80000);
    EXPECT_EQ(disc_entries(disc).size(), 144);
}

TEST_F(DiscTest, ChangesAsOne) {
    const std::string before = two_files();
    open(before);
    EXPECT_EQ(write("A", "x"), -1); // Exists
    EXPECT_EQ(write("A", random_bytes(300), true), 1);
    EXPECT_EQ(disc_rename(disc, 0, name("B")), -1);
    EXPECT_EQ(disc_rename(disc, 0, name("NEW NAME")), 1);
    EXPECT_EQ(disc_set_lock(disc, 0, true), 1);
    EXPECT_EQ(disc_delete(disc, 0, false), -1);
    EXPECT_EQ(disc.failure.reason, DiscReason::Locked);
    EXPECT_EQ(disc_delete(disc, 1, false), 1);
    EXPECT_EQ(disc_rename(disc, 1, name("X")), -1); // scratched
    EXPECT_EQ(write("HUGE", random_bytes(254 * 663)), -1);
    EXPECT_EQ(disc.failure.text, "663 blocks needed, 662 free.");
    for (const int type : {DISC_SEQ, DISC_USR, DISC_DEL}) {
        const DiscFile file{.name = name(disc_type_name(type)), .type = type, .locked = true};
        EXPECT_EQ(disc_write(disc, file), 1);
    }
    EXPECT_EQ(disc_write(disc, {.name = name("REL"), .type = DISC_REL}), -1);
    EXPECT_TRUE(read_file("disc.d64") == before);
    Disc other; // takes a file over, while the first is still open
    ASSERT_EQ(disc_create(other, "other.d64", {}), 1);
    EXPECT_EQ(disc_copy(other, disc, 0, name("COPY"), false), 1);
    EXPECT_EQ(disc_commit(other), 1);
    EXPECT_EQ(write("Z", "x"), 1);
    disc_close(other);
    EXPECT_EQ(disc_commit(disc), 1);
    EXPECT_EQ(write("LATE", "x"), -1);
    EXPECT_EQ(disc.failure.reason, DiscReason::ReadOnly);
    const auto files = files_of(read_file("disc.d64"), true);
    EXPECT_THAT(files,
                testing::UnorderedElementsAre(testing::Pair("NEW NAME", random_bytes(300)),
                                              testing::Pair("SEQ", ""), testing::Pair("USR", ""),
                                              testing::Pair("DEL", ""), testing::Pair("Z", "x")));
    EXPECT_THAT(files_of(read_file("other.d64"), true),
                ElementsAre(testing::Pair("COPY", random_bytes(300))));
    EXPECT_EQ(read_file("disc.d64")[at(18, 1, 2)], '\xC2');
    EXPECT_EQ(read_file("other.d64")[at(18, 1, 2)], '\xC2');
}

TEST_F(DiscTest, OneWritesAtATime) {
    const std::string before = two_files();
    disc_close(disc);
    dir.write("disc.d64", before);
    ImageHandle writer;
    ImageHandle second;
    ImageHandle reader;
    ASSERT_EQ(image_open(writer, "disc.d64", false, true), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(image_open(second, "disc.d64", false, true), -1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("error: image 'disc.d64' is in use."));
    EXPECT_EQ(disc_open(disc, "disc.d64", DiscAccess::Change), -1);
    EXPECT_EQ(disc.failure.reason, DiscReason::InUse);
    EXPECT_EQ(disc.failure.text, "image 'disc.d64' is in use.");
    EXPECT_EQ(disc_create(disc, "disc.d64", {.replace = true}), -1);
    EXPECT_EQ(disc.failure.reason, DiscReason::InUse);
    ASSERT_EQ(image_open(reader, "disc.d64", false, false), 1);
    dir.write("host", "x");
    EXPECT_EQ(d64_write_file(writer, "host", "NEW"), 1);
    EXPECT_EQ(d64_extract_file(reader, "NEW", "out"), -1);
    EXPECT_EQ(d64_read_directory(reader), 1);
    EXPECT_EQ(d64_extract_file(reader, "NEW", "out"), 1);
    image_close(writer);

    // Who locks a file that was replaced meanwhile gets the new one.
    ASSERT_EQ(target_imgopen(second, "disc.d64", true), 1);
    ASSERT_EQ(disc_open(disc, "disc.d64", DiscAccess::Change), 1);
    EXPECT_EQ(write("LATER", "x"), 1);
    EXPECT_EQ(disc_commit(disc), 1);
    EXPECT_FALSE(image_is_file(second, "disc.d64"));
    EXPECT_EQ(target_imglock(second, "disc.d64"), 1);
    EXPECT_TRUE(image_is_file(second, "disc.d64"));
    target_imgclose(second);

    // A file that takes the place of a locked one is not written over.
    ASSERT_EQ(disc_open(disc, "disc.d64", DiscAccess::Change), 1);
    dir.write("moved", "somebody's");
    fs::rename("moved", "disc.d64");
    EXPECT_EQ(disc_commit(disc), -1);
    EXPECT_EQ(read_file("disc.d64"), "somebody's");
    d64_dos_mode = 0; // the toolkit's rules lock nothing
    EXPECT_EQ(image_open(writer, "disc.d64", false, true), 1);
    EXPECT_EQ(image_open(second, "disc.d64", false, true), 1);
}

TEST_F(DiscTest, TwoImagesHaveADirectoryEach) {
    const std::string a = two_files();
    disc_close(disc);
    for (const int mode : {0, 1}) {
        d64_dos_mode = mode;
        dir.write("a.d64", a);
        dir.write("b.d64", formatted());
        dir.write("host", random_bytes(600));
        ImageHandle first;
        ImageHandle second;
        ASSERT_EQ(image_open(first, "a.d64", false, true), 1);
        ASSERT_EQ(image_open(second, "b.d64", false, true), 1);
        EXPECT_EQ(d64_write_file(first, "host", "C"), 1);
        EXPECT_EQ(d64_write_file(second, "host", "A"), 1);
        EXPECT_EQ(d64_delete_file(first, "B"), 1);
        testing::internal::CaptureStdout();
        d64_list_directory(stdout); // of the image that was read last
        EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::Not(HasSubstr("C")));
        EXPECT_EQ(d64_extract_file(first, "A", "out"), 1);
        EXPECT_EQ(read_file("out").substr(0, 400), random_bytes(400)) << mode;
        if (mode == 1) {
            EXPECT_THAT(files_of(read_file("a.d64"), true),
                        ElementsAre(testing::Pair("A", random_bytes(400)),
                                    testing::Pair("C", random_bytes(600))));
            EXPECT_THAT(files_of(read_file("b.d64"), true),
                        ElementsAre(testing::Pair("A", random_bytes(600))));
        }
    }
}

/// An insert that makes the directory grow, and a delete, on an open handle.
int insert(ImageHandle& image) {
    return d64_write_file(image, "host", "NEW");
}
int erase(ImageHandle& image) {
    return d64_delete_file(image, "F3");
}

TEST_F(DiscTest, EveryFailureAndEveryKillLeavesOldFilesWhole) {
    msg_set_output(MSG_QUIET);
    open(formatted());
    for (int i = 0; i < 8; i++) {
        ASSERT_EQ(write("F" + std::to_string(i), random_bytes(300 + i)), 1);
    }
    const std::string before = memory();
    const auto old_files = files_of(before, true);
    ASSERT_EQ(old_files.size(), 8);
    disc_close(disc);
    dir.write("host", random_bytes(900));
    for (const auto& [operation, files_after] : {std::pair{&insert, 9U}, {&erase, 7U}}) {
        bool failed = true;
        int access = 0;
        for (; failed; access++) {
            ASSERT_LT(access, 200);
            dir.write("disc.d64", before);
            ImageHandle image;
            ASSERT_EQ(image_open(image, "disc.d64", false, true), 1);
            faults = {.countdown = access, .states = {}};
            image_set_fault(fault);
            const int result = operation(image);
            image_set_fault(nullptr);
            failed = faults.countdown < 0;
            for (const std::string& state : faults.states) { // while it is put back
                EXPECT_EQ(files_of(state, false)["!"], "") << access;
            }
            const auto files = files_of(read_file("disc.d64"), true);
            EXPECT_EQ(files.size(), result == 1 ? files_after : 8U) << access;
            if (result != 1) {
                EXPECT_TRUE(files == old_files) << access << files.begin()->second;
            }
            // The next one works on a record that is the disc's again.
            EXPECT_EQ(d64_extract_file(image, "F1", "out"), 1);
            EXPECT_TRUE(read_file("out") == random_bytes(301)) << access;
        }
        EXPECT_GT(access, 10);
        faults = {};
        dir.write("disc.d64", before);
        ImageHandle image;
        ASSERT_EQ(image_open(image, "disc.d64", false, true), 1);
        image_set_fault(fault);
        EXPECT_EQ(operation(image), 1);
        image_set_fault(nullptr);
        for (const std::string& state : faults.states) {
            auto files = files_of(state, false);
            EXPECT_EQ(files["!"], "");
            for (const auto& [file, bytes] : old_files) {
                if (file != "F3" || operation != &erase) {
                    EXPECT_TRUE(files[file] == bytes) << file;
                }
            }
        }
        EXPECT_GT(faults.states.size(), 1U);
    }
}

TEST_F(DiscTest, ExtractionLeavesTheImageAndTheHostsFilesWhole) {
    msg_set_output(MSG_QUIET);
    const std::string before = two_files();
    std::string image_file = before;
    put(image_file, at(18, 1, 5), "DISC.D64");
    put(image_file, at(18, 1, 32 + 5), "DISC.D64");
    disc_close(disc);
    for (const int mode : {0, 1}) {
        d64_dos_mode = mode;
        dir.write("DISC.D64", image_file);
        fs::create_hard_link("DISC.D64", "link");
        ImageHandle image;
        ASSERT_EQ(image_open(image, "link", false, false), 1);
        image.type = 22;
        ASSERT_EQ(d64_read_directory(image), 1);
        EXPECT_EQ(d64_extract_all(image), mode == 0 ? 1 : -1);
        EXPECT_EQ(d64_extract_file(image, "DISC.D64", "link"), -1);
        EXPECT_EQ(imgfile_getrawimg(image, "DISC.D64", 0, 10), -1);
        EXPECT_TRUE(read_file("DISC.D64") == image_file) << mode;
        EXPECT_EQ(fs::exists("DISC.D64~2"), mode == 1);
        fs::remove("link");
        // A host disc that takes no more than 200 bytes of a file.
        fs::remove("out");
        dir.write("old", "old");
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit all = {};
        getrlimit(RLIMIT_FSIZE, &all);
        const rlimit little = {.rlim_cur = 200, .rlim_max = all.rlim_max};
        setrlimit(RLIMIT_FSIZE, &little);
        EXPECT_EQ(d64_extract_file(image, "DISC.D64", "out"), -1) << mode;
        EXPECT_EQ(d64_extract_file(image, "DISC.D64", "old"), -1) << mode;
        setrlimit(RLIMIT_FSIZE, &all);
        EXPECT_FALSE(fs::exists("out")) << mode;
        EXPECT_EQ(read_file("old"), "old") << mode;
    }
}

TEST_F(DiscTest, ExtendedMapsAreUsedWhereThereIsOne) {
    std::string map;
    for (int track = 36; track <= 40; track++) {
        map += chars({17, 255, 255, 1});
    }
    std::string odd = map;
    odd[0] = 16;
    const std::tuple<const char*, int, std::string, std::size_t, int> rows[] = {
        {"SpeedDOS", 0xC0, map, 196608, 664 + 85},
        {"Dolphin", 0xAC, map, 196608, 664 + 85},
        {"a wrong count", 0xC0, odd, 196608, 664},
        {"all used", 0xC0, std::string(20, '\0'), 196608, 664},
        {"no such tracks", 0xC0, map, 174848, 664},
        {"the printed one", 0xB1, map, 196608, 664},
    };
    for (const auto& [what, place, bytes, size, free] : rows) {
        std::string image = formatted(size);
        put(image, at(18, 0, place), bytes);
        open(image);
        EXPECT_EQ(disc_info(disc).blocks_free, free) << what;
        EXPECT_EQ(write("BIG", random_bytes((free + 1) * 254)), -1) << what;
        EXPECT_EQ(write("BIG", random_bytes(free * 254)), 1) << what << disc.failure.text;
        EXPECT_EQ(disc_info(disc).blocks_free, 0) << what;
        EXPECT_EQ(disc_delete(disc, 0, false), 1) << what;
        EXPECT_EQ(memory().substr(at(18, 0, place), 20), bytes) << what;
        EXPECT_EQ(lines(disc_check), "") << what;
    }
}

} // namespace
} // namespace kx
