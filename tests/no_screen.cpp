// A program that opens no screen. It is linked without curses: that it links is what it tests.
#include "link/patch.h"
#include "ui/con.h"
#include "ui/msg.h"

int main() {
    kx::msg_error("%d keys wait", kx::con_kbhit());
    return kx::patch_search_apply("none", {}, 0, 1) == 1 ? 0 : 1;
}
