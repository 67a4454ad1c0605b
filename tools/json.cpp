// The JSON library behind its front.
#include "tools/json.h"

#include "util/text.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace kx {

struct Json::Value {
    Value() {} // may throw
    nlohmann::ordered_json json;
};

Json::Json() : value_(std::make_unique<Value>()) {}
Json::~Json() = default;
Json::Json(Json&& other) noexcept = default;
Json& Json::operator=(Json&& other) noexcept = default;

Json::Json(std::string_view text) : Json() {
    value_->json = text;
}

Json::Json(Truth truth) : Json() {
    value_->json = truth.value;
}

Json::Json(Number number) : Json() {
    value_->json = number.value;
}

Json Json::array() {
    Json made;
    made.value_->json = nlohmann::ordered_json::array();
    return made;
}

void Json::set(std::string_view key, Json value) {
    value_->json[std::string(key)] = std::move(value.value_->json);
}

void Json::append(Json value) {
    value_->json.push_back(std::move(value.value_->json));
}

std::string Json::text() const {
    return value_->json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string json_hex(std::span<const std::uint8_t> bytes) {
    std::string hex;
    for (const std::uint8_t byte : bytes) {
        hex += text_printf("%02x", byte);
    }
    return hex;
}

} // namespace kx
