// Character sets: whatever the file holds, every conversion stays in its room.
#include "fuzz/fuzz.h"

#include "charsets/charset.h"

namespace kx::fuzz {

void run(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const auto flags = input.ConsumeIntegral<std::uint8_t>();
    const std::string codes = input.ConsumeRandomLengthString(64);
    put("charset.ini", input.ConsumeRemainingBytesAsString());
    if (Charset* set = charset_of_mode(flags & 15U); set != nullptr) {
        (void)ends([&] { charset_load(set->to_ascii, set->from_ascii, "charset.ini"); });
    }
    // Exactly as much room as the header promises to need: the sanitizer sees every byte beyond.
    const auto* const source = reinterpret_cast<const std::uint8_t*>(codes.data());
    std::vector<char> text(codes.size() * ((flags & CHARSET_ESCAPE) != 0 ? 3 : 1));
    const char* const end = charset_to_ascii(text.data(), source, codes.size(), flags);
    check(end >= text.data() && end <= text.data() + text.size(), "the text ends in its room");
    std::vector<std::uint8_t> back(codes.size());
    const std::uint8_t* const last =
        charset_from_ascii(back.data(), text.data(), text.size(), back.size(), flags);
    check(last >= back.data() && last <= back.data() + back.size(), "the codes end in theirs");
}

} // namespace kx::fuzz
