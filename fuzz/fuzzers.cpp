// The fuzzers: each takes an input apart, hands it to the library, and checks what must hold.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/config/config.h"
#include "core/simulator.h"
#include "files/d64.h"
#include "files/disc.h"
#include "files/imgfile.h"
#include "files/loader.h"
#include "fileserver/fileserver.h"
#include "ini/ini.h"
#include "link/patch.h"
#include "link/port.h"
#include "link/stub.h"
#include "link/target_memory.h"
#include "setup/templates.h"
#include "tools/parse.h"
#include "tools/symbols.h"
#include "tools/verbs.h"
#include "ui/con.h"
#include "util/fd.h"
#include "util/file.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sstream>
#include <unistd.h>

namespace kx::fuzz {

namespace {

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
    IniDocument main_doc, target_doc, new_main, again;
    if (!ends([&] {
            if (config_load(main_doc, target_doc, "kxsetup", "kx.ini") == 1) {
                template_main_build(new_main, "kx.ini", main_doc, true);
            }
        })) {
        check(ini_write("kx.ini", new_main) == 0, "the main file can be written");
    }
    active_config_reset();
    int result = 0, second = 0;
    if (ends([&] { result = config_load_target(target_doc, "./config/it.ini"); })) {
        return;
    }
    const ActiveConfig before = active_config;
    sym_table_new(&sym_store);
    (void)ends([&] {
        check(sim_init() == 1, "the simulator starts");
        charset_load_defaults("", main_doc);
        config_load_roms("", target_doc);
        config_load_symbols("", target_doc);
        patch_apply_defaults(0, 0x200);
    });
    sym_table_free(sym_store);
    sim_shutdown();
    template_target_annotate(target_doc);
    check(ini_write("config/again.ini", target_doc) == 0, "the target file can be written");
    active_config_reset();
    check(!ends([&] { second = config_load_target(again, "./config/again.ini"); }), "it loads");
    check(second == result && active_config == before, "what is written loads to the same");
}

/// Every symbol is found, and of the labels that are written none is made up.
void symbols(FuzzedDataProvider& input) {
    put("symbols", input.ConsumeRemainingBytesAsString());
    const SymbolSet all, again;
    for (const int type : {FILETYPE_KXSYMS, FILETYPE_VICE}) {
        (void)ends([&] { filehandler_readsymfile(all.table, "symbols", type); });
    }
    for (const SymEntry& symbol : all.table->entries) {
        const SymEntry* found = sym_find_name(all.table, symbol.name.c_str(), symbol.bank);
        check(symbol.name.empty() || found == &symbol, "a symbol is found by its name");
    }
    const FilePtr file = file_open("labels", "w");
    check(sym_write_vice(all.table, file.get()) == 1, "labels can be written");
    std::fflush(file.get());
    (void)filehandler_readsymfile(again.table, "labels", FILETYPE_VICE);
    check(again.table->entries.size() <= all.table->entries.size(), "no label is made up");
}

/// Whatever the file holds, every conversion stays in its room.
void charset(FuzzedDataProvider& input) {
    const auto flags = input.ConsumeIntegral<std::uint8_t>();
    const std::string codes = input.ConsumeRandomLengthString(64);
    put("charset.ini", input.ConsumeRemainingBytesAsString());
    if (Charset* set = charset_of_mode(flags & 15U); set != nullptr) {
        (void)ends([&] { charset_load(set->to_ascii, set->from_ascii, "charset.ini"); });
    }
    // Exactly as much room as is promised to be enough: the sanitizer sees every byte beyond.
    const auto* const source = reinterpret_cast<const std::uint8_t*>(codes.data());
    std::vector<char> text(codes.size() * ((flags & CHARSET_ESCAPE) != 0 ? 3 : 1));
    std::vector<std::uint8_t> back(codes.size());
    charset_to_ascii(text.data(), source, codes.size(), flags);
    charset_from_ascii(back.data(), text.data(), text.size(), back.size(), flags);
}

/// An address or a range that was taken is in its bounds, and reads the same when it is written
/// out; the options of a verb are taken, or it is said why not. A word a line.
void kx_words(FuzzedDataProvider& input) {
    const std::string text = input.ConsumeRemainingBytesAsString();
    std::string error;
    std::uint32_t address = 0, again = 0;
    if (parse_address(text, nullptr, address, error) == 0) {
        check(parse_address(address_text(address), nullptr, again, error) == 0, "it reads again");
        check(again == address, "and to the same address");
    } else {
        check(!error.empty(), "a refusal says why");
    }
    AddressRange range;
    if (parse_range(text, nullptr, range, error) == 0) {
        check(range.first < range.end && range.end <= 0x100000000, "a range is in its bounds");
    }
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
        check(taken ? arguments.size() <= words.size() : !error.empty(), "a refusal says why");
    }
}

/// Without a screen: every input comes to its end, and gives keys that there are.
void keys(FuzzedDataProvider& input) {
    const std::string typed = input.ConsumeRemainingBytesAsString().substr(0, 200);
    put("keys", typed);
    check(dup2(Fd(open("keys", O_RDONLY | O_CLOEXEC)).get(), STDIN_FILENO) == STDIN_FILENO,
          "input");
    const auto end = static_cast<off_t>(typed.size());
    for (std::size_t taken = 0; lseek(STDIN_FILENO, 0, SEEK_CUR) < end; taken++) {
        check(taken < typed.size(), "every key takes a byte");
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

std::string memory(std::uint32_t start, std::size_t count) {
    std::string bytes(count, 0);
    std::ranges::generate(bytes, [&] { return static_cast<char>(sim_read8(start++)); });
    return bytes;
}

/// What was loaded can be saved, and loads again to the same memory.
void loader(FuzzedDataProvider& input) {
    const std::string name = input.PickValueInArray({"f.prg", "f.raw", "f.sid", "f.nes", "f.pce"});
    const auto address = input.ConsumeIntegral<std::uint16_t>();
    const std::string content = input.ConsumeRemainingBytesAsString();
    put(name, content);
    memory_open(16);
    sym_table_new(&sym_store);
    (void)file_start_address(name);
    if (file_load(name, address) == 1 && address != 0) {
        const std::size_t count = std::min(0x10000U - address, 0x400U);
        const std::string before = memory(address, count);
        check(file_save("g.prg", address, address + count) == 1, "memory can be saved");
        check(sim_init() == 1 && file_load("g.prg", 0) == 1, "what was saved loads");
        check(memory(address, count) == before, "to the same bytes");
    }
    check(get(name) == content, "loading changes no file");
    sym_table_free(sym_store);
    sim_shutdown();
}

/// A search ends, and writes nothing but the record's bytes within reach of its matches.
void patch(FuzzedDataProvider& input) {
    const auto start = input.ConsumeIntegral<std::uint32_t>();
    const auto range = input.ConsumeIntegralInRange<std::uint32_t>(0, 0x1000);
    const auto record = input.ConsumeBytes<std::uint8_t>(3 + 3 * 255);
    const std::string bytes = input.ConsumeRemainingBytesAsString();
    memory_open(32);
    for (std::size_t i = 0; i < bytes.size(); i++) {
        sim_write8(start + static_cast<std::uint32_t>(i), static_cast<std::uint8_t>(bytes[i]));
    }
    check(patch_search_apply("x", record, start, range) == 1, "a search without keys ends well");
    const std::size_t reach = std::min<std::size_t>(range + 255 + 255, bytes.size());
    check(memory(start, bytes.size()).substr(reach) == bytes.substr(reach), "the rest stays");
    sim_shutdown();
}

/// A disc as it lies there: its bytes, whether they are in order, and its files that are whole.
struct Look {
    std::string image;
    bool in_order = false;
    std::map<int, std::vector<std::uint8_t>> files; // by the entry's number
};

Look look() {
    Disc disc;
    DiscFindings findings;
    check(disc_open(disc, "../a.d64", DiscAccess::Read) == 1, "any image opens for reading");
    Look seen = {get("a.d64"), disc_check(disc, findings) == 1, {}};
    for (const DiscEntry& entry : disc_entries(disc)) {
        std::vector<std::uint8_t> bytes;
        if (entry.raw_type != 0 && disc_chain(disc, entry.number).blocks == entry.blocks &&
            disc_read(disc, entry.number, bytes) == 1) {
            seen.files[entry.number] = bytes;
        }
    }
    return seen;
}

enum Change { Repair, Delete, Rename, Copy, Lock, Label, Write, Replace };

struct Step {
    Change change; // in place all but Delete write
    int number;
    std::string name, bytes;
};

int change_whole(const Step& step, Look& before) {
    Disc disc;
    DiscName name;
    DiscFindings done;
    if (disc_open(disc, "../a.d64", DiscAccess::Change) != 1 ||
        disc_file_name(disc, step.name, name) != 1) {
        return -1;
    }
    const std::vector<std::uint8_t> bytes(step.bytes.begin(), step.bytes.end());
    const auto [change, number] = std::pair(step.change, step.number);
    before.files.erase(change == Replace ? disc_find(disc, name) : -1);
    const int result = change == Repair   ? disc_repair(disc, done)
                       : change == Delete ? disc_delete(disc, number, true)
                       : change == Rename ? disc_rename(disc, number, name)
                       : change == Copy   ? disc_copy(disc, disc, number, name, false)
                       : change == Lock   ? disc_set_lock(disc, number, true)
                       : change == Label
                           ? disc_set_label(disc, name, {'A', 'B'})
                           : disc_write(disc, {name, DISC_PRG, false, change == Replace, bytes});
    check(disc_commit(disc) == 1, "the changes are put in place");
    return result;
}

int change_in_place(const Step& step, const Look& before) {
    ImageHandle image;
    const bool deletes = step.change == Delete;
    const int result = image_open(image, "../a.d64", false, true) != 1 ? -1
                       : deletes ? imgfile_delete_file(image, step.name)
                                 : imgfile_write_file(image, "../host", step.name);
    if (result == 1 && !deletes && before.in_order && !step.bytes.empty()) {
        imgfile_extract_file(image, step.name, "../back");
        check(get("back").starts_with(step.bytes), "what was written is there");
    }
    image_close(image);
    return result;
}

void check_files_stay(const Step& step, const Look& before, const Look& after) {
    int lost = 0;
    for (const auto& [number, bytes] : before.files) {
        const auto same = after.files.find(number);
        lost += same == after.files.end() ? 1 : 0;
        check(same == after.files.end() || same->second == bytes, "other files keep their bytes");
    }
    check(step.change == Repair || lost <= (step.change == Delete ? 1 : 0), "no other is lost");
}

/// An image with the files A and B, which the input damages or not.
std::string make_image(FuzzedDataProvider& input) {
    static std::map<int, std::string> made; // by the number of tracks
    const int tracks = input.PickValueInArray({35, 40, 42});
    if (made[tracks].empty()) {
        Disc disc;
        const std::vector<std::uint8_t> bytes(700, 'x');
        disc_create(disc, "a.d64", {.tracks = tracks});
        disc_write(disc, {.name = {'A'}, .bytes = bytes});
        disc_write(disc, {.name = {'B'}, .bytes = bytes});
        check(disc_commit(disc) == 1, "a disc can be made");
        made[tracks] = get("a.d64");
    }
    std::string image = made[tracks];
    while (input.ConsumeBool()) { // first and next block of A, first of B, map, their slots
        const std::size_t at =
            input.PickValueInArray({0x15000U, 0x15A00U, 0x15100U, 0x16540U, 0x16600U, 0x16620U});
        image[at + input.ConsumeIntegral<std::uint8_t>() % 32] = input.ConsumeIntegral<char>();
    }
    image.resize(image.size() - (input.ConsumeBool() ? input.ConsumeIntegral<std::uint16_t>() : 0));
    return image;
}

void only_read() {
    ImageHandle image;
    check(image_open(image, "../a.d64", false, false) == 1, "any image opens for reading");
    imgfile_list_directory(image, stdout);
    imgfile_extract_all(image);
    imgfile_delete_file(image, "A");
    check(imgfile_write_file(image, "../host", "C") != 1, "it is open for reading only");
    image_close(image);
}

/// Discs by both rules. Open for reading they stay; on a disc in order all other files keep their
/// bytes. By the drive's rules they do on any disc, what fails changes nothing, and a disc in order
/// stays so. By either the size stays, and all that is outside the directory.
void disc(FuzzedDataProvider& input) {
    const bool whole = input.ConsumeBool(), own_rules = !whole && input.ConsumeBool();
    const std::string image = make_image(input);
    put("a.d64", image);
    put("host", "1234567");
    put("back", "");
    std::filesystem::create_directory("in");
    std::filesystem::current_path("in");
    d64_dos_mode = own_rules ? 0 : 1;
    only_read();
    Look before = look();
    check(before.image == image, "what is only read stays");
    const bool in_order = before.in_order;
    for (int steps = 0; steps < 12 && input.remaining_bytes() > 0; steps++) {
        Step step = {static_cast<Change>(input.ConsumeIntegralInRange<int>(Repair, Replace)),
                     input.ConsumeIntegralInRange(-1, 144),
                     input.PickValueInArray({"A", "B", "C", "D", ""}), ""};
        step.name += input.ConsumeRandomLengthString(step.name.empty() ? 20 : 0);
        step.bytes.resize(input.ConsumeIntegralInRange<std::size_t>(0, 20000));
        std::ranges::generate(step.bytes, [i = 0U]() mutable { return char(i = 5 * i + 1); });
        put("host", step.bytes);
        const int result = whole ? change_whole(step, before) : change_in_place(step, before);
        Look after = look();
        check(after.image.size() == image.size(), "the size stays");
        check(own_rules || result == 1 || after.image == before.image, "a failure changes nothing");
        check(own_rules || !before.in_order || after.in_order, "a disc in order stays so");
        if (!own_rules || in_order) {
            check_files_stay(step, before, after);
        }
        before = std::move(after);
    }
    const std::filesystem::directory_iterator top("..");
    check(std::distance(begin(top), end(top)) == 4, "nothing is written outside the directory");
    d64_reset();
}

std::string ask(const std::string& requests, bool hang_up) {
    line_open(requests, hang_up);
    for (std::size_t asked = 0; port_has_data() != 0; asked++) {
        check(asked < requests.size(), "every request takes a byte");
        fileserver_handle_byte(port_getc_nowait());
    }
    return line_answer();
}

/// Names and contents of all that is below a directory.
std::set<std::string> tree(const std::string& name) {
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(name)) {
        const std::string path = entry.path();
        files.insert(path + "\n" + (entry.is_regular_file() ? get(path) : ""));
    }
    return files;
}

/// Nothing outside the root is read or changed, nothing at all in a root that is only read, nor by
/// a request that is dropped but what has come of a dhWrite, and the next request is answered.
void servers(FuzzedDataProvider& input) {
    static const std::pair<std::uint8_t, std::string> known[] = {
        {FILESERVER_GENERIC, {"\x01\xAC\x03ls\0", 6}},
        {FILESERVER_SERIALSLAVE, "?"},
        {FILESERVER_CBM, "\x02\x03NO\r"}}; // answered at all times
    static std::set<std::string> root;
    static bool hang_up; // done it may be, and dropped because nobody takes the answer
    const auto& [id, request] = known[input.ConsumeIntegralInRange<std::size_t>(0, 2)];
    hang_up = input.ConsumeBool();
    active_config.fileserver = id;
    active_config.fileserver_root = std::filesystem::absolute("root");
    active_config.fileserver_read_only = input.ConsumeBool();
    active_config.fileserver_open_match = input.ConsumeBool();
    active_config.fileserver_translate_save = input.ConsumeBool();
    const std::string other = std::filesystem::absolute("0");
    put("0/1", "of nobody's business"); // digits, which PETSCII has as well
    put("root/2/3", "b");
    put("root/4", "\x01\x08xy");
    std::filesystem::create_directory_symlink("../0", "root/5");
    const auto outside = tree(other);
    root = tree(active_config.fileserver_root);
    fileserver_set_event([](const FileserverEvent& event) {
        const bool may = !active_config.fileserver_read_only &&
                         (hang_up || event.result != FileserverResult::Dropped ||
                          std::string_view(event.request) == "dhWrite");
        const auto now = *event.request == 'u' ? root : tree(active_config.fileserver_root);
        check(may || now == root, "what is read-only or dropped changes nothing");
        root = now;
    });
    check(fileserver_start() == 0, "the root can be opened");
    fileserver_set_patience(1);
    const std::string answer = ask(input.ConsumeRemainingBytesAsString(), hang_up);
    check(answer.find("business") == std::string::npos, "nothing outside the root is read");
    check(tree(other) == outside, "nothing outside the root is changed");
    check(!ask(request, false).empty(), "the next request is answered");
    fileserver_reset();
}

/// A read succeeds when exactly its bytes have come, and holds them then.
void stub(FuzzedDataProvider& input) {
    active_config.addr_bits = input.ConsumeIntegralInRange<std::uint8_t>(11, 32);
    std::vector<std::uint8_t> bytes(input.ConsumeIntegralInRange<std::size_t>(1, 0x400));
    const bool image = input.ConsumeBool();
    const std::string answer = input.ConsumeRemainingBytesAsString();
    stub_set_timeout(1);
    line_open(answer);
    const int result = image ? stub_read_image({18, 0, 0}, bytes) : stub_read_memory(0x801, bytes);
    if (result == 1) {
        check(answer == std::string(bytes.begin(), bytes.end()), "all bytes, and no other");
    } else {
        check(stub_last_error().kind != FailureKind::None, "a failure has its cause");
    }
    check(line_answer().starts_with(image ? "AM" : "AC"), "the command was sent");
}

} // namespace

const std::map<std::string, Fuzzer> fuzzers = {
    {"charset", charset}, {"config", config}, {"disc", disc},       {"ini", ini},
    {"keys", keys},       {"kx", kx_words},   {"loader", loader},   {"patch", patch},
    {"servers", servers}, {"stub", stub},     {"symbols", symbols},
};

} // namespace kx::fuzz
