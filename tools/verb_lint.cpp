// kx lint: checks configuration files, in the form of a compiler.
#include "core/active_config.h"
#include "tools/base.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/lint.h"
#include "tools/nearest.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <unistd.h>
#include <vector>

namespace kx {

namespace {

struct State {
    std::vector<std::string> files;
    std::string warnings = "no";
    std::vector<std::string> rules;
    std::vector<std::string> no_rules;
};
State state;

constexpr Option options[] = {
    {"[NAME|FILE...]", &state.files, "", "of config/, or a path; kx.ini and config/*.ini without"},
    {"-W", &state.warnings, "error|no", "whether warnings count as errors (no)"},
    {"--rule", &state.rules, "RULE", "this rule only; may come again"},
    {"--no-rule", &state.no_rules, "RULE", "not this rule; may come again"},
};

constexpr const char* severities[] = {"note", "warning", "error"}; // in the order of LintSeverity

std::string rules_text() {
    std::string text;
    for (const char* const rule : lint_rules()) {
        text += (text.empty() ? "" : ", ") + std::string(rule);
    }
    return text;
}

int check_rules(const std::vector<std::string>& rules) {
    const std::vector<std::string> known(lint_rules().begin(), lint_rules().end());
    for (const std::string& rule : rules) {
        if (std::ranges::count(known, rule) == 0) {
            const std::string nearest = nearest_word(rule, known);
            return report_fail(KxError::Usage,
                               "there is no rule '" + rule + "'" +
                                   (nearest.empty() ? "" : "; did you mean '" + nearest + "'?"),
                               nearest.empty() ? "there are " + rules_text() : "");
        }
    }
    return 0;
}

/// The files to be looked at.
int find_files(std::vector<LintFile>& files) {
    const bool has_base = base_find_quietly();
    const std::string base = has_base ? active_config.base_dir : "";
    if (state.files.empty()) {
        if (const int status = base_find()) {
            return status;
        }
        files.push_back({"kx.ini", base + "kx.ini", base, false, ""});
        for (const std::string& name : base_config_names()) {
            const std::string shown = text_printf("config/%s.ini", name.c_str());
            files.push_back({shown, base + shown, base, true, ""});
        }
    }
    for (const std::string& word : state.files) {
        const std::string shown = "config/" + word + (word.ends_with(".ini") ? "" : ".ini");
        const bool of_base = has_base && access(word.c_str(), F_OK) != 0 &&
                             word.find('/') == std::string::npos &&
                             access((base + shown).c_str(), F_OK) == 0;
        const std::string path = of_base ? base + shown : word;
        const bool listed = of_base || path.find("config/") != std::string::npos;
        files.push_back({of_base ? shown : word, path, base, listed, ""});
    }
    return 0;
}

int check_file(LintFile& file, std::vector<LintFinding>& findings) {
    std::error_code unknown;
    if (state.files.empty() && std::filesystem::is_fifo(file.path, unknown)) {
        return report_fail(KxError::HostFile, file.path + ": a pipe"); // which nobody may fill
    }
    std::vector<std::uint8_t> bytes;
    if (const int status = host_read(file.path, bytes)) {
        return status;
    }
    file.text.assign(bytes.begin(), bytes.end());
    lint_file(file, findings);
    return 0;
}

/// kxsetup has room for so many of a kind.
void check_kinds(std::vector<LintFinding>& findings) {
    constexpr std::size_t LISTED_MAX = 64;
    for (const char* const kind : {"target", "colors", "charset"}) {
        const std::size_t count = base_config_names(kind).size();
        if (count > LISTED_MAX) {
            findings.push_back({"config", 0, LintSeverity::Warning, "name",
                                text_printf("%zu files are of type %s: kxsetup lists %zu of them",
                                            count, kind, LISTED_MAX)});
        }
    }
}

bool is_wanted(const LintFinding& finding) {
    const auto has = [&](const std::vector<std::string>& rules) {
        return std::ranges::count(rules, finding.rule) > 0;
    };
    return (state.rules.empty() || has(state.rules)) && !has(state.no_rules);
}

/// "config/myc64.ini:14: error: blank before '=' [blank]"
void print(const LintFinding& finding) {
    const char* const severity = severities[static_cast<std::size_t>(finding.severity)];
    const std::string line = finding.line > 0 ? ":" + std::to_string(finding.line) : "";
    const Paint paint = finding.severity == LintSeverity::Error ? Paint::Error : Paint::Warning;
    report_line(ascii_escape(finding.file) + line + ": " +
                (finding.severity == LintSeverity::Note ? severity
                                                        : report_paint(stdout, paint, severity)) +
                ": " + ascii_escape(finding.text) + " [" + finding.rule + "]");
}

Json finding_json(const LintFinding& finding) {
    Json json;
    json.set("file", finding.file);
    json.set("line", finding.line);
    json.set("severity", severities[static_cast<std::size_t>(finding.severity)]);
    json.set("rule", finding.rule);
    json.set("text", finding.text);
    return json;
}

int run() {
    for (const auto* rules : {&state.rules, &state.no_rules}) {
        if (const int status = check_rules(*rules)) {
            return status;
        }
    }
    std::vector<LintFile> files;
    std::vector<LintFinding> findings;
    if (const int status = find_files(files)) {
        return status;
    }
    int unread = 0; // does not keep the others from being looked at
    for (LintFile& file : files) {
        unread = std::max(unread, check_file(file, findings));
    }
    if (state.files.empty()) {
        check_kinds(findings);
    }
    std::erase_if(findings, [](const LintFinding& finding) { return !is_wanted(finding); });
    Json array = Json::array();
    std::map<std::string, int> wrong_files;
    std::int64_t warnings = 0;
    for (const LintFinding& finding : findings) {
        print(finding);
        array.append(finding_json(finding));
        warnings += finding.severity == LintSeverity::Warning ? 1 : 0;
        wrong_files[finding.file] += finding.severity == LintSeverity::Error ? 1 : 0;
    }
    std::erase_if(wrong_files, [](const auto& row) { return row.second == 0; });
    const auto errors = static_cast<std::int64_t>(wrong_files.size());
    report_json().set("files", files.size());
    report_json().set("findings", std::move(array));
    if (errors + warnings > 0 && !globals.json) {
        report_done(text_count(static_cast<std::uint64_t>(errors), "file") + " with errors, " +
                    text_count(static_cast<std::uint64_t>(warnings), "warning"));
    }
    return errors > 0 || (state.warnings == "error" && warnings > 0) ? 1 : unread;
}

} // namespace

extern const Verb verb_lint = {
    .name = "lint",
    .alias = nullptr,
    .synopsis = "[NAME|FILE...] [-W error] [--rule RULE]... [--no-rule RULE]...",
    .summary = "check configuration files",
    .options = options,
    .run = run,
};

} // namespace kx
