// kx patch: smart patches on a program file.
#include "core/active_config.h"
#include "link/target_memory.h"
#include "tools/base.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/parse.h"
#include "tools/patching.h"
#include "tools/payload.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/bytes.h"
#include "util/text.h"

#include <unistd.h>
#include <vector>

namespace kx {

namespace {

struct State {
    std::string file;
    std::string output;
    bool in_place = false;
    bool replace = false;
    std::vector<std::string> names;
    std::string patches;
    bool list = false;
    std::uint64_t memory_end = 0x10000; // a 6502's, unless a target's is known
};
State state;

constexpr Option options[] = {
    {"[FILE]", &state.file, "", "a program; a .prg begins with its load address"},
    {"-o,--output", &state.output, "FILE", "write the patched program there"},
    {"-i,--in-place", &state.in_place, "", "write it over FILE, and keep what it was as FILE.orig"},
    {"-f,--force", &state.replace, "", "replace a file that is there, also FILE.orig"},
    {"--name", &state.names, "SECTION",
     "apply this patch; may come again (those listed as automatic)"},
    {"--patches", &state.patches, "FILE", "patch file (the target's)"},
    {"--list", &state.list, "", "the patches of the patch file"},
};

int find_patch_file() {
    if (!state.patches.empty() && globals.target.empty()) {
        return 0;
    }
    IniDocument document;
    if (const int status = target_load(document)) {
        return status;
    }
    state.memory_end = std::uint64_t{mem_top()} + 1;
    if (state.patches.empty()) {
        state.patches = active_config.patch_file;
    }
    if (state.patches.ends_with('/')) { // the base directory alone
        return report_fail(KxError::BadConfig, document.file_name + ": it names no patch file",
                           "--patches FILE names one");
    }
    return 0;
}

int list_patches() {
    std::vector<PatchInfo> patches;
    if (const int status = patching_list(state.patches, patches)) {
        return status;
    }
    Json array = Json::array();
    for (const PatchInfo& patch : patches) {
        Json json;
        json.set("section", patch.section);
        json.set("name", patch.name);
        json.set("automatic", patch.automatic);
        array.append(std::move(json));
        report_line(ascii_escape(text_printf("%-20s %-4s  %s", patch.section.c_str(),
                                             patch.automatic ? "auto" : "", patch.name.c_str())));
    }
    report_json().set("patches", std::move(array));
    return 0;
}

int tell(const std::vector<PatchedBy>& applied) {
    int places = 0;
    Json array = Json::array();
    for (const PatchedBy& patch : applied) {
        places += patch.result.count;
        const std::string line = ascii_escape(patching_text(patch));
        state.output == "-" ? report_done(line) : report_line(line); // the program goes there
        Json addresses = Json::array();
        for (const std::uint32_t address : patch.result.addresses) {
            addresses.append(address);
        }
        Json json;
        json.set("section", patch.section);
        json.set("name", patch.result.name);
        json.set("places", patch.result.count);
        json.set("addresses", std::move(addresses));
        array.append(std::move(json));
    }
    report_json().set("file", state.file);
    report_json().set("patches", std::move(array));
    return places;
}

/// Keeps the old program beside the new one.
int keep(const std::string& path, const std::vector<std::uint8_t>& before) {
    std::vector<std::uint8_t> kept;
    if (!state.replace && access(path.c_str(), F_OK) == 0) {
        if (const int status = host_read(path, kept)) {
            return status;
        }
    }
    return kept == before ? 0 : host_write(path, before, state.replace);
}

int write_result(const std::vector<std::uint8_t>& before, const std::vector<std::uint8_t>& after) {
    const std::string path = state.in_place ? state.file : state.output;
    const std::string original = state.file + ".orig";
    if (path.empty()) {
        report_done("nothing was written: give -o FILE or -i");
        return 0;
    }
    if (const int status = state.in_place ? keep(original, before) : 0) {
        return status;
    }
    report_json().set("output", path);
    if (state.in_place) {
        report_json().set("original", original);
    }
    const int status = host_write(path, after, state.in_place || state.replace);
    if (status == 0 && path != "-") {
        report_done(path + ": patched" + (state.in_place ? "; what it was is in " + original : ""));
    }
    return status;
}

int patch_file() {
    std::vector<std::uint8_t> before;
    PayloadOptions program;
    program.file = state.file;
    if (const int status = state.file == "-" ? 0 : payload_check(program)) {
        return status;
    }
    if (const int status = host_read(state.file, before)) {
        return status;
    }
    const bool prg = host_ending(state.file) == "prg";
    if (before.size() < (prg ? 3 : 1)) {
        return report_fail(KxError::HostFile, state.file + ": too short for a program");
    }
    const std::uint32_t address = prg ? get16le(before.data()) : 0;
    const std::ptrdiff_t head = prg ? 2 : 0;
    std::vector<std::uint8_t> after(before.begin() + head, before.end());
    if (prg && address + after.size() > state.memory_end) {
        return report_fail(KxError::NoRoom,
                           state.file + ": " + text_count(after.size(), "byte") + " from " +
                               address_text(address) + " on do not fit, memory ends at " +
                               address_text(state.memory_end - 1) + "; nothing was patched");
    }
    std::vector<PatchedBy> applied;
    if (const int status = patching_apply(state.patches, state.names, address, after, applied)) {
        return status;
    }
    after.insert(after.begin(), before.begin(), before.begin() + head);
    if (tell(applied) == 0) {
        return report_fail(KxError::NotFound, state.file + ": no patch fits; nothing was written");
    }
    return write_result(before, after);
}

int run() {
    if (state.list ? !state.file.empty() : state.file.empty()) {
        return report_fail_usage(state.list ? "--list takes no FILE" : "FILE is missing");
    }
    if (state.in_place && !state.output.empty()) {
        return report_fail_usage("-i and -o exclude each other");
    }
    if (state.in_place && state.file == "-") {
        return report_fail_usage("-i needs a file, not standard input");
    }
    if (globals.json && state.output == "-") {
        return report_fail(KxError::Usage, "--json and -o - want the same standard output");
    }
    if (const int status = find_patch_file()) {
        return status;
    }
    return state.list ? list_patches() : patch_file();
}

} // namespace

extern const Verb verb_patch = {
    .name = "patch",
    .alias = nullptr,
    .synopsis = "FILE [-o FILE | -i] [-f] [--name SECTION]... [--patches FILE] | --list",
    .summary = "smart patches on a program file",
    .options = options,
    .run = run,
};

} // namespace kx
