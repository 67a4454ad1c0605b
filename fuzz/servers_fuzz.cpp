// The three fileservers: nothing outside the root is read or changed, nothing at all in a root that
// is only read, and the next request is answered.
#include "fuzz/fuzz.h"

#include "core/active_config.h"
#include "fileserver/fileserver.h"
#include "link/port.h"

#include <filesystem>

namespace kx::fuzz {

namespace {

std::string ask(const std::string& requests) {
    line_open(requests);
    for (std::size_t asked = 0; port_has_data() != 0 && asked <= requests.size(); asked++) {
        fileserver_handle_byte(port_getc_nowait());
    }
    check(port_has_data() == 0, "every request takes a byte");
    return line_answer();
}

} // namespace

void run(const std::uint8_t* data, std::size_t size) {
    // A request that each server answers whatever was asked before.
    static const struct {
        std::uint8_t id;
        std::string request;
    } servers[] = {
        {FILESERVER_GENERIC, std::string("\x01\xAC\x03ls\0", 6)},
        {FILESERVER_SERIALSLAVE, "?"},
        {FILESERVER_CBM, "\x02\x03NO\r"},
    };
    FuzzedDataProvider input(data, size);
    const auto& server = servers[input.ConsumeIntegralInRange<std::size_t>(0, 2)];
    active_config.fileserver = server.id;
    active_config.fileserver_root = std::filesystem::absolute("root");
    active_config.fileserver_read_only = input.ConsumeBool();
    active_config.fileserver_open_match = input.ConsumeBool();
    active_config.fileserver_translate_save = input.ConsumeBool();
    put("outside/secret", "of nobody's business");
    put("root/sub/b.seq", "b");
    put("root/game.prg", "\x01\x08xy");
    std::filesystem::create_directory_symlink("../outside", "root/out");
    const std::string outside = tree("outside"), root = tree("root");
    fileserver_start();
    fileserver_set_patience(1);
    const std::string answer = ask(input.ConsumeRemainingBytesAsString());
    check(answer.find("business") == std::string::npos, "nothing outside the root is read");
    check(tree("outside") == outside, "nothing outside the root is changed");
    check(!active_config.fileserver_read_only || tree("root") == root, "read-only is read only");
    check(!ask(server.request).empty(), "the next request is answered");
    fileserver_reset();
}

} // namespace kx::fuzz
