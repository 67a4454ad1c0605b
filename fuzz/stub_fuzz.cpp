// The stub's answers: a read succeeds when exactly its bytes have come, and holds them then.
#include "fuzz/fuzz.h"

#include "core/active_config.h"
#include "link/seams_private.h"
#include "link/stub.h"

#include <algorithm>

namespace kx::fuzz {

void run(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    active_config.addr_bits = input.ConsumeIntegralInRange<std::uint8_t>(11, 32);
    std::vector<std::uint8_t> bytes(input.ConsumeIntegralInRange<std::size_t>(1, 0x400));
    const bool image = input.ConsumeBool();
    const std::string answer = input.ConsumeRemainingBytesAsString();
    stub_set_timeout(1);
    stub_set_sleep([] {});
    line_open(answer);
    const int result = image ? stub_read_image({18, 0, 0}, bytes) : stub_read_memory(0x801, bytes);
    if (result == 1) {
        check(answer.size() == bytes.size() &&
                  std::equal(
                      bytes.begin(), bytes.end(), answer.begin(),
                      [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }),
              "success means all bytes and no other");
    } else {
        check(stub_last_error().kind != FailureKind::None, "a failure has its cause");
    }
    check(line_answer().starts_with(image ? "AM" : "AC"), "the command was sent");
}

} // namespace kx::fuzz
