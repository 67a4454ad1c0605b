// The text viewer: a full-screen pager for one text, or two one above the other, that reads its
// input while the user scrolls and keeps up with files that grow.
#pragma once

#include "ui/linedoc.h"

#include <string>

namespace kx {

struct ViewPane {
    LineDoc doc;
    int offset = 0;     // first column shown
    int top = 0;        // first line shown
    int drawn_top = -1; // what the screen shows; -1: draw anew
    int drawn_offset = -1;
};

/// Shows the file `dir` + `name` until the user leaves. 0; -1, and nothing is shown, when it
/// cannot be opened.
int view_file(const std::string& dir, const std::string& name);

/// The viewer's loop; `pane2` and `source2` may be null. Standard input as the first source is
/// given a descriptor of its own, and keys then come from the terminal. Always 0.
int view_run(ViewPane& pane, LineSource& source, ViewPane* pane2, LineSource* source2);

/// Draws one pane at screen row `y` with `height` rows, title and status bar included; returns
/// `top`. Nothing is drawn while a key waits.
int view_drawpane(ViewPane& pane, int top, int y, int height);

} // namespace kx
