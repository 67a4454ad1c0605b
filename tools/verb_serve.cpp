// kx serve: a directory of the host to the running target.
#include "tools/serve.h"

#include "tools/global.h"
#include "tools/line.h"
#include "tools/report.h"
#include "tools/verbs.h"

namespace kx {

namespace {

struct State {
    ServeOptions serving;
    bool wait = false;
};
State state;

constexpr Option options[] = {
    {"[DIR]", &state.serving.directory, "", "the directory (.), which no request leaves"},
    {"--protocol", &state.serving.protocol, "cbm|generic|serialslave",
     "of the requests; otherwise the target file's"},
    {"-r,--read-only", &state.serving.read_only, "", "the target may not change a file"},
    {"-w,--writable", &state.serving.writable, "", "it may"},
    {"--anywhere", &state.serving.anywhere, "", "the target may name any file of the host"},
    {"--exact", &state.serving.exact, "", "names as they come: no patterns, saves untranslated"},
    {"--patience", &state.serving.patience, "SECONDS",
     "give up half a request (30; 0 waits for ever)"},
    {"--once", &state.serving.once, "", "end after one request"},
    {"--wait", &state.wait, "", "wait for a line that is in use or not there"},
    {"--console", &state.serving.console, "", "the debug console on this terminal as well"},
};

int run() {
    Session session;
    if (const int status = serve_check(state.serving)) {
        return status;
    }
    if (const int status = line_begin(session)) {
        return status;
    }
    if (const int status = serve_prepare(session, state.serving)) {
        return status;
    }
    if (globals.dry_run) {
        const int status = line_check(session);
        return status != 0 ? status : serve_dry_run();
    }
    if (const int status = line_connect(session, state.wait)) {
        return status;
    }
    const int status = serve_run(session, state.serving);
    line_close(session);
    return status;
}

} // namespace

extern const Verb verb_serve = {
    .name = "serve",
    .alias = nullptr,
    .synopsis = "[DIR] [-r | -w] [--once] [--console]",
    .summary = "host directory to the running target",
    .options = options,
    .run = run,
};

} // namespace kx
