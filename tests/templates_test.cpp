// The written files, where little or nothing was loaded.
#include "setup/templates.h"

#include "core/config/config.h"
#include "tests/support/base_dir.h"

namespace kx {
namespace {

struct Templates : testing::Test {
    test::TempDir dir;
    IniDocument doc;

    std::string written() {
        EXPECT_EQ(ini_write(dir.file("out.ini"), doc), 0);
        return test::read_file(dir.file("out.ini"));
    }
};

TEST_F(Templates, MainFileHasBuiltInOrLoadedDefaults) {
    IniDocument main_doc;
    template_main_build(doc, "kx.ini", main_doc, false);
    EXPECT_EQ(written(), test::main_text("col_kx\n", "none\n", "map_ascii\n"));
    const std::string path =
        dir.write("kx.ini", "[colors]\ndefault=blue\n[targets]\nn0=c64\n[charsets]\ndefault=x\n");
    ASSERT_EQ(ini_read(path, main_doc), 0);
    template_main_build(doc, "kx.ini", main_doc, true);
    EXPECT_EQ(written(), test::main_text("blue\n", "\n", "x\n")); // a missing key gives no value
}

TEST_F(Templates, WhatATargetLacksIsCreatedEmpty) {
    for (const std::string item : {"maxspeed=\n", "name=/dev/ttyS0\n"}) {
        template_target_annotate(doc); // at first with nothing loaded
        const std::string text = written();
        EXPECT_NE(text.find("\n" + item), std::string::npos) << text;
        std::istringstream golden(test::data_text("kxtest.ini"));
        for (std::string line; std::getline(golden, line);) {
            if (line[0] == ';' || line[0] == '[') {
                EXPECT_NE(text.find(line + "\n"), std::string::npos) << line;
            }
        }
        EXPECT_EQ(config_load_target(doc, dir.file("out.ini")), 1); // ends where a section lacks
        ASSERT_EQ(ini_read(dir.write("in.ini", "[port]\nname=/dev/ttyS0\n"), doc), 0);
    }
}

} // namespace
} // namespace kx
