// kx verify: target memory against a file, as cmp compares files.
#include "tools/compare.h"
#include "tools/global.h"
#include "tools/line.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>

namespace kx {

namespace {

constexpr std::size_t SHOWN = 10; // differences, unless verbose

struct State {
    PayloadOptions file;
    bool wait = false;
};
State state;

constexpr Option options[] = {
    {"FILE", &state.file.file, "", "the program"},
    {"--at", &state.file.at, "ADDRESS", "where it should be; otherwise where the file says"},
    {"--symbols", &globals.symbols, "FILE", "names of addresses, beside the target's"},
    {"--type", &state.file.type, "prg|raw|sid|nes|pce", "what it is; otherwise by its name"},
    {"--wait", &state.wait, "", "wait for a line that is in use or not there"},
};

void fill_json(const Payload& payload) {
    Json& json = report_json();
    json.set("file", state.file.file);
    json.set("start", payload.start);
    json.set("end", payload.end);
    json.set("bytes", payload_size(payload));
}

void fill_json(const Payload& payload, const Comparison& comparison, std::size_t shown) {
    Json first = Json::array();
    for (std::size_t i = 0; i < shown; i++) {
        const Difference& difference = comparison.first[i];
        Json json;
        json.set("address", difference.address);
        json.set("file", difference.file);
        json.set("target", difference.target);
        first.append(std::move(json));
    }
    fill_json(payload);
    report_json().set("differences", comparison.count);
    report_json().set("first", std::move(first));
}

int tell(const Payload& payload, const Comparison& comparison) {
    const std::uint64_t size = payload_size(payload);
    const std::size_t shown =
        globals.verbose > 0 ? comparison.first.size() : std::min(SHOWN, comparison.first.size());
    fill_json(payload, comparison, shown);
    if (comparison.count == 0) {
        report_detail(text_count(size, "byte") + " equal");
        return 0;
    }
    for (std::size_t i = 0; i < shown; i++) {
        report_line(ascii_escape(compare_text(comparison.first[i])));
    }
    report_line(compare_count_text(comparison, size));
    return 1;
}

int run() {
    Session session;
    Payload payload;
    Comparison comparison;
    if (const int status = payload_check(state.file)) {
        return status;
    }
    if (const int status = line_begin(session)) {
        return status;
    }
    if (const int status = payload_load(state.file, payload)) {
        return status;
    }
    if (const int status = line_check_stub(session)) {
        return status;
    }
    if (globals.dry_run) {
        fill_json(payload);
        report_done(payload.name + " would be compared with " + memory_text(payload.parts));
        return 0;
    }
    if (const int status = line_connect(session, state.wait)) {
        return status;
    }
    int status = compare_payload(payload, comparison);
    if (status == 0) {
        status = tell(payload, comparison);
    }
    line_close(session);
    return status;
}

} // namespace

extern const Verb verb_verify = {
    .name = "verify",
    .alias = nullptr,
    .synopsis = "FILE [--at ADDRESS]",
    .summary = "compare target memory with a file",
    .options = options,
    .run = run,
};

} // namespace kx
