// kx mv: renames a file of a disc image, or the disc.
#include "tools/discs.h"
#include "tools/report.h"
#include "tools/verbs.h"

#include <vector>

namespace kx {

namespace {

struct State {
    std::string image;
    std::vector<std::string> names;
    std::string label;
    std::vector<std::string> done; // what is said once the image is changed
};
State state;

constexpr Option options[] = {
    {"IMAGE", &state.image, "", "a 1541's disc image"},
    {"[OLD NEW...]", &state.names, "", "the file's name, and its new one"},
    {"--label", &state.label, "NAME[,ID]", "name, and identifier, of the disc"},
};

int rename_file(Disc& disc, const std::string& old_name, const std::string& new_name) {
    std::vector<int> numbers;
    DiscName name;
    if (const int status = discs_select(disc, {old_name}, numbers)) {
        return status;
    }
    if (numbers.size() > 1) {
        return report_fail(KxError::Usage, "'" + old_name + "' stands for " +
                                               std::to_string(numbers.size()) + " files");
    }
    const std::string before = disc_entries(disc)[static_cast<std::size_t>(numbers[0])].text;
    if (disc_file_name(disc, new_name, name) != 1 || disc_rename(disc, numbers[0], name) != 1) {
        return discs_fail(disc);
    }
    const DiscEntry& entry = disc_entries(disc)[static_cast<std::size_t>(numbers[0])];
    state.done.push_back(disc.path + ": " + before + " is now " + entry.text);
    report_json().set("old", before);
    report_json().set("entry", discs_entry_json(entry));
    return 0;
}

int run() {
    if (state.names.size() != 2 && (state.label.empty() || !state.names.empty())) {
        return report_fail_usage("OLD and NEW, or --label, are needed");
    }
    Disc disc;
    if (const int status = discs_open(disc, state.image, DiscAccess::Change)) {
        return status;
    }
    report_json().set("image", state.image);
    if (const int status =
            state.names.empty() ? 0 : rename_file(disc, state.names[0], state.names[1])) {
        return status;
    }
    if (!state.label.empty()) {
        const std::size_t comma = state.label.find(',');
        const DiscsLabel label{.name = state.label.substr(0, comma),
                               .id =
                                   comma != std::string::npos ? state.label.substr(comma + 1) : ""};
        if (const int status = discs_set_label(disc, label)) {
            return status;
        }
        const DiscInfo info = disc_info(disc);
        report_json().set("name", discs_trimmed(info.name_text));
        report_json().set("id", info.id_text);
        state.done.push_back(disc.path + ": the disc is now \"" + info.name_text + "\" " +
                             info.id_text);
    }
    if (const int status = discs_commit(disc)) {
        return status;
    }
    for (const std::string& line : state.done) {
        report_done(line);
    }
    return 0;
}

} // namespace

extern const Verb verb_mv = {
    .name = "mv",
    .alias = nullptr,
    .synopsis = "IMAGE OLD NEW | IMAGE --label NAME[,ID]",
    .summary = "rename a file of a disc image, or the disc",
    .options = options,
    .run = run,
};

} // namespace kx
