// All verbs, in the order of the help. To add one, declare it here and list it.
#include "tools/verbs.h"

#include "tools/global.h"

#include <algorithm>

namespace kx {

extern const Verb verb_ls, verb_get, verb_put, verb_rm, verb_mv, verb_check, verb_mkfs, verb_serve,
    verb_send, verb_run, verb_read, verb_verify, verb_patch, verb_view, verb_dump, verb_symbols,
    verb_lint, verb_ports, verb_fake;

namespace {

constexpr const Verb* table[] = {
    // discs
    &verb_ls,
    &verb_get,
    &verb_put,
    &verb_rm,
    &verb_mv,
    &verb_check,
    &verb_mkfs,
    // the target
    &verb_serve,
    &verb_send,
    &verb_run,
    &verb_read,
    &verb_verify,
    // files
    &verb_patch,
    &verb_view,
    &verb_dump,
    &verb_symbols,
    &verb_lint,
    // this host
    &verb_ports,
    &verb_fake,
};

constexpr Option globals_table[] = {
    {"-t,--target", &globals.target, "NAME", "config/NAME.ini of the base directory, or a path"},
    {"-p,--port", &globals.port, "DEVICE", "serial line to the target"},
    {"-b,--baud", &globals.baud, "N", "9600, 19200, 38400, 57600 or 115200"},
    {"--base", &globals.base, "DIR", "base directory, over KXPATH"},
    {"--timeout", &globals.timeout_ms, "SECONDS", "wait for a byte of the target (10; 0.1 to 600)"},
    {"-n,--dry-run", &globals.dry_run, "", "say what would happen, change nothing"},
    {"-q,--quiet", &globals.quiet, "", "errors, and the data asked for, only"},
    {"-v,--verbose", &globals.verbose, "",
     "say what is done; -vv each command of the link, -vvv all"},
    {"--json", &globals.json, "", "output for programs"},
    {"--color", &globals.color, "auto|always|never", "colours (auto: on a terminal)"},
    {"--progress", &globals.progress, "auto|always|never", "progress line (auto: on a terminal)"},
    {"-h,--help", &globals.help, "", "this"},
    {"--version", &globals.version, "", "the version"},
};

} // namespace

std::span<const Verb* const> verb_table() {
    return table;
}

const Verb* verb_find(std::string_view name) {
    const auto verb = std::ranges::find_if(table, [&](const Verb* each) {
        return name == each->name || (each->alias != nullptr && name == each->alias);
    });
    return verb != std::end(table) ? *verb : nullptr;
}

std::span<const Option> global_options() {
    return globals_table;
}

} // namespace kx
