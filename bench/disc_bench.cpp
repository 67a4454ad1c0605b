// Copying all 144 files of a full disc to a new directory: the library, by itself and in a program
// started afresh, beside cbmconvert. Run with --extract IMAGE it is that program.
#include "files/d64.h"
#include "files/disc.h"
#include "files/imgfile.h"
#include "ui/msg.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr int FILES = 144;
constexpr std::size_t FOUR_BLOCKS = std::size_t{4} * 254;
constexpr std::size_t FIVE_BLOCKS = FOUR_BLOCKS + 100;
constexpr int LARGE_FILES = 88; // and the disc is full

struct Program {
    const char* name;
    std::vector<const char*> arguments;
};

std::string make_disc() {
    std::string path = fs::temp_directory_path() / "kx_disc_bench.d64";
    const std::vector<std::uint8_t> bytes(FIVE_BLOCKS, 'x');
    kx::Disc disc;
    bool made = kx::disc_create(disc, path, {.replace = true}) == 1;
    for (int i = 0; made && i < FILES; i++) {
        kx::DiscFile file{.bytes =
                              std::span(bytes).first(i < LARGE_FILES ? FIVE_BLOCKS : FOUR_BLOCKS)};
        made = kx::disc_file_name(disc, "FILE" + std::to_string(i), file.name) == 1 &&
               kx::disc_write(disc, file) == 1;
    }
    if (!made || kx::disc_commit(disc) != 1) {
        std::fprintf(stderr, "%s\n", disc.failure.text.c_str());
        std::exit(1);
    }
    return path;
}

int extract(const char* path) {
    kx::d64_dos_mode = 1;
    kx::msg_set_output(kx::MSG_QUIET);
    kx::ImageHandle image;
    return kx::image_open(image, path, false, false) == 1 && kx::imgfile_extract_all(image) == 1
               ? 0
               : 1;
}

/// Whether the program, or without one the library, did it.
bool run(const Program& program, const std::string& image) {
    if (program.arguments.empty()) {
        return extract(image.c_str()) == 0;
    }
    std::vector<char*> arguments;
    for (const char* argument : program.arguments) {
        arguments.push_back(const_cast<char*>(argument));
    }
    arguments.push_back(const_cast<char*>(image.c_str()));
    arguments.push_back(nullptr);
    pid_t pid = -1;
    int status = -1;
    return posix_spawnp(&pid, program.arguments[0], nullptr, nullptr, arguments.data(), environ) ==
               0 &&
           waitpid(pid, &status, 0) == pid && status == 0;
}

void extract_all(benchmark::State& state, const Program& program, const std::string& image) {
    const fs::path directory = fs::temp_directory_path() / "kx_disc_bench";
    fs::create_directories(directory);
    fs::current_path(directory);
    for ([[maybe_unused]] auto _ : state) {
        const bool good = run(program, image);
        state.PauseTiming();
        const auto files = std::distance(fs::directory_iterator(directory), {});
        fs::remove_all(directory);
        fs::create_directories(directory);
        fs::current_path(directory);
        if (!good || files != FILES) {
            state.SkipWithError("not all files were extracted");
        }
        state.ResumeTiming();
    }
    fs::current_path("/");
    fs::remove_all(directory);
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--extract") == 0) {
        return extract(argv[2]);
    }
    const std::string self = fs::read_symlink("/proc/self/exe");
    const std::string image = make_disc();
    const std::array<Program, 3> programs = {{{"library", {}},
                                              {"program", {self.c_str(), "--extract"}},
                                              {"cbmconvert", {"cbmconvert", "-v0", "-N", "-d"}}}};
    for (const Program& program : programs) {
        benchmark::RegisterBenchmark(
            program.name, [&](benchmark::State& state) { extract_all(state, program, image); })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    fs::remove(image);
    return 0;
}
