// kx view: the toolkit's pager; without a terminal the text goes through as it is.
#include "core/config/config.h"
#include "tools/base.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/parse.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "ui/col.h"
#include "ui/con.h"
#include "ui/view.h"
#include "util/ascii.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <unistd.h>

namespace kx {

namespace {

struct State {
    std::vector<std::string> words;
};
State state;

constexpr Option options[] = {
    {"[FILE]", &state.words, "", "+N shows line N first; standard input without FILE"},
};

/// The user's colours, or plain ones where there is no base directory.
void load_colours() {
    constexpr std::int8_t BLACK = 0, WHITE = 7;
    for (int i = 0; i < COL_KEYS; i++) {
        const int element = i & ~1; // text and background key
        const bool bar = element == COL_STATUSBAR || element == COL_MENUBAR;
        key_textcolour[i] = bar ? BLACK : WHITE;
        key_backcolour[i] = bar ? WHITE : BLACK;
    }
    if (base_find_quietly()) {
        config_load_scheme(base_setting("colors", "default", "col_kx"));
    }
}

/// For a terminal that no screen can be drawn on.
int print(const std::string& file) {
    std::vector<std::uint8_t> bytes;
    if (const int status = host_read(file, bytes)) {
        return status;
    }
    const std::string text(bytes.begin(), bytes.end());
    std::fputs(ascii_escape(text, "\n\t").c_str(), stdout);
    return 0;
}

int show(const std::string& file, int line) {
    ViewPane pane;
    pane.first = line;
    LineSource source =
        file == "-" ? LineSource(STDIN_FILENO, false) : linedoc_open(pane.doc, "", file);
    if (file == "-") {
        pane.doc.file_name = "standard input";
    }
    if (source.fd < 0) {
        return host_fail(file, errno);
    }
    std::setlocale(LC_CTYPE, "");
    load_colours();
    if (con_open() != 1) {
        return print(file);
    }
    view_run(pane, source, nullptr, nullptr);
    con_close();
    return 0;
}

int run() {
    std::string file = "-", error;
    std::uint64_t line = 1;
    globals.json = false; // what is looked at is text
    for (const std::string& word : state.words) {
        if (word.starts_with('+')) {
            if (parse_number(word.substr(1), 1'000'000'000, line, error) != 0) {
                return report_fail(KxError::Usage, "+N: " + error);
            }
        } else if (file != "-") {
            return report_fail_usage("'" + word + "' is one argument too many");
        } else {
            file = word;
        }
    }
    if (file == "-" && isatty(STDIN_FILENO) != 0) {
        return report_fail_usage(state.words.empty() ? "FILE is missing"
                                                     : "standard input is this terminal");
    }
    if (isatty(STDOUT_FILENO) == 0) {
        return host_copy(file);
    }
    return show(file, static_cast<int>(std::max<std::uint64_t>(line, 1)) - 1);
}

} // namespace

extern const Verb verb_view = {
    .name = "view",
    .alias = nullptr,
    .synopsis = "[+LINE] [FILE|-]",
    .summary = "the toolkit's pager",
    .options = options,
    .run = run,
};

} // namespace kx
