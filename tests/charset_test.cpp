// Character sets: the conversions in all forms, reading of charset files, and the shipped tables.
#include "charsets/charset.h"

#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>

#include <string>

namespace kx {
namespace {

std::string to_ascii(const std::string& codes, unsigned flags) {
    std::string out(codes.size() * 3, '\xEE');
    const auto* source = reinterpret_cast<const std::uint8_t*>(codes.data());
    const char* end = charset_to_ascii(out.data(), source, codes.size(), flags);
    if (end == out.data()) { // the forms that return the start fill one character per code
        end += codes.size();
    }
    return {out.data(), static_cast<std::size_t>(end - out.data())};
}

std::string from_ascii(const std::string& text, std::size_t length, unsigned flags) {
    std::string out(length + 4, '\xEE');
    auto* start = reinterpret_cast<std::uint8_t*>(out.data());
    const auto* end = charset_from_ascii(start, text.data(), text.size(), length, flags);
    EXPECT_EQ(out.substr(length), "\xEE\xEE\xEE\xEE") << text << ": written behind the end";
    out.resize(length);
    return end == start ? out : out.substr(0, static_cast<std::size_t>(end - start));
}

/// As a main configuration that names none of the four has it.
void load_shipped() {
    IniDocument doc;
    ini_add_section(doc, "charsets");
    EXPECT_EQ(charset_load_defaults(KX_SOURCE_DIR "/base/", doc), 0);
}

TEST(Charset, DefaultsAreWhatIsNamedOrElseShipped) {
    const test::TempDir dir;
    const auto table = [](const std::string& number) {
        return "[toasc]\nn0=" + number + "\n[fromasc]\n";
    };
    dir.write("config/pet_upasc.ini", table("1"));
    dir.write("config/pet_loasc.ini", table("2"));
    dir.write("config/pet_upscr.ini", table("3"));
    dir.write("config/mine.ini", table("4"));
    IniDocument doc;
    ASSERT_EQ(ini_read(dir.write("kx.ini", "[charsets]\nloasc=mine\nupscr=\n"), doc), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(charset_load_defaults(dir.path() + "/", doc), 0);
    EXPECT_EQ(charset_of_mode(CHARSET_UPASC)->to_ascii[0], 1);
    EXPECT_EQ(charset_of_mode(CHARSET_LOASC)->to_ascii[0], 4);
    EXPECT_EQ(charset_of_mode(CHARSET_UPSCR)->to_ascii[0], 0) << "named, by nothing";
    const std::string warning = "warning: couldn't find .ini file " + dir.path() + "/config/.ini\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), warning + warning) << "loscr, upscr";
}

TEST(Charset, EveryFormToAscii) {
    EXPECT_FALSE(charset_is_loaded(CHARSET_LOASC));
    EXPECT_EQ(to_ascii("A\x01", CHARSET_LOASC | CHARSET_ESCAPE), "%41%01"); // nothing loaded
    load_shipped();
    EXPECT_TRUE(charset_is_loaded(CHARSET_LOASC));
    const std::string codes = {'A', '\xC2', '1', '\x9E'};
    const std::pair<unsigned, const char*> rows[] = {
        {CHARSET_LOASC, "aB1"},
        {CHARSET_LOASC | CHARSET_ESCAPE | CHARSET_DOT, "aB1"},
        {CHARSET_LOASC | CHARSET_DOT, "aB1."},
        {CHARSET_LOASC | CHARSET_ESCAPE, "aB1%9e"},
        {CHARSET_ESCAPE, codes.c_str()},
        {CHARSET_DOT | 7, "A.1."},
    };
    for (const auto& [flags, expected] : rows) {
        EXPECT_STREQ(to_ascii(codes, flags).c_str(), expected) << flags;
    }
}

TEST(Charset, EscapesFromAscii) {
    load_shipped();
    EXPECT_EQ(from_ascii("aB%1", 4, CHARSET_LOASC), "A\xC2%1");
    EXPECT_EQ(from_ascii("aB%1", 2, CHARSET_LOASC), "A\xC2");
    EXPECT_EQ(from_ascii("aB%1", 2, 0), "aB");
    const struct {
        const char* text;
        std::size_t length; // of the output
        std::string expected;
    } rows[] = {
        {"%41x", 2, "AX"},  {"%4a", 1, "\x40"}, {"%1f", 1, "\x15"}, {"%z1", 1, "\xF1"},
        {"%2z", 1, "\x1F"}, {"ab", 1, "A"},     {"a%4", 9, "A"}, // cut off at the text's end
    };
    for (const auto& row : rows) {
        EXPECT_EQ(from_ascii(row.text, row.length, CHARSET_LOASC | CHARSET_ESCAPE), row.expected)
            << row.text;
    }
}

TEST(Charset, ShortAndMissingRowsRepeatTheRowBefore) {
    const test::TempDir dir;
    const std::string path =
        dir.write("x.ini", "[toasc]\nn0=1,2,0x103\nn1=9\nn3=010\n[fromasc]\nn15=-1\n");
    Charset charset = {};
    EXPECT_EQ(charset_load(charset.to_ascii, charset.from_ascii, path), 1);
    const CharsetTable& to = charset.to_ascii;
    EXPECT_THAT(std::vector(to.begin(), to.begin() + 4), testing::ElementsAre(1, 2, 3, 0));
    EXPECT_THAT(std::vector(to.begin() + 0x20, to.begin() + 0x23), testing::ElementsAre(9, 2, 3));
    EXPECT_EQ(to[0x30], 8);
    EXPECT_EQ(to[0xF0], 8);
    EXPECT_EQ(charset.from_ascii[0x00], 8); // the work row lives on into the second table
    EXPECT_EQ(charset.from_ascii[0xF0], 0xFF);

    EXPECT_EQ(charset_load(charset.to_ascii, charset.from_ascii, dir.file("none.ini")), 1);
    EXPECT_EQ(charset.to_ascii[0], 1);
    const std::string half = dir.write("half.ini", "[toasc]\nn0=1\n");
    EXPECT_EXIT(charset_load(charset.to_ascii, charset.from_ascii, half),
                testing::ExitedWithCode(255), "");
}

// Each code that puts a character on the screen against what then stands in screen memory.
TEST(Charset, ShippedTablesAgreeForEveryCode) {
    load_shipped();
    for (std::uint8_t code = 0x20; code != 0; code++) {
        const std::uint8_t minus[] = {0, 0, 0x40, 0x20, 0, 0x40, 0x80, 0x80}; // by code / 32
        const std::size_t screen = code == 0xFF ? 0x5E : code - minus[code / 0x20];
        for (const unsigned mode : {CHARSET_UPASC, CHARSET_LOASC}) {
            const CharsetTable& on_screen = charset_of_mode(mode + 2)->to_ascii;
            if ((code & 0x60) != 0) { // not 0x80 to 0x9F, which are controls
                EXPECT_EQ(charset_of_mode(mode)->to_ascii[code], on_screen[screen]) << int{code};
            }
            EXPECT_EQ(on_screen[code & 0x7F], on_screen[code | 0x80]) << int{code}; // reversed
        }
    }
}

} // namespace
} // namespace kx
