// Opening a session step by step, each of which says why it failed; serving; giving back.
#include "session/session.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "core/config/config.h"
#include "core/simulator.h"
#include "files/loader.h"
#include "files/membank.h"
#include "fileserver/fileserver.h"
#include "link/port.h"
#include "link/stub.h"
#include "link/target_memory.h"
#include "symfiles/symfiles.h"
#include "ui/msg.h"
#include "util/fd.h"
#include "util/file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace kx {

namespace {

constexpr int STOP_INTERVAL_MS = 50; // between two looks at `stop` while nothing comes

struct State {
    Session* open = nullptr; // the one that is
};
State state;

/// Keeps the cause without a message: somebody else has told it.
int note(Session& session, SessionCause cause, std::string text) {
    session.cause = cause;
    session.text = std::move(text);
    return -1;
}

int fail(Session& session, SessionCause cause, std::string text) {
    msg_error("%s", text.c_str());
    return note(session, cause, std::move(text));
}

/// 0 when there is a file with something in it, otherwise the error that keeps it from being read.
int read_error(const std::string& path) {
    const FilePtr file = file_open(path, "rb");
    if (file == nullptr) {
        return file_last_error().error;
    }
    return file_size(file.get()) > 0 ? 0 : ENODATA;
}

int find_base(Session& session, const SessionOptions& options) {
    std::string& base = active_config.base_dir;
    base = options.base_dir;
    if (base.empty()) {
        base = config_find_base_dir("", "KXPATH");
    } else if (base.back() != '/') {
        base += '/';
    }
    std::error_code error;
    return std::filesystem::is_directory(base + "config", error)
               ? 1
               : fail(session, SessionCause::NoBase,
                      base + " is no base directory: it holds no directory config.");
}

int read_main(Session& session) {
    const std::string path = config_make_path(active_config.base_dir, "kx.ini");
    const int error = read_error(path);
    if (error == 0 && ini_read(path, session.main_doc) == 0) {
        return 1;
    }
    ini_create(session.main_doc, path);
    return error == ENOENT || error == ENODATA
               ? 1
               : fail(session, SessionCause::BadConfig,
                      path + " cannot be read: " + std::strerror(error));
}

int find_target(Session& session, const SessionOptions& options) {
    std::string name = options.target;
    if (name.empty() && ini_find_section(session.main_doc, "targets") != nullptr) {
        ini_get_string(session.main_doc, name, "targets", "default");
    }
    if (name.empty()) {
        return fail(session, SessionCause::NoTarget,
                    "no target is chosen: " + session.main_doc.file_name +
                        " has no default in section targets.");
    }
    session.target = name.find('/') != std::string::npos ? name : config_path_of(name);
    return 1;
}

/// Sections are looked for here, because the loader ends the process without them.
int read_target(Session& session) {
    const int error = read_error(session.target);
    if (error == ENOENT || error == ENOTDIR) {
        return fail(session, SessionCause::NoTarget,
                    session.target + " cannot be read: " + std::strerror(error));
    }
    if (error != 0 || ini_read(session.target, session.target_doc) != 0) {
        return fail(session, SessionCause::BadConfig,
                    session.target + " cannot be read: " + std::strerror(error));
    }
    if (const char* section = config_missing_section(session.target_doc)) {
        return fail(session, SessionCause::BadConfig,
                    session.target + " has no section [" + section + "].");
    }
    return 1;
}

int use_target(Session& session, const SessionOptions& options) {
    if (config_use_target(session.target_doc) != 1) { // the loader has said so
        std::string machine;
        ini_get_string(session.target_doc, machine, "target", "machine");
        return note(session, SessionCause::BadConfig,
                    "(" + session.target + ") unknown machine '" + machine + "'.");
    }
    if (!options.port.empty()) {
        active_config.port_name = options.port;
    }
    if (options.baud != 0) {
        active_config.port_baud = static_cast<std::int32_t>(options.baud);
    }
    return 1;
}

int load_defaults(Session& session) {
    ini_add_section(session.main_doc, "charsets"); // without, the loader would end the process
    const std::string problem = charset_check_defaults(active_config.base_dir, session.main_doc);
    if (!problem.empty()) {
        return fail(session, SessionCause::BadConfig, problem);
    }
    charset_load_defaults(active_config.base_dir, session.main_doc);
    if (sim_init() != 1) {
        return fail(session, SessionCause::NoMemory, "couldn't init simulator core.");
    }
    sym_table_new(&sym_store);
    std::string failed;
    if (config_load_roms(active_config.base_dir, session.target_doc, &failed) != 0) {
        return note( // the loader has said why
            session, SessionCause::BadConfig,
            "couldn't load the rom " + failed + " of " + session.target);
    }
    config_load_symbols(active_config.base_dir, session.target_doc);
    cpu_enter();
    return 1;
}

std::string line_problem(const Failure& failure) {
    return failure.kind == FailureKind::System ? std::strerror(failure.error) : "it has hung up";
}

int connect_line(Session& session, const SessionOptions& options, Fd fd) {
    const ActiveConfig& config = active_config;
    if (!options.line) {
        return 1;
    }
    if (config.port_type != PORT_SERIAL) {
        return fail(session, SessionCause::NoPort,
                    session.target + " has no line: its cable is " + config.cable_tag + ".");
    }
    mem_mode = MEM_SIMULATOR_AND_TARGET;
    stub_set_timeout(options.timeout_ms);
    const int result = fd.is_open() ? port_adopt(std::move(fd), config.port_name, config.port_baud)
                                    : port_open(config.port_name, config.port_baud);
    if (result == 1) {
        return 1;
    }
    session.failure = port_last_error();
    return fail(session, SessionCause::NoPort,
                "couldnt open port " + config.port_name + " at " +
                    std::to_string(config.port_baud) + " baud: " + line_problem(session.failure));
}

void release() {
    port_close();
    stub_set_timeout(0);
    fileserver_reset();
    sym_table_free(sym_store);
    cpu_leave();
    sim_shutdown();
    charset_reset();
    membank_free_all();
    file_loaded_reset();
    mem_clear_window();
    active_config_reset();
    mem_mode = MEM_SIMULATOR;
}

} // namespace

Session::~Session() {
    session_close(*this);
}

int session_open(Session& session, const SessionOptions& options) {
    if (state.open != nullptr) {
        session_close(*state.open);
    }
    session.cause = SessionCause::None;
    session.text.clear();
    Fd fd(options.fd);
    state.open = &session;
    session.is_open = true;
    active_config_reset();
    mem_mode = MEM_SIMULATOR;
    if (find_base(session, options) == 1 && read_main(session) == 1 &&
        find_target(session, options) == 1 && read_target(session) == 1 &&
        use_target(session, options) == 1 && load_defaults(session) == 1 &&
        connect_line(session, options, std::move(fd)) == 1) {
        return 1;
    }
    session_close(session);
    return -1;
}

int session_serve(Session& session, const SessionServing& serving) {
    const int server = active_config.fileserver;
    if (server == 0 || server == fileserver_default_id()) {
        return fail(session, SessionCause::BadConfig, session.target + " names no fileserver.");
    }
    if (fileserver_start() != 0) { // it has said why
        return note(session, SessionCause::BadConfig,
                    "the root " + active_config.fileserver_root + " cannot be opened.");
    }
    while (serving.stop == nullptr || !serving.stop()) {
        if (!port_wait_data(STOP_INTERVAL_MS)) {
            session.failure = port_last_error();
            return fail(session, SessionCause::LineLost,
                        "the line " + active_config.port_name +
                            " is lost: " + line_problem(session.failure));
        }
        const std::uint8_t byte = port_getc_nowait();
        if (!port_read_error && fileserver_handle_byte(byte) == -1 && serving.unknown != nullptr) {
            serving.unknown(byte);
        }
    }
    return 1;
}

void session_close(Session& session) {
    if (!session.is_open) {
        return;
    }
    release();
    ini_free(session.main_doc);
    ini_free(session.target_doc);
    session.is_open = false;
    state.open = nullptr;
}

} // namespace kx
