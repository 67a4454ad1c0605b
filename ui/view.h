// The text viewer: a full-screen pager for one text, or two one above the other, that reads its
// input while the user scrolls and keeps up with files that grow.
#pragma once

#include "ui/linedoc.h"

#include <cstddef>
#include <string>

namespace kx {

/// One text shown. What the screen has of it is kept, so that it is drawn only when it changed.
struct ViewPane {
    LineDoc doc;
    int first = 0;             // line at the top until a key comes, from 0 on; see `view_run`
    int offset = 0;            // first column shown
    unsigned drawn_screen = 0; // which cleared screen it was drawn on; 0: none
    int drawn_top = 0;         // the first line and column drawn
    int drawn_offset = 0;
    std::size_t drawn_size = 0; // bytes the document had then
    bool drawn_end = false;     // the text's end was among the rows drawn
};

/// Shows the file `dir` + `name` until the user leaves. 0; -1, and nothing is shown, when it
/// cannot be opened.
int view_file(const std::string& dir, const std::string& name);

/// The viewer's loop; `pane2` and `source2` may be null. Standard input as the first source is
/// replaced in `source` by a descriptor of its own, and standard input becomes the terminal, for
/// the keys. The main pane starts at its line `first`, on the last page while it has no such line.
/// Always 0.
int view_run(ViewPane& pane, LineSource& source, ViewPane* pane2, LineSource* source2);

/// Draws one pane from line `top` on at screen row `y` with `height` rows, title and status bar
/// included; returns `top`. Nothing is drawn while a key waits. The screen is not refreshed.
int view_drawpane(ViewPane& pane, int top, int y, int height);

/// Forgets the screen that was drawn on, and that the second text had the keys.
void view_reset();

} // namespace kx
