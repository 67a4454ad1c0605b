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

/// Nothing is scratched when one of the files may not be.
int check_locks(Disc& disc, const std::vector<int>& numbers) {
    for (const int number : numbers) {
        const DiscEntry& entry = disc_entries(disc)[static_cast<std::size_t>(number)];
        if (entry.locked && !state.locked_too) {
            return report_fail(KxError::Locked, disc.path + ": '" + entry.text + "' is locked",
                               "-f takes it, too");
        }
    }
    return 0;
}

int scratch(Disc& disc, const DiscEntry& entry) {
    if (state.toolkit_rules) {
        return toolkit_rm(state.image, entry);
    }
    return disc_delete(disc, entry.number, true) == 1 ? 0 : discs_fail(disc);
}

int scratch_all(Disc& disc, const std::vector<int>& numbers) {
    std::vector<std::string> done;
    Json files = Json::array();
    int status = 0;
    for (const int number : numbers) {
        const DiscEntry entry = disc_entries(disc)[static_cast<std::size_t>(number)];
        status = scratch(disc, entry);
        if (status != 0) {
            break;
        }
        done.push_back(state.image + ": " + entry.text + " scratched, " +
                       text_count(static_cast<std::uint64_t>(entry.blocks), "block") + " free");
        files.append(discs_entry_json(entry));
    }
    if (!state.toolkit_rules) {
        status = status != 0 ? status : discs_commit(disc);
        if (status != 0) {
            return status;
        }
    } // by the toolkit's each file is a change of its own, and stays
    for (const std::string& line : done) {
        report_done(line);
    }
    report_json().set("image", state.image);
    report_json().set("files", std::move(files));
    return status;
}

int run() {
    Disc disc;
    std::vector<int> numbers;
    const DiscAccess access = state.toolkit_rules ? DiscAccess::Read : DiscAccess::Change;
    if (const int status = discs_open(disc, state.image, access)) {
        return status;
    }
    if (const int status = discs_select(disc, state.names, numbers)) {
        return status;
    }
    if (const int status = check_locks(disc, numbers)) {
        return status;
    }
    if (const int status = scratch_all(disc, numbers)) {
        return status;
    }
    if (!state.toolkit_rules) { // which leave the free counts as they are
        report_json().set("blocks_free", disc_info(disc).blocks_free);
    }
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
