// JSON for output: values with keys in the order they were set. The one place that knows the JSON
// library.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace kx {

/// A value: null at first, an object once a key is set, an array once something is appended.
class Json {
public:
    Json();
    ~Json();
    Json(Json&& other) noexcept;
    Json& operator=(Json&& other) noexcept;

    /// Bytes that are no UTF-8 are replaced when the value is written.
    Json(std::string_view text);
    Json(const std::string& text) : Json(std::string_view(text)) {}
    Json(const char* text) : Json(std::string_view(text)) {}
    Json(std::same_as<bool> auto truth) : Json(Truth{truth}) {}
    Json(std::integral auto number) requires(!std::same_as<decltype(number), bool>)
        : Json(Number{static_cast<std::int64_t>(number)}) {}
    static Json array();

    /// A key that is there keeps its place.
    void set(std::string_view key, Json value);
    void append(Json value);

    /// One line, without a line end.
    std::string text() const;

private:
    struct Truth {
        bool value;
    };
    struct Number {
        std::int64_t value;
    };
    Json(Truth truth);
    Json(Number number);

    struct Value;
    std::unique_ptr<Value> value_;
};

/// "48454c4c4f".
std::string json_hex(std::span<const std::uint8_t> bytes);

} // namespace kx
