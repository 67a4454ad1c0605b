// Colour schemes: what a scheme file makes of the arrays, and texts that switch colours.
#include "tests/support/temp_dir.h"
#include "ui/col.h"
#include "ui/con.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace kx {
namespace {

using ::testing::Each;

constexpr int UNSET = -1;

void load(const std::string& path) {
    std::fill_n(key_textcolour, COL_KEYS, UNSET);
    std::fill_n(key_backcolour, COL_KEYS, UNSET);
    col_scheme_path = path;
    col_loadscheme("colors");
}

TEST(Col, FirstValueIsTheBackgroundSecondTheText) {
    const struct {
        const char* line;
        int back, text;
    } rows[] = {
        {"menutext=brown, lightgray", 6, 7},    {"menutext=darkgray,darkgray", 7, 0},
        {"menutext=Blue,YELLOW", UNSET, UNSET}, {"menutext=nocolour,lightmagenta", UNSET, 13},
        {"menutext=white", 15, UNSET},          {"menutext=red,green,blue", 4, 2},
    };
    const test::TempDir dir;
    for (const auto& row : rows) {
        load(dir.write("scheme.ini", std::string("[colors]\n") + row.line + "\n"));
        EXPECT_EQ(key_backcolour[COL_MENU], row.back) << row.line;
        EXPECT_EQ(key_textcolour[COL_MENU], row.text) << row.line;
    }
}

TEST(Col, UnreadableFileChangesNothingButAMissingSectionEndsTheProgram) {
    const test::TempDir dir;
    for (const auto& path : {dir.file("absent.ini"), dir.path(), dir.write("empty.ini", "")}) {
        load(path);
        EXPECT_THAT(key_backcolour, Each(UNSET));
    }
    const std::string path = dir.write("other.ini", "[config]\ntype=colors\n");
    EXPECT_EXIT(load(path), ::testing::ExitedWithCode(255), "");
}

TEST(Col, SwitchTakesBothColoursFromItsKey) {
    constexpr int last = COL_KEYS - 1;
    key_textcolour[last] = 3;
    key_backcolour[last] = 5;
    testing::internal::CaptureStdout();
    col_puts("100% %Y", last);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "100% ");
    EXPECT_EQ(con_textcolor(7), 3);
    EXPECT_EQ(con_textbackground(0), 5);
    EXPECT_STREQ(col_keys[last], "windowprogressbg");
}

} // namespace
} // namespace kx
