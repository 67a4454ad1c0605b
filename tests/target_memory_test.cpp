// Target memory in its three modes, and disc images: what reaches the simulator, what the pretended
// target is sent, byte for byte, and what the files hold afterwards.
#include "link/target_memory.h"

#include "core/active_config.h"
#include "core/simulator.h"
#include "link/image.h"
#include "link/port.h"
#include "tests/support/fake_thread.h"
#include "tests/support/pty.h"
#include "tests/support/temp_dir.h"
#include "util/file.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace kx {

using test::FakeThread;
using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

namespace {

/// RAM at 0800 to 0FFF and C000 to FFFF, a hole in it at 0900 to 09FF, the rest not there.
struct TargetMemory : testing::Test {
    TargetMemory() {
        active_config.addr_bits = 16;
        MemoryMap& map = active_config.memory_map;
        memory_map_set_type(map, memory_map_add(map, 0, 0x900, 0x9FF), MEMORY_NONE);
        memory_map_set_type(map, memory_map_add(map, 0, 0x800, 0xFFF), MEMORY_RAM_ROM);
        memory_map_set_type(map, memory_map_add(map, 0, 0xC000, 0xFFFF), MEMORY_RAM_ROM);
        EXPECT_EQ(sim_init(), 1);
    }

    static void connect(const std::string& device) {
        active_config.stub = TARGET_C64RR;
        active_config.port_type = PORT_SERIAL;
        mem_mode = MEM_SIMULATOR_AND_TARGET;
        EXPECT_EQ(target_connect(device, 38400, 0), 1);
    }

    test::TempDir dir;
};

} // namespace

TEST_F(TargetMemory, ReadsTheWindowThenTheFillerThenTheSimulator) {
    sim_write8(0x8FF, 0x12);
    sim_write8(0x900, 0x34); // in the hole
    mem_set_window(0xFFFE, Bytes{1, 2, 3});
    const std::pair<std::uint32_t, int> rows[] = {{0x8FF, 0x12}, {0x900, 0xDE}, {0x903, 0xAF},
                                                  {0xFFFD, 0},   {0xFFFE, 1},   {0xFFFF, 2},
                                                  {0, 3},        {1, 0xAD},     {0x10000, 0xDE}};
    for (const auto& [address, value] : rows) {
        EXPECT_EQ(mem_read8(address), value) << std::hex << address;
    }
    mem_clear_window();
    EXPECT_EQ(mem_read8(0), 0xDE);
    Bytes block(3);
    EXPECT_EQ(mem_read_block(block, 0x8FF), 1);
    EXPECT_THAT(block, ElementsAre(0x12, 0xDE, 0xAD));
    mem_mode = MEM_IMAGE; // the map does not count there, and single bytes are the target's
    EXPECT_EQ(mem_read8(0x57057FFE), 0);
    EXPECT_EQ(mem_read8(0x57057FFF), 0xAF);
}

TEST_F(TargetMemory, SendsNumbersToBothSidesInTheirByteOrders) {
    const test::Pty target;
    connect(target.device);
    for (std::uint8_t endianness = 0; endianness < 3; endianness++) {
        active_config.stub_endianness = endianness;
        mem_write16(0x800, 0x1234);
        mem_write32(0x802, 0xA1B2C3D4);
        const bool big = endianness == 1;
        Bytes simulator;
        for (std::uint32_t address = 0x800; address < 0x806; address++) {
            simulator.push_back(sim_read8(address));
        }
        EXPECT_EQ(test::hex(simulator), big ? "12 34 A1 B2 C3 D4" : "34 12 D4 C3 B2 A1");
        EXPECT_EQ(target.take(42), std::string("41 42 01 08 00 08 ") + (big ? "12" : "34") +
                                       " 41 42 02 08 01 08 " + (big ? "34" : "12") +
                                       " 41 42 03 08 02 08 D4 41 42 04 08 03 08 C3"
                                       " 41 42 05 08 04 08 B2 41 42 06 08 05 08 A1");
    }
}

TEST_F(TargetMemory, SendsBlocksToTheRetroReplayAloneAndTheMappedToTheSimulator) {
    const test::Pty target;
    connect(target.device);
    EXPECT_EQ(mem_write_block(0x8FE, Bytes{1, 2, 3}), 1);
    EXPECT_EQ(target.take(9), "41 42 02 09 FE 08 01 02 03");
    EXPECT_EQ(sim_read8(0x8FF), 2);
    EXPECT_EQ(sim_read8(0x900), 0) << "not mapped";
    active_config.stub = target_find_tag("pc64rr");
    port_write_error = true;
    EXPECT_EQ(mem_write_block(0x8FE, Bytes{4, 5, 6}), 1);
    EXPECT_FALSE(port_write_error);
    EXPECT_EQ(sim_read8(0x8FF), 5);
    EXPECT_EQ(sim_read8(0x900), 6) << "byte by byte, mapped or not";
    mem_write32(0x800, 7);
    Bytes bytes = {8};
    EXPECT_EQ(mem_read_block(bytes, 0x800), 1);
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(mem_read8(0x800), 0);
    target_set_pc(0x800);
    target_execute();
    port_putc('!');
    EXPECT_EQ(target.take(1), "21");
}

TEST_F(TargetMemory, ReadsAndWritesImageFilesThemselvesOrAsMemory) {
    ImageHandle first;
    ImageHandle image;
    Bytes back(3);
    testing::internal::CaptureStderr();
    EXPECT_EQ(target_imgopen(image, "none", true), -1);
    EXPECT_EQ(target_imgopen(image, "/", false), -1);
    EXPECT_EQ(target_imgread(image, back, 0), -1); // not open
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("failed to open image 'none' for writing. \n"
                          "error: failed to open image '/' for reading. "));
    const std::string path = dir.write("second", "0123456789");
    EXPECT_EQ(target_imgopen(first, dir.write("first", "0123456789"), true), 1);
    EXPECT_EQ(target_imgopen(image, path, true), 1);
    mem_mode = MEM_IMAGE; // goes to the one opened last
    for (const std::int64_t offset : {std::int64_t{-1}, std::int64_t{8}, IMAGE_ACCESS_LIMIT - 1}) {
        EXPECT_EQ(target_imgread(image, back, offset), -1) << offset;
        EXPECT_EQ(mem_read_block(back, static_cast<std::uint32_t>(offset)), -1) << offset;
    }
    EXPECT_EQ(mem_write_block(8, Bytes{'X', 'Y'}), 1);
    EXPECT_EQ(mem_read_block(back, 7), 1);
    EXPECT_THAT(back, ElementsAre('7', 'X', 'Y'));
    const FilePtr host = file_open(dir.write("host", "abc"), "r+b");
    for (const auto& [length, result] : {std::pair{-1L, -1}, {4L, -1}, {3L, 1}}) {
        std::rewind(host.get());
        EXPECT_EQ(target_imgwritefchunk(image, host.get(), 2, length), result) << length;
        EXPECT_EQ(test::read_file(path), result == 1 ? "01abc567XY" : "01234567XY") << length;
    }
    for (const auto& [length, result] : {std::pair{-1L, -1}, {3L, -1}, {1L << 40, -1}, {2L, 1}}) {
        EXPECT_EQ(target_imgreadfchunk(image, host.get(), 8, length), result) << length;
    }
    EXPECT_EQ(target_imgreadfchunk(image, host.get(), 8, 0), 1);
    EXPECT_EQ(test::read_file(dir.file("host")), "abcXY");
    std::filesystem::resize_file(path, std::uintmax_t{1} << 43); // more than memory holds
    EXPECT_EQ(target_imgreadfchunk(image, file_open("/dev/full", "wb").get(), 0, 1L << 43), -1);
    std::filesystem::resize_file(path, 10);
    target_imgclose(image);
    EXPECT_EQ(mem_read_block(back, 0), -1);
    // The limit is for where a read begins.
    EXPECT_EQ(target_imgopen(image, path, true), 1);
    EXPECT_EQ(target_imgwrite(image, Bytes{1, 2, 3}, IMAGE_ACCESS_LIMIT - 1), 1);
    EXPECT_EQ(target_imgread(image, back, IMAGE_ACCESS_LIMIT - 1), 1);
    EXPECT_THAT(back, ElementsAre(1, 2, 3));
    EXPECT_EQ(target_imgread(image, back, IMAGE_ACCESS_LIMIT), -1);
}

TEST_F(TargetMemory, ReadsAndWritesHeldImagesInBlocksOnTheDisc) {
    FakeThread target;
    connect(target.device());
    ImageHandle image{.file = nullptr, .held = true, .type = FILETYPE_D64, .kind = IMAGE_KIND_HELD};
    EXPECT_EQ(target_imgopen(image, "no such file", true), 1);
    const std::string data = std::string(256, 'x') + std::string(256, 'y');
    const FilePtr host = file_open(dir.write("host", data), "rb");
    EXPECT_EQ(target_imgwritefchunk(image, host.get(), 91136, 513), -1); // sends nothing
    std::rewind(host.get());
    EXPECT_EQ(target_imgwritefchunk(image, host.get(), 91136, 512), 1);
    const FilePtr copy = file_open(dir.file("copy"), "wb");
    EXPECT_EQ(target_imgreadfchunk(image, copy.get(), 91137, 511), 1);
    EXPECT_EQ(test::read_file(dir.file("copy")), data.substr(1));
    Bytes bytes(256);
    for (const std::int64_t offset : {-1, 200960 - 255, 200960}) {
        EXPECT_EQ(target_imgread(image, bytes, offset), -1) << offset;
        EXPECT_EQ(target_imgwrite(image, bytes, offset), -1) << offset;
    }
    for (const std::int64_t offset : {0, 91391, 91393, 125440, 153087, 153088, 200959}) {
        EXPECT_EQ(target_imgread(image, std::span(bytes).first(1), offset), 1) << offset;
    }
    EXPECT_EQ(target_imgread(image, bytes, 200960 - 256), 1); // no command of 0 bytes follows
    target.send(0);                                           // a byte too many
    EXPECT_EQ(target_imgread(image, bytes, 0), -1);
    image.type = 15;
    EXPECT_EQ(target_imgread(image, bytes, 0), -1);
    EXPECT_THAT(target.commands,
                ElementsAre("41 4C 11 00 14 00 00 00 00 01", "41 4C 12 00 00 00 00 00 00 01",
                            "41 4C 12 00 01 00 00 00 00 00", "41 4D 11 00 14 00 01 00 00 01",
                            "41 4D 12 00 00 00 01 00 FF 00", "41 4D 01 00 00 00 00 00 01 00",
                            "41 4D 11 00 14 00 FF 00 01 00", "41 4D 12 00 00 00 01 00 01 00",
                            "41 4D 19 00 00 00 00 00 01 00", "41 4D 1E 00 11 00 FF 00 01 00",
                            "41 4D 1F 00 00 00 00 00 01 00", "41 4D 29 00 10 00 FF 00 01 00",
                            "41 4D 29 00 10 00 00 00 00 01", "41 4D 01 00 00 00 00 00 00 01"));
}

} // namespace kx
