// The frame of the command: finds the verb, reads its options, runs it. KX_VERSION comes from the
// build files, for this file alone.
#include "tools/kx.h"

#include "tools/complete.h"
#include "tools/global.h"
#include "tools/nearest.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/signals.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kx {

namespace {

std::string list_text() {
    std::string text = "usage: kx [options] COMMAND [arguments]\n\n";
    for (const Verb* verb : verb_table()) {
        std::string line = "  " + std::string(verb->name);
        line.resize(12, ' ');
        text += line + verb->summary + "\n";
    }
    return text + "\nOptions, before or after the command:\n" + options_help(global_options()) +
           "\nkx help COMMAND tells more.\n";
}

std::string verb_text(const Verb& verb) {
    std::string text = std::string("usage: kx ") + verb.name + " " + verb.synopsis + "\n";
    text += std::string(verb.summary) + (verb.alias != nullptr ? "; also kx " : "") +
            (verb.alias != nullptr ? verb.alias : "") + "\n";
    const std::string options = options_help(verb.options);
    return text + (options.empty() ? "" : "\n" + options) +
           "\nkx --help has the options of every command.\n";
}

/// Help and version are text, also with --json.
int print(const std::string& text) {
    globals.json = false;
    std::fputs(text.c_str(), stdout);
    return report_end(0);
}

std::string unknown_verb(const std::string& name) {
    std::vector<std::string> names = {"help"};
    for (const Verb* verb : verb_table()) {
        names.emplace_back(verb->name);
        if (verb->alias != nullptr) {
            names.emplace_back(verb->alias);
        }
    }
    const std::string nearest = nearest_word(name, names);
    return "there is no command '" + name + "'" +
           (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
}

/// Whether the manual page was shown.
bool show_manual(const Verb& verb) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        return false;
    }
    std::string page = std::string("kx-") + verb.name, man = "man";
    char* const words[] = {man.data(), page.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = -1;
    const bool started = posix_spawnp(&child, "man", &actions, nullptr, words, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return started && waitpid(child, &status, 0) == child && status == 0;
}

int usage_failure(const std::string& text, const std::string& hint) {
    return report_end(report_fail(KxError::Usage, text, hint));
}

/// What the global options ask for before anything else.
int print_help(const std::string& text) {
    return print(globals.version ? "kx " KX_VERSION "\n" : text);
}

int run_help(const std::vector<std::string>& names) {
    if (names.empty() || names[0] == "help") {
        return print(list_text());
    }
    if (names.size() > 1) {
        return usage_failure("'" + names[1] + "' is one argument too many",
                             "usage: kx help [COMMAND]");
    }
    const Verb* const verb = verb_find(names[0]);
    if (verb == nullptr) {
        return usage_failure(unknown_verb(names[0]), "kx --help lists them");
    }
    return show_manual(*verb) ? 0 : print(verb_text(*verb));
}

/// The verb's place among the words: the first that belongs to no option.
std::size_t find_verb(const std::vector<std::string>& words) {
    std::size_t at = 0;
    while (at < words.size()) {
        const std::size_t taken =
            options_count_words(global_options(), std::span(words).subspan(at));
        if (taken == 0) {
            break;
        }
        at += taken;
    }
    return at;
}

int run_verb(const Verb& verb, const std::vector<std::string>& words) {
    std::vector<std::string> arguments;
    std::string error;
    const bool parsed = options_parse(verb.options, global_options(), words, arguments, error) == 0;
    report_begin(verb.name, std::string("usage: kx ") + verb.name + " " + verb.synopsis);
    if (globals.help || globals.version) {
        return print_help(verb_text(verb));
    }
    if (!parsed || options_store_arguments(verb.options, arguments, error) != 0) {
        return report_end(report_fail_usage(error));
    }
    return report_end(verb.run());
}

/// `kx help`, and kx without any command.
int run_without_verb(const std::vector<std::string>& words, bool help) {
    std::vector<std::string> arguments;
    std::string error;
    const bool parsed = options_parse({}, global_options(), words, arguments, error) == 0;
    report_begin(help ? "help" : "");
    if (!parsed) {
        return usage_failure(error, "kx --help lists the options");
    }
    if (globals.help || globals.version) {
        return print_help(list_text());
    }
    if (help) {
        return run_help(arguments);
    }
    if (globals.json) {
        return usage_failure("COMMAND is missing", "kx --help lists them");
    }
    std::fputs(list_text().c_str(), stderr);
    return report_status(KxError::Usage);
}

} // namespace

int kx_run(int argc, char** argv) {
    signals_ignore_failed_writes();
    std::signal(SIGPIPE, SIG_DFL); // a reader that has seen enough ends kx without a word
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const std::size_t at = find_verb(words);
    if (at + 1 < words.size() && words[at] == "--") {
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(at));
    }
    if (at >= words.size() || words[at] != "complete") { // whose words are of another line
        const auto end = std::ranges::find(words, "--");
        globals.json = std::find(words.begin(), end, "--json") != end; // also for a bad line
    }
    if (at >= words.size() || words[at].starts_with('-')) {
        return run_without_verb(words, false);
    }
    const std::string name = words[at];
    std::vector<std::string> rest; // none: what stands in front of the verb belongs to options
    std::string error;
    options_parse({}, global_options(),
                  {words.begin(), words.begin() + static_cast<std::ptrdiff_t>(at)}, rest, error);
    words.erase(words.begin() + static_cast<std::ptrdiff_t>(at));
    if (name == "help") {
        return run_without_verb(words, true);
    }
    if (name == "complete") {
        return complete_run(words);
    }
    const Verb* const verb = verb_find(name);
    if (verb == nullptr) {
        report_begin(name.c_str());
        return usage_failure(unknown_verb(name), "kx --help lists them");
    }
    return run_verb(*verb, words);
}

} // namespace kx
