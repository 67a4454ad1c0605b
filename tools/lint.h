// The rules for configuration files: what the loader swallows without a word, or ends a program
// about.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

enum class LintSeverity { Note, Warning, Error };

struct LintFinding {
    std::string file; // as shown
    int line = 0;     // 0: of the file as a whole
    LintSeverity severity = LintSeverity::Error;
    const char* rule = "";
    std::string text; // control characters are not escaped yet
};

/// A file to be looked at.
struct LintFile {
    std::string shown;   // its path in findings
    std::string path;    // where it is; only its name counts
    std::string base;    // the base directory, with a separator at its end; empty: files that are
                         // named are not looked for
    bool listed = false; // it lies in config/, where programs list it
    std::string text;    // what it holds
};

/// Appends what is wrong with the file, in the order of its lines.
void lint_file(const LintFile& file, std::vector<LintFinding>& findings);

/// The names of all rules.
std::span<const char* const> lint_rules();

} // namespace kx
