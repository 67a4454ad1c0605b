// The fileservers that play a Commodore's drive, serial-slave and CBM: byte for byte from the far
// end of the line, with what they log and show.
#include "charsets/charset.h"
#include "core/active_config.h"
#include "fileserver/petscii_private.h"
#include "tests/support/far_end.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"
#include "util/ascii.h"
#include "util/clock.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace kx {

using namespace test;
using namespace testing::internal; // CaptureStderr and its kin

struct Row {
    std::string requests, reply, log; // each of the requests, between ";", has this answer
    int result = 0;
};

const std::string p256(256, '\x81'), y44(44, 'y'), d65537(65537, 'd');
const std::string rate = " (12000 bytes/sec, 108000 baud, 281% of 38400 baud)\n\r";
const std::string left = " bytes left.)...\rKX> sending file 'c' (";
const Row serialslave_rows[] = {
    {"0A;0D", "", ""},
    {"07", "", "KX> ?! <07> \\x07\n\r"},
    {"'?'", "'!' 10 00 'KX SERSLAVE MODE'", "KX> ping\n\r"},
    {"'<B' 0D0A", "'!' 0C00 '0123456789AB'", "KX> sending file \"b\" (12 bytes.)...\n\r" + rate},
    {"'<' D3 'UB' 0D0A", "'.'", "KX> chdir(\"Sub\") to ~/Sub\n\r"},
    {"'<..' 0D0A", "'.'", "KX> chdir(\"..\") to ~ (up)\n\r"},
    {"'>X' 0A", "'?'", "getting file \"\" ...\n\r"},
    {"'>Y' 0D0A 0A00 '0123456789AB'", "'!'",
     "getting file \"y\" ...\n\rKX> getting file \"y\" (12 bytes.)...\n\r" + rate},
    {"'<Y' 0D0A", "'!' 0C00 '0123456789AB'", "silent"},
    {"'>Z' 0D0A FFFF '" + d65537 + "'", "'!'", "silent"},
    {"'<Z' 0D0A", "'!' 0100 'd'", "silent"},
    {"'BC'", "'?'", "KX> block-close called without buffered data!\n\r"},
    {"'BLA' 0D0A", "'!' 0200", "KX> block-sending file \"a\" (300 bytes/2blocks)...\n\r"},
    {"'BLB' 0D0A", "", ""}, // one is open
    {"'BR' 000001", "'!'FF'" + p256 + "'00", "KX> sending block 0 (offs:0,len:256,chksum:0)\n\r"},
    {"'BR' 0100FF", "'!'2B'" + y44 + "'CC", "KX> sending block 1 (offs:256,len:44,chksum:204)\n\r"},
    {"'BR' 010000;'BR' FFFF01", "'!'", ""},
    {"'BC'", "'.'", "KX> closed block buffer\n\r"},
    {"'BLB' 0D0A", "'!' 0101", "silent"},
    {"'BR' 000101", "'!' 0B 'xxxxxxxxxxxx' A0", "silent"},
    {"'BC'", "'.'", "silent"},
    {"'BLM' 0D0A", "'!' 0200", "silent"},
    {"'BC'", "'.'", "silent"},
    {"'<E' 0D0A", "'!' 0000", "silent"},
    {"'<B*'0D0A;'<N'0D0A;'<.N'0D0A;'>$'0D0A;'BL$'0D0A;'BLN'0D0A;'BR'000001;'BS$'0D0A", "'?'", ""},
    {"'BSX' 0D0A", "", "KX> block save unimplemented\n\r"},
    {"'BW'", "'?'", "KX> block save unimplemented\n\r"},
    {"'Bx'", "", "KX> ?! B<42>\n\r"},
};
const Row cbm_rows[] = {
    {"01;02 06", "", "", -1},
    {"02 03 'C' 0D", "00 0100 0108 'X'",
     "KX> sending file 'c' (0003" + left + "0002" + left + "0001" + left +
         "ok.)                  \r\n"},
    {"02 03 'Z' 0D", "00 FFFF '" + d65537 + "'", "silent"},
    {"02 03 'B' 0D", "FF", "KX> file 'b' has 65548 bytes, a load takes 2 to 65537.\r\n"},
    {"02 03 D3 'UB' 0D", "01", "KX> chdir(\"Sub\") to ~/Sub\n"},
    {"02 03 'X' 0D", "FF", "KX> file 'x' has 1 bytes, a load takes 2 to 65537.\r\n"},
    {"02 03 '..' 0D", "01", "KX> chdir(\"..\") to ~\n"},
    {"02 03 'B*' 0D;02 03 'N' 0D;02 03 './N' 0D", "FF", ""},
    {"02 04 '$' 0D", "FF", "getting file \"$\" ...\n"},
    {"02 04 'no/' 07 0D", "FF", "getting file \"no/\\x07\" ...\n"},
    {"02 04 'w' 0D 0300 'abc'", "21",
     "getting file \"w\" ...\nKX> getting file \"w\" (3 bytes.)...\n"},
    {"02 03 'W' 0D", "00 0100 'abc'", "silent"},
    {"02 05 03 6F 'I0' 0D", "", "KX> opening cmd-channel (3,7,15,\"i0\")...\r\n"},
    {"02 05 FF E2 'F' 1B 0D", "", "KX> opening file (255,7,130,\"f\\x1b\")...\r\n"},
};

const struct Server {
    std::uint8_t id;
    std::span<const Row> rows;
    std::string save, listing, header, trailer; // header: from the load address on
} servers[] = {
    {FILESERVER_SERIALSLAVE, serialslave_rows, "'>' CE 'EW' 0D0A", "'<$' 0D0A",
     "0104 1A04 0000 12 '\"kx serslave mode\" v0.6 ' 00",
     "FFFF 'blocks free.             ' 000000"},
    {FILESERVER_CBM, cbm_rows, "02 04 'New' 0D", "02 03 '$' 0D",
     "0108 1F08 0000 12 '\"KX-CBMFILESERVER\" V0.6 ' 00",
     "0000 'BLOCKS FREE.             ' 000000"},
};

TEST(Drive, AnswersEveryCommand) {
    const TempDir dir;
    dir.write("a", p256 + y44);
    dir.write("b", "0123456789AB" + std::string(65536, 'x'));
    dir.write("c", "\x01\x08X");
    dir.write("Sub/x", "1");
    dir.write("m", p256 + p256);
    dir.write("e", "");
    std::filesystem::current_path(dir.path());
    active_config.port_baud = 38400;
    clock_wall_set_source([] { return std::uint32_t{7}; }); // no transfer takes any time
    verbosity.verbose = 1;
    FarEnd end;
    for (const Server& server : servers) {
        active_config.fileserver = server.id;
        for (auto [requests, reply, log, result] : server.rows) {
            verbosity.silent = log == "silent" ? 1 : 0;
            if (const std::size_t at = log.find('~'); at != std::string::npos) {
                log.replace(at, 1, dir.path());
            }
            std::istringstream each(requests);
            for (std::string request; std::getline(each, request, ';');) {
                CaptureStderr();
                EXPECT_TRUE(end.ask(bytes(request)) == bytes(reply)) << request.substr(0, 100);
                EXPECT_EQ(GetCapturedStderr(), verbosity.silent != 0 ? "" : log) << request;
                EXPECT_EQ(end.result, result) << request;
                EXPECT_EQ(end.unread, 0U) << request;
            }
        }
    }
}

TEST(Drive, SavesNoHalfFileAndActsOnNoHalfName) {
    Charset& charset = *charset_of_mode(CHARSET_LOASC);
    charset_load(charset.to_ascii, charset.from_ascii, KX_SOURCE_DIR "/base/config/pet_loasc.ini");
    EXPECT_EQ(petscii_from_host({"Ab\xFF\0", 4}), bytes("C1 'B.?'"));
    EXPECT_EQ(petscii_to_host("A\x01Z"), "a"); // codes without a character end names
    for (const Server& server : servers) {
        const TempDir dir;
        std::filesystem::current_path(dir.path());
        active_config.fileserver = server.id;
        CaptureStderr();
        FarEnd().ask(bytes(server.save + "0900 'some'"), true);
        EXPECT_THAT(GetCapturedStderr(),
                    testing::HasSubstr("KX> file \"New\" is not saved: the line is gone.\n"));
        EXPECT_FALSE(std::filesystem::exists("New"));
        FarEnd().ask(bytes(server.save).substr(0, 4), true);
        EXPECT_FALSE(std::filesystem::exists("Ne"));
    }
}

static void list_three_hundred(const Server& server, std::size_t longest) {
    const bool cbm = server.id == FILESERVER_CBM;
    const TempDir dir;
    for (std::size_t i = 0; i < 300; i++) {
        const char* const kinds[] = {" with blanks ", "\"", "\xE2\x82\xAC\x01\xFF", ""};
        const std::string name = std::to_string(1000 + i) + kinds[i % 4];
        dir.write(name + std::string(longest - i % 20, 'x'), std::string(i, ' '));
    }
    const std::uint64_t huge = 70000; // blocks
    std::filesystem::resize_file(dir.write("9", ""), huge * 254);
    std::filesystem::current_path(dir.path());
    active_config.fileserver = server.id;
    FarEnd end;
    CaptureStderr();
    CaptureStdout();
    const std::string reply = end.ask(bytes(server.listing));
    const std::string log = GetCapturedStderr() + GetCapturedStdout();
    const auto word = [&](std::size_t at) {
        const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(reply.at(i)); };
        return byte(at) + byte(at + 1) * 256U;
    };
    EXPECT_EQ(word(1), reply.size() - (cbm ? 5 : 3)); // without the CBM's load address
    std::vector<std::size_t> lines = {5};             // where they are
    while (const std::size_t link = word(lines.back())) {
        lines.push_back(link + 5 - (cbm ? 0x0801 : 0x0401 - 5)); // true links, or 5 below
        ASSERT_EQ(lines.back(), reply.find('\0', lines.end()[-2] + 4) + 1);
    }
    EXPECT_EQ(lines.back() + 2, reply.size());
    EXPECT_EQ(reply.substr(3, lines[1] - 3), bytes(server.header));
    EXPECT_EQ(reply.substr(lines.end()[-2] + 2), bytes(server.trailer));
    EXPECT_THAT(log, testing::HasSubstr(
                         "KX> sending directory \"*.*\" " +
                         (cbm ? "(" + std::to_string(word(1)) + " bytes)...\n" : "...\n\r")));
    for (std::size_t i = 1; i < lines.size() - 2; i++) {
        const std::string text = petscii_to_host(reply.c_str() + lines[i] + 4);
        const std::string number = std::to_string(word(lines[i] + 2));
        const int name = std::atoi(&text[text.find('"') + 1]);
        if (text.ends_with("dir ") && !cbm) {
            EXPECT_EQ(number, "0") << text;
        } else if (name == 9) {
            EXPECT_EQ(number, std::to_string(cbm ? huge & 0xFFFF : 0xFFFF));
        } else if (name != 0) {
            EXPECT_EQ(number, std::to_string((name - 1000 + 253) / 254)) << text;
        }
        EXPECT_THAT(log, testing::HasSubstr((cbm ? "\n>>KX " : "\rKX> " + number + " ") +
                                            ascii_escape(text) + '\n'));
    }
    EXPECT_EQ(lines.size() == 306, longest < 100); // header, 303 entries, trailer and end
    EXPECT_EQ(log.starts_with("KX> listing ends after "), word(lines.end()[-2]) + 300 > 0xFFFF);
    std::filesystem::remove_all(dir.path());
    EXPECT_EQ(end.ask(bytes(server.listing)), cbm ? "\xFF" : "?");
}

TEST(Drive, ListsThreeHundredEntriesWithLinksAndLengthsThatHold) {
    for (const Server& server : servers) {
        list_three_hundred(server, 60);
        list_three_hundred(server, 210); // has no room for all
    }
}

} // namespace kx
