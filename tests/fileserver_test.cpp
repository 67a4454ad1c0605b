// All fileservers: which one is asked, and what streams of broken and hostile requests do.
#include "fileserver/fileserver.h"

#include "core/active_config.h"
#include "fileserver/host_files.h"
#include "link/port.h"
#include "tests/support/far_end.h"
#include "tests/support/temp_dir.h"
#include "ui/msg.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <random>

namespace kx {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

// Requests of each server, with N for a name and # for a number. The last is always answered.
const Texts requests[] = {
    {"01AC01 N 00", "01AC02 N 00##", "01AC04 N 00#", "01AC05#", "01AC06##", "01AC07##", "01AC08###",
     "01AC0A N 00", "01AC0C N 00", "01AC0D N 00", "01AC0E N 00#", "01AC0F", "01AC0B 00010000"},
    {"'<' N 0D0A", "'>' N 0D0A##", "'BL' N 0D0A", "'BR'#", "'BC'", "'BS' N 0D0A", "'BW'", "'?'"},
    {"0203 N 0D", "0204 N 0D##", "0205# N 0D", "0203'$'0D"}};
const Texts numbers = {"0000000", "0000024", "0001117", "FFFFFFF", "8000000"}; // and a digit

std::ptrdiff_t entries(const std::string& directory) {
    return std::distance(fs::recursive_directory_iterator(directory), {});
}

struct Fileservers : testing::TestWithParam<unsigned> {};

TEST_P(Fileservers, StayInTheirRootAndAnswerAfterAnyStream) {
    msg_set_output(MSG_QUIET);
    const std::ptrdiff_t open = entries("/proc/self/fd");
    for (unsigned seed = GetParam(); seed < GetParam() + 125 && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        const test::TempDir dir; // with names of digits, which PETSCII has as well
        const std::string root = dir.file("0"), inside = dir.write("0/1/2", "inside"),
                          outside = dir.write("3/4", "secret");
        fs::create_symlink(dir.file("3"), root + "/5");
        fs::current_path(dir.file("3"));
        const Texts names = {"1",     "2",   "1/2", "..", "../3/4", "4",
                             "5",     "5/4", "5/6", "6",  "../6",   inside,
                             outside, "/",   "*",   "$",  "",       std::string(300, '7')};
        std::mt19937 random(seed);
        const auto pick = [&](const Texts& from) { return from[random() % from.size()]; };
        std::string stream, text;
        for (; stream.size() < 400; text.clear()) {
            for (const char c : pick(requests[seed % 3])) {
                text += c == 'N'   ? '\'' + pick(names) + '\''
                        : c == '#' ? pick(numbers) + std::to_string(random() % 10)
                                   : std::string(1, c);
            }
            stream += test::bytes(text).substr(0, random() % 8 == 0 ? 5 : 999);
            stream.back() = random() % 8 == 0 ? "<B\1\2\254\377"[random() % 6] : stream.back();
        }
        active_config.fileserver = static_cast<std::uint8_t>(seed % 3 + 1);
        active_config.fileserver_root = root;
        active_config.fileserver_read_only = seed % 2 != 0;
        std::optional<test::FarEnd> target(std::in_place);
        target->handle = [](std::uint8_t byte) {
            for (; port_state.read_error == 0; byte = port_getc())
                fileserver_handle_byte(byte);
            return 0;
        };
        EXPECT_EQ(target->ask(stream, true).find("secret"), std::string::npos);
        EXPECT_EQ(test::read_file(outside) + std::to_string(entries(dir.file("3"))), "secret1");
        EXPECT_TRUE(!active_config.fileserver_read_only ||
                    (test::read_file(inside) == "inside" && entries(dir.path()) == 6));
        target.emplace();
        EXPECT_GT(target->ask(test::bytes(requests[seed % 3].back())).size(), 2U); // is no failure
        for (int fd = 0; fd < 64; fd++)
            host_close(fd);
    }
    fileserver_reset();
    EXPECT_EQ(entries("/proc/self/fd"), open);
}
INSTANTIATE_TEST_SUITE_P(Seeds, Fileservers, testing::Range(0U, 1000U, 125U));

TEST(Fileserver, AsksNobodyWhenNoneIsConfigured) {
    active_config.port_type = PORT_SERIAL;
    port_state.read_error = 0; // the port is closed: a byte asked for would set it
    EXPECT_EQ(fileserver_handle_byte(1) + port_state.read_error, -1);
    active_config.fileserver = 4;
    EXPECT_EQ(fileserver_handle_byte(1) + port_state.read_error, -1);
}

} // namespace kx
