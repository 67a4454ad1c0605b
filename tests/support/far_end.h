// A target that speaks to the fileservers, byte for byte, from the far end of the link.
#pragma once

#include "tests/support/pty.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace kx::test {

/// Bytes written as text: "01 AC 'name' 00" is two bytes, the characters between the quotes, and
/// a zero. Blanks only separate.
std::string bytes(const std::string& text);

class FarEnd {
public:
    FarEnd(); // opens the port on its line
    ~FarEnd();
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;

    /// Sends `request` and meanwhile has its first byte, read from the port, handed to `handle`:
    /// as the polling loop of a debugger does. All bytes that the host sent, until `handle`
    /// returned; its result is in `result`, what it did not read of the request is dropped.
    /// With `hang_up` the line goes as soon as the request has been read.
    std::string ask(const std::string& request, bool hang_up = false);

    std::function<int(std::uint8_t)> handle; // fileserver_handle_byte, to begin with
    int result = 0;
    std::atomic<std::size_t> sent = 0; // bytes of the last request
    std::size_t unread = 0;            // bytes of the last request that nobody read

private:
    Pty pty_;
};

} // namespace kx::test
