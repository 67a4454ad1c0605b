// kx check: looks for damage in disc images, and validates them as a drive does.
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
    std::vector<std::string> images;
    bool repair = false;
};
State state;

constexpr Option options[] = {
    {"IMAGE...", &state.images, "", "1541 disc images"},
    {"--repair", &state.repair, "", "build map and counts anew, scratch files never closed"},
};

void print_lines(const std::string& image, const DiscFindings& findings, Json& json,
                 const char* key) {
    Json lines = Json::array();
    for (const std::string& line : findings.lines) {
        report_line(ascii_escape(std::string(image).append(": ").append(line)));
        lines.append(line);
    }
    json.set(key, std::move(lines));
}

/// Repairs what is wrong. What is left afterwards is the caller's to find.
int repair(Disc& disc, Json& json) {
    DiscFindings done;
    if (disc_repair(disc, done) != 1) {
        return discs_fail(disc, "nothing was changed; kx get copies what can be read");
    }
    print_lines(disc.path, done, json, "lines");
    json.set("changes", done.count);
    if (done.count == 0) {
        return 0;
    }
    if (const int status = discs_commit(disc)) {
        return status;
    }
    report_line(ascii_escape(disc.path) + ": " +
                text_count(static_cast<std::uint64_t>(done.count), "change"));
    return globals.dry_run ? report_status(KxError::Damaged) : 0;
}

int look(Disc& disc, Json& json) {
    DiscFindings findings;
    disc_check(disc, findings);
    print_lines(disc.path, findings, json, state.repair ? "left" : "lines");
    json.set("problems", findings.count);
    report_line(ascii_escape(disc.path) + ": " +
                (findings.count == 0
                     ? "ok"
                     : text_count(static_cast<std::uint64_t>(findings.count), "problem")));
    return findings.count == 0 ? 0 : report_status(KxError::Damaged);
}

int check(const std::string& image, Json& json) {
    Disc disc;
    json.set("image", image);
    if (const int status =
            discs_open(disc, image, state.repair ? DiscAccess::Change : DiscAccess::Read)) {
        return status;
    }
    if (const int status = state.repair ? repair(disc, json) : 0) {
        return status;
    }
    return look(disc, json);
}

int run() {
    int status = 0;
    Json images = Json::array();
    for (const std::string& image : state.images) {
        Json json;
        status = std::max(status, check(image, json));
        images.append(std::move(json));
    }
    report_json().set("images", std::move(images));
    return status;
}

} // namespace

extern const Verb verb_check = {
    .name = "check",
    .alias = nullptr,
    .synopsis = "IMAGE... [--repair]",
    .summary = "look for damage in disc images",
    .options = options,
    .run = run,
};

} // namespace kx
