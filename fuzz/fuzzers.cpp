// The fuzzers: each takes an input apart, hands it to the library, and checks what must hold.
// Before them the frame, behind them what runs the one that the environment's KX_FUZZER names.
#include "files/disc.h"
#include "files/imgfile.h"
#include "ini/ini.h"
#include "setup/templates.h"
#include "tests/fresh.h"
#include "tools/parse.h"
#include "tools/verbs.h"
#include "ui/con.h"
#include "util/fd.h"
#include "util/signals.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <fuzzer/FuzzedDataProvider.h>
#include <map>
#include <poll.h>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx {

namespace {

struct ProgramEnd {};

struct State {
    fs::path directory; // of the input, in which its fuzzer starts; empty when none runs
    std::uint32_t now_ms = 0;
};
State state;

/// Whether `body` would have ended the program, by exit with any status.
bool ends(const std::function<void()>& body) try {
    body();
    return false;
} catch (const ProgramEnd&) {
    return true;
}

/// Stops the fuzzer with `what` unless `holds`.
void check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

// Names count from the input's directory; directories are made, and no file reads as empty.

void put(const std::string& name, std::string_view content) {
    const fs::path path = state.directory / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string get(const std::string& name) {
    std::ostringstream content;
    content << std::ifstream(state.directory / name, std::ios::binary).rdbuf();
    return content.str();
}

/// The contents of all files, by their paths.
std::map<std::string, std::string> tree() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(state.directory)) {
        files[entry.path()] = entry.is_regular_file() ? get(entry.path()) : "";
    }
    return files;
}

/// What the host writes to a line in memory while `body` runs with the port opened on it: `sent`
/// has come by then, and nothing comes behind it.
std::string over_line(std::string_view sent, const std::function<void()>& body) {
    int pair[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0, "a line can be had");
    const Fd far_end(pair[0]);
    active_config.port_type = PORT_SERIAL;
    serial_set_write_limit(1);
    check(port_adopt(Fd(pair[1]), "line", 38400) == 1, "the port opens");
    send(pair[0], sent.data(), sent.size(), MSG_DONTWAIT);
    body();
    port_reset();
    std::string answer(1 << 18, 0);
    const ssize_t got = recv(pair[0], answer.data(), answer.size(), MSG_WAITALL);
    answer.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return answer;
}

std::string contents(const IniDocument& doc) {
    std::string all;
    for (const IniSection& section : doc.sections) {
        all += "[" + std::string(section.name) + "]";
        check(ini_find_section(doc, section.name) == &section, "every section is found");
        for (const IniItem& item : section.items) {
            all += std::string(item.name) + "=" + std::string(item.value) + ";";
            check(ini_find_item(section, item.name) == &item, "every item is found");
        }
    }
    return all;
}

/// What was read, written and read again is the same, and look-ups find every name.
void ini(FuzzedDataProvider& input) {
    put("first.ini", input.ConsumeRemainingBytesAsString());
    IniDocument first, second;
    if (ini_read("first.ini", first) == 0) {
        const std::string all = contents(first);
        check(ini_write("second.ini", first) == 0, "it can be written");
        check(all.empty() || ini_read("second.ini", second) == 0, "what was written can be read");
        check(contents(second) == all, "read again it is the same document");
    }
}

/// Main file, target, scheme, character set, patches and symbols, with form feeds between them.
/// What the setup program writes from what was loaded loads again, and to the same.
void config(FuzzedDataProvider& input) {
    std::istringstream all(input.ConsumeRemainingBytesAsString());
    for (const char* name : {"kx.ini", "config/it.ini", "config/col_it.ini", "config/charset.ini",
                             "patches.ini", "symbols.ini"}) {
        std::string content;
        std::getline(all, content, '\f');
        put(name, content);
    }
    setenv("KXPATH", ".", 1);
    IniDocument main_doc, target_doc, new_main, main_2, target_2;
    if (ends([&] {
            config_load_or_exit(main_doc, target_doc, "kxsetup", "kx.ini");
            template_main_build(new_main, "new.ini", main_doc, true);
        })) {
        return;
    }
    const ActiveConfig before = active_config;
    (void)ends([&] {
        check(sim_init() == 1, "the simulator starts");
        charset_load_defaults("", main_doc);
        config_load_roms("", target_doc);
        config_load_symbols("", target_doc);
        patch_apply_defaults(0, 0x200);
    });
    template_target_annotate(target_doc);
    ini_set_item(new_main, "targets", "default", "new");
    check(ini_write("new.ini", new_main) == 0, "the main file can be written");
    check(ini_write("config/new.ini", target_doc) == 0, "the target file can be written");
    active_config_reset();
    check(!ends([&] { config_load_or_exit(main_2, target_2, "kxsetup", "new.ini"); }), "it loads");
    check(active_config == before, "to the same");
}

/// Every symbol that was read is found.
void symbols(FuzzedDataProvider& input) {
    put("symbols", input.ConsumeRemainingBytesAsString());
    for (const int type : {FILETYPE_KXSYMS, FILETYPE_VICE}) {
        (void)ends([&] { filehandler_readsymfile(sym_store, "symbols", type); });
    }
    for (const SymEntry& symbol : sym_store->entries) {
        const SymEntry* found = sym_find_name(sym_store, symbol.name.c_str(), symbol.bank);
        check(symbol.name.empty() || found == &symbol, "a symbol is found by its name");
    }
}

/// Whatever the file holds, every conversion stays in its room.
void charset(FuzzedDataProvider& input) {
    const auto flags = input.ConsumeIntegral<std::uint8_t>();
    const auto codes = input.ConsumeBytes<std::uint8_t>(64);
    put("charset.ini", input.ConsumeRemainingBytesAsString());
    if (Charset* set = charset_of_mode(flags & 15U); set != nullptr) {
        (void)ends([&] { charset_load(set->to_ascii, set->from_ascii, "charset.ini"); });
    }
    // Exactly as much room as is promised to be enough: the sanitizer sees every byte beyond.
    std::vector<char> text(codes.size() * ((flags & CHARSET_ESCAPE) != 0 ? 3 : 1));
    std::vector<std::uint8_t> back(codes.size());
    charset_to_ascii(text.data(), codes.data(), codes.size(), flags);
    charset_from_ascii(back.data(), text.data(), text.size(), back.size(), flags);
}

/// A range that was taken is in its bounds; a verb's options are taken, or it is said why not.
void kx_words(FuzzedDataProvider& input) {
    const std::string text = input.ConsumeRemainingBytesAsString();
    std::string error;
    std::vector<std::string> words, arguments;
    std::istringstream lines(text);
    for (std::string word; std::getline(lines, word); words.push_back(word)) {
    }
    const Verb* const verb = words.empty() ? nullptr : verb_find(words.front());
    if (verb != nullptr) {
        words.erase(words.begin());
        const bool taken =
            options_parse(verb->options, global_options(), words, arguments, error) == 0 &&
            options_store_arguments(verb->options, arguments, error) == 0;
        check(taken || !error.empty(), "a refusal says why");
    }
    AddressRange range;
    if (parse_range(text, nullptr, range, error) == 0) {
        check(range.first < range.end && range.end <= ADDRESS_SPACE, "a range is in its bounds");
    }
}

/// Without a screen: every input comes to its end, and gives keys that there are.
void keys(FuzzedDataProvider& input) {
    const std::string typed = input.ConsumeRemainingBytesAsString().substr(0, 200);
    put("keys", typed);
    dup2(Fd(open("keys", O_RDONLY | O_CLOEXEC)).get(), STDIN_FILENO);
    while (lseek(STDIN_FILENO, 0, SEEK_CUR) < static_cast<off_t>(typed.size())) {
        const int key = con_getkey();
        check((key >= 0 && key < 256) || (key >= KEYCODE_DOWN && key <= KEYCODE_END), "a key");
    }
    check(con_getkey() == KEYCODE_ESCAPE, "the end of the input acts as Escape");
}

/// Memory of 2^bits bytes, all mapped, in the simulator's core.
void memory_open(std::uint8_t bits) {
    mem_mode = MEM_SIMULATOR;
    active_config.addr_bits = bits;
    MemoryMap& map = active_config.memory_map;
    memory_map_set_type(map, memory_map_add(map, 0, 0, 0xFFFFFFFF), MEMORY_RAM_ROM);
    check(sim_init() == 1, "the simulator starts");
}

/// What was loaded can be saved, and loads again to the same memory.
void loader(FuzzedDataProvider& input) {
    const std::string name = input.PickValueInArray({"f.prg", "f.raw", "f.sid", "f.nes", "f.pce"});
    const auto address = input.ConsumeIntegral<std::uint16_t>();
    put(name, input.ConsumeRemainingBytesAsString());
    memory_open(16);
    (void)file_start_address(name);
    if (file_load(name, address) == 1 && address != 0) {
        const std::uint32_t end = std::min(address + 0x400U, 0x10000U);
        check(file_save("g.prg", address, end) == 1, "memory can be saved");
        check(sim_init() == 1 && file_load("g.prg", 0) == 1, "what was saved loads");
        check(file_save("h.prg", address, end) == 1, "and can be saved again");
        check(get("h.prg") == get("g.prg"), "the same bytes");
    }
}

/// A search ends, and writes nothing but the record's bytes within reach of its matches.
void patch(FuzzedDataProvider& input) {
    const auto start = input.ConsumeIntegral<std::uint32_t>();
    const auto range = input.ConsumeIntegralInRange<std::uint32_t>(0, 0x1000);
    const auto record = input.ConsumeBytes<std::uint8_t>(3 + 3 * 255);
    const auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();
    memory_open(32);
    for (std::uint32_t i = 0; i < bytes.size(); i++) {
        sim_write8(start + i, bytes[i]);
    }
    check(patch_search_apply("x", record, start, range) == 1, "a search without keys ends well");
    for (std::uint32_t i = range + 255 + 255; i < bytes.size(); i++) {
        check(sim_read8(start + i) == bytes[i], "the rest stays");
    }
}

/// A disc as it lies there: its bytes, whether they are in order, and its files that are whole.
struct Look {
    std::string image;
    bool in_order = false;
    std::set<std::pair<int, std::vector<std::uint8_t>>> files; // with the entry's number
};

Look look() {
    Disc disc;
    DiscFindings findings;
    check(disc_open(disc, "../a.d64", DiscAccess::Read) == 1, "any image opens for reading");
    Look seen = {get("a.d64"), disc_check(disc, findings) == 1, {}};
    for (const DiscEntry& entry : disc_entries(disc)) {
        std::vector<std::uint8_t> bytes;
        if (entry.closed && disc_chain(disc, entry.number).blocks == entry.blocks &&
            disc_read(disc, entry.number, bytes) == 1) {
            seen.files.emplace(entry.number, bytes);
        }
    }
    return seen;
}

enum Change { Write, Delete, Rename, Copy, Repair };

int change_disc(Change change, int number, const std::string& text) {
    Disc disc;
    DiscName name;
    DiscFindings done;
    if (disc_open(disc, "../a.d64", DiscAccess::Change) != 1 ||
        disc_file_name(disc, text, name) != 1) {
        return -1;
    }
    const std::string host = get("host");
    const std::vector<std::uint8_t> bytes(host.begin(), host.end());
    const int result = change == Write    ? disc_write(disc, {.name = name, .bytes = bytes})
                       : change == Delete ? disc_delete(disc, number, true)
                       : change == Rename ? disc_rename(disc, number, name)
                       : change == Copy   ? disc_copy(disc, disc, number, name, false)
                                          : disc_repair(disc, done);
    check(disc_commit(disc) == 1, "the changes are put in place");
    return result;
}

int change_image(Change change, const std::string& name) {
    ImageHandle image;
    check(image_open(image, "../a.d64", false, true) == 1, "any image opens");
    imgfile_list_directory(image, stdout);
    imgfile_extract_all(image);
    const int result = change == Delete ? imgfile_delete_file(image, name)
                                        : imgfile_write_file(image, "../host", name);
    image_close(image);
    return result;
}

/// a.d64 with the files A and B, which the input damages or not.
void make_image(FuzzedDataProvider& input) {
    Disc disc;
    disc_create(disc, "../a.d64", {.tracks = input.PickValueInArray({35, 40, 42})});
    check(disc_commit(disc) == 1, "a disc can be made");
    put("host", std::string(700, 'x'));
    check(change_disc(Write, 0, "A") == 1, "a first file can be written");
    check(change_disc(Write, 0, "B") == 1, "and a second one");
    std::string image = get("a.d64");
    while (input.ConsumeBool()) { // first and next block of A, map, the slots of A and B
        const auto at = input.PickValueInArray({0x15000U, 0x15A00U, 0x16544U, 0x16600U, 0x16620U});
        image[at + input.ConsumeIntegral<std::uint8_t>() % 32] = input.ConsumeIntegral<char>();
    }
    image.resize(image.size() - (input.ConsumeBool() ? input.ConsumeIntegral<std::uint16_t>() : 0));
    put("a.d64", image);
}

/// By the drive's rules what fails changes nothing, a disc in order stays so, and all other files
/// keep their bytes. By either the size stays, and all that is outside the directory.
void disc(FuzzedDataProvider& input) {
    const bool whole = input.ConsumeBool();
    d64_dos_mode = whole || input.ConsumeBool() ? 1 : 0;
    fs::create_directory("in");
    fs::current_path("in");
    make_image(input);
    Look before = look();
    for (int steps = 0; steps < 12 && input.remaining_bytes() > 0; steps++) {
        const auto change = static_cast<Change>(input.ConsumeIntegralInRange<int>(Write, Repair));
        const int number = input.ConsumeIntegralInRange(-1, 9);
        std::string name = input.PickValueInArray({"A", "B", "C", "D", ""});
        name += input.ConsumeRandomLengthString(name.empty() ? 20 : 0);
        put("host", std::string(input.ConsumeIntegralInRange(0U, 20000U), char('a' + steps)));
        const int result = whole ? change_disc(change, number, name) : change_image(change, name);
        const Look after = look();
        check(after.image.size() == before.image.size(), "the size stays");
        if (d64_dos_mode == 1) {
            check(result == 1 || after.image == before.image, "a failure changes nothing");
            check(!before.in_order || after.in_order, "a disc in order stays so");
            std::erase_if(before.files, [&](auto& file) { return after.files.contains(file); });
            check(before.files.size() <= (change == Delete ? 1 : 0), "the other files stay");
        }
        before = after;
    }
    check(std::distance(fs::directory_iterator(".."), {}) <= 3, "all stays inside");
}

std::string ask(const std::string& requests) {
    return over_line(requests, [] {
        while (port_has_data() != 0) {
            fileserver_handle_byte(port_getc_nowait());
        }
    });
}

/// Nothing outside the root is read or changed, nothing at all in a root that is only read, and the
/// next request is answered.
void servers(FuzzedDataProvider& input) {
    static const std::pair<std::uint8_t, std::string> known[] = {
        {FILESERVER_GENERIC, {"\x01\xAC\x03ls\0", 6}},
        {FILESERVER_SERIALSLAVE, "?"},
        {FILESERVER_CBM, "\x02\x03NO\r"}}; // answered at all times
    const auto [id, request] = input.PickValueInArray(known);
    active_config.fileserver = id;
    active_config.fileserver_root = fs::absolute("root");
    active_config.fileserver_read_only = input.ConsumeBool();
    active_config.fileserver_open_match = input.ConsumeBool();
    active_config.fileserver_translate_save = input.ConsumeBool();
    put("0/1", "of nobody's business"); // digits, which PETSCII has as well
    const auto outside = tree();
    put("root/2/3", "b");
    put("root/4", "\x01\x08xy");
    fs::create_directory_symlink("../0", "root/5");
    const auto all = tree();
    check(fileserver_start() == 0, "the root can be opened");
    fileserver_set_patience(1);
    const std::string answer = ask(input.ConsumeRemainingBytesAsString());
    check(answer.find("business") == std::string::npos, "nothing outside the root is read");
    check(!active_config.fileserver_read_only || tree() == all, "what is read-only stays");
    check(!ask(request).empty(), "the next request is answered");
    fs::remove_all(active_config.fileserver_root);
    check(tree() == outside, "nothing outside the root is changed");
}

/// What goes over a line that brings it back is what comes, in order, and nothing behind it.
void console(FuzzedDataProvider& input) {
    check(mkfifo("line", 0600) == 0, "a line can be had");
    active_config.console = CONSOLE_SERIAL;
    active_config.console_port = "line";
    target_console_init();
    while (input.ConsumeBool()) {
        const auto word = input.ConsumeIntegral<std::uint16_t>();
        serial_console_putw(word);
        check(serial_console_getw() == word, "a word comes back");
    }
    const std::string text = input.ConsumeRandomLengthString(4000);
    serial_console_puts(text);
    std::size_t count = 0;
    for (; target_console_poll_byte() != 0; count++) {
    }
    check(count == text.size(), "each character of a text is a byte, and none of them zero");
}

/// A read succeeds when exactly its bytes have come, and holds them then.
void stub(FuzzedDataProvider& input) {
    active_config.addr_bits = input.ConsumeIntegralInRange<std::uint8_t>(11, 32);
    std::vector<std::uint8_t> bytes(input.ConsumeIntegralInRange<std::size_t>(1, 0x400));
    const std::string answer = input.ConsumeRemainingBytesAsString();
    stub_set_timeout(1);
    const std::string command = over_line(answer, [&] {
        const bool read = stub_read_memory(0x801, bytes) == 1;
        check(!read || answer == std::string(bytes.begin(), bytes.end()), "all, and no other");
        check(read || stub_last_error().kind != FailureKind::None, "a failure has its cause");
    });
    check(command.starts_with("AC"), "the command was sent");
}

const std::map<std::string, void (*)(FuzzedDataProvider& input)> fuzzers = {
    {"charset", charset}, {"config", config},   {"console", console}, {"disc", disc},
    {"ini", ini},         {"keys", keys},       {"kx", kx_words},     {"loader", loader},
    {"patch", patch},     {"servers", servers}, {"stub", stub},       {"symbols", symbols},
};

/// An empty directory, the library's modules as at program start, and no descriptor left open.
void run(FuzzedDataProvider& input) {
    std::string path = fs::temp_directory_path() / "kxfuzz.XXXXXX";
    check(mkdtemp(path.data()) != nullptr, "a directory can be made");
    state.directory = path;
    fs::current_path(path);
    signals_ignore_failed_writes();
    clock_set_source([] { return state.now_ms; });
    msg_set_output(MSG_QUIET);
    sym_table_new(&sym_store);
    verbosity.silent = 1;
    const int lowest = Fd(dup(STDERR_FILENO)).get();
    const char* const name = std::getenv("KX_FUZZER");
    fuzzers.at(name != nullptr ? name : "")(input);
    fresh();
    check(Fd(dup(STDERR_FILENO)).get() == lowest, "no descriptor stays open");
    fs::remove_all(path);
    state = {};
}

} // namespace

} // namespace kx

// What the linker puts in the place of the system's calls; CMakeLists.txt has the list.
// NOLINTBEGIN: the linker's names
extern "C" {

[[noreturn]] void __real_exit(int status);
int __real_poll(pollfd* lines, nfds_t count, int ms);

[[noreturn]] void __wrap_exit(int status) {
    if (!kx::state.directory.empty()) {
        throw kx::ProgramEnd();
    }
    __real_exit(status);
}

// Nothing comes later: who waits has waited at once.
int __wrap_poll(pollfd* lines, nfds_t count, int ms) {
    const int ready = __real_poll(lines, count, 0);
    kx::state.now_ms += ready == 0 ? static_cast<std::uint32_t>(ms) : 0;
    return ready;
}

// For what a line in memory cannot do and a disc in memory need not, and for sleep.
int kx_fuzz_nothing() {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    kx::run(input);
    return 0;
}
}
// NOLINTEND
