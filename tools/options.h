// The command line of a verb: a constant table says what it takes, and parser and help walk it.
// The one place that knows CLI11.
#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

namespace kx {

/// An option whose value may be left out, and is only taken behind "=".
struct OptionalText {
    bool given = false;
    std::string value; // empty: left out
};

/// One option or argument. Options are named "-o,--output" or by one of the two; arguments "IMAGE",
/// "[FILE]", "NAME..." (one at least) or "[NAME...]", in their order.
struct Option {
    const char* names;
    /// What it sets: a flag, how often a flag was given, the text given last, all texts, a number
    /// of milliseconds given in seconds (0.1 to 600).
    std::variant<bool*, int*, std::string*, std::vector<std::string>*, OptionalText*,
                 std::uint32_t*>
        target;
    const char* value; // what the help calls it, in capitals; or the values admitted: "a|b|c", "a"
    const char* help;
};

// Both return 0, or -1 with what is wrong in `error`.

/// Puts what `words`, the command line without program and verb, say into the options' targets,
/// and what they are beside that into `arguments`. A misspelt option is told with the nearest
/// there is.
int options_parse(std::span<const Option> options, std::span<const Option> globals,
                  const std::vector<std::string>& words, std::vector<std::string>& arguments,
                  std::string& error);

/// Gives the arguments to the table's rows in order; a list takes all that are left.
int options_store_arguments(std::span<const Option> options,
                            const std::vector<std::string>& arguments, std::string& error);

/// The option of that name, "-o" or "--output"; null for none.
const Option* options_find(std::span<const Option> options, const std::string& name);

/// How many words the option at the head of `words` takes, itself included, by the table; 0 for
/// one that the table does not have, and for a word that is no option.
std::size_t options_count_words(std::span<const Option> options,
                                std::span<const std::string> words);

/// Whether the option's `value` is what it admits.
bool options_lists_choices(const Option& option);

/// The options, a line each, for people.
std::string options_help(std::span<const Option> options);

} // namespace kx
