// "Did you mean": which of some words is nearest to a misspelt one.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kx {

/// The word that the fewest changes of a character (put in, left out, replaced, two swapped, other
/// case counted half) lead to; empty when more than a third of its characters would change. Words
/// above 64 characters have none.
std::string nearest_word(std::string_view misspelt, std::span<const std::string> words);

} // namespace kx
