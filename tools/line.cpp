// Opening: what can be known of a device before it is opened for good is found out first, because
// the library waits for a busy device without end, locks none and takes any file.
#include "tools/line.h"

#include "core/active_config.h"
#include "core/config/config.h"
#include "link/port.h"
#include "link/stub.h"
#include "tools/bar.h"
#include "tools/base.h"
#include "tools/global.h"
#include "tools/port_list.h"
#include "tools/report.h"
#include "tools/signals.h"
#include "tools/symbols.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr int WAIT_LOOK_MS = 1000;               // between two looks at a device that is waited for
constexpr std::uint32_t SILENCE_SHOWN_MS = 1000; // of the target
constexpr std::uint32_t RATE_AFTER_MS = 100;     // a rate over less says nothing
constexpr int BITS_PER_BYTE = 10;

// Bytes of a write command, and of the first read command. An interrupted transfer ends behind a
// command, so that target and host are in step; the heads of the commands are half a percent of the
// bytes.
constexpr std::size_t COMMAND_BYTES = 1024;

// Each read command costs the way there and back, in which the line stands still. One that was
// answered in less than this is followed by one of twice the bytes. So Ctrl-C waits for half a
// second at most, and adapters that know no baud rate are read as fast as they are.
constexpr std::uint32_t READ_DOUBLES_MS = 250;

// What the system takes at most before it has gone out.
constexpr std::uint64_t HELD_MAX = 16384;

struct State {
    std::uint64_t done = 0;     // of the transfer under way
    std::uint32_t limit_ms = 0; // for the target to take or send a byte
    std::uint32_t began_ms = 0;
    std::uint64_t line_began = 0;
    std::uint64_t command = 0;  // bytes of the command under way
    std::uint64_t line_end = 0; // bytes on the line when it will have gone
    std::size_t reads = 0;      // bytes of its answer
    bool told = false;          // that a signal has come
};
State state;

// The port ---------------------------------------------------------------------------------------

// Where the name of the port comes from.
std::string port_origin(const Session& session) {
    const char* const variable = std::getenv("KX_PORT");
    return !globals.port.empty()                      ? "--port"
           : variable != nullptr && *variable != '\0' ? "KX_PORT"
                                                      : "[port] name in " + session.target;
}

struct PortFailure {
    KxError code = KxError::Usage;
    std::string text;
    std::string hint;
};

PortFailure missing(const std::string& device) {
    const std::vector<PortEntry> ports = port_list("", false);
    std::string hint = "see kx ports";
    if (!ports.empty()) {
        hint = "there is " +
               (ports[0].by_id.empty() ? ports[0].device : "/dev/serial/by-id/" + ports[0].by_id) +
               "; " + hint;
    }
    return {KxError::PortMissing, device + ": no such device", hint};
}

PortFailure busy(const std::string& device) {
    const PortHolder holder = port_list_holder("", device);
    return {KxError::PortBusy,
            device + (holder.pid != 0
                          ? text_printf(": in use by %s (pid %d)", holder.name.c_str(), holder.pid)
                          : ": in use"),
            "--wait waits for it"};
}

PortFailure not_serial(const std::string& device) {
    return {KxError::PortNotSerial, device + ": not a serial line", "see kx ports"};
}

PortFailure refused(const std::string& device, int error) {
    std::error_code unknown;
    const auto status = std::filesystem::status(device, unknown);
    if (std::filesystem::exists(status) && !std::filesystem::is_character_file(status)) {
        return not_serial(device); // whatever rights it has
    }
    switch (error) {
    case ENOENT:
    case ENXIO:
    case ENODEV:
    case ENOTDIR:
        return missing(device);
    case EACCES:
    case EPERM:
        return {KxError::PortPermission,
                device + ": no permission (" + port_list_rights(device) + ")",
                port_list_way_in(device)};
    case EBUSY:
    case EWOULDBLOCK:
        return busy(device);
    default:
        return {KxError::PortMissing, device + ": " + std::strerror(error), ""};
    }
}

// 0, or -1 with the failure. The device is opened without waiting for its modem lines.
int try_lock(const std::string& device, Fd& fd, PortFailure& failure) {
    fd.reset(open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.is_open()) {
        failure = refused(device, errno);
        return -1;
    }
    if (isatty(fd.get()) == 0) {
        failure = not_serial(device);
    } else if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        failure = refused(device, errno);
    } else {
        ioctl(fd.get(), TIOCEXCL); // keeps those out who do not lock; root comes in all the same
        return 0;
    }
    fd.reset();
    return -1;
}

// Waiting anew for a line that was there: a signal then is its caller's affair.
enum class LineWait { No, Yes, Again };

// A device that is back is root's alone for a moment.
bool is_waited_for(KxError code, LineWait wait) {
    return wait != LineWait::No && (code == KxError::PortBusy || code == KxError::PortMissing ||
                                    (code == KxError::PortPermission && wait == LineWait::Again));
}

int interrupted() {
    return report_interrupted(signals_pending(), "interrupted: nothing was done");
}

int lock_or_wait(const Session& session, LineWait wait, Fd& fd) {
    const std::string& device = active_config.port_name;
    PortFailure failure;
    for (bool told = false; try_lock(device, fd, failure) != 0; told = true) {
        if (!is_waited_for(failure.code, wait)) {
            const bool named = failure.code == KxError::PortMissing;
            return report_fail(failure.code,
                               failure.text + (named ? " (" + port_origin(session) + ")" : ""),
                               failure.hint);
        }
        if (!told) {
            report_done("waiting for " + failure.text);
        }
        usleep(WAIT_LOOK_MS * 1000);
        if (signals_pending() != 0) {
            return wait == LineWait::Again ? 128 + signals_pending() : interrupted();
        }
    }
    return 0;
}

int check_baud(long baud, const std::string& origin) {
    return std::ranges::count(baud_rates, baud) != 0
               ? 0
               : report_fail(KxError::PortBaud,
                             text_printf("%ld baud cannot be set (%s): ", baud, origin.c_str()) +
                                 baud_rates_text() + " can");
}

// Waiting ----------------------------------------------------------------------------------------

// What the system and an adapter have taken is on its way yet, for seconds at a slow line's pace.
void show_sent(std::uint64_t done) {
    bar_update(std::min(done, line_carries(clock_ms() - state.began_ms)));
}

// Asked by the library while the target takes or sends nothing. Nothing can be expected of it while
// it still gets what was written.
bool stop_waiting(std::uint32_t waited_ms) {
    const bool silent = waited_ms >= SILENCE_SHOWN_MS &&
                        line_carries(clock_ms() - state.began_ms) >=
                            port_line.written - state.line_began + line_carries(SILENCE_SHOWN_MS);
    if (!silent) {
        if (signals_count() == 1 && !state.told) {
            state.told = true;
            report_done("the command under way is ended first; a second signal ends at once");
        }
        show_sent(state.done);
        return signals_count() > 1;
    }
    const std::uint32_t left = state.limit_ms - std::min(state.limit_ms, waited_ms);
    bar_update(state.done, text_printf("waiting for the target (%u s left, Ctrl-C gives up)",
                                       (left + 999) / 1000));
    return signals_count() > 0;
}

// Bytes of a `B` or `C` command before its data.
std::size_t command_size() {
    return 2 + 2 * static_cast<std::size_t>((active_config.addr_bits + 7) / 8);
}

// With -vv: "C  41 43 02 08 01 08".
void tell_command(char letter, std::initializer_list<std::uint32_t> arguments) {
    if (globals.verbose < 2) {
        return;
    }
    std::vector<std::uint8_t> head = {'A', static_cast<std::uint8_t>(letter)};
    for (const std::uint32_t argument : arguments) {
        for (int bit = 0; bit < active_config.addr_bits; bit += 8) {
            head.push_back(static_cast<std::uint8_t>(argument >> bit));
        }
    }
    report_detail(std::string(1, letter) + "  " + text_hex(head));
}

// How long the target may take or send nothing: while what was written before is on its way, it
// can do neither.
void set_limits(std::uint64_t on_the_way) {
    const std::uint64_t milliseconds = std::min(on_the_way, HELD_MAX) * 1000 * BITS_PER_BYTE /
                                       static_cast<std::uint64_t>(active_config.port_baud);
    state.limit_ms = globals.timeout_ms + static_cast<std::uint32_t>(milliseconds);
    stub_set_timeout(static_cast<int>(state.limit_ms));
    serial_set_write_limit(static_cast<int>(state.limit_ms));
}

// A command of `writes` data bytes to the target, or one that is answered by `reads`.
void begin_command(const LineTransfer& transfer, std::size_t writes, std::size_t reads) {
    state.done = transfer.done;
    state.began_ms = transfer.began_ms;
    state.line_began = transfer.line_began;
    state.command = command_size() + writes;
    state.line_end = port_line.written + state.command;
    state.reads = reads;
    const std::uint64_t written = port_line.written - state.line_began;
    set_limits(written - std::min(written, line_carries(clock_ms() - state.began_ms)));
}

// Failures ---------------------------------------------------------------------------------------

std::string so_far(const LineTransfer& transfer) {
    return std::to_string(transfer.done) + " of " + text_count(transfer.total, "byte") + " " +
           transfer.verb;
}

// What has not gone out never will: closing need not wait for it. Bytes that the target waits for
// then, to complete the command in which it stands.
unsigned long long give_up_line() {
    int queued = 0;
    if (ioctl(port_line.fd, TIOCOUTQ, &queued) == 0 && queued > 0) {
        tcflush(port_line.fd, TCOFLUSH);
    }
    serial_set_write_limit(0);
    const std::uint64_t unsent = state.line_end - std::min(state.line_end, port_line.written) +
                                 static_cast<std::uint64_t>(std::max(queued, 0));
    // Before the one under way, all commands have full size.
    return unsent <= state.command ? unsent
                                   : (unsent - state.command) % (command_size() + COMMAND_BYTES);
}

int fail_in_step(const LineTransfer& transfer) {
    return report_interrupted(signals_pending(),
                              "interrupted: " + so_far(transfer) + ", the target is in step");
}

// A signal has ended the command under way.
int fail_at_once() {
    const std::uint64_t left = give_up_line();
    return report_interrupted(
        signals_pending(),
        left > 0 ? "the target waits for " + text_count(left, "byte") + ": reset it"
                 : "the target sends up to " + text_count(state.reads, "byte") + " more: reset it");
}

int fail_gone(const LineTransfer& transfer) {
    return report_fail(KxError::LineLost,
                       "the line " + active_config.port_name + " has gone; " + so_far(transfer),
                       "was the adapter pulled out, or the target switched off?");
}

std::string within() {
    return text_printf("within %g s", globals.timeout_ms / 1000.0);
}

int fail_silent(const LineTransfer& transfer) {
    const std::string& device = active_config.port_name;
    if (stub_last_error().step != std::string_view("answer")) {
        return report_fail(KxError::TargetStuck,
                           text_printf("the target on %s has taken no byte %s; %s", device.c_str(),
                                       within().c_str(), so_far(transfer).c_str()),
                           "it waits for " + text_count(give_up_line(), "byte") +
                               ": reset it; is the cable a null-modem with RTS/CTS?");
    }
    return report_fail(
        KxError::TargetSilent,
        "no answer from the target on " + device + " " + within() +
            (transfer.done > 0 ? "; " + so_far(transfer) : ""),
        text_printf("is the stub running, the cable a null-modem with RTS/CTS, and %d baud what "
                    "the stub expects? after a transfer that was broken off it must be reset",
                    active_config.port_baud));
}

// Why a transfer failed, and what it leaves behind.
int fail_transfer(const LineTransfer& transfer) {
    bar_end();
    const Failure& why = stub_last_error();
    const bool given_up = why.error == ECANCELED || why.kind == FailureKind::Silent;
    if (signals_pending() != 0 && given_up) {
        return fail_at_once();
    }
    switch (why.kind) {
    case FailureKind::Silent:
        return fail_silent(transfer);
    case FailureKind::Surplus:
        return line_fail_surplus();
    default:
        return fail_gone(transfer);
    }
}

int connect(Session& session, LineWait wait) {
    if (const int status = line_check(session)) {
        return status;
    }
    signals_catch();
    Fd fd;
    if (const int status = lock_or_wait(session, wait, fd)) {
        return status;
    }
    const std::string& device = active_config.port_name;
    if (port_adopt(std::move(fd), device, active_config.port_baud) != 1) {
        const int error = port_last_error().error;
        port_close();
        return report_fail(KxError::PortNotSerial, device + ": " + std::strerror(error));
    }
    set_limits(0);
    stub_set_stop(stop_waiting);
    serial_set_write_stop(stop_waiting);
    return 0;
}

} // namespace

int line_begin(Session& session) {
    IniDocument document;
    if (const int status = target_load(document)) {
        return status;
    }
    const SessionOptions options = {.base_dir = active_config.base_dir,
                                    .target = document.file_name,
                                    .port = active_config.port_name,
                                    .baud = active_config.port_baud,
                                    .line = false};
    if (session_open(session, options) != 1) {
        return report_fail_library(KxError::BadConfig, "", session.text);
    }
    for (const std::string& path : globals.symbols) {
        if (const int status = symbols_read(sym_store, path)) {
            return status;
        }
    }
    return 0;
}

int line_check(const Session& session) {
    const ActiveConfig& config = active_config;
    if (config.port_type != PORT_SERIAL) {
        return report_fail(KxError::BadConfig,
                           session.target + ": no line: [cable] name is " + config.cable_tag);
    }
    if (config.port_name.empty()) {
        return report_fail(KxError::PortMissing, "no port is named (" + port_origin(session) + ")",
                           "give -p DEVICE; see kx ports");
    }
    return check_baud(config.port_baud, "[port] baud in " + session.target);
}

int line_connect(Session& session, bool wait) {
    return connect(session, wait ? LineWait::Yes : LineWait::No);
}

void line_begin_serving() {
    set_limits(HELD_MAX);
}

int line_reconnect(Session& session) {
    port_close();
    const int status = connect(session, LineWait::Again);
    line_begin_serving();
    return status;
}

int line_needs_stub(const Session& session) {
    return active_config.stub == TARGET_C64RR
               ? 0
               : report_fail(KxError::BadConfig, session.target + ": no stub that kx can speak to",
                             "[stub] name must be c64rr");
}

int line_check_stub(const Session& session) {
    const int status = line_needs_stub(session);
    return status != 0 ? status : line_check(session);
}

int line_lock_console(const Session& session, const std::string& device, Fd& fd) {
    if (const int status =
            check_baud(active_config.console_baud, "[console] baud in " + session.target)) {
        return status;
    }
    PortFailure failure;
    if (try_lock(device, fd, failure) != 0) {
        return report_fail(failure.code,
                           failure.text + " ([console] port in " + session.target + ")",
                           failure.code == KxError::PortBusy ? "" : failure.hint);
    }
    ioctl(fd.get(), TIOCNXCL); // the library opens it again
    return 0;
}

bool line_has_gone() {
    pollfd line = {.fd = port_line.fd, .events = 0, .revents = 0};
    return poll(&line, 1, 0) > 0;
}

void line_disconnect() {
    if (port_is_open()) {
        ioctl(port_line.fd, TIOCNXCL);
    }
    port_close();
}

void line_close(Session& session) {
    line_disconnect();
    session_close(session);
}

int line_write(LineTransfer& transfer, std::uint32_t start, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        if (signals_pending() != 0) {
            const int status = transfer.done > 0 ? line_confirm(transfer) : 0;
            return status != 0 ? status : fail_in_step(transfer);
        }
        const auto command = bytes.first(std::min(bytes.size(), COMMAND_BYTES));
        const auto end = static_cast<std::uint32_t>(start + command.size());
        begin_command(transfer, command.size(), 0);
        tell_command('B', {end, start});
        if (stub_write_memory(start, end, command) != 1) {
            return fail_transfer(transfer);
        }
        transfer.done += command.size();
        show_sent(transfer.done);
        bytes = bytes.subspan(command.size());
        start = end;
    }
    return 0;
}

int line_read(LineTransfer& transfer, std::uint32_t start, std::span<std::uint8_t> bytes) {
    for (std::size_t size = COMMAND_BYTES; !bytes.empty();) {
        if (signals_pending() != 0) {
            return fail_in_step(transfer);
        }
        const auto piece = bytes.first(std::min(bytes.size(), size));
        const std::uint32_t began = clock_ms();
        begin_command(transfer, 0, piece.size());
        tell_command('C', {static_cast<std::uint32_t>(start + piece.size()), start});
        if (stub_read_memory(start, piece) != 1) {
            return fail_transfer(transfer);
        }
        transfer.done += piece.size();
        bar_update(transfer.done);
        bytes = bytes.subspan(piece.size());
        start += static_cast<std::uint32_t>(piece.size());
        size *= clock_ms() - began < READ_DOUBLES_MS ? 2 : 1;
    }
    return 0;
}

bool line_answers(std::uint32_t address) {
    std::uint8_t byte = 0;
    tell_command('C', {address + 1, address});
    return stub_read_memory(address, {&byte, 1}) == 1;
}

int line_fail_surplus() {
    return report_fail(
        KxError::TargetSurplus,
        "the target sent more than was asked for; the two are out of step, reset it");
}

int line_confirm(const LineTransfer& transfer) {
    begin_command(transfer, 0, 1);
    if (!line_answers(transfer.harmless)) {
        return fail_transfer(transfer);
    }
    set_limits(0);
    return 0;
}

int line_start(const LineTransfer& transfer, std::uint32_t address) {
    port_write_error = false;
    tell_command('D', {address});
    stub_set_pc(address);
    if (!port_write_error) {
        tell_command('K', {});
        stub_execute();
    }
    return port_write_error ? fail_transfer(transfer) : 0;
}

std::uint64_t line_carries(std::uint32_t milliseconds) {
    return std::uint64_t{milliseconds} * static_cast<std::uint64_t>(active_config.port_baud) /
           (std::uint64_t{1000} * BITS_PER_BYTE);
}

std::string line_time_text(std::uint32_t milliseconds) {
    return milliseconds < 1000 ? text_printf("%u ms", milliseconds)
                               : text_printf("%.1f s", milliseconds / 1000.0);
}

std::string line_rate_text(std::uint64_t bytes, std::uint32_t milliseconds) {
    if (milliseconds < RATE_AFTER_MS) {
        return line_time_text(milliseconds);
    }
    const double rate = static_cast<double>(bytes) * 1000 / milliseconds;
    const double part = rate * BITS_PER_BYTE / active_config.port_baud * 100;
    // A pseudo-terminal knows no baud rate.
    return line_time_text(milliseconds) +
           text_printf(part < 101 ? " (%.2f KiB/s, %.0f %% of the line)" : " (%.2f KiB/s)",
                       rate / 1024, part);
}

std::string line_address_text(std::uint64_t address) {
    return text_printf("$%0*llX", addr_digits(), static_cast<unsigned long long>(address));
}

} // namespace kx
