// kx, the toolkit's hands-on command.
#include "tools/kx.h"

int main(int argc, char** argv) {
    return kx::kx_run(argc, argv);
}
