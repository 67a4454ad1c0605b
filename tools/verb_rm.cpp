// kx rm: scratches files of a disc image.
#include "tools/discs.h"
#include "tools/discs_toolkit.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/text.h"

#include <vector>

namespace kx {

namespace {

struct State {
    std::string image;
    std::vector<std::string> names;
    bool locked_too = false;
    bool toolkit_rules = false;
};
State state;

constexpr Option options[] = {
    {"IMAGE", &state.image, "", "a 1541's disc image"},
    {"NAME...", &state.names, "", "names, with * and ?; #xx any code; :N entry N"},
    {"-f,--force", &state.locked_too, "", "locked files, too"},
    {"--toolkit-rules", &state.toolkit_rules, "",
     "scratch as the toolkit's library does, not as a drive"},
};

int run() {
    if (state.toolkit_rules) {
        return toolkit_rm(state.image, state.names, state.locked_too);
    }
    Disc disc;
    std::vector<int> numbers;
    if (const int status = discs_open(disc, state.image, DiscAccess::Change)) {
        return status;
    }
    if (const int status = discs_select(disc, state.names, numbers)) {
        return status;
    }
    std::vector<std::string> done;
    Json files = Json::array();
    for (const int number : numbers) {
        const DiscEntry entry = disc_entries(disc)[static_cast<std::size_t>(number)];
        if (disc_delete(disc, number, state.locked_too) != 1) {
            return discs_fail(disc,
                              disc.failure.reason == DiscReason::Locked ? "-f takes it, too" : "");
        }
        done.push_back(state.image + ": " + entry.text + " scratched, " +
                       text_count(static_cast<std::uint64_t>(entry.blocks), "block") + " free");
        files.append(discs_entry_json(entry));
    }
    if (const int status = discs_commit(disc)) {
        return status;
    }
    for (const std::string& line : done) {
        report_done(line);
    }
    report_json().set("image", state.image);
    report_json().set("files", std::move(files));
    report_json().set("blocks_free", disc_info(disc).blocks_free);
    return 0;
}

} // namespace

extern const Verb verb_rm = {
    .name = "rm",
    .alias = nullptr,
    .synopsis = "IMAGE NAME... [-f]",
    .summary = "scratch files of a disc image",
    .options = options,
    .run = run,
};

} // namespace kx
