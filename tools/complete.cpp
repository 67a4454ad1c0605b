// Walks the line by the tables of verbs and options, as the parser does, up to its last word.
#include "tools/complete.h"

#include "core/registry.h"
#include "setup/command_line.h"
#include "tools/base.h"
#include "tools/discs.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/lint.h"
#include "tools/port_list.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <span>
#include <string_view>

namespace kx {

namespace {

/// The words in front of the one that is typed, taken apart.
struct Line {
    const Verb* verb = nullptr;
    bool help = false;                  // "help" stands where a verb does
    std::vector<std::string> arguments; // of the verb
    std::vector<std::string> globals;   // options of every verb, with their values
    const Option* option = nullptr;     // whose value is typed
    bool only_arguments = false;        // behind "--"
};

void offer(const std::string& word, const std::string& text = "") {
    // The shells take the lines apart, and show them.
    if (ascii_escape(word + text) == word + text) {
        report_line(text.empty() ? word : word + "\t" + text);
    }
}

void offer_verbs() {
    for (const Verb* verb : verb_table()) {
        offer(verb->name, verb->summary);
    }
}

void offer_targets(const std::string& before) {
    if (base_find_quietly()) {
        for (const std::string& name : base_config_names("target")) {
            offer(before + name);
        }
    }
}

/// The values of an option, with `before` in front of each.
void offer_values(const Option& option, const std::string& before) {
    if (&option == options_find(global_options(), "--target")) {
        offer_targets(before);
    } else if (&option == options_find(global_options(), "--port")) {
        for (const PortEntry& port : port_list("", false)) {
            offer(before + port.device, port.what);
        }
    } else if (&option == options_find(global_options(), "--baud")) {
        for (const int rate : baud_rates) {
            offer(before + std::to_string(rate));
        }
    } else if (std::string_view(option.value) == "RULE") {
        for (const char* const rule : lint_rules()) {
            offer(before + rule);
        }
    } else if (options_lists_choices(option)) {
        for (const std::string& each : text_split(option.value, '|')) {
            offer(before + each);
        }
    }
}

void offer_options(std::span<const Option> options) {
    for (const Option& option : options) {
        if (option.names[0] == '-') {
            for (const std::string& name : text_split(option.names, ',')) {
                offer(name, option.help);
            }
        }
    }
}

/// The files on the image that the verb's first argument names, for a verb whose next ones are
/// their names.
void offer_names(const Line& line) {
    const auto row = std::ranges::find(line.verb->options, std::string_view("IMAGE"),
                                       [](const Option& option) { return option.names; });
    Disc disc;
    if (line.arguments.empty() || row == line.verb->options.end() ||
        std::string_view((row + 1)->names).find("FILE") != std::string_view::npos ||
        discs_open(disc, line.arguments.front(), DiscAccess::Read) != 0) {
        return;
    }
    for (const DiscEntry& entry : disc_entries(disc)) {
        if (entry.raw_type != 0) {
            offer(discs_typed_name(disc, entry), discs_type(entry));
        }
    }
}

/// What `kx lint` takes beside paths: nothing where no name begins so, and a file may be meant.
void offer_configs(const std::string& word) {
    const std::vector<std::string> names =
        base_find_quietly() ? base_config_names() : std::vector<std::string>();
    const auto fits = [&](const std::string& name) { return name.starts_with(word); };
    if (std::ranges::any_of(names, fits)) {
        for (const std::string& name : names) {
            offer(name);
        }
    }
}

/// The words as a program would get them: the shells hand them over with "~" in front, and bash
/// "--color=auto" as three.
std::vector<std::string> expand(std::vector<std::string> words) {
    const char* const home = std::getenv("HOME");
    std::vector<std::string> joined;
    bool goes_on = false;
    for (std::string& word : words) {
        if (word.starts_with("~/") && home != nullptr) {
            word.replace(0, 1, home);
        }
        const bool is_sign = word == "=" && !joined.empty() && joined.back().starts_with("--") &&
                             joined.back().find('=') == std::string::npos;
        if (is_sign || goes_on) {
            joined.back() += word;
        } else {
            joined.push_back(word);
        }
        goes_on = is_sign;
    }
    return joined;
}

bool is_option(const Line& line, const std::string& word) {
    return !line.only_arguments && word.size() > 1 && word[0] == '-';
}

void take_word(Line& line, const std::string& word) {
    if (line.verb != nullptr) {
        line.arguments.push_back(word);
    } else {
        line.help = line.help || word == "help";
        line.verb = verb_find(word);
    }
}

std::array<std::span<const Option>, 2> tables(const Line& line) {
    return {global_options(),
            line.verb != nullptr ? line.verb->options : std::span<const Option>()};
}

/// Takes the option at the head of `words`, with its value unless that is the last word. Returns
/// how many words these are.
std::size_t take_option(Line& line, std::span<const std::string> words) {
    for (const std::span<const Option> table : tables(line)) {
        const std::size_t count = options_count_words(table, words);
        const std::string& word = words.front();
        if (count == words.size()) {
            line.option =
                options_find(table, word[1] == '-' ? word : std::string("-") + word.back());
            return 1;
        }
        if (count > 0) {
            if (table.data() == global_options().data()) {
                std::ranges::copy(words.first(count), std::back_inserter(line.globals));
            }
            return count;
        }
    }
    return 1;
}

/// All words but the last one.
Line take_apart(std::span<const std::string> words) {
    Line line;
    while (words.size() > 1) {
        std::size_t count = 1;
        if (words.front() == "--") {
            line.only_arguments = true;
        } else if (is_option(line, words.front())) {
            count = take_option(line, words);
        } else {
            take_word(line, words.front());
        }
        words = words.subspan(count);
    }
    return line;
}

void complete_kx(std::span<const std::string> words) {
    const std::string& word = words.back();
    const Line line = take_apart(words);
    if (line.verb == verb_find("fake") && line.only_arguments) {
        const auto command = std::ranges::find(words, "--") + 1; // which it runs
        if (words.end() - command > 1 && host_name(*command) == "kx") {
            complete_kx({command + 1, words.end()});
        }
        return;
    }
    std::vector<std::string> arguments;
    std::string error;
    options_parse({}, global_options(), line.globals, arguments, error);
    globals.json = false; // that is for the command which is typed
    if (line.option != nullptr) {
        offer_values(*line.option, "");
    } else if (!line.only_arguments && word.starts_with('-')) {
        const std::size_t sign = word.find('=');
        for (const std::span<const Option> table : tables(line)) {
            const Option* const option = options_find(table, word.substr(0, sign));
            if (sign == std::string::npos) {
                offer_options(table);
            } else if (option != nullptr) {
                offer_values(*option, word.substr(0, sign + 1));
            }
        }
    } else if (line.verb == verb_find("lint")) {
        offer_configs(word);
    } else if (line.verb != nullptr) {
        offer_names(line);
    } else {
        offer_verbs();
        if (!line.help) {
            offer("help", "what a command does");
        }
    }
}

void complete_kxsetup(const std::string& before) {
    const std::vector<CommandLineName> names = command_line_names();
    const auto option = std::ranges::find(names, before, &CommandLineName::name);
    if (option == names.end() || !option->takes_value) {
        for (const CommandLineName& each : names) {
            offer(each.name, each.help);
        }
    } else if (before == "--cpu") {
        for (const RegistryEntry* cpu = cpu_table; cpu->id != 0; cpu++) {
            offer(cpu->tag, cpu->description);
        }
    } else if (before == "-t" || before == "--target") {
        offer_targets("");
    }
}

} // namespace

int complete_run(const std::vector<std::string>& words) {
    report_begin("complete");
    const std::vector<std::string> line = expand(words);
    if (line.size() < 2) {
        return report_end(report_fail(KxError::Usage, "WORD is missing"));
    }
    const std::string program = line.front().substr(line.front().rfind('/') + 1);
    if (program == "kxsetup") {
        complete_kxsetup(line[line.size() - 2]);
    } else if (program == "kx-init") {
        offer("--force", "start afresh, keep the old one");
        offer("--help");
    } else {
        complete_kx(std::span(line).subspan(1));
    }
    return report_end(0);
}

} // namespace kx
