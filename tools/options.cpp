// CLI11 splits the words into options, values and arguments; names, numbers, choices and texts of
// errors are handled here.
#include "tools/options.h"

#include "tools/nearest.h"
#include "tools/parse.h"
#include "util/text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <string_view>

namespace kx {

namespace {

// A flag of CLI11 that is given without a value gets this one; nobody types it.
const std::string LEFT_OUT = "\x01";

bool is_argument(const Option& option) {
    return option.names[0] != '-';
}

template <typename Target>
bool holds(const Option& option) {
    return std::holds_alternative<Target>(option.target);
}

/// Whether the word behind the option is its value.
bool takes_word(const Option& option) {
    return !holds<bool*>(option) && !holds<int*>(option) && !holds<OptionalText*>(option);
}

/// The value of an option put into its target. 0, or -1 with `error`.
int store(const Option& option, const std::vector<std::string>& texts, std::string& error) {
    const std::string name = text_split(option.names, ',').back();
    if (!is_argument(option) && std::ranges::count(texts, "") > 0) {
        error = name + " needs a value";
        return -1;
    }
    if (option.names[0] == '[' && holds<std::string*>(option) && texts.back().empty()) {
        error = name.substr(1, name.find(']') - 1) + " is empty";
        return -1;
    }
    if (auto* const* flag = std::get_if<bool*>(&option.target)) {
        **flag = true;
    } else if (auto* const* optional = std::get_if<OptionalText*>(&option.target)) {
        **optional = {true, texts.back() == LEFT_OUT ? "" : texts.back()};
    } else if (auto* const* list = std::get_if<std::vector<std::string>*>(&option.target)) {
        **list = texts;
    } else if (auto* const* milliseconds = std::get_if<std::uint32_t*>(&option.target)) {
        return parse_seconds(texts.back(), **milliseconds, error);
    } else if (auto* const* text = std::get_if<std::string*>(&option.target)) {
        const std::vector<std::string> choices = text_split(option.value, '|');
        if (!is_argument(option) && options_lists_choices(option) &&
            std::ranges::find(choices, texts.back()) == choices.end()) {
            error = name + " takes " + option.value + ", not '" + texts.back() + "'";
            return -1;
        }
        **text = texts.back();
    }
    return 0;
}

/// Declares an option. What it is given goes through `store`, whose error ends the parsing.
void declare(CLI::App& app, const Option& option, std::string& error) {
    const auto take = [&option, &error](const std::vector<std::string>& texts) {
        return store(option, texts, error) == 0;
    };
    if (auto* const* count = std::get_if<int*>(&option.target)) {
        app.add_flag_function(option.names,
                              [count](std::int64_t n) { **count = static_cast<int>(n); })
            ->disable_flag_override();
    } else if (holds<bool*>(option)) {
        app.add_flag_callback(option.names, [take] { take({}); })->disable_flag_override();
    } else if (holds<OptionalText*>(option)) {
        static std::string unused; // CLI11 has no flag that hands its value to a function alone
        app.add_flag(text_split(option.names, ',').back() + "{" + LEFT_OUT + "}", unused)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
            ->each([take](const std::string& text) { take({text}); });
    } else {
        CLI::Option* const added = app.add_option(option.names, take);
        if (!holds<std::vector<std::string>*>(option)) {
            added->take_last();
        } else {
            added->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        }
        added->allow_extra_args(false);
    }
}

/// "unknown option '--froce', did you mean '--force'?"
std::string unknown_option(const std::string& word, std::span<const Option> options,
                           std::span<const Option> globals) {
    const bool is_long = word.starts_with("--");
    const std::string name = word.substr(0, is_long ? word.find('=') : 2);
    std::vector<std::string> names;
    for (const std::span<const Option> table : {options, globals}) {
        for (const Option& option : table) {
            for (const std::string& each : text_split(option.names, ',')) {
                if (each.starts_with("--")) {
                    names.push_back(each);
                }
            }
        }
    }
    const std::string nearest = is_long ? nearest_word(name, names) : "";
    return "unknown option '" + name + "'" +
           (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
}

/// What is wrong, of the texts of CLI11: they begin with the option's name.
std::string parse_error_text(const CLI::ParseError& failure) {
    const std::string text = failure.what();
    std::string name = text.substr(0, text.find_first_of(": "));
    name = (name.starts_with('-') ? "" : name.size() > 1 ? "--" : "-") + name;
    const bool is_flag = text.find("flag override") != std::string::npos;
    return name + (is_flag ? " takes no value" : " needs a value");
}

} // namespace

int options_parse(std::span<const Option> options, std::span<const Option> globals,
                  const std::vector<std::string>& words, std::vector<std::string>& arguments,
                  std::string& error) {
    error.clear();
    if (std::ranges::none_of(words,
                             [](const std::string& word) { return word.starts_with('-'); })) {
        arguments = words; // nothing to take apart: a listing is over before CLI11 is set up
        return 0;
    }
    CLI::App app;
    app.set_help_flag();
    app.allow_extras();
    for (const std::span<const Option> table : {options, globals}) {
        for (const Option& option : table) {
            if (!is_argument(option)) {
                declare(app, option, error);
            }
        }
    }
    for (const std::string& word : words) {
        if (word == "--") {
            break;
        }
        // CLI11 would take the word behind it.
        if (word.starts_with("--") && word.find('=') == word.size() - 1) {
            error = word.substr(0, word.size() - 1) + " needs a value";
            return -1;
        }
    }
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& failure) {
        if (error.empty()) {
            error = parse_error_text(failure);
        }
        return -1;
    }
    bool only_arguments = false;
    for (const std::string& word : app.remaining()) {
        if (!only_arguments && word == "--") {
            only_arguments = true;
        } else if (!only_arguments && word.size() > 1 && word[0] == '-') {
            error = unknown_option(word, options, globals);
            return -1;
        } else {
            arguments.push_back(word);
        }
    }
    return 0;
}

int options_store_arguments(std::span<const Option> options,
                            const std::vector<std::string>& arguments, std::string& error) {
    auto next = arguments.begin();
    for (const Option& option : options) {
        if (!is_argument(option)) {
            continue;
        }
        if (next == arguments.end()) {
            if (option.names[0] != '[') {
                error = std::string(text_split(option.names, '.').front()) + " is missing";
                return -1;
            }
            continue;
        }
        const bool is_list = holds<std::vector<std::string>*>(option);
        const auto end = is_list ? arguments.end() : next + 1;
        if (store(option, {next, end}, error) != 0) {
            return -1;
        }
        next = end;
    }
    if (next != arguments.end()) {
        error = "'" + *next + "' is one argument too many";
        return -1;
    }
    return 0;
}

const Option* options_find(std::span<const Option> options, const std::string& name) {
    const auto found = std::ranges::find_if(options, [&](const Option& option) {
        return std::ranges::count(text_split(option.names, ','), name) > 0;
    });
    return found != options.end() ? &*found : nullptr;
}

std::size_t options_count_words(std::span<const Option> options,
                                std::span<const std::string> words) {
    const std::string& word = words.front();
    if (word.size() < 2 || word[0] != '-') {
        return 0;
    }
    const bool is_long = word[1] == '-';
    for (std::size_t at = 1; at < word.size(); at++) {
        const std::string name =
            is_long ? word.substr(0, word.find('=')) : std::string("-") + word[at];
        const Option* const option = options_find(options, name);
        if (option == nullptr) {
            return 0;
        }
        if (takes_word(*option)) {
            const bool value_inside = is_long ? name != word : at + 1 < word.size();
            return value_inside || words.size() < 2 ? 1 : 2;
        }
        if (is_long) {
            break;
        }
    }
    return 1;
}

bool options_lists_choices(const Option& option) {
    return option.value[0] != '\0' && !(option.value[0] >= 'A' && option.value[0] <= 'Z');
}

std::string options_help(std::span<const Option> options) {
    constexpr std::size_t COLUMN = 24;
    std::string text;
    for (const Option& option : options) {
        const std::vector<std::string> names = text_split(option.names, ',');
        const bool long_only = names.front().starts_with("--");
        std::string line = std::string(long_only ? 6 : 2, ' ') + names.front() +
                           (names.size() > 1 ? ", " + names.back() : "");
        if (holds<OptionalText*>(option)) {
            line += std::string("[=") + option.value + "]";
        } else if (option.value[0] != '\0') {
            line += (names.back().starts_with("--") ? "=" : " ") + std::string(option.value);
        }
        const bool fits = line.size() + 2 <= COLUMN;
        line += fits ? std::string(COLUMN - line.size(), ' ') : "\n" + std::string(COLUMN, ' ');
        text += line + option.help + "\n";
    }
    return text;
}

} // namespace kx
