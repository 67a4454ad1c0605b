// kx mkfs: a new disc image, empty or filled.
#include "tools/discs.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/text.h"

#include <vector>

namespace kx {

namespace {

struct State {
    std::string image;
    std::vector<std::string> files;
    DiscsLabel label;
    std::string tracks = "35";
    bool replace = false;
};
State state;

constexpr Option options[] = {
    {"IMAGE", &state.image, "", "the new image"},
    {"[FILE...]", &state.files, "", "what goes onto it, as for put"},
    {"-N,--name", &state.label.name, "NAME", "the disc's name (the file's)"},
    {"-I,--id", &state.label.id, "ID", "two characters (00)"},
    {"--tracks", &state.tracks, "35|40|42", "tracks of the disc (35)"},
    {"-f,--force", &state.replace, "", "replace a file that is there"},
};

int run() {
    Disc disc;
    DiscsFormat format{
        .label = state.label, .tracks = std::stoi(state.tracks), .replace = state.replace};
    if (const int status = discs_create(disc, state.image, format)) {
        return status;
    }
    std::vector<int> written;
    if (const int status =
            discs_put(disc, state.files, {.name = "", .type = "", .options = false}, written)) {
        return status;
    }
    if (const int status = discs_commit(disc)) {
        return status;
    }
    discs_tell_written(disc, written);
    report_done(state.image + ": " +
                text_count(static_cast<std::uint64_t>(disc_info(disc).blocks_free), "block") +
                " free");
    return 0;
}

} // namespace

extern const Verb verb_mkfs = {
    .name = "mkfs",
    .alias = nullptr,
    .synopsis = "IMAGE [FILE...] [-N NAME] [-I ID] [--tracks 35|40|42] [-f]",
    .summary = "make a disc image, empty or filled",
    .options = options,
    .run = run,
};

} // namespace kx
