// kx ports: the serial lines of this host, who has them, and which targets name them.
#include "core/active_config.h"
#include "core/config/config.h"
#include "ini/ini.h"
#include "link/stub.h"
#include "tools/base.h"
#include "tools/global.h"
#include "tools/line.h"
#include "tools/port_list.h"
#include "tools/report.h"
#include "tools/signals.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <array>
#include <map>

namespace kx {

namespace {

constexpr std::uint32_t PING_MS = 1000; // for an answer at one baud rate

struct State {
    bool all = false;
    bool ping = false;
};
State state;

constexpr Option options[] = {
    {"-a,--all", &state.all, "", "built-in ports without a chip behind them as well"},
    {"--ping", &state.ping, "", "ask the target for a byte, at each baud rate until one answers"},
};

using Row = std::array<std::string, 5>;

/// The targets by the device that they name. None without a base directory: this verb needs none.
std::map<std::string, std::vector<std::string>> targets_by_device() {
    std::map<std::string, std::vector<std::string>> targets;
    if (!base_find_quietly()) {
        return targets;
    }
    for (const std::string& name : base_config_names("target")) {
        IniDocument document;
        std::string device;
        if (ini_read(config_path_of(name), document) == 0 &&
            ini_find_section(document, "port") != nullptr) {
            ini_get_string(document, device, "port", "name");
            targets[port_list_find("", device)].push_back(name);
        }
    }
    return targets;
}

std::string state_text(const PortEntry& port) {
    if (port.holder.pid != 0) {
        return text_printf("%s (pid %d)", port.holder.name.c_str(), port.holder.pid);
    }
    return port.access ? "free" : "no permission";
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

void print_table(const std::vector<Row>& rows) {
    std::array<std::size_t, 5> widths = {};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); i++) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); i++) {
            line +=
                row[i] + std::string(i + 1 < row.size() ? widths[i] - row[i].size() + 2 : 0, ' ');
        }
        report_line(line);
    }
}

Json port_json(const PortEntry& port, const std::vector<std::string>& targets) {
    Json json;
    json.set("device", port.device);
    json.set("by_id", port.by_id);
    json.set("what", port.what);
    json.set("driver", port.driver);
    json.set("access", port.access);
    Json holder;
    if (port.holder.pid != 0) {
        holder.set("pid", port.holder.pid);
        holder.set("name", port.holder.name);
    }
    json.set("holder", std::move(holder));
    Json names = Json::array();
    for (const std::string& name : targets) {
        names.append(name);
    }
    json.set("targets", std::move(names));
    return json;
}

// The beginning of the target's memory; I/O may act on being read.
std::uint32_t ping_address() {
    for (const MemoryRegion& region : active_config.memory_map.regions) {
        if (region.type == MEMORY_RAM_ROM) {
            return region.base;
        }
    }
    return 0;
}

// The configured rate goes first.
std::vector<int> ping_rates() {
    std::vector<int> rates = {active_config.port_baud};
    for (const int rate : baud_rates) {
        if (rate != active_config.port_baud) {
            rates.push_back(rate);
        }
    }
    return rates;
}

int tell_answer(int configured, std::uint32_t milliseconds) {
    report_line(text_printf("target on %s answers at %d baud in %u ms",
                            active_config.port_name.c_str(), active_config.port_baud,
                            milliseconds));
    if (active_config.port_baud != configured) {
        report_done(text_printf("hint: [port] baud of the target file is %d", configured));
    }
    report_json().set("device", active_config.port_name);
    report_json().set("baud", active_config.port_baud);
    report_json().set("milliseconds", milliseconds);
    return 0;
}

// Reading is the whole test there is: the stub answers nothing else.
int ping_rate(Session& session, bool& answers, bool& surplus, std::uint32_t& milliseconds) {
    if (const int status = line_connect(session, false)) {
        return status;
    }
    stub_set_timeout(static_cast<int>(std::min(globals.timeout_ms, PING_MS)));
    const std::uint32_t started = clock_ms();
    answers = line_answers(ping_address());
    milliseconds = clock_ms() - started;
    const bool gone = !answers && stub_last_error().kind == FailureKind::Gone;
    // At a wrong rate it is noise.
    surplus = surplus || (!answers && stub_last_error().kind == FailureKind::Surplus);
    line_disconnect();
    return gone
               ? report_fail(KxError::LineLost, "the line " + active_config.port_name + " has gone")
               : 0;
}

int ping() {
    Session session;
    if (const int status = line_begin(session)) {
        return status;
    }
    if (const int status = line_needs_stub(session)) {
        return status;
    }
    if (globals.dry_run) {
        report_json().set("device", active_config.port_name);
        report_done("the target on " + active_config.port_name + " would be asked for a byte");
        return 0;
    }
    const int configured = active_config.port_baud;
    bool surplus = false;
    for (const int rate : ping_rates()) {
        bool answers = false;
        std::uint32_t milliseconds = 0;
        active_config.port_baud = rate;
        if (const int status = ping_rate(session, answers, surplus, milliseconds)) {
            return status;
        }
        if (answers) {
            return tell_answer(configured, milliseconds);
        }
        if (signals_pending() != 0) {
            return report_interrupted(signals_pending(), "interrupted");
        }
    }
    if (surplus) {
        return line_fail_surplus();
    }
    return report_fail(KxError::TargetSilent,
                       "no answer from the target on " + active_config.port_name + " at " +
                           baud_rates_text() + " baud",
                       "is the stub running, and the cable a null-modem with RTS/CTS?");
}

int list() {
    auto targets = targets_by_device();
    const auto dash = [](const std::string& text) {
        return text.empty() ? "-" : ascii_escape(text);
    };
    std::vector<Row> rows = {{"DEVICE", "BY-ID", "WHAT", "STATE", "TARGETS"}};
    Json list = Json::array();
    std::string way_in; // to a port that is refused
    for (const PortEntry& port : port_list("", state.all)) {
        std::vector<std::string> names = targets[port.device];
        const std::vector<std::string>& by_id = targets["/dev/serial/by-id/" + port.by_id];
        names.insert(names.end(), by_id.begin(), by_id.end());
        rows.push_back({port.device, dash(port.by_id), dash(port.what), dash(state_text(port)),
                        dash(joined(names))});
        list.append(port_json(port, names));
        way_in = port.access ? way_in : port_list_way_in(port.device);
    }
    report_json().set("ports", std::move(list));
    if (rows.size() == 1) {
        return report_fail(KxError::NotFound, "there is no serial port",
                           "kx fake pretends a target on one");
    }
    print_table(rows);
    if (!way_in.empty()) {
        report_done("hint: " + way_in);
    }
    return 0;
}

int run() {
    return state.ping ? ping() : list();
}

} // namespace

extern const Verb verb_ports = {
    .name = "ports",
    .alias = nullptr,
    .synopsis = "[-a] [--ping]",
    .summary = "serial lines of this host",
    .options = options,
    .run = run,
};

} // namespace kx
