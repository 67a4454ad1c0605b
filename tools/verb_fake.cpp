// kx fake: plays the pretended target on a pseudo-terminal, by itself or for a command.
#include "core/active_config.h"
#include "tools/base.h"
#include "tools/discs.h"
#include "tools/fake_target.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/parse.h"
#include "tools/report.h"
#include "tools/signals.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/clock.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx {

namespace {

constexpr int STEP_MS = 100; // between two looks at signals
// When the command has ended.
constexpr std::uint32_t QUIET_MS = 50;         // of a line on which nothing is on its way any more
constexpr std::uint32_t FINISH_MAX_MS = 20000; // 13 KiB, what the host may get in, at 9600 baud

struct State {
    // Of the command line.
    std::vector<std::string> command;
    std::string machine;
    std::string protocol;
    std::string image;
    std::vector<std::string> loads;
    std::vector<std::string> requests;
    std::string fail;
    std::string speed;
    std::string link;
    bool log = false;

    FakeTarget target;
    std::string target_name;
    bool linked = false;
    std::uint32_t started_ms = 0;
    unsigned commands_seen = 0;
    unsigned requests_seen = 0;
};
State state;

constexpr Option options[] = {
    {"--machine", &state.machine, "c64|c64_scpu|c64rr_generic|c64rr_slave",
     "the target it pretends to be (c64)"},
    {"--protocol", &state.protocol, "cbm|generic|serialslave",
     "of its program's requests (the machine's)"},
    {"--load", &state.loads, "FILE", "program in its memory, or raw bytes as FILE@ADDRESS"},
    {"--image", &state.image, "FILE", "disc image that it holds"},
    {"--request", &state.requests, "TEXT",
     "'load NAME', 'save NAME [BYTES]', 'dir', 'cd NAME' or 'raw HEX...'"},
    {"--fail", &state.fail, "KIND[:AFTER]",
     "silent, surplus, short, rom, stuck, hangup or replug, after so many bytes"},
    {"--speed", &state.speed, "BAUD", "the pace of a real line"},
    {"--link", &state.link, "PATH", "symbolic link to the device"},
    {"--log", &state.log, "", "tell each command and request"},
    {"[COMMAND...]", &state.command, "", "run with KX_PORT and KX_TARGET set"},
};

struct Machine {
    const char* name; // of a target of the base directory as well
    int addr_bits;
    int fileserver;
};
constexpr Machine machines[] = {
    {"c64", 16, FILESERVER_CBM},
    {"c64_scpu", 24, FILESERVER_CBM},
    {"c64rr_generic", 16, FILESERVER_GENERIC},
    {"c64rr_slave", 16, FILESERVER_SERIALSLAVE},
};

struct Kind {
    const char* name;
    FakeFailure failure;
};
constexpr Kind kinds[] = {
    {"silent", FakeFailure::Silent}, {"surplus", FakeFailure::Surplus},
    {"short", FakeFailure::Short},   {"rom", FakeFailure::Rom},
    {"stuck", FakeFailure::Stuck},   {"hangup", FakeFailure::Hangup},
    {"replug", FakeFailure::Replug},
};

// Settings ---------------------------------------------------------------------------------------

int fail_usage(const std::string& text) {
    return report_fail(KxError::Usage, text);
}

int read_failure(FakeSettings& settings) {
    const std::string name = state.fail.substr(0, state.fail.find(':'));
    const Kind* kind = std::ranges::find(kinds, name, &Kind::name);
    if (kind == std::end(kinds)) {
        return fail_usage("--fail " + name +
                          ": silent, surplus, short, rom, stuck, hangup or replug is expected");
    }
    settings.failure = kind->failure;
    std::string error;
    if (name.size() < state.fail.size() &&
        parse_number(state.fail.substr(name.size() + 1), UINT32_MAX, settings.failure_after,
                     error) != 0) {
        return fail_usage("--fail " + state.fail + ": " + error);
    }
    return 0;
}

int read_requests(FakeSettings& settings) {
    for (const std::string& text : state.requests) {
        FakeRequest request;
        std::string problem;
        if (!fake_request_parse(text, request, problem)) {
            return fail_usage(text_printf("--request '%s': %s", text.c_str(), problem.c_str()));
        }
        settings.requests.push_back(request);
    }
    return 0;
}

// The machine's, or those of the target that -t names.
int read_machine(FakeSettings& settings) {
    const std::string name = state.machine.empty() ? "c64" : state.machine;
    const Machine& machine = *std::ranges::find(machines, name, &Machine::name);
    settings.addr_bits = machine.addr_bits;
    settings.fileserver = machine.fileserver;
    state.target_name = machine.name;
    const char* const wanted = std::getenv("KX_TARGET");
    if (state.machine.empty() && (!globals.target.empty() || wanted != nullptr)) {
        IniDocument document;
        if (const int status = target_load(document)) {
            return status;
        }
        settings.addr_bits = std::clamp<int>(active_config.addr_bits, 1, FAKE_ADDR_BITS_MAX);
        settings.fileserver = active_config.fileserver;
        state.target_name = globals.target.empty() ? wanted : globals.target;
    }
    if (!state.protocol.empty()) {
        settings.fileserver = fileserver_find_tag(state.protocol.c_str());
    }
    return 0;
}

int read_settings(FakeSettings& settings) {
    std::uint64_t baud = 0;
    std::string error;
    if (!state.speed.empty() && parse_number(state.speed, 10000000, baud, error) != 0) {
        return fail_usage("--speed: " + error);
    }
    settings.baud = static_cast<long>(baud);
    if (const int status = state.fail.empty() ? 0 : read_failure(settings)) {
        return status;
    }
    if (const int status = read_requests(settings)) {
        return status;
    }
    return read_machine(settings);
}

// What it holds ----------------------------------------------------------------------------------

int read_to_fit(const std::string& path, std::uint64_t max, std::vector<std::uint8_t>& bytes) {
    if (const int status = host_read(path, bytes)) {
        return status;
    }
    return bytes.size() <= max
               ? 0
               : report_fail(KxError::NoRoom,
                             text_printf("%s: %zu bytes, the target has room for %llu",
                                         path.c_str(), bytes.size(),
                                         static_cast<unsigned long long>(max)));
}

// A program goes to its own address, FILE@ADDRESS as it is to that one.
int load_memory(const std::string& argument) {
    std::vector<std::uint8_t>& memory = state.target.memory;
    const std::size_t sign = argument.rfind('@');
    std::uint32_t address = 0;
    std::string error;
    const bool raw = sign != std::string::npos &&
                     parse_address(argument.substr(sign + 1), nullptr, address, error) == 0;
    const std::string path = raw ? argument.substr(0, sign) : argument;
    if (!raw && sign != std::string::npos && access(argument.c_str(), F_OK) != 0 &&
        access(argument.substr(0, sign).c_str(), F_OK) == 0) {
        return fail_usage("--load " + argument + ": " + error);
    }
    std::vector<std::uint8_t> bytes;
    if (const int status = read_to_fit(path, memory.size() + 2, bytes)) {
        return status;
    }
    if (!raw && bytes.size() < 3) {
        return report_fail(KxError::BadType, path + ": no program, it has no load address",
                           "raw bytes are given as " + path + "@ADDRESS");
    }
    if (!raw) {
        address = bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8;
        bytes.erase(bytes.begin(), bytes.begin() + 2);
    }
    if (address >= memory.size() || bytes.size() > memory.size() - address) {
        return report_fail(KxError::NoRoom, path + ": it does not fit the target's memory");
    }
    std::ranges::copy(bytes, memory.begin() + static_cast<std::ptrdiff_t>(address));
    return 0;
}

int fill(FakeTarget& target) {
    for (const std::string& argument : state.loads) {
        if (const int status = load_memory(argument)) {
            return status;
        }
    }
    std::vector<std::uint8_t> image;
    if (!state.image.empty()) {
        Disc disc; // refuses what is none
        if (const int status = discs_open(disc, state.image, DiscAccess::Read)) {
            return status;
        }
        if (const int status = read_to_fit(state.image, target.image.size(), image)) {
            return status;
        }
    }
    std::ranges::copy(image, target.image.begin());
    return 0;
}

// Where the link leads; empty when it is none.
std::string linked_device() {
    char device[64];
    const ssize_t length = readlink(state.link.c_str(), device, sizeof device);
    return {device, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

int make_link(const std::string& device) {
    if (state.link.empty() || !state.target.line.master.is_open()) {
        return 0;
    }
    // One that a killed fake has left is replaced, nothing else is. The system gives its device's
    // name out again.
    const std::string old = linked_device();
    if (old == device || (old.starts_with("/dev/pts/") && access(state.link.c_str(), F_OK) != 0)) {
        unlink(state.link.c_str());
    }
    state.linked = symlink(device.c_str(), state.link.c_str()) == 0;
    return state.linked ? 0
           : errno == EEXIST
               ? report_fail(KxError::Exists, state.link + " exists", "is it another kx fake's?")
               : report_fail(KxError::HostFile, state.link + ": " + std::strerror(errno));
}

// Before the line goes: the system gives its device's name to the next pseudo-terminal of anybody.
void remove_link() {
    if (state.linked) {
        unlink(state.link.c_str());
        state.linked = false;
    }
}

// Telling ----------------------------------------------------------------------------------------

void tell_json(const FakeEvent& event) {
    Json json;
    json.set("event", event.kind);
    json.set("text", event.words);
    json.set("hex", event.hex);
    json.set("bytes", event.bytes);
    json.set("ok", event.ok);
    json.set("milliseconds", clock_ms() - state.started_ms);
    report_event(json);
}

// "   1.204  write  $0801-$0C00  1024 bytes        41 42 01 0C 01 08"
void tell_text(const FakeEvent& event) {
    const double seconds = (clock_ms() - state.started_ms) / 1000.0;
    const std::string words = ascii_escape(event.words);
    std::fputs(text_printf("%8.3f  %-44s %s\n", seconds, words.c_str(), event.hex.c_str()).c_str(),
               stderr);
}

void tell_event(const FakeEvent& event) {
    const std::string_view kind = event.kind;
    state.commands_seen += kind == "command" ? 1 : 0;
    state.requests_seen += kind == "request" ? 1 : 0;
    if (kind == "line" && event.ok) { // it is back, with a new device
        make_link(event.words);
    } else if (kind == "line" && state.target.settings.failure != FakeFailure::Stuck) {
        remove_link();
    }
    if (state.log) {
        globals.json ? tell_json(event) : tell_text(event);
    }
}

// The command ------------------------------------------------------------------------------------

// Where the host finds the target, whatever its directory.
std::string device_path() {
    if (state.link.empty()) {
        return state.target.line.device;
    }
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(state.link, error);
    return error ? state.link : path.string();
}

// The child, or -1 with errno.
pid_t start_command() {
    std::vector<char*> words;
    for (std::string& word : state.command) {
        words.push_back(word.data());
    }
    words.push_back(nullptr);
    setenv("KX_PORT", device_path().c_str(), 1);
    setenv("KX_TARGET", state.target_name.c_str(), 1);
    if (std::ranges::count(baud_rates, state.target.settings.baud) != 0) {
        setenv("KX_BAUD", std::to_string(state.target.settings.baud).c_str(), 1);
    }
    pid_t child = -1;
    sigset_t ignored; // by kx itself
    sigemptyset(&ignored);
    sigaddset(&ignored, SIGXFSZ);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &ignored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    errno = posix_spawnp(&child, words[0], nullptr, &attributes, words.data(), environ);
    const int error = errno;
    posix_spawnattr_destroy(&attributes);
    errno = error;
    return errno == 0 ? child : -1;
}

// Lets what is still on its way arrive.
void finish() {
    signals_take(); // the command's
    const std::uint32_t start = clock_ms();
    std::uint32_t last = start; // when a byte has crossed; of a slow line not with each step
    const long baud = state.target.line.baud;
    const long two_bytes_ms = baud != 0 ? 20000 / baud : 0; // of ten bits each
    const std::uint32_t quiet_ms = QUIET_MS + static_cast<std::uint32_t>(two_bytes_ms);
    do {
        const std::uint64_t crossed = state.target.line.crossed;
        fake_step(state.target, QUIET_MS);
        last = crossed != state.target.line.crossed ? clock_ms() : last;
    } while (clock_ms() - last < quiet_ms && clock_ms() - start < FINISH_MAX_MS &&
             signals_pending() == 0);
}

// Its exit status. The keyboard's Ctrl-C is the command's affair; what else would end kx is handed
// on to it.
int run_command() {
    const pid_t child = start_command();
    if (child < 0) {
        const int error = errno;
        report_fail(KxError::HostFile, state.command[0] + ": " + std::strerror(error));
        return error == ENOENT ? 127 : 126;
    }
    const Fd ended(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        fake_step(state.target, STEP_MS, ended.get());
        const int signal = signals_take();
        if (signal != 0 && signal != SIGINT) {
            kill(child, signal);
        }
    }
    finish();
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Until a signal comes: Ctrl-C is the way to end it.
int serve() {
    if (globals.json) {
        Json json;
        json.set("event", "ready");
        json.set("device", state.target.line.device);
        report_event(json);
    }
    report_line("KX_PORT=" + device_path());
    if (report_flush() != 0) { // nobody could find it
        return report_status(KxError::HostFile);
    }
    int signal = 0;
    while (signal == 0) {
        fake_step(state.target, STEP_MS);
        signal = signals_take();
    }
    return signal == SIGINT ? 0 : report_interrupted(signal, "interrupted: the target is gone");
}

void fill_json(int status) {
    Json& json = report_json();
    json.set("device", state.target.line.device);
    json.set("target", state.target_name);
    json.set("commands", state.commands_seen);
    json.set("requests", state.requests_seen);
    json.set("runs", state.target.runs);
    json.set("pc", state.target.pc);
    json.set("status", status);
}

int run() {
    FakeSettings settings;
    if (const int status = read_settings(settings)) {
        return status;
    }
    FakeTarget& target = state.target;
    target.tell = tell_event;
    state.started_ms = clock_ms();
    if (fake_open(target, settings) != 0) {
        return report_fail(KxError::HostFile,
                           std::string("no pseudo-terminal: ") + std::strerror(errno));
    }
    if (const int status = fill(target)) {
        return status;
    }
    if (const int status = make_link(target.line.device)) {
        return status;
    }
    signals_catch();
    const int status = state.command.empty() ? serve() : run_command();
    fill_json(status);
    remove_link();
    fake_close(target);
    if (state.command.empty()) {
        report_done(text_count(state.commands_seen, "command") + ", " +
                    text_count(state.requests_seen, "request"));
    }
    return status;
}

} // namespace

extern const Verb verb_fake = {
    .name = "fake",
    .alias = nullptr,
    .synopsis = "[options] [-- COMMAND...]",
    .summary = "a pretended target on a pseudo-terminal",
    .options = options,
    .run = run,
};

} // namespace kx
