// Edit distance with swaps, over three rows of the table.
#include "tools/nearest.h"

#include "util/ascii.h"

#include <algorithm>
#include <vector>

namespace kx {

namespace {

constexpr std::size_t WORD_MAX = 64;
constexpr std::size_t CHANGE = 2; // a change counts two, one of case alone one

std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); j++) {
        last[j] = CHANGE * j;
    }
    for (std::size_t i = 1; i <= a.size(); i++) {
        row[0] = CHANGE * i;
        for (std::size_t j = 1; j <= b.size(); j++) {
            const char x = a[i - 1], y = b[j - 1];
            const bool same_letter = ascii_to_lower(x) == ascii_to_lower(y);
            const std::size_t replaced = x == y ? 0 : same_letter ? 1 : CHANGE;
            row[j] = std::min({last[j] + CHANGE, row[j - 1] + CHANGE, last[j - 1] + replaced});
            if (i > 1 && j > 1 && x == b[j - 2] && y == a[i - 2]) {
                row[j] = std::min(row[j], before[j - 2] + CHANGE);
            }
        }
        std::swap(before, last);
        std::swap(last, row);
    }
    return last[b.size()];
}

} // namespace

std::string nearest_word(std::string_view misspelt, std::span<const std::string> words) {
    std::string nearest;
    std::size_t least = SIZE_MAX;
    for (const std::string& word : words) {
        const std::size_t length = std::max(word.size(), misspelt.size());
        if (length > WORD_MAX || misspelt.empty()) {
            continue;
        }
        const std::size_t changes = distance(misspelt, word);
        // Two letters may have one wrong, or "sl" would have no neighbour.
        if (changes < least && changes <= std::max(CHANGE, CHANGE * length / 3)) {
            least = changes;
            nearest = word;
        }
    }
    return nearest;
}

} // namespace kx
