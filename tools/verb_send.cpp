// kx send and kx run: a program into the target's memory, and started there.
#include "core/active_config.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tools/bar.h"
#include "tools/compare.h"
#include "tools/global.h"
#include "tools/line.h"
#include "tools/payload.h"
#include "tools/report.h"
#include "tools/serve.h"
#include "tools/verbs.h"
#include "util/clock.h"
#include "util/text.h"

namespace kx {

namespace {

struct State {
    PayloadOptions file;
    OptionalText patch;
    bool verify = false;
    bool wait = false;
    // Of `run` alone.
    std::string start;
    OptionalText serve;
    ServeOptions serving;
};
State state;

constexpr Option send_options[] = {
    {"FILE", &state.file.file, "", "the program"},
    {"--at", &state.file.at, "ADDRESS", "where it goes; otherwise where the file says"},
    {"--symbols", &globals.symbols, "FILE", "names of addresses, beside the target's"},
    {"--type", &state.file.type, "prg|raw|sid|nes|pce", "what it is; otherwise by its name"},
    {"--verify", &state.verify, "", "read back and compare"},
    {"--patch", &state.patch, "SECTION,...",
     "apply these patches of the target's; without names the automatic ones"},
    {"--wait", &state.wait, "", "wait for a line that is in use or not there"},
};

constexpr Option run_options[] = {
    {"FILE", &state.file.file, "", "the program"},
    {"--at", &state.file.at, "ADDRESS", "where it goes; otherwise where the file says"},
    {"--start", &state.start, "ADDRESS", "where it starts; otherwise as the file tells"},
    {"--symbols", &globals.symbols, "FILE", "names of addresses, beside the target's"},
    {"--type", &state.file.type, "prg|raw|sid|nes|pce", "what it is; otherwise by its name"},
    {"--verify", &state.verify, "", "read back and compare before it is started"},
    {"--patch", &state.patch, "SECTION,...",
     "apply these patches of the target's; without names the automatic ones"},
    {"--wait", &state.wait, "", "wait for a line that is in use or not there"},
    {"--serve", &state.serve, "DIR", "then serve the directory (.) as kx serve does"},
    {"--console", &state.serving.console, "",
     "as --serve, with the debug console on this terminal"},
    {"-r,--read-only", &state.serving.read_only, "", "serve: the target may not change a file"},
    {"-w,--writable", &state.serving.writable, "", "serve: it may"},
    {"--anywhere", &state.serving.anywhere, "", "serve: the target may name any file of the host"},
};

void fill_json(const Payload& payload, std::uint32_t milliseconds) {
    Json& json = report_json();
    json.set("file", state.file.file);
    json.set("start", payload.start);
    json.set("end", payload.end);
    json.set("execute", payload.execute);
    json.set("bytes", payload_size(payload));
    json.set("milliseconds", milliseconds);
    json.set("verified", state.verify && !globals.dry_run);
    json.set("device", active_config.port_name);
    json.set("baud", active_config.port_baud);
}

/// A byte that reading does no harm to: I/O registers may act on it.
std::uint32_t harmless_address(const Payload& payload) {
    for (const AddressRange& part : payload.parts) {
        for (std::uint64_t at = part.first; at < part.end; at++) {
            const auto address = static_cast<std::uint32_t>(at);
            const MemoryRegion* region = memory_map_find(active_config.memory_map, address);
            if (region != nullptr && region->type == MEMORY_RAM_ROM) {
                return address;
            }
        }
    }
    return payload.start;
}

/// Sends, and reads a byte to know that all has come: the stub answers one command after the other.
int send(Payload& payload) {
    LineTransfer transfer;
    transfer.total = payload_size(payload);
    transfer.harmless = harmless_address(payload);
    bar_begin("send " + payload.name, transfer.total);
    for (const AddressRange& part : payload.parts) {
        if (const int status = line_write(transfer, part.first, payload_part(payload, part))) {
            return status;
        }
    }
    return transfer.total > 0 ? line_confirm(transfer) : 0;
}

int verify(Payload& payload) {
    Comparison comparison;
    if (const int status = compare_payload(payload, comparison)) {
        return status;
    }
    if (comparison.count == 0) {
        return 0;
    }
    const Difference& first = comparison.first.front();
    return report_fail(KxError::Differs,
                       payload.name + ": " + compare_count_text(comparison, payload_size(payload)) +
                           " after sending, the first at " + compare_text(first),
                       "is there RAM at these addresses?");
}

/// Sends, verifies if wanted, and measures the sending.
int send_all(Payload& payload, std::uint32_t& milliseconds) {
    const std::uint32_t started = clock_ms();
    if (const int status = send(payload)) {
        return status;
    }
    milliseconds = clock_ms() - started;
    const int status = state.verify ? verify(payload) : 0;
    bar_end();
    return status;
}

void tell_sent(const Payload& payload, std::uint32_t milliseconds, const std::string& more) {
    const std::string rate = line_rate_text(payload_size(payload), milliseconds);
    report_done(payload.name + ": " + text_count(payload_size(payload), "byte") +
                (state.verify ? " sent and verified, " : " sent to ") + memory_text(payload.parts) +
                " in " + rate + "; " + more);
    fill_json(payload, milliseconds);
}

/// The session and the payload; what needs no target is done first.
int prepare(Session& session, Payload& payload) {
    report_json().set("file", state.file.file);
    if (const int status = payload_check(state.file)) {
        return status;
    }
    if (const int status = line_begin(session)) {
        return status;
    }
    const bool named = !state.patch.value.empty();
    state.file.patch = state.patch.given && !named;
    state.file.patches = named ? text_split(state.patch.value, ',') : std::vector<std::string>();
    if (const int status = payload_load(state.file, payload)) {
        return status;
    }
    return line_check_stub(session);
}

std::string start_text(const Payload& payload, const char* verb) {
    return std::string(verb) + " at " + line_address_text(payload.execute);
}

int tell_dry_run(const Payload& payload) {
    report_done(payload.name + ": " + text_count(payload_size(payload), "byte") + " would go to " +
                memory_text(payload.parts) + "; " + start_text(payload, "starts"));
    fill_json(payload, 0);
    return 0;
}

int run_send() {
    Session session;
    Payload payload;
    if (const int status = prepare(session, payload)) {
        return status;
    }
    if (globals.dry_run) {
        return tell_dry_run(payload);
    }
    if (const int status = line_connect(session, state.wait)) {
        return status;
    }
    std::uint32_t milliseconds = 0;
    const int status = send_all(payload, milliseconds);
    if (status == 0) {
        tell_sent(payload, milliseconds, start_text(payload, "starts"));
    }
    line_close(session);
    return status;
}

int find_start(Payload& payload) {
    std::string error;
    if (!state.start.empty() &&
        parse_address(state.start, sym_store, payload.execute, error) != 0) {
        return report_fail(KxError::Usage, "--start: " + error);
    }
    return payload.execute <= mem_top()
               ? 0
               : report_fail(KxError::Usage, "--start: " + line_address_text(payload.execute) +
                                                 ", and memory ends at " +
                                                 line_address_text(mem_top()));
}

int start_program(const Payload& payload) {
    LineTransfer transfer;
    transfer.done = transfer.total = payload_size(payload);
    return line_start(transfer, payload.execute);
}

int run_run() {
    Session session;
    Payload payload;
    state.serving.directory = state.serve.value;
    const ServeOptions& serving = state.serving;
    const bool serves = state.serve.given || serving.console;
    if (!serves && (serving.read_only || serving.writable || serving.anywhere)) {
        return report_fail_usage("--read-only, --writable and --anywhere go with --serve");
    }
    if (const int status = serves ? serve_check(serving) : 0) {
        return status;
    }
    if (const int status = prepare(session, payload)) {
        return status;
    }
    if (const int status = find_start(payload)) {
        return status;
    }
    if (const int status = serves ? serve_prepare(session, serving) : 0) {
        return status;
    }
    if (globals.dry_run) {
        tell_dry_run(payload);
        return serves ? serve_dry_run() : 0;
    }
    if (const int status = line_connect(session, state.wait)) {
        return status;
    }
    std::uint32_t milliseconds = 0;
    int status = send_all(payload, milliseconds);
    if (status == 0) {
        status = start_program(payload);
    }
    if (status == 0) {
        tell_sent(payload, milliseconds, start_text(payload, "started"));
        status = serves ? serve_run(session, serving) : 0;
    }
    line_close(session);
    return status;
}

} // namespace

extern const Verb verb_send = {
    .name = "send",
    .alias = nullptr,
    .synopsis = "FILE [--at ADDRESS] [--verify]",
    .summary = "program into target memory",
    .options = send_options,
    .run = run_send,
};

extern const Verb verb_run = {
    .name = "run",
    .alias = nullptr,
    .synopsis = "FILE [--start ADDRESS] [--serve[=DIR]]",
    .summary = "send a program and start it",
    .options = run_options,
    .run = run_run,
};

} // namespace kx
