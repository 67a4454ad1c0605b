// kx ls: the directory of a disc image.
#include "files/d64.h"
#include "files/imgfile.h"
#include "tools/discs.h"
#include "tools/global.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <vector>

namespace kx {

namespace {

struct State {
    std::string image;
    std::vector<std::string> patterns;
    bool numbers = false;
    bool long_form = false;
    bool names_only = false;
    bool map = false;
    bool all = false;
    bool lower = false;
    bool extfs = false;
};
State state;

constexpr Option options[] = {
    {"IMAGE", &state.image, "", "a 1541's disc image"},
    {"[PATTERN...]", &state.patterns, "", "names, with * and ?; #xx any code; :N entry N"},
    {"-i,--index", &state.numbers, "", "each entry's number, for :N"},
    {"-l,--long", &state.long_form, "", "type byte, first block, bytes by the chain as well"},
    {"-1", &state.names_only, "", "names only, as they can be typed"},
    {"--map", &state.map, "", "which blocks are free"},
    {"--all", &state.all, "", "scratched entries as well"},
    {"--lower", &state.lower, "", "names in the set of lower and upper case"},
    {"--extfs", &state.extfs, "", "in the form of ls -l, for Midnight Commander"},
};

/// A scratched entry that once had a name.
bool is_scratched(const DiscEntry& entry) {
    return entry.raw_type == 0 && entry.name[0] != 0;
}

/// A pattern that stands for no file is no failure.
int choose_entries(Disc& disc, std::vector<DiscEntry>& chosen) {
    std::vector<int> numbers;
    for (const std::string& pattern : state.patterns) {
        std::vector<int> found;
        if (disc_match(disc, pattern, found) != 1 && disc.failure.reason != DiscReason::NoFile) {
            return discs_fail(disc);
        }
        numbers.insert(numbers.end(), found.begin(), found.end());
    }
    std::ranges::copy_if(
        disc_entries(disc), std::back_inserter(chosen), [&](const DiscEntry& entry) {
            const bool wanted =
                state.patterns.empty() || std::ranges::count(numbers, entry.number) > 0;
            return wanted && (entry.raw_type != 0 || (state.all && is_scratched(entry)));
        });
    return 0;
}

/// In 18 columns, as a drive lists it: the quote closes at the first shifted blank.
std::string quoted_name(const DiscEntry& entry) {
    const auto end =
        static_cast<std::size_t>(std::ranges::find(entry.name, DISC_PADDING) - entry.name.begin());
    std::string text = entry.text;
    text.resize(entry.name.size() + 1, ' ');
    return "\"" + ascii_escape(text.substr(0, end)) + "\"" + ascii_escape(text.substr(end + 1));
}

/// As a C-64 shows it: blocks, name, "*" for a file that was never closed, type, "<" for a lock.
std::string entry_line(Disc& disc, const DiscEntry& entry) {
    const auto mark = [](bool set, const char* text) {
        return set ? report_paint(stdout, Paint::Warning, text) : " ";
    };
    std::string line = state.numbers ? text_printf("%3d  ", entry.number) : "";
    line += text_printf("%-4d ", entry.blocks) + quoted_name(entry);
    line += is_scratched(entry) ? " ---"
                                : mark(!entry.closed, "*") + discs_type(entry) +
                                      (entry.locked ? mark(true, "<") : "");
    if (state.long_form) {
        const DiscChain chain = disc_chain(disc, entry.number);
        line += text_printf("%s  $%02X  %2d/%-2d  %6lld byte%s", entry.locked ? "" : " ",
                            entry.raw_type, entry.start.track, entry.start.sector,
                            static_cast<long long>(chain.bytes), chain.bytes == 1 ? " " : "s");
        line += chain.fault.empty() ? "" : "  " + ascii_escape(chain.fault);
    }
    return line;
}

/// A character for each sector of the track.
std::string map_text(const Disc& disc, int track) {
    std::string text;
    for (int sector = 0; sector < disc_sectors(track); sector++) {
        text += disc_is_free(disc, track, sector) ? '.' : '*';
    }
    return text;
}

void print_map(const Disc& disc, const DiscInfo& info) {
    for (int track = 1; track <= info.tracks; track++) {
        const std::string text = map_text(disc, track);
        report_line(text_printf("%2d  %-22s%2d free", track, text.c_str(),
                                static_cast<int>(std::ranges::count(text, '.'))));
    }
}

void fill_json(Disc& disc, const DiscInfo& info, const std::vector<DiscEntry>& entries) {
    Json& json = report_json();
    json.set("image", state.image);
    json.set("name", discs_trimmed(info.name_text));
    json.set("id", info.id_text);
    json.set("dos", info.dos_text);
    json.set("tracks", info.tracks);
    json.set("blocks_free", info.blocks_free);
    Json array = Json::array();
    for (const DiscEntry& entry : entries) {
        Json each = discs_entry_json(entry);
        if (state.long_form) {
            const DiscChain chain = disc_chain(disc, entry.number);
            each.set("raw_type", entry.raw_type);
            each.set("bytes", chain.bytes);
            each.set("fault", chain.fault);
        }
        array.append(std::move(each));
    }
    json.set("entries", std::move(array));
    if (state.map) {
        Json map = Json::array();
        for (int track = 1; track <= info.tracks; track++) {
            map.append(map_text(disc, track));
        }
        json.set("map", std::move(map));
    }
}

void print_listing(Disc& disc, const DiscInfo& info, const std::vector<DiscEntry>& entries) {
    const std::string margin = state.numbers ? "     " : "";
    const std::string title = "\"" + info.name_text + "\" " + info.id_text + " " + info.dos_text;
    report_line(margin + "0 " + report_paint(stdout, Paint::Reverse, ascii_escape(title)));
    for (const DiscEntry& entry : entries) {
        report_line(entry_line(disc, entry));
    }
    report_line(margin + std::to_string(info.blocks_free) + " BLOCKS FREE.");
}

int list_extfs() {
    ImageHandle image;
    d64_ls_style = 1;
    if (image_open(image, state.image, false, false) != 1) {
        return report_fail_library(KxError::HostFile, "", state.image + ": cannot be opened");
    }
    d64_read_directory(image); // whatever its name
    d64_list_directory(stdout);
    image_close(image);
    return 0;
}

int check_forms() {
    if (state.extfs && (!state.patterns.empty() || state.numbers || state.long_form ||
                        state.names_only || state.map || state.all || state.lower)) {
        return report_fail_usage(
            "--extfs has a form of its own: no PATTERN or option goes with it");
    }
    const int forms = (state.names_only ? 1 : 0) + (state.map ? 1 : 0) +
                      (state.numbers || state.long_form ? 1 : 0);
    if (forms > 1 && !globals.json) {
        return report_fail_usage("-1, --map, and -i or -l exclude each other");
    }
    return 0;
}

int run() {
    if (const int status = check_forms()) {
        return status;
    }
    Disc disc;
    if (const int status = discs_open(disc, state.image, DiscAccess::Read)) {
        return status;
    }
    if (state.extfs && !globals.json) {
        return list_extfs();
    }
    if (state.lower) {
        disc_set_charset(disc, true);
    }
    const DiscInfo info = disc_info(disc);
    std::vector<DiscEntry> entries;
    if (const int status = choose_entries(disc, entries)) {
        return status;
    }
    if (globals.json) {
        fill_json(disc, info, entries);
    } else if (state.map) {
        print_map(disc, info);
    } else if (state.names_only) {
        for (const DiscEntry& entry : entries) {
            report_line(discs_typed_name(disc, entry));
        }
    } else {
        print_listing(disc, info, entries);
    }
    if (!info.fault.empty()) {
        return discs_fail_damaged(disc);
    }
    return state.patterns.empty() || !entries.empty() ? 0 : report_status(KxError::NotFound);
}

} // namespace

extern const Verb verb_ls = {
    .name = "ls",
    .alias = nullptr,
    .synopsis = "IMAGE [PATTERN...] [-i] [-l] [-1] [--map] [--all]",
    .summary = "directory of a disc image",
    .options = options,
    .run = run,
};

} // namespace kx
