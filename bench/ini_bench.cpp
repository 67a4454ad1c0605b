// Reading INI documents, beside what else could read them: inih (with its storing reader, and with
// a handler that only counts, which is the least that any user of it pays) and SimpleIni. All read
// the same file into something fresh and release it, in every round.
#include "ini/ini.h"

#include <INIReader.h>
#define SI_CONVERT_ICU // as the package is built
#include <SimpleIni.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

// inih's C header has the same name as ours, so what is needed of it is found by pkg-config's path.
#include <ini.h>

namespace {

/// `items` items in sections of `per_section`, as symbol files and charset tables have them.
class IniFile {
public:
    IniFile(long items, long per_section) {
        std::ofstream file(path_, std::ios::binary);
        for (long i = 0; i < items; i++) {
            if (i % per_section == 0) {
                file << "[section" << i / per_section << "]\n; a comment\n";
            }
            file << "label" << i << "=0x" << std::hex << i << std::dec << ",4,some text\n";
        }
    }
    ~IniFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_ =
        (std::filesystem::temp_directory_path() / ("kxbench" + std::to_string(getpid()))).string();
};

long read_with_kx(const std::string& path) {
    kx::IniDocument doc;
    kx::ini_read(path, doc);
    return doc.item_count;
}

long read_with_inih_counting(const std::string& path) {
    long count = 0;
    ini_parse(
        path.c_str(),
        [](void* user, const char*, const char*, const char*) {
            return ++*static_cast<long*>(user) > 0 ? 1 : 0;
        },
        &count);
    return count;
}

long read_with_inih_reader(const std::string& path) {
    const INIReader reader(path);
    return reader.ParseError() == 0 ? -1 : 0;
}

long read_with_simpleini(const std::string& path) {
    CSimpleIniCaseA ini;
    return ini.LoadFile(path.c_str()) == SI_OK ? -1 : 0;
}

/// Arguments: the number of items, and how many of them a section has.
template <long (*read)(const std::string& path)>
void reading(benchmark::State& state) {
    const IniFile file(state.range(0), state.range(1));
    for (auto _ : state) {
        const long count = read(file.path());
        if (count != state.range(0) && count != -1) { // -1: read, not counted
            state.SkipWithError("not read whole");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* bench) {
    for (const long items : {3000, 30000}) {
        for (const long per_section : {items, 10L, 1L}) {
            bench->Args({items, per_section});
        }
    }
    bench->ArgNames({"items", "per_section"})->Unit(benchmark::kMicrosecond);
}

BENCHMARK(reading<read_with_kx>)->Name("kx")->Apply(sizes);
BENCHMARK(reading<read_with_inih_counting>)->Name("inih counting only")->Apply(sizes);
BENCHMARK(reading<read_with_inih_reader>)->Name("inih INIReader")->Apply(sizes);
BENCHMARK(reading<read_with_simpleini>)->Name("SimpleIni")->Apply(sizes);

} // namespace
