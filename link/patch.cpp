// Smart patches: loads a patch's record from the patch file, scans memory for its masked pattern,
// writes its bytes at every match and reports where.
#include "link/patch.h"

#include "core/active_config.h"
#include "ini/ini.h"
#include "link/target_memory.h"
#include "ui/con.h"
#include "ui/msg.h"
#include "ui/msg_items.h"

#include <algorithm>
#include <climits>
#include <unistd.h>

namespace kx {

namespace {

// Layout of a record: three bytes, then match, mask and patch bytes.
constexpr std::size_t REC_MLEN = 0;
constexpr std::size_t REC_PLEN = 1;
constexpr std::size_t REC_POFFS = 2;
constexpr std::size_t REC_DATA = 3;

// A look at the keyboard is a system call. The simulator is so fast that one in as many addresses
// still ends the search at once; reading a byte of the target takes longer than the look.
constexpr std::uint32_t KEY_INTERVAL = 4096;

// A record as the search reads it: whatever the lengths in its head say, nothing outside of it.
struct Record {
    std::span<const std::uint8_t> bytes;

    std::uint8_t at(std::size_t i) const { return i < bytes.size() ? bytes[i] : std::uint8_t{0}; }
    std::size_t mlen() const { return at(REC_MLEN); }
    std::size_t plen() const { return at(REC_PLEN); }
    std::uint8_t match(std::size_t i) const { return at(REC_DATA + i); }
    std::uint8_t mask(std::size_t i) const { return at(REC_DATA + mlen() + i); }
    std::uint8_t patch(std::size_t k) const { return at(REC_DATA + 2 * mlen() + k); }
};

// Whether there is a keyboard to look at. The end of a redirected input would act as ESC.
bool has_keyboard() {
    return con_screen_active() || isatty(STDIN_FILENO);
}

void write_patch(const Record& record, std::uint32_t match_address) {
    const std::uint32_t to = match_address + record.at(REC_POFFS);
    for (std::size_t k = 0; k < record.plen(); k++) {
        mem_write8(to + static_cast<std::uint32_t>(k), record.patch(k));
    }
}

struct State {
    PatchResult result;
};
State state;

void report() {
    const PatchResult& result = state.result;
    if (result.count == 0) {
        msg_warning("%s not patched", result.name.c_str());
        return;
    }
    msg_info("%s patch applied %d time(s).", result.name.c_str(), result.count);
    for (const std::uint32_t address : result.addresses) {
        msg_info("address = %08x", address);
    }
}

// The record of a section. The mask stands right behind the match bytes that the file gives and
// the patch right behind the mask bytes, but the search takes them where the declared lengths
// put them.
// Meant: arrays shorter than declared shift what follows.
std::vector<std::uint8_t> load_record(const IniDocument& doc, const std::string& section) {
    const auto mlen = static_cast<std::uint8_t>(ini_get_number(doc, section, "mlen"));
    const auto plen = static_cast<std::uint8_t>(ini_get_number(doc, section, "plen"));
    std::vector<std::uint8_t> record(REC_DATA + std::size_t{2} * mlen + plen);
    record[REC_MLEN] = mlen;
    record[REC_PLEN] = plen;
    record[REC_POFFS] = static_cast<std::uint8_t>(ini_get_number(doc, section, "poffs"));

    std::span<std::uint8_t> rest = std::span(record).subspan(REC_DATA);
    const auto read = [&](const char* stem, std::size_t count) {
        const int got = ini_get_byte_array(doc, rest.first(count), section, stem);
        rest = rest.subspan(static_cast<std::size_t>(got));
    };
    read("match", mlen);
    read("mask", mlen);
    read("patch", plen);
    return record;
}

int apply_section(const IniDocument& doc, const std::string& section, std::uint32_t start,
                  std::uint32_t size) {
    const bool simulator = !mem_reaches_target();
    // Meant: a target behind the Retro Replay stub is never patched, and its patches succeed.
    if (!simulator && active_config.stub == TARGET_C64RR) {
        return 1;
    }
    std::string name;
    ini_get_string(doc, name, section, "name");
    const int result = patch_search_apply(name, load_record(doc, section), start, size);
    return simulator ? result : 1;
}

void read_patch_file(IniDocument& doc) {
    ini_create(doc, active_config.patch_file); // names the file in errors if it cannot be read
    ini_read(active_config.patch_file, doc);
}

} // namespace

const PatchResult& patch_last_result() {
    return state.result;
}

void patch_reset() {
    state = {};
}

int patch_search_apply(const std::string& name, std::span<const std::uint8_t> bytes,
                       std::uint32_t start, std::uint32_t size) {
    const Record record{bytes};
    const std::size_t mlen = record.mlen();
    PatchResult& result = state.result;
    result = {};
    result.name = name;
    // Meant: a range that reaches the end of the 32-bit address space counts as wrapping, like an
    // empty one. A pattern of no bytes matches nowhere.
    if (static_cast<std::uint32_t>(start + size) <= start || mlen == 0) {
        report();
        return 1;
    }
    const bool keyboard = has_keyboard();
    const std::uint32_t key_interval = mem_reaches_target() ? 1 : KEY_INTERVAL;
    const int total = static_cast<int>(std::min<std::uint32_t>(size, INT_MAX));
    std::size_t i = 0; // pattern bytes matched so far
    for (std::uint32_t done = 0; done < size; done++) {
        if (keyboard && done % key_interval == 0 && con_take_escape()) {
            return -1;
        }
        const std::uint32_t address = start + done;
        if ((mem_read8(address) & record.mask(i)) != record.match(i)) {
            // Meant: no backtracking, the byte that broke a match does not begin another.
            i = 0;
        } else if (++i == mlen) {
            const auto match = static_cast<std::uint32_t>(address - mlen + 1);
            if (result.addresses.size() < PATCH_MATCHES_MAX) {
                result.addresses.push_back(match);
            }
            result.count++;
            write_patch(record, match);
            i = 0;
        }
        progress_update(static_cast<int>(std::min<std::uint32_t>(done, INT_MAX)), total);
    }
    report();
    return 1;
}

int patch_apply_named(const std::string& section, std::uint32_t start, std::uint32_t size) {
    IniDocument doc;
    read_patch_file(doc);
    return apply_section(doc, section, start, size);
}

int patch_apply_defaults(std::uint32_t start, std::uint32_t size) {
    msg_info("applying default patches (%08x-%08x)...", start, start + size);
    IniDocument doc;
    read_patch_file(doc);
    const int num = msg_items_count(doc, "patches_auto");
    progress_begin("applying patches ");
    int result = 1;
    for (int i = 0; i < num && result != -1; i++) {
        progress_update2(i, num);
        std::string section;
        ini_get_string(doc, section, "patches_auto", std::string("n").append(std::to_string(i)));
        result = apply_section(doc, section, start, size);
    }
    progress_end(result);
    return result;
}

} // namespace kx
