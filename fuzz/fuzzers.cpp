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
#include "link/seams_private.h"
#include "link/stub.h"
#include "setup/templates.h"
#include "symfiles/symfiles.h"
#include "tools/parse.h"
#include "ui/con.h"
#include "util/fd.h"
#include "util/text.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
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

std::string loaded() {
    const ActiveConfig& now = active_config;
    std::string all = text_printf(
        "%s,%s,%s,%s,%s,%d,%d,%d,%d,%d,%d", now.cpu_tag.c_str(), now.machine_tag.c_str(),
        now.cable_tag.c_str(), now.port_name.c_str(), now.patch_file.c_str(), now.cpu_regs,
        now.addr_bits, now.port_baud, now.stub, now.fileserver, now.default_file_type);
    for (const MemoryRegion& region : now.memory_map.regions) {
        all += text_printf(" %x-%x:%d", region.base, region.last, region.type);
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
    const std::string all = input.ConsumeRemainingBytesAsString();
    std::size_t at = 0;
    for (const char* name : {"kx.ini", "config/it.ini", "config/col_it.ini", "config/charset.ini",
                             "patches.ini", "symbols.ini"}) {
        const std::size_t end = std::min(all.find('\f', at), all.size());
        put(name, all.substr(at, end - at));
        at = std::min(end + 1, all.size());
    }
    setenv("KXPATH", ".", 1);
    IniDocument main_doc, target_doc, new_main, again;
    int result = 0;
    if (!ends([&] {
            if (config_load(main_doc, target_doc, "kxsetup", "kx.ini") == 1) {
                template_main_build(new_main, "kx.ini", main_doc, true);
            }
        })) {
        check(ini_write("kx.ini", new_main) == 0, "the main file can be written");
    }
    active_config_reset();
    if (ends([&] { result = config_load_target(target_doc, "./config/it.ini"); })) {
        return;
    }
    const std::string before = loaded();
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
    int second = 0;
    check(!ends([&] { second = config_load_target(again, "./config/again.ini"); }), "it loads");
    check(second == result && loaded() == before, "what is written loads to the same");
}

/// Every symbol is found, and of the labels that are written none is made up.
void symbols(FuzzedDataProvider& input) {
    put("symbols", input.ConsumeRemainingBytesAsString());
    SymTable* table = sym_table_new(nullptr);
    SymTable* again = sym_table_new(nullptr);
    for (const int type : {FILETYPE_KXSYMS, FILETYPE_VICE}) {
        (void)ends([&] { filehandler_readsymfile(table, "symbols", type); });
    }
    for (const SymEntry& symbol : table->entries) {
        check(symbol.name.empty() ||
                  sym_find_name(table, symbol.name.c_str(), symbol.bank) == &symbol,
              "a symbol is found by its name");
    }
    std::FILE* file = std::fopen("labels", "w");
    check(sym_write_vice(table, file) == 1, "labels can be written");
    std::fclose(file);
    (void)filehandler_readsymfile(again, "labels", FILETYPE_VICE);
    check(again->entries.size() <= table->entries.size(), "no label is made up");
    sym_table_free(table);
    sym_table_free(again);
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
/// out.
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
}

/// Without a screen: every input comes to its end, and gives keys that there are.
void keys(FuzzedDataProvider& input) {
    const std::string typed = input.ConsumeRemainingBytesAsString();
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

std::string memory(std::uint32_t start, std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; i++) {
        bytes += static_cast<char>(sim_read8(start + static_cast<std::uint32_t>(i)));
    }
    return bytes;
}

bool is_clean(Disc& disc) {
    DiscFindings findings;
    return disc_check(disc, findings) == 1;
}

int change(Disc& disc, FuzzedDataProvider& input) {
    const int number = input.ConsumeIntegralInRange(-1, 144);
    const int what = input.ConsumeIntegralInRange(0, 7);
    const auto bytes =
        input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegral<std::uint8_t>() * 200U);
    DiscName name = {};
    DiscFindings done;
    const bool named = disc_file_name(disc, input.ConsumeRandomLengthString(20), name) == 1;
    return !named || what == 0 ? disc_repair(disc, done)
           : what == 1         ? disc_delete(disc, number, true)
           : what == 2         ? disc_rename(disc, number, name)
           : what == 3         ? disc_copy(disc, disc, number, name, false)
           : what == 4         ? disc_set_lock(disc, number, true)
           : what == 5         ? disc_set_label(disc, name, {'A', 'B'})
           : what == 6         ? disc_write(disc, {name, DISC_PRG, true, false, bytes})
                               : disc_write(disc, {name, DISC_SEQ, false, true, bytes});
}

/// The toolkit's own rules, on the image where it lies; what is extracted stays in the directory.
void change_in_place(FuzzedDataProvider& input) {
    ImageHandle image;
    std::filesystem::create_directory("in");
    std::filesystem::current_path("in");
    if (image_open(image, "../a.d64", false, true) == 1) {
        imgfile_write_file(image, "../host", input.ConsumeRandomLengthString(20));
        imgfile_delete_file(image, input.ConsumeRandomLengthString(20));
        imgfile_extract_all(image);
    }
    image_close(image);
    const std::filesystem::directory_iterator top("..");
    check(std::distance(begin(top), end(top)) == 3, "nothing is written outside the directory");
}

void change_as_a_drive(Disc& disc, FuzzedDataProvider& input) {
    check(disc_open(disc, "a.d64", DiscAccess::Change) == 1, "a whole image opens");
    while (input.remaining_bytes() > 0) {
        const bool clean = is_clean(disc);
        const std::vector<std::uint8_t> before = *disc.image.memory;
        const bool changed = change(disc, input) == 1;
        check(changed || *disc.image.memory == before, "a change that fails changes nothing");
        check(!clean || is_clean(disc), "a disc without faults stays so");
    }
    check(disc_commit(disc) == 1, "the changes are put in place");
    disc_close(disc);
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

/// Discs by both rules, on an image that the input damages. By the drive's rules what fails changes
/// nothing, and a disc without faults stays so; the image keeps its size by either.
void disc(FuzzedDataProvider& input) {
    Disc disc;
    check(disc_create(disc, "a.d64", {.tracks = input.PickValueInArray({35, 40, 42})}) == 1,
          "made");
    check(disc_commit(disc) == 1, "a new disc is put in place");
    disc_close(disc);
    std::string image = get("a.d64");
    while (input.ConsumeBool()) { // header, map and directory
        const std::size_t at = 357 * 256 + input.ConsumeIntegralInRange<std::size_t>(0, 0x400);
        image[at] = input.ConsumeIntegral<char>();
    }
    put("a.d64", image);
    put("host", "1234567");
    if (input.ConsumeBool()) {
        change_in_place(input);
    } else {
        change_as_a_drive(disc, input);
    }
    check(get("host") == "1234567", "host files stay");
    check(get("a.d64").size() == image.size(), "the size stays");
}

std::string ask(const std::string& requests) {
    line_open(requests);
    for (std::size_t asked = 0; port_has_data() != 0; asked++) {
        check(asked < requests.size(), "every request takes a byte");
        fileserver_handle_byte(port_getc_nowait());
    }
    return line_answer();
}

/// Nothing outside the root is read or changed, nothing at all in a root that is only read, and the
/// next request is answered.
void servers(FuzzedDataProvider& input) {
    struct Server {
        std::uint8_t id;
        std::string request; // answered whatever was asked before
    };
    static const Server servers[] = {{FILESERVER_GENERIC, {"\x01\xAC\x03ls\0", 6}},
                                     {FILESERVER_SERIALSLAVE, "?"},
                                     {FILESERVER_CBM, "\x02\x03NO\r"}};
    const Server& server = servers[input.ConsumeIntegralInRange<std::size_t>(0, 2)];
    active_config.fileserver = server.id;
    active_config.fileserver_root = std::filesystem::absolute("root");
    active_config.fileserver_read_only = input.ConsumeBool();
    active_config.fileserver_open_match = input.ConsumeBool();
    active_config.fileserver_translate_save = input.ConsumeBool();
    put("outside/secret", "of nobody's business");
    put("root/sub/b.seq", "b");
    put("root/game.prg", "\x01\x08xy");
    std::filesystem::create_directory_symlink("../outside", "root/out");
    const auto outside = tree("outside"), root = tree("root");
    check(fileserver_start() == 0, "the root can be opened");
    fileserver_set_patience(1);
    const std::string answer = ask(input.ConsumeRemainingBytesAsString());
    check(answer.find("business") == std::string::npos, "nothing outside the root is read");
    check(tree("outside") == outside, "nothing outside the root is changed");
    check(!active_config.fileserver_read_only || tree("root") == root, "read-only is read only");
    check(!ask(server.request).empty(), "the next request is answered");
    fileserver_reset();
}

/// A read succeeds when exactly its bytes have come, and holds them then.
void stub(FuzzedDataProvider& input) {
    active_config.addr_bits = input.ConsumeIntegralInRange<std::uint8_t>(11, 32);
    std::vector<std::uint8_t> bytes(input.ConsumeIntegralInRange<std::size_t>(1, 0x400));
    const bool image = input.ConsumeBool();
    const std::string answer = input.ConsumeRemainingBytesAsString();
    stub_set_timeout(1);
    stub_set_sleep([] {});
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
