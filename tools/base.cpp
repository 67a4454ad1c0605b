// Base directory and target: option over environment over file over default.
#include "tools/base.h"

#include "core/active_config.h"
#include "core/config/config.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/nearest.h"
#include "tools/parse.h"
#include "tools/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t PATH_MOST = 255; // that the loader takes

std::string environment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

bool is_directory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

bool is_base(const std::string& path) {
    return is_directory(path + "/config") || exists(path + "/kx.ini");
}

/// Where kx-init puts a user's base directory. As there, a relative XDG_DATA_HOME counts for
/// nothing.
std::string user_base() {
    const std::string data = environment("XDG_DATA_HOME");
    return (data.starts_with('/') ? data : environment("HOME") + "/.local/share") + "/kx";
}

/// share/kx beside the folder that the program is in.
std::string installed_base() {
    std::error_code failure;
    const fs::path program = fs::read_symlink("/proc/self/exe", failure);
    return (program.parent_path().parent_path() / "share/kx").string();
}

/// The first that is not empty of an option, a variable and a value of the file.
std::string choose(const char* what, const std::string& option, const char* variable,
                   const std::string& file) {
    const std::string named = environment(variable);
    const std::string& value = !option.empty() ? option : !named.empty() ? named : file;
    if (!value.empty()) {
        report_detail(std::string(what) + " " + value + " (" +
                      (!option.empty()  ? "option"
                       : !named.empty() ? variable
                                        : "configuration") +
                      ")");
    }
    return value;
}

std::string get_string(const IniDocument& document, const char* section, const char* key) {
    std::string value;
    if (ini_find_section(document, section) != nullptr) {
        ini_get_string(document, value, section, key);
    }
    return value;
}

/// "c64, c64_sim, nes...": some of the targets there are.
std::string some_targets() {
    constexpr std::size_t SOME = 6;
    const std::vector<std::string> names = base_config_names("target");
    std::string text;
    for (std::size_t i = 0; i < std::min(SOME, names.size()); i++) {
        text += (i > 0 ? ", " : "") + names[i];
    }
    return text + (names.size() > SOME ? "..." : "");
}

/// The name that options, environment and kx.ini give; empty for none.
std::string target_name() {
    const std::string chosen = base_setting("targets", "default", "none");
    const bool none = chosen == "none";
    std::string name = choose("target", globals.target, "KX_TARGET", none ? "" : chosen);
    if (name.empty() && !(globals.port.empty() && environment("KX_PORT").empty())) {
        name = "c64";
        report_done("no target is chosen: c64 is taken");
    }
    return name;
}

int no_such_target(const std::string& name, const std::string& path) {
    const std::string why = std::strerror(errno);
    const std::string nearest = nearest_word(name, base_config_names("target"));
    const std::string others = some_targets();
    const char* const origin = !globals.target.empty()             ? ""
                               : !environment("KX_TARGET").empty() ? " (KX_TARGET)"
                               : base_setting("targets", "default", "none") == name
                                   ? " ([targets] default of kx.ini)"
                                   : "";
    return report_fail(KxError::NoTarget, path + ": " + why + origin,
                       !nearest.empty() ? "did you mean '" + nearest + "'?"
                       : others.empty() ? ""
                                        : "there are " + others);
}

/// Port and baud rate of options and environment into the active configuration.
int choose_port() {
    ActiveConfig& config = active_config;
    config.port_name = choose("port", globals.port, "KX_PORT", config.port_name);
    const std::string by_id = "/dev/serial/by-id/" + config.port_name;
    if (!config.port_name.empty() && config.port_name.find('/') == std::string::npos) {
        config.port_name = exists(by_id) ? by_id : "/dev/" + config.port_name;
    }
    const std::string baud =
        choose("baud rate", globals.baud, "KX_BAUD", std::to_string(config.port_baud));
    std::uint64_t rate = 0;
    std::string error;
    if (parse_number(baud, INT32_MAX, rate, error) != 0 ||
        std::ranges::count(baud_rates, static_cast<int>(rate)) == 0) {
        // A file without a port may have any rate: it is asked for when the port is opened.
        if (globals.baud.empty() && environment("KX_BAUD").empty()) {
            return 0;
        }
        return report_fail(KxError::PortBaud, "'" + baud + "' is no baud rate of a serial line (" +
                                                  (globals.baud.empty() ? "KX_BAUD" : "--baud") +
                                                  "): " + baud_rates_text() + " are");
    }
    config.port_baud = static_cast<std::int32_t>(rate);
    return 0;
}

/// Looks at the places a base directory may be, in their order. False, and what is wrong in `why`.
bool look(std::string& why) {
    struct Place {
        std::string path;
        const char* what;
        bool named; // by the user: nothing else is looked at
    };
    const Place places[] = {{globals.base, "--base", true},
                            {environment("KXPATH"), "KXPATH", true},
                            {user_base(), "yours", false},
                            {installed_base(), "the installed one", false}};
    for (const Place& place : places) {
        if (place.path.empty()) {
            continue;
        }
        if (is_base(place.path)) {
            active_config.base_dir = place.path + (place.path.ends_with('/') ? "" : "/");
            report_detail("base directory " + place.path + " (" + place.what + ")");
            return true;
        }
        if (place.named) {
            why = place.path + ": no base directory: neither config/ nor kx.ini is in it (" +
                  place.what + ")";
            return false;
        }
    }
    why = "no base directory: KXPATH is not set, and there is no " + user_base();
    return false;
}

/// The first of the sections without which the loader ends the program that the file lacks; null
/// for none.
const char* missing_section(const IniDocument& document) {
    constexpr const char* sections[] = {"patches", "target",  "cable",      "port",   "dropper",
                                        "stub",    "console", "fileserver", "memory", "files"};
    const auto missing = std::ranges::find_if(sections, [&](const char* section) {
        return ini_find_section(document, section) == nullptr;
    });
    return missing != std::end(sections) ? *missing : nullptr;
}

} // namespace

std::string baud_rates_text() {
    std::string text;
    for (const int& rate : baud_rates) {
        text += (&rate == baud_rates                 ? ""
                 : &rate == std::end(baud_rates) - 1 ? " or "
                                                     : ", ") +
                std::to_string(rate);
    }
    return text;
}

int base_find() {
    std::string why;
    return look(why) ? 0 : report_fail(KxError::NoBase, why, "kx-init makes one");
}

bool base_find_quietly() {
    std::string why;
    return look(why);
}

std::string base_setting(const char* section, const char* key, const std::string& otherwise) {
    IniDocument document;
    const std::string path = active_config.base_dir + "kx.ini";
    const std::string value =
        exists(path) && ini_read(path, document) == 0 ? get_string(document, section, key) : "";
    return value.empty() ? otherwise : value;
}

std::vector<std::string> base_config_names(const std::string& type) {
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator entry(active_config.base_dir + "config", failure), end;
         !failure && entry != end; entry.increment(failure)) {
        IniDocument document;
        if (entry->path().extension() == ".ini" &&
            (type.empty() || (ini_read(entry->path().string(), document) == 0 &&
                              get_string(document, "config", "type") == type))) {
            names.push_back(entry->path().stem().string());
        }
    }
    std::ranges::sort(names);
    return names;
}

int target_load(IniDocument& document) {
    if (const int status = base_find()) {
        return status;
    }
    const std::string name = target_name();
    if (name.empty()) {
        const std::string main_file = active_config.base_dir + "kx.ini", some = some_targets();
        if (exists(main_file) && access(main_file.c_str(), R_OK) != 0) {
            return report_fail(KxError::BadConfig, host_why(main_file, errno));
        }
        return report_fail(KxError::NoTarget, "no target is chosen",
                           "run kxsetup, or give -t NAME" +
                               (some.empty() ? "" : " (" + some + ")"));
    }
    const std::string path = name.find('/') != std::string::npos ? name : config_path_of(name);
    if (path.size() > PATH_MOST) {
        return report_fail(KxError::BadConfig, path + ": the path is too long, " +
                                                   std::to_string(PATH_MOST) +
                                                   " characters are taken");
    }
    if (!exists(path)) {
        return no_such_target(name, path);
    }
    if (ini_read(path, document) != 0) {
        return report_fail(KxError::BadConfig, path + ": cannot be read, or is empty");
    }
    if (const std::string type = get_string(document, "config", "type"); type != "target") {
        return report_fail(KxError::BadConfig, path + ": no target: its type is '" + type + "'");
    }
    if (const char* const section = missing_section(document)) {
        return report_fail(KxError::BadConfig, path + ": no section [" + section + "]",
                           "kx lint has more");
    }
    if (config_load_target(document, path) != 1) {
        return report_fail_library(KxError::BadConfig, "", path + ": no CPU or machine");
    }
    return choose_port();
}

} // namespace kx
