// kx read: target memory into a file, or to be looked at.
#include "core/active_config.h"
#include "files/hexdump.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "tools/bar.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/line.h"
#include "tools/payload.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>

namespace kx {

namespace {

struct State {
    std::string range;
    std::string output;
    bool raw = false;
    bool replace = false;
    bool wait = false;
};
State state;

constexpr Option options[] = {
    {"RANGE", &state.range, "", "ADDRESS:LENGTH, ADDRESS-LAST, or ADDRESS for one byte"},
    {"-o,--output", &state.output, "FILE", "into a file, - for standard output; otherwise a dump"},
    {"-f,--force", &state.replace, "", "replace a file that is there"},
    {"--raw", &state.raw, "", "no load address in a .prg file"},
    {"--symbols", &globals.symbols, "FILE", "names of addresses, beside the target's"},
    {"--wait", &state.wait, "", "wait for a line that is in use or not there"},
};

/// What has been asked for: bytes of all of the range, read as far as the memory map has them.
struct Reading {
    AddressRange range;
    std::vector<std::uint8_t> bytes;
    std::vector<AddressRange> parts;
    std::vector<AddressRange> left_out;
};

int find_range(Reading& reading) {
    std::string error;
    if (parse_range(state.range, sym_store, reading.range, error) != 0) {
        return report_fail(KxError::Usage, error);
    }
    if (reading.range.end > std::uint64_t{mem_top()} + 1) {
        return report_fail(KxError::Usage,
                           state.range + ": memory ends at " + line_address_text(mem_top()));
    }
    reading.parts = memory_parts(reading.range, reading.left_out);
    if (!reading.left_out.empty()) {
        report_warning(memory_text(reading.left_out) + " is not read (not in the memory map)");
    }
    return reading.parts.empty() ? report_fail(KxError::NotFound,
                                               state.range + ": nothing of it is in the memory map")
                                 : 0;
}

std::uint64_t size_of(const std::vector<AddressRange>& ranges) {
    std::uint64_t sum = 0;
    for (const AddressRange& range : ranges) {
        sum += range.end - range.first;
    }
    return sum;
}

int read_parts(Reading& reading) {
    const AddressRange& range = reading.range;
    reading.bytes.resize(range.end - range.first);
    mem_mode = MEM_SIMULATOR; // which fills what is not mapped, as reads of the target would
    for (const AddressRange& part : reading.left_out) {
        mem_read_block(
            std::span(reading.bytes).subspan(part.first - range.first, part.end - part.first),
            part.first);
    }
    LineTransfer transfer;
    transfer.verb = "read";
    transfer.total = size_of(reading.parts);
    bar_begin("read " + state.range, transfer.total);
    for (const AddressRange& part : reading.parts) {
        const auto bytes =
            std::span(reading.bytes).subspan(part.first - range.first, part.end - part.first);
        if (const int status = line_read(transfer, part.first, bytes)) {
            return status;
        }
    }
    bar_end();
    return 0;
}

/// Whether a symbol stands at the address; a line of the dump begins there.
const SymEntry* symbol_at(std::uint64_t address) {
    return sym_find_addr(sym_store, static_cast<std::uint32_t>(address), 0, 0);
}

void dump_part(const Reading& reading, const AddressRange& part) {
    std::uint64_t at = part.first;
    while (at < part.end) {
        const SymEntry* symbol = symbol_at(at);
        if (symbol != nullptr && !symbol->name.empty()) {
            report_line(report_paint(stdout, Paint::Strong, ascii_escape(symbol->name) + ":"));
        }
        std::uint64_t end = at + 1;
        while (end < part.end && end < at + HEXDUMP_BYTES && symbol_at(end) == nullptr) {
            end++;
        }
        report_line(
            hexdump_line(at, std::span(reading.bytes).subspan(at - reading.range.first, end - at)));
        at = end;
    }
}

int write_output(const Reading& reading) {
    std::vector<std::uint8_t> content;
    if (!state.raw && host_ending(state.output) == "prg") {
        content = {static_cast<std::uint8_t>(reading.range.first),
                   static_cast<std::uint8_t>(reading.range.first >> 8)};
    }
    content.insert(content.end(), reading.bytes.begin(), reading.bytes.end());
    return host_write(state.output, content, state.replace);
}

void fill_json(const Reading& reading, std::uint32_t milliseconds) {
    Json& json = report_json();
    json.set("start", reading.range.first);
    json.set("end", reading.range.end);
    json.set("bytes", reading.range.end - reading.range.first);
    json.set("milliseconds", milliseconds);
    Json filled = Json::array(); // what is not the target's
    for (const AddressRange& part : reading.left_out) {
        Json range;
        range.set("start", part.first);
        range.set("end", part.end);
        filled.append(std::move(range));
    }
    json.set("filled", std::move(filled));
    if (!state.output.empty()) {
        json.set("file", state.output);
    } else if (!globals.dry_run) {
        json.set("hex", json_hex(reading.bytes));
    }
}

int give(const Reading& reading, std::uint32_t milliseconds) {
    fill_json(reading, milliseconds);
    if (state.output.empty()) {
        for (const AddressRange& part : reading.parts) {
            if (!globals.json) {
                dump_part(reading, part);
            }
        }
        return 0;
    }
    if (const int status = write_output(reading)) {
        return status;
    }
    if (state.output != "-") {
        const std::uint64_t size = size_of(reading.parts), filled = size_of(reading.left_out);
        report_done(state.output + ": " + text_count(size, "byte") + " read from " +
                    memory_text(reading.parts) + " in " + line_rate_text(size, milliseconds) +
                    (filled > 0 ? "; " + text_count(filled, "byte") + " filled" : ""));
    }
    return 0;
}

/// What needs no target is done first.
int prepare(Session& session, Reading& reading) {
    if (globals.json && state.output == "-") {
        return report_fail(KxError::Usage, "--json and -o - want the same standard output");
    }
    if (const int status = line_begin(session)) {
        return status;
    }
    if (const int status = find_range(reading)) {
        return status;
    }
    if (const int status = line_check_stub(session)) {
        return status;
    }
    return state.output.empty() ? 0 : host_may_write(state.output, state.replace);
}

int tell_dry_run(const Reading& reading) {
    fill_json(reading, 0);
    report_done(memory_text(reading.parts) + " would be read" +
                (state.output.empty() ? "" : " into " + state.output));
    return 0;
}

int run() {
    Session session;
    Reading reading;
    if (const int status = prepare(session, reading)) {
        return status;
    }
    if (globals.dry_run) {
        return tell_dry_run(reading);
    }
    if (const int status = line_connect(session, state.wait)) {
        return status;
    }
    const std::uint32_t started = clock_ms();
    int status = read_parts(reading);
    if (status == 0) {
        status = give(reading, clock_ms() - started);
    }
    line_close(session);
    return status;
}

} // namespace

extern const Verb verb_read = {
    .name = "read",
    .alias = nullptr,
    .synopsis = "RANGE [-o FILE]",
    .summary = "target memory to a file or a dump",
    .options = options,
    .run = run,
};

} // namespace kx
