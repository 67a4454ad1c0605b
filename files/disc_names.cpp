// Names of files on a disc as people type them: texts, codes in hexadecimal, wildcards, numbers.
#include "files/d64_private.h"

#include "util/ascii.h"

#include <algorithm>
#include <charconv>

namespace kx {

namespace {

/// A place of a name as it was typed.
struct Item {
    char wildcard = 0; // '?', '*' or 0
    std::uint8_t code = 0;
};

int fail_name(ImageHandle& image, std::string_view text, const char* why) {
    return d64_fail(image, DiscReason::BadName, "'%s' is no name: %s.", ascii_escape(text).c_str(),
                    why);
}

/// Refuses what a drive takes for something else. Codes in hexadecimal have none of it.
int check_text(ImageHandle& image, std::string_view text) {
    if (text.empty()) {
        return fail_name(image, text, "it is empty");
    }
    if (text[0] == '$' || text[0] == '@') {
        return fail_name(image, text, "$ and @ in front mean something else to a drive");
    }
    if (text.find_first_of("*?,:\"") != std::string_view::npos) {
        return fail_name(image, text, "* ? , : \" mean something else to a drive");
    }
    return 1;
}

/// "#xx" or "##" at the start of `text`, which is cut off it. False for anything else.
bool take_code(std::string_view& text, Item& item) {
    if (text.size() >= 2 && text[1] == '#') {
        item.code = '#';
        text.remove_prefix(2);
        return true;
    }
    if (text.size() < 3 ||
        std::from_chars(text.data() + 1, text.data() + 3, item.code, 16).ptr != text.data() + 3) {
        return false;
    }
    text.remove_prefix(3);
    return true;
}

/// `wildcards` are the characters that stand for others.
int parse(ImageHandle& image, const std::string_view text, std::string_view wildcards,
          std::vector<Item>& items) {
    for (std::string_view rest = text; !rest.empty();) {
        Item item;
        const char c = rest[0];
        if (c == '#') {
            if (!take_code(rest, item)) {
                return fail_name(image, text, "two hexadecimal digits or a second # follow a #");
            }
            items.push_back(item);
            continue;
        }
        const int code = d64_code_of(d64_disc(image), c);
        if (code < 0) {
            return fail_name(image, text, "the character set lacks one of its characters");
        }
        item.code = static_cast<std::uint8_t>(code);
        item.wildcard = wildcards.find(c) != std::string_view::npos ? c : '\0';
        items.push_back(item);
        rest.remove_prefix(1);
    }
    return 1;
}

/// What stands before a shifted blank: a drive does not look behind it.
std::string_view looked_at(std::string_view text) {
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t at = text.size() - rest.size();
        Item item;
        if (rest[0] != '#') {
            rest.remove_prefix(1);
        } else if (!take_code(rest, item)) {
            break;
        }
        if (item.code == DISC_PADDING && at > 0) {
            return text.substr(0, at);
        }
    }
    return text;
}

constexpr const char* too_long = "it has more than 16 characters";

int to_name(ImageHandle& image, std::string_view text, DiscName& name) {
    std::vector<Item> items;
    if (parse(image, text, "", items) != 1) {
        return -1;
    }
    if (items.size() > name.size()) {
        return fail_name(image, text, too_long);
    }
    name.fill(DISC_PADDING);
    std::transform(items.begin(), items.end(), name.begin(),
                   [](const Item& item) { return item.code; });
    return 1;
}

/// `length` of the name's codes count.
bool fits(const std::vector<Item>& items, const DiscName& name, std::size_t length) {
    for (std::size_t i = 0; i < items.size(); i++) {
        if (items[i].wildcard == '*') {
            return true; // as for a drive, whatever is behind it
        }
        if (i >= length || (items[i].wildcard == 0 && items[i].code != name[i])) {
            return false;
        }
    }
    return items.size() == length;
}

/// Codes before a shifted blank, which ends the name for a drive.
std::size_t shown_length(const DiscName& name) {
    return static_cast<std::size_t>(std::ranges::find(name, DISC_PADDING) - name.begin());
}

int match_number(Disc& disc, std::string_view digits, std::vector<int>& numbers) {
    int number = -1;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool octal = digits.size() > 1 && digits[0] == '0'; // to some
    if (error != std::errc() || end != digits.data() + digits.size() || digits[0] == '-' || octal) {
        return d64_fail(disc.image, DiscReason::BadName, "':%s' is no entry's number.",
                        ascii_escape(digits).c_str());
    }
    if (d64_entry(disc.image, number) == nullptr) {
        return -1;
    }
    numbers.push_back(number);
    return 1;
}

/// By text, which must be that of one file only.
int match_text(Disc& disc, const std::string& text, std::vector<int>& numbers) {
    const DiscEntry* entry = d64_find_text(disc.image, text);
    if (entry == nullptr) {
        return -1;
    }
    numbers.push_back(entry->number);
    return 1;
}

} // namespace

std::size_t disc_name_length(const DiscName& name) {
    const auto end = std::find_if(name.rbegin(), name.rend(),
                                  [](std::uint8_t code) { return code != DISC_PADDING; });
    return static_cast<std::size_t>(name.rend() - end);
}

int d64_file_name(ImageHandle& image, const std::string& text, DiscName& name) {
    if (text.size() > name.size()) {
        return fail_name(image, text, too_long);
    }
    name = d64_to_codes(d64_disc(image), text);
    return check_text(image, text);
}

int disc_codes(Disc& disc, std::string_view text, DiscName& name) {
    return to_name(disc.image, text, name);
}

int disc_file_name(Disc& disc, std::string_view text, DiscName& name) {
    if (check_text(disc.image, looked_at(text)) != 1 || to_name(disc.image, text, name) != 1) {
        return -1;
    }
    return name[0] != DISC_PADDING ? 1 : fail_name(disc.image, text, "it is empty");
}

int disc_match(Disc& disc, std::string_view pattern, std::vector<int>& numbers) {
    numbers.clear();
    if (pattern.size() > 1 && pattern[0] == ':') {
        return match_number(disc, pattern.substr(1), numbers);
    }
    std::vector<Item> items;
    const bool parsed = parse(disc.image, pattern, "*?", items) == 1;
    // What no name is in full may be one up to a shifted blank, as for a drive.
    for (const auto length : {disc_name_length, shown_length}) {
        for (const DiscEntry& entry : disc_entries(disc)) {
            if (parsed && entry.raw_type != 0 && fits(items, entry.name, length(entry.name))) {
                numbers.push_back(entry.number);
            }
        }
        if (!numbers.empty()) {
            return 1;
        }
    }
    const bool wild = std::any_of(items.begin(), items.end(),
                                  [](const Item& item) { return item.wildcard != 0; });
    if (!wild) {
        return match_text(disc, std::string(pattern), numbers);
    }
    return d64_fail(disc.image, DiscReason::NoFile, "there is no file '%s'.",
                    ascii_escape(pattern).c_str());
}

int disc_find(const Disc& disc, const DiscName& name) {
    const DiscEntry* entry = d64_find_codes(*disc.image.disc, name);
    return entry != nullptr ? entry->number : -1;
}

} // namespace kx
