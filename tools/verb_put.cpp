// kx put: files of the host, or of other images, onto a disc image.
#include "tools/discs.h"
#include "tools/discs_toolkit.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/report.h"
#include "tools/verbs.h"

#include <unistd.h>
#include <vector>

namespace kx {

namespace {

struct State {
    std::string image;
    std::vector<std::string> files;
    DiscsPut how;
    bool create = false;
    bool toolkit_rules = false;
};
State state;

constexpr Option options[] = {
    {"IMAGE", &state.image, "", "a 1541's disc image"},
    {"FILE...", &state.files, "", "a file, - for standard input, or IMAGE:NAME of another image"},
    {"-N,--name", &state.how.name, "NAME", "name on the disc (the file's, without .prg)"},
    {"-f,--force", &state.how.replace, "", "replace files of the same name"},
    {"--type", &state.how.type, "prg|seq|usr|del", "type on the disc (by the ending, else prg)"},
    {"--lock", &state.how.lock, "", "lock the file on the disc"},
    {"--cut", &state.how.cut, "", "cut names of more than 16 characters"},
    {"--create", &state.create, "", "make the image when there is none"},
    {"--toolkit-rules", &state.toolkit_rules, "",
     "write as the toolkit's library does, not as a drive"},
};

int run() {
    const DiscsPut& how = state.how;
    if (state.toolkit_rules &&
        (how.replace || how.lock || how.cut || state.create || !how.type.empty())) {
        return report_fail_usage("--toolkit-rules goes with --name alone");
    }
    if (state.toolkit_rules) {
        return toolkit_put(state.image, state.files, how.name);
    }
    report_json().set("image", state.image);
    Disc disc;
    const bool create = state.create && access(state.image.c_str(), F_OK) != 0;
    if (const int status =
            create ? discs_create(disc, state.image, {})
                   : discs_open(disc, state.image, DiscAccess::Change, "--create makes it")) {
        return status;
    }
    std::vector<int> written;
    if (const int status = discs_put(disc, state.files, how, written)) {
        return status;
    }
    if (const int status = discs_commit(disc)) {
        return status;
    }
    discs_tell_written(disc, written);
    return 0;
}

} // namespace

extern const Verb verb_put = {
    .name = "put",
    .alias = nullptr,
    .synopsis = "IMAGE FILE... [-N NAME] [-f] [--type TYPE] [--create]",
    .summary = "copy files into a disc image",
    .options = options,
    .run = run,
};

} // namespace kx
