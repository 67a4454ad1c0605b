// The disc image file system: listings, chains in good and bad shape, writing and deleting by both
// sets of rules, what cc1541 and cbmconvert make of it, and images held by the target.
#include "files/d64_private.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "files/filetype.h"
#include "files/imgfile.h"
#include "link/port.h"
#include "link/seams_private.h"
#include "link/stub.h"
#include "tests/support/disc_image.h"
#include "tests/support/fake_thread.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace kx {
namespace {

using test::at;
using test::chars;
using test::formatted;
using test::put;
using test::random_bytes;
using test::slot;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

template <typename Print>
std::string printed(Print print) {
    testing::internal::CaptureStdout();
    print(stdout);
    return testing::internal::GetCapturedStdout();
}

/// An image file in a directory that is the current one too.
struct D64 : testing::Test {
    D64() {
        Charset* charset = charset_of_mode(CHARSET_UPASC);
        charset_load(charset->to_ascii, charset->from_ascii,
                     KX_SOURCE_DIR "/base/config/pet_upasc.ini");
        msg_set_output(MSG_QUIET);
        fs::current_path(dir.path());
    }

    void open(const std::string& content) {
        dir.write("disc.d64", content);
        ASSERT_EQ(image_open(image, "disc.d64", false, true), 1);
    }
    // To be compared outside of gtest's macros: they would print a whole disc.
    static std::string content() { return test::read_file("disc.d64"); }
    static std::string list() { return printed(d64_list_directory); }
    std::string check() {
        return printed(
            [&](std::FILE* out) { std::fputs(d64_check(image, out) == 1 ? "" : "wrong\n", out); });
    }
    static void connect(const std::string& device) {
        active_config.addr_bits = 16;
        active_config.stub = TARGET_C64RR;
        active_config.port_type = PORT_SERIAL;
        ASSERT_EQ(port_open(device, 38400), 1);
    }
    int write(const std::string& name, const std::string& bytes) {
        dir.write("host", bytes);
        return d64_write_file(image, "host", name);
    }
    /// "(none)" when it cannot be extracted.
    std::string extract(const std::string& name) {
        return d64_extract_file(image, name, "out") == 1 ? test::read_file("out") : "(none)";
    }

    test::TempDir dir;
    ImageHandle image;
};

TEST_F(D64, ListsAndPrintsInfo) {
    std::string disc = formatted(at(43, 0));
    // The directory goes on there, and ends at a sector 255 alone: 0/30 is the 31st block.
    put(disc, at(18, 1), chars({0, 30}));
    put(disc, at(2, 9), chars({42, 16}));
    put(disc, at(42, 16), chars({18, 255}) + slot(0x82, 17, 0, "LAST", 1));
    put(disc, at(18, 1, 2), slot(0x82, 17, 0, "HELLO WORLD", 4));
    put(disc, at(18, 1, 34), slot(0xC1, 1, 12, "A/B\x02\xC1", 300)); // what ASCII lacks
    put(disc, at(18, 1, 66), slot(0, 3, 3, "GONE", 7));
    put(disc, at(18, 1, 7 * 32 + 2), slot(0x0F, 0, 0, "SIXTEEN LETTERS!", 0));
    put(disc, at(2, 9, 2 * 32 + 2), slot(0x83, 0, 0, "TEN", 0));
    put(disc, at(2, 9, 3 * 32 + 2), slot(0x84, 0, 0, "ELEVEN", 0));
    open(disc);
    EXPECT_EQ(list(), "......+. 17: 0 prg       4 HELLO WORLD\n"
                      ".<.....+  1:12 seq     300 A/B..\n"
                      "*.......  3: 3 del       7 GONE\n"
                      "*...++++  0: 0 1111       0 SIXTEEN LETTERS!\n"
                      "......++  0: 0 usr       0 TEN\n"
                      ".....+..  0: 0 rel       0 ELEVEN\n"
                      "......+. 17: 0 prg       1 LAST\n");
    d64_ls_style = 1;
    EXPECT_EQ(extract("02.GONE.del"), "(none)");
    EXPECT_EQ(extract("0A"), "(none)");
    EXPECT_EQ(extract("0a"), "");
    const std::string start = "-rw-rw-rw-   1 root     root        ";
    EXPECT_EQ(list(), start + " 1016 Jan 1 12:00 00.HELLO WORLD.prg\n" +           //
                          start + "76200 Jan 1 12:00 01.A_B__.seq\n" +             //
                          start + " 1778 Jan 1 12:00 02.GONE.del\n" +              //
                          start + "    0 Jan 1 12:00 07.SIXTEEN LETTERS!.1111\n" + //
                          start + "    0 Jan 1 12:00 0a.TEN.usr\n" +               //
                          start + "    0 Jan 1 12:00 0b.ELEVEN.rel\n" +            //
                          start + "  254 Jan 1 12:00 10.LAST.prg\n");
    const std::string info = printed(d64_print_info);
    EXPECT_THAT(info, HasSubstr("disc name   : WORK DISC       \n"
                                "disc id     : 64 2A\n"
                                "blocks used : 312 / 2\n"
                                "blocks free : 352 / 681\n"
                                "blocks total: 664 / 683\n"
                                "\n"
                                "            11111111112222222222333333 3333444\n"
                                "   12345678901234567890123456789012345 6789012\n"
                                "\n"
                                " 0 .................*................. *******\n"));
    EXPECT_THAT(info, HasSubstr("\n20 ................." + std::string(26, ' ') + "\n"));
    d64_dos_mode = 1; // a drive shows no scratched files
    EXPECT_THAT(list(), testing::Not(HasSubstr("GONE")));
}

TEST_F(D64, ExtractsAsTheChainSays) {
    // The track of the first block, the link of the second, 17/10, the bytes by either rules, -1
    // for a failure. The first block is full.
    const std::tuple<const char*, int, std::string, int, int> rows[] = {
        {"ten bytes", 17, chars({0, 10}), 254 + 10, 254 + 9},
        {"one used, the link", 17, chars({0, 1}), 254 + 1, 254},
        {"none", 17, chars({0, 0}), 254, 254},
        {"one more than the block", 17, chars({0, 255}), 254 + 255, 254 + 254},
        {"254, but the image ends", 17, chars({35, 16}), 254 * 2 + 200, 254 * 2 + 200},
        {"into the header", 17, chars({18, 0}), 254 * 2, -1},
        {"a circle", 17, chars({17, 0}), -1, -1},
        {"beyond the disc", 17, chars({43, 0}), -1, -1},
        {"beyond the image", 17, chars({36, 0}), -1, -1},
        {"no first block", 0, chars({0, 9}), 0, -1},
    };
    for (const auto& [what, track, link, bytes_own, bytes_dos] : rows) {
        std::string disc = formatted();
        put(disc, at(17, 0), chars({17, 10}) + random_bytes(254));
        put(disc, at(17, 10), link);
        put(disc, at(35, 16), chars({0, 254}));
        disc.resize(at(35, 16, 202));
        put(disc, at(18, 1, 2), slot(0x82, track, 0, "F", 9));
        open(disc);
        for (const int expected : {bytes_own, bytes_dos}) {
            SCOPED_TRACE(testing::Message() << what << d64_dos_mode);
            fs::remove("out");
            const std::string bytes = extract("F");
            EXPECT_EQ(bytes == "(none)" ? -1 : static_cast<int>(bytes.size()), expected);
            const std::string first = expected < 254 ? "" : random_bytes(254);
            EXPECT_TRUE(bytes.starts_with(first));
            EXPECT_EQ(fs::exists("out"), expected >= 0);
            dir.write("out", "old");
            EXPECT_TRUE(extract("F") == bytes);
            EXPECT_TRUE(test::read_file("out") == (expected < 0 ? "old" : bytes));
            d64_dos_mode = 1 - d64_dos_mode;
        }
    }
}

TEST_F(D64, ExtractsAllUnderNamesThatStayHere) {
    std::string disc = formatted();
    const std::string names[] = {"..", "../UP", ".RC", "\x01\x1B[M", "", "A\\B", "A/B", "."};
    for (int i = 0; i < 8; i++) {
        put(disc, at(18, 1, 32 * i + 2), slot(i == 2 ? 0 : 0x82, 1, 0, names[i], 1));
    }
    put(disc, at(1, 0), chars({0, 3}));
    open(disc);
    fs::remove("disc.d64"); // it is open
    const auto extracted = [&] {
        EXPECT_EQ(d64_extract_all(image), 1);
        std::vector<std::string> files;
        for (const auto& file : fs::directory_iterator(".")) {
            files.push_back(file.path().filename());
            fs::remove(file.path());
        }
        return files;
    };
    EXPECT_THAT(extracted(), UnorderedElementsAre("_.", "_._UP", "_RC", "__[M", "_", "A_B"));
    d64_dos_mode = 1; // nothing scratched, and none over another
    EXPECT_THAT(extracted(),
                UnorderedElementsAre("_.", "_._UP", "__[M", "_", "A_B", "A_B~2", "_~2"));
}

TEST_F(D64, WritesByItsOwnRules) {
    std::string disc = formatted();
    disc[at(18, 0, 5)] &= ~2; // 1/1 is used
    put(disc, at(18, 1, 2), slot(0x42, 9, 9, "OPEN", 8).replace(19, 9, "nine kept"));
    open(disc);
    const std::string bytes = random_bytes(300);
    const std::string said = printed([&](std::FILE*) { EXPECT_EQ(write("new file", bytes), 1); });
    EXPECT_EQ(said, "progbits changed\n");
    put(disc, at(18, 1, 2), slot(0x82, 1, 0, "NEW FILE", 2).replace(19, 9, "nine kept"));
    put(disc, at(1, 0), chars({1, 2}) + bytes.substr(0, 254));
    // The chain stays open, and behind a short block stands the tail of the one before.
    put(disc, at(1, 2), chars({1, 3}) + bytes.substr(254) + bytes.substr(46, 208));
    disc[at(18, 0, 5)] &= ~5; // the count before it stays
    EXPECT_TRUE(content() == disc);

    EXPECT_EQ(write("NEW FILE", "x"), -1);
    ASSERT_EQ(write("empty", ""), 1);
    put(disc, at(18, 1, 34), slot(0x82, 1, 3, "EMPTY", 0)); // the first free block, not taken
    EXPECT_TRUE(content() == disc);

    // Deletion follows the open chain: through 1/3, whose link is all zeros.
    EXPECT_EQ(d64_delete_file(image, "NEW FILE"), 1);
    disc[at(18, 1, 2)] = 0;
    disc[at(18, 0, 5)] |= 5;
    EXPECT_TRUE(content() == disc);

    put(disc, at(18, 1, 66), slot(0x82, 18, 0, "DIRECTORY", 2)); // freed like any chain
    open(disc);
    EXPECT_EQ(d64_delete_file(image, "DIRECTORY"), 1);
    EXPECT_EQ(content()[at(18, 0, 4 * 18 + 1)] & 3, 3);

    EXPECT_EQ(write("big", random_bytes(254 * 663)), -1); // its last block lacks one to link to
    EXPECT_THAT(list(), HasSubstr("*.....+.  1: 0 prg       0 BIG\n")); // with the slot's old start
    EXPECT_EQ(write("fit", random_bytes(254 * 662)), 1); // in its slot, the map is as before
    EXPECT_EQ(extract("BIG"), "(none)");
    EXPECT_TRUE(extract("FIT").starts_with(random_bytes(254 * 662)));
    put(disc, at(18, 0, 4), std::string(140, '\0')); // all is used
    open(disc);
    EXPECT_EQ(write("none", ""), 1);
}

TEST_F(D64, DosModeWritesAsTheDriveDoes) {
    d64_dos_mode = 1;
    open(formatted());
    ASSERT_EQ(write("long", random_bytes(22 * 254 + 1)), 1); // a track and two blocks
    std::string chain;
    d64_walk_chain(image, {17, 0}, [&](ImagePlace, ImagePlace link) {
        chain += std::to_string(link.track) + "/" + std::to_string(link.sector) + " ";
        return true;
    });
    EXPECT_EQ(chain, "17/10 17/20 17/8 17/18 17/6 17/16 17/4 17/14 17/2 17/12 17/1 17/11 17/3 "
                     "17/13 17/5 17/15 17/7 17/17 17/9 17/19 16/7 16/17 0/2 ");
    ASSERT_EQ(write("next", ""), 1); // track 17 is full
    EXPECT_THAT(list(), HasSubstr("19: 0 prg       1 NEXT"));
    EXPECT_EQ(extract("next"), "");
    EXPECT_EQ(check(), "");

    for (const int size : {1, 253, 254, 255}) {
        ASSERT_EQ(write("size", random_bytes(size)), 1);
        EXPECT_TRUE(extract("size") == random_bytes(size)) << size;
        EXPECT_EQ(d64_delete_file(image, "size"), 1);
    }

    // What fails leaves no trace: a name that exists in other letters, no room, no host file.
    const std::string before = content();
    EXPECT_EQ(write("Next", "x"), -1);
    EXPECT_EQ(write("big", random_bytes(254 * 641)), -1);
    EXPECT_EQ(d64_write_file(image, "missing", "m"), -1);
    EXPECT_TRUE(content() == before);
    EXPECT_EQ(write("big", random_bytes(254 * 640)), 1); // every block that is left
    EXPECT_EQ(check(), "");
    for (const char* name : {"big", "long", "next"}) {
        EXPECT_EQ(d64_delete_file(image, name), 1) << name;
    }
    EXPECT_EQ(check(), "");
    EXPECT_EQ(list(), "");

    std::string disc = formatted();
    put(disc, at(18, 0, 4 * 18), "\x13\xFF\xFF\x07"); // it offers header and directory as free
    open(disc);
    for (int i = 0; i < 144; i++) {
        ASSERT_EQ(write("n" + std::to_string(i), ""), 1) << i;
    }
    EXPECT_EQ(check(), "");
    put(disc = content(), at(18, 4, 2), "\xC2"); // locked
    open(disc);
    EXPECT_EQ(write("more", "x"), -1);
    EXPECT_EQ(d64_delete_file(image, "n8"), -1);
    EXPECT_TRUE(content() == disc);
}

TEST_F(D64, SaysWhatItDoesAndWhatFailed) {
    std::string disc = formatted();
    put(disc, at(18, 1, 2), slot(0x82, 17, 0, "GOOD", 1));
    put(disc, at(18, 1, 34), slot(0xC1, 17, 1, "LOCKED", 1));
    put(disc, at(18, 1, 66), slot(0x82, 17, 2, "CIRCLE", 1));
    put(disc, at(17, 0), chars({0, 9}));
    put(disc, at(17, 1), chars({0, 9}));
    put(disc, at(17, 2), chars({17, 2}));
    dir.write("host", "x");
    dir.write("huge", random_bytes(254 * 700));
    using Operation = std::function<int()>;
    const auto write_to = [&](const char* host, const char* name) {
        return [this, host, name] { return imgfile_write_file(image, host, name); };
    };
    const auto extract_to = [&](const char* name, const char* host) {
        return [this, name, host] { return imgfile_extract_file(image, name, host); };
    };
    const auto remove = [&](const char* name) {
        return [this, name] { return imgfile_delete_file(image, name); };
    };
    // In the toolkit's rules; in the drive's, where they say something else; "" for success.
    const std::tuple<const char*, Operation, std::string, std::string> rows[] = {
        {"exists", write_to("host", "GOOD"), "error: file exists. \nerror: could not write", {}},
        {"no host file", write_to("none", "N"), "error: could not write file to image.", {}},
        {"too large", write_to("huge", "N"), "error: image full. ", {}},
        {"absent", extract_to("N", "out"), "error: file does not exist. \nerror: could not ex", {}},
        {"to a directory", extract_to("GOOD", "."), "error: could not extract file.", {}},
        {"a circle", extract_to("CIRCLE", "out"), "warning: the chain of 'CIRCLE' runs in a circle",
         "error: the chain of 'CIRCLE' runs in a circle."},
        {"remove absent", remove("N"), "error: file does not exist. \nerror: could not remove", {}},
        {"remove locked", remove("LOCKED"), "", "error: file is locked. \nerror: could not remove"},
    };
    msg_set_output(MSG_CONSOLE);
    verbosity.warn = 1;
    for (const auto& [what, operation, own, drive] : rows) {
        for (const int mode : {0, 1}) {
            d64_dos_mode = mode;
            open(disc);
            testing::internal::CaptureStdout();
            testing::internal::CaptureStderr();
            const int result = operation();
            const std::string& message = mode == 0 || drive.empty() ? own : drive;
            const std::string told = testing::internal::GetCapturedStderr();
            const std::string shown = testing::internal::GetCapturedStdout();
            EXPECT_THAT(told, HasSubstr(message)) << what << mode;
            EXPECT_EQ(result, message.empty() ? 1 : -1) << what << mode;
            if (!shown.empty() && result != 1) { // a progress line that was begun says how it ended
                EXPECT_THAT(shown, HasSubstr("error")) << what << mode;
            }
        }
    }
    EXPECT_EQ(content()[at(18, 1, 34)], '\xC1'); // by the drive's rules
    d64_dos_mode = 0;
    open(disc);
    EXPECT_EQ(d64_delete_file(image, "LOCKED"), 1);
    EXPECT_EQ(content()[at(18, 1, 34)], '\x40'); // the lock stays
    const std::string shown = printed([&](std::FILE*) { extract("GOOD"); });
    EXPECT_THAT(shown, HasSubstr("extracting 'out' (offs:00015000 len:254)... "));
    EXPECT_THAT(shown, HasSubstr("ok"));
}

TEST_F(D64, FrontEndSaysWhatItCannotDo) {
    msg_set_output(MSG_CONSOLE);
    open(formatted(196608));
    const std::tuple<std::function<int()>, const char*, const char*> rows[] = {
        {[&] { return imgfile_extract_all(image); }, "could not extract image.", ""},
        {[&] { return imgfile_extract_file(image, "A", "a"); }, "could not extract file.",
         "file does not exist."},
        {[&] { return imgfile_write_file(image, "a", "A"); }, "could not write file to image.",
         "could not write file to image."},
        {[&] { return imgfile_delete_file(image, "B"); }, "could not remove file.",
         "file does not exist."},
        {[&] { return imgfile_create(image, "A"); }, "could not create image.",
         "function not implemented."},
        {[&] { return imgfile_make_directory(image, "A"); }, "could not make directory.",
         "function not implemented."},
        {[&] { return imgfile_remove_directory(image, "A"); }, "could not remove directory.",
         "function not implemented."},
        {[&] { return imgfile_print_info(image, stdout); }, "could not print info.", ""},
        {[&] { return imgfile_list_directory(image, stdout); }, "could not list directory.", ""},
    };
    for (const auto& [operation, failure, of_disc] : rows) {
        image.type = FILETYPE_RAW; // no file system
        testing::internal::CaptureStderr();
        EXPECT_EQ(operation(), -1) << failure;
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("error: " + std::string(failure)));
        image.type = FILETYPE_D64;
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        EXPECT_EQ(operation(), *of_disc == '\0' ? 1 : -1) << failure;
        testing::internal::GetCapturedStdout();
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(of_disc)) << failure;
    }
    verbosity.warn = 1;
    image.access_limit = 100;
    testing::internal::CaptureStderr();
    EXPECT_EQ(imgfile_getrawimg(image, "raw", 20, 81), 1); // it goes on
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("file 'raw' exceeds access limit:00000064 offs:00000014 end:00000065"));
    EXPECT_EQ(fs::file_size("raw"), 81);
    testing::internal::CaptureStdout();
    EXPECT_EQ(imgfile_getrawimg(image, "whole", 0, 0), 1);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                HasSubstr("extracting 'whole' (offs:00000000 len:174848)... [ok]"));
    EXPECT_EQ(fs::file_size("whole"), 174848); // whatever the tracks
    testing::internal::CaptureStderr();
    EXPECT_EQ(imgfile_getrawimg(image, "raw", 196600, 9), -1); // the image ends
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("could not extract image."));
    EXPECT_EQ(fs::file_size("raw"), 81);
}

TEST_F(D64, ExtractingAllStopsOrGoesOn) {
    std::string disc = formatted();
    const std::pair<const char*, int> files[] = {{"ONE", 0}, {"BAD", 1}, {"TWO", 0}};
    for (int i = 0; i < 3; i++) {
        put(disc, at(18, 1, 32 * i + 2), slot(0x82, 17, files[i].second, files[i].first, 1));
    }
    put(disc, at(17, 0), chars({0, 9}));
    put(disc, at(17, 1), chars({17, 1}));
    open(disc);
    for (const int mode : {0, 1}) {
        d64_dos_mode = mode;
        EXPECT_EQ(d64_extract_all(image), mode == 0 ? 1 : -1);
        EXPECT_TRUE(fs::exists("ONE")) << mode;
        EXPECT_FALSE(fs::exists("BAD")) << mode;
        EXPECT_EQ(fs::exists("TWO"), mode == 1);
    }
}

TEST_F(D64, ShortImagesAreNotMadeLonger) {
    std::string disc = formatted();
    for (int track = 1; track < 20; track++) {
        put(disc, at(18, 0, 4 * track), std::string(4, '\0')); // only what is missing is free
    }
    disc.resize(at(20, 0, 100));
    for (const int mode : {0, 1}) {
        d64_dos_mode = mode;
        open(disc);
        EXPECT_EQ(write("X", random_bytes(300)), -1) << mode;
        EXPECT_EQ(content().size(), disc.size()) << mode;
    }
}

TEST_F(D64, KeepsNamesWithAShiftedBlankInside) {
    std::string disc = formatted();
    put(disc, at(18, 1, 2),
        slot(0x82, 0, 0,
             "A\xA0"
             "B",
             0));
    for (const int mode : {0, 1}) {
        d64_dos_mode = mode;
        open(disc);
        EXPECT_EQ(list(), "......+.  0: 0 prg       0 A B\n");
        EXPECT_EQ(d64_delete_file(image, "A B"), 1) << mode;
        EXPECT_EQ(content().substr(at(18, 1, 5), 16), disc.substr(at(18, 1, 5), 16)) << mode;
    }
}

TEST_F(D64, HeldImageOfATargetThatDoesNotAnswer) {
    msg_set_output(MSG_CONSOLE);
    for (const auto& [failure, after, commands] : {std::tuple{FakeFailure::Silent, 0U, 1U},
                                                   {FakeFailure::Silent, 200U, 4U},
                                                   {FakeFailure::Short, 0U, 1U},
                                                   {FakeFailure::Surplus, 0U, 1U}}) {
        FakeSettings settings;
        settings.failure = failure;
        settings.failure_after = after;
        test::FakeThread target(settings);
        connect(target.device());
        static const std::atomic<unsigned>* steps;
        steps = &target.steps;
        stub_set_timeout(20); // polls for a byte, and the target has its turn in most
        stub_set_sleep([] {
            for (const unsigned before = *steps; *steps == before;) {
                std::this_thread::yield();
            }
        });
        testing::internal::CaptureStderr();
        EXPECT_EQ(image_open(image, "d64", true, true), -1);
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("error: couldn't open remote image 'd64'."));
        target.stop();
        EXPECT_EQ(target.commands.size(), commands) << after; // none behind the first that failed
        port_close();
    }
}

TEST_F(D64, ImageHeldByTheTarget) {
    const test::FakeThread target;
    connect(target.device());
    dir.write("new", formatted());
    d64_dos_mode = 1;
    ASSERT_EQ(image_open(image, "d64", true, true), 1);
    EXPECT_EQ(imgfile_putrawimg(image, "new", 0, 0), 1);
    ASSERT_EQ(write("F", random_bytes(1000)), 1);
    EXPECT_EQ(imgfile_getrawimg(image, "whole.d64", 0, 0), 1);
    ASSERT_EQ(image_open(image, "whole.d64", false, false), 1);
    EXPECT_EQ(check(), "");
    EXPECT_TRUE(extract("F") == random_bytes(1000));
}

} // namespace
} // namespace kx
