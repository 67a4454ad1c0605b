// The key decoder without a screen: every input comes to its end, and gives keys that there are.
#include "fuzz/fuzz.h"

#include "ui/con.h"

#include <fcntl.h>
#include <unistd.h>

namespace kx::fuzz {

void run(const std::uint8_t* data, std::size_t size) {
    put("keys", {reinterpret_cast<const char*>(data), size});
    const int file = open("keys", O_RDONLY | O_CLOEXEC);
    check(dup2(file, STDIN_FILENO) == STDIN_FILENO, "standard input is the file");
    close(file);
    const auto end = static_cast<off_t>(size);
    for (std::size_t keys = 0; lseek(STDIN_FILENO, 0, SEEK_CUR) < end; keys++) {
        check(keys < size, "every key takes a byte");
        const int key = con_getkey();
        check(key >= 0 && key <= KEYCODE_END, "a key of the table, or a character");
        check(key < 256 || key >= KEYCODE_DOWN, "no code between the two");
    }
    check(con_getkey() == KEYCODE_ESCAPE, "the end of the input acts as Escape");
}

} // namespace kx::fuzz
