// kx, the toolkit's hands-on command.
#include "tools/kx.h"

#include "util/fd.h"

#include <cstdio>
#include <new>

int main(int argc, char** argv) {
    kx::fd_fill_standard();
    try {
        return kx::kx_run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fputs("kx: error: not enough memory\n", stderr);
        return 1;
    }
}
