// Files through the fileservers over a pseudo-terminal, beside a plain copy between the file and
// the same pair: a program on the target should wait for its line and for nothing else.
#include "bench/far_end.h"
#include "fileserver/fileserver.h"
#include "ui/msg.h"

#include <filesystem>
#include <fstream>

namespace {

using namespace kx::bench;

constexpr std::size_t MEGABYTE = 1 << 20;
constexpr std::size_t CBM_FILE = 65536;
constexpr std::size_t PIECE = 65536; // of the plain copy

/// A directory with files of both sizes, which is the current one as long as it lives.
struct Disc {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("kx_fileserver_bench." + std::to_string(getpid()));

    Disc() {
        kx::verbosity.silent = 1;
        std::filesystem::create_directories(path);
        std::filesystem::current_path(path);
        std::ofstream("big", std::ios::binary) << std::string(MEGABYTE, 0x55);
        std::ofstream("prg", std::ios::binary) << std::string(CBM_FILE, 0x55);
    }
    ~Disc() {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(path);
    }
    Disc(const Disc&) = delete;
    Disc& operator=(const Disc&) = delete;
};

std::string zero_ended(const char* text) {
    return std::string(text) + '\0';
}

const std::string size_number("\0\x10\0\0", 4); // MEGABYTE, most significant byte first

// Requests of the plain copies have the length of those that they stand beside.
Script load_script() {
    return {{"\x01\xAC\x01" + zero_ended("big"), 1 + 4 + MEGABYTE}};
}
Script save_script() {
    return {{"\x01\xAC\x02" + zero_ended("new") + size_number, 1},
            {std::string(MEGABYTE, 0x55), 0}};
}
Script cbm_script() {
    return {{"\x02\x03PRG\r", 1 + 2 + CBM_FILE}};
}

bool serve() {
    return kx::fileserver_handle_byte(kx::port_getc()) == 0;
}

// Host to target: the request is read, then the file copied to the line behind a short answer.
bool copy_out(std::size_t request, const char* name, std::size_t answer, std::size_t size) {
    std::string piece(PIECE, '\0');
    const int file = open(name, O_RDONLY | O_CLOEXEC);
    bool good = read_all(kx::port_line.fd, piece.data(), request) &&
                write_all(kx::port_line.fd, piece.data(), answer);
    for (std::size_t done = 0; good && done < size; done += PIECE) {
        good =
            read_all(file, piece.data(), PIECE) && write_all(kx::port_line.fd, piece.data(), PIECE);
    }
    close(file);
    return good;
}

// Target to host, as it comes.
bool copy_in(std::size_t request, const char* name, std::size_t size) {
    std::string piece(PIECE, '\0');
    const int file = open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    bool good = read_all(kx::port_line.fd, piece.data(), request) &&
                write_all(kx::port_line.fd, piece.data(), 1);
    for (std::size_t done = 0; good && done < size;) {
        const ssize_t got = read(kx::port_line.fd, piece.data(), PIECE);
        good = got > 0 && write_all(file, piece.data(), static_cast<std::size_t>(got));
        done += good ? static_cast<std::size_t>(got) : 0;
    }
    close(file);
    return good;
}

void plain_load(benchmark::State& state) {
    const Disc disc;
    const Script script = load_script();
    measure(state, script, MEGABYTE,
            [&] { return copy_out(script[0].give.size(), "big", 1 + 4, MEGABYTE); });
}

void generic_load(benchmark::State& state) {
    const Disc disc;
    kx::active_config.fileserver = kx::FILESERVER_GENERIC;
    measure(state, load_script(), MEGABYTE, serve);
}

void generic_read(benchmark::State& state) {
    const Disc disc;
    kx::active_config.fileserver = kx::FILESERVER_GENERIC;
    const int file = open("big", O_RDONLY | O_CLOEXEC);
    const std::string handle("\0\0\0", 3);
    const std::string request = "\x01\xAC\x06" + handle + static_cast<char>(file) + size_number;
    measure(state, {{request, 4 + MEGABYTE}}, MEGABYTE,
            [&] { return lseek(file, 0, SEEK_SET) == 0 && serve(); });
    close(file);
}

void plain_save(benchmark::State& state) {
    const Disc disc;
    const Script script = save_script();
    measure(state, script, MEGABYTE,
            [&] { return copy_in(script[0].give.size(), "new", MEGABYTE); });
}

void generic_save(benchmark::State& state) {
    const Disc disc;
    kx::active_config.fileserver = kx::FILESERVER_GENERIC;
    measure(state, save_script(), MEGABYTE, serve);
}

void plain_cbm_load(benchmark::State& state) {
    const Disc disc;
    const Script script = cbm_script();
    measure(state, script, CBM_FILE,
            [&] { return copy_out(script[0].give.size(), "prg", 1 + 2, CBM_FILE); });
}

void cbm_load(benchmark::State& state) {
    const Disc disc;
    kx::active_config.fileserver = kx::FILESERVER_CBM;
    measure(state, cbm_script(), CBM_FILE, serve);
}

BENCHMARK(plain_load)->UseRealTime();
BENCHMARK(generic_load)->UseRealTime();
BENCHMARK(generic_read)->UseRealTime();
BENCHMARK(plain_save)->UseRealTime();
BENCHMARK(generic_save)->UseRealTime();
BENCHMARK(plain_cbm_load)->UseRealTime();
BENCHMARK(cbm_load)->UseRealTime();

} // namespace
