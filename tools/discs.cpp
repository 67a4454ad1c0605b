// What the disc verbs share.
#include "tools/discs.h"

#include "tools/global.h"
#include "tools/host.h"
#include "tools/report.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <memory>
#include <unistd.h>

namespace kx {

namespace {

constexpr int DATA_BYTES = 254; // of a block
constexpr std::size_t MORE_THAN_FITS = 250'000;

KxError code_of(const DiscFailure& failure) {
    struct Row {
        DiscReason reason;
        KxError code;
    };
    constexpr Row rows[] = {
        {DiscReason::NoFile, KxError::NotFound},  {DiscReason::Ambiguous, KxError::NotFound},
        {DiscReason::Exists, KxError::Exists},    {DiscReason::NoRoom, KxError::NoRoom},
        {DiscReason::Locked, KxError::Locked},    {DiscReason::BadName, KxError::Usage},
        {DiscReason::Damaged, KxError::Damaged},  {DiscReason::Shared, KxError::Damaged},
        {DiscReason::NotPlain, KxError::BadType}, {DiscReason::NotImage, KxError::BadType},
    };
    if (failure.reason == DiscReason::Host && failure.error == ENOENT) {
        return KxError::NotFound;
    }
    const auto* row =
        std::ranges::find_if(rows, [&](const Row& each) { return each.reason == failure.reason; });
    return row != std::end(rows) ? row->code : KxError::HostFile;
}

std::string without_stop(std::string text) {
    while (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

/// "a.d64: in use", of "image 'a.d64' is in use": the file comes first.
std::string about(const std::string& path, const std::string& text) {
    const std::string shown = ascii_escape(path);
    for (const std::string& front : {"image '" + shown + "' is ", "'" + shown + "' is "}) {
        if (text.starts_with(front)) {
            const std::string what = text.substr(front.size());
            const bool other = what.starts_with("a ") || what.starts_with("an ");
            return std::string(path).append(other ? ": no 1541 image, but " : ": ").append(what);
        }
    }
    return (text.find(shown) != std::string::npos ? "" : path + ": ") + text;
}

/// A text that is meant as it is, not with codes in hexadecimal.
std::string literal(std::string_view text) {
    std::string typed;
    for (const char c : text) {
        typed += c == '#' ? "##" : std::string(1, c);
    }
    return typed;
}

int type_number(const std::string& name) {
    int type = DISC_PRG;
    for (const int each : {DISC_DEL, DISC_SEQ, DISC_PRG, DISC_USR}) {
        type = name == disc_type_name(each) ? each : type;
    }
    return type;
}

/// One file that goes onto the disc, of the host or of another image.
struct Source {
    std::string path;
    std::vector<std::uint8_t> bytes;
    DiscFile file;
    std::shared_ptr<Disc> from = nullptr; // null: of the host
    int number = -1;
    int blocks = 0;
};

int blocks_of(std::size_t bytes) {
    return std::max(1, static_cast<int>((bytes + DATA_BYTES - 1) / DATA_BYTES));
}

/// As many codes of a typed name as a disc's name has.
std::string cut(const std::string& typed) {
    std::size_t at = 0;
    for (std::size_t codes = 0; codes < DiscName().size() && at < typed.size(); codes++) {
        at += typed[at] != '#' ? 1 : typed.compare(at, 2, "##") == 0 ? 2 : 3;
    }
    return typed.substr(0, at);
}

/// The name that a host file gets: `-N`, or its own without directory and ending.
int choose_name(Disc& disc, const DiscsPut& how, Source& source) {
    const std::string host = host_name(source.path);
    const std::string ending = host_ending(source.path);
    const bool typed = ending == disc_type_name(type_number(ending));
    std::string name = !how.name.empty() ? how.name
                       : typed           ? literal(host.substr(0, host.size() - ending.size() - 1))
                                         : literal(host);
    const std::string shorter = cut(name);
    const bool cuttable = shorter != name && disc_file_name(disc, shorter, source.file.name) == 1;
    name = how.cut ? shorter : name;
    source.file.type = type_number(!how.type.empty() ? how.type : ending);
    if (disc_file_name(disc, name, source.file.name) == 1) {
        return 0;
    }
    const std::string other = how.name.empty() ? "-N gives another name" : "";
    const std::string shorten = cuttable ? "--cut cuts it" : "";
    const bool both = !other.empty() && !shorten.empty();
    return discs_fail(disc, how.options ? other + (both ? ", " : "") + shorten
                                        : "kx put gives it another name");
}

int read_host_file(Disc& disc, const std::string& path, const DiscsPut& how,
                   std::vector<Source>& sources) {
    Source& source = sources.emplace_back();
    source.path = path;
    source.file.locked = how.lock;
    source.file.replace = how.replace;
    if (path == "-" && how.name.empty()) {
        return report_fail(KxError::Usage, "standard input needs a name: -N NAME");
    }
    if (const int status = host_read(path, source.bytes)) {
        return status;
    }
    source.blocks = blocks_of(source.bytes.size());
    if (source.bytes.size() > MORE_THAN_FITS) { // of many such files not all could be held
        source.bytes.resize(MORE_THAN_FITS);
        source.bytes.shrink_to_fit();
    }
    return choose_name(disc, how, source);
}

/// The files of another image that the pattern stands for.
int read_image_files(Disc& disc, const std::string& image, const std::string& pattern,
                     const DiscsPut& how, std::vector<Source>& sources) {
    if (how.lock || !how.type.empty()) {
        return report_fail_usage("--lock and --type are for files of the host, not " + image + ":" +
                                 pattern);
    }
    const auto from = std::make_shared<Disc>();
    std::vector<int> numbers;
    if (const int status = discs_open(*from, image, DiscAccess::Read)) {
        return status;
    }
    if (const int status = discs_select(*from, {pattern}, numbers)) {
        return status;
    }
    if (!how.name.empty() && numbers.size() > 1) {
        return report_fail(KxError::Usage, "-N names one file, '" + pattern + "' stands for more");
    }
    for (const int number : numbers) {
        Source source{.path = image, .bytes = {}, .file = {}, .from = from, .number = number};
        source.file.name = disc_entries(*from)[static_cast<std::size_t>(number)].name;
        source.file.replace = how.replace;
        if (!how.name.empty() && disc_file_name(disc, how.name, source.file.name) != 1) {
            return discs_fail(disc);
        }
        std::vector<std::uint8_t> bytes;
        if (disc_read(*from, number, bytes) != 1) {
            return discs_fail(*from);
        }
        source.blocks = blocks_of(bytes.size());
        sources.push_back(std::move(source));
    }
    return 0;
}

/// "A.d64:NAME" for a file A.d64 that is there. A host file of that whole name goes first.
bool split_image(const std::string& word, std::string& image, std::string& pattern) {
    const std::size_t colon = word.find(':', 1);
    if (colon == std::string::npos || access(word.c_str(), F_OK) == 0) {
        return false;
    }
    image = word.substr(0, colon);
    pattern = word.substr(colon + 1);
    return access(image.c_str(), F_OK) == 0;
}

/// Reads all that is to be put onto the disc.
int read_sources(Disc& disc, const std::vector<std::string>& files, const DiscsPut& how,
                 std::vector<Source>& sources) {
    for (const std::string& file : files) {
        std::string image, pattern;
        const bool of_image = split_image(file, image, pattern);
        if (const int status = of_image ? read_image_files(disc, image, pattern, how, sources)
                                        : read_host_file(disc, file, how, sources)) {
            return status;
        }
    }
    return 0;
}

/// What is free for the sources, with the files that they replace.
int count_free(const Disc& disc, const std::vector<Source>& sources) {
    int free = disc_info(disc).blocks_free;
    for (const Source& source : sources) {
        const int old = source.file.replace ? disc_find(disc, source.file.name) : -1;
        free += old >= 0 ? disc_entries(disc)[static_cast<std::size_t>(old)].blocks : 0;
    }
    return free;
}

/// "demo.d64: 40 blocks needed, 12 free; nothing was written"
int fail_put(const Disc& disc, const std::vector<Source>& sources, int free) {
    const DiscReason reason = disc.failure.reason;
    if (reason != DiscReason::NoRoom) {
        return discs_fail(disc, reason == DiscReason::Exists   ? "-f replaces it"
                                : reason == DiscReason::Locked ? "kx rm -f takes it"
                                                               : "");
    }
    int needed = 0;
    for (const Source& source : sources) {
        needed += source.blocks;
    }
    const std::string why = needed > free
                                ? text_count(static_cast<std::uint64_t>(needed), "block") +
                                      " needed, " + std::to_string(free) + " free"
                                : without_stop(disc.failure.text); // in the directory
    return report_fail(KxError::NoRoom, disc.path + ": " + why + "; nothing was written");
}

/// An image is read and replaced as a whole file.
int fail_standard() {
    return report_fail(KxError::Usage, "-: an image is a file, not standard input or output",
                       "./- is a file of that name");
}

/// The image file's name without its ending, as far as a disc's name can have it.
std::string name_for_disc(Disc& disc, const std::string& path) {
    std::string host = host_name(path);
    host.erase(std::min(host.find_last_of('.'), host.size()));
    std::string name;
    DiscName codes;
    for (const char c : host.substr(0, codes.size())) {
        const std::string typed = literal({&c, 1});
        name += disc_codes(disc, typed, codes) == 1 ? typed : "-";
    }
    return name;
}

} // namespace

int discs_fail_damaged(const Disc& disc) {
    return report_fail(KxError::Damaged, disc.path + ": " + without_stop(disc_info(disc).fault),
                       "see kx check");
}

int discs_fail(const Disc& disc, const std::string& hint, const std::string& after) {
    const DiscFailure& failure = disc.failure;
    const bool host = failure.reason == DiscReason::Host;
    const std::string text = host ? host_why(disc.path, failure.error) : without_stop(failure.text);
    return report_fail(code_of(failure), (host ? text : about(disc.path, text)) + after, hint);
}

int discs_open(Disc& disc, const std::string& path, DiscAccess access,
               const std::string& missing_hint) {
    if (path == "-") {
        return fail_standard();
    }
    if (disc_open(disc, path, access) == 1) {
        return 0;
    }
    const std::string ending = host_ending(path);
    const bool is_file = disc.failure.reason == DiscReason::NotImage &&
                         ending == disc_type_name(type_number(ending));
    const bool missing = code_of(disc.failure) == KxError::NotFound;
    return discs_fail(disc, is_file   ? "kx put IMAGE " + path + " puts it onto one"
                            : missing ? missing_hint
                                      : "");
}

int discs_set_label(Disc& disc, const DiscsLabel& label) {
    const DiscInfo info = disc_info(disc);
    DiscName name = info.name, id{info.id[0], info.id[1]};
    if (!label.name.empty() && disc_codes(disc, label.name, name) != 1) {
        return discs_fail(disc);
    }
    if (!label.id.empty() && disc_codes(disc, label.id, id) != 1) {
        return discs_fail(disc);
    }
    if (!label.id.empty() && disc_name_length(id) != 2) {
        return report_fail(KxError::Usage,
                           "'" + label.id + "' is no identifier: two characters are");
    }
    return disc_set_label(disc, name, {id[0], id[1]}) == 1 ? 0 : discs_fail(disc);
}

int discs_create(Disc& disc, const std::string& path, const DiscsFormat& format) {
    if (path == "-") {
        return fail_standard();
    }
    std::error_code unknown;
    const auto there = std::filesystem::status(path, unknown);
    if (std::filesystem::exists(there) && !std::filesystem::is_regular_file(there)) {
        return report_fail(KxError::BadType, path + ": no regular file");
    }
    if (const int status = host_may_write(path, format.replace)) {
        return status;
    }
    DiscFormat made;
    made.tracks = format.tracks;
    made.replace = format.replace;
    made.name.fill(DISC_PADDING);
    if (disc_create(disc, path, made) != 1) {
        return discs_fail(disc);
    }
    DiscsLabel label = format.label;
    if (label.name.empty()) {
        label.name = name_for_disc(disc, path);
    }
    return discs_set_label(disc, label);
}

int discs_commit(Disc& disc) {
    if (globals.dry_run) {
        report_held_off();
        return 0;
    }
    if (disc_commit(disc) == 1) {
        return 0;
    }
    const bool kept = disc.failure.error != EIO; // else a file written in place may have suffered
    return discs_fail(disc, "", kept ? "; nothing was written" : "");
}

int discs_select(Disc& disc, const std::vector<std::string>& patterns, std::vector<int>& numbers) {
    numbers.clear();
    for (const DiscEntry& entry : disc_entries(disc)) {
        if (patterns.empty() && entry.raw_type != 0) {
            numbers.push_back(entry.number);
        }
    }
    for (const std::string& pattern : patterns) {
        std::vector<int> found;
        if (disc_match(disc, pattern, found) != 1) {
            return discs_fail(disc);
        }
        std::ranges::copy_if(found, std::back_inserter(numbers),
                             [&](int number) { return std::ranges::count(numbers, number) == 0; });
    }
    return 0;
}

std::string discs_typed_name(Disc& disc, const DiscEntry& entry) {
    std::string typed = disc_name_length(entry.name) == 0 ? ":" + std::to_string(entry.number) : "";
    for (std::size_t i = 0; i < disc_name_length(entry.name); i++) {
        const char c = i < entry.text.size() ? entry.text[i] : '.';
        DiscName name;
        // Control characters are none of a text; the rest would mean something else.
        const std::string_view special = i == 0 ? "#*?:,\"$@" : "#*?:,\"";
        const bool plain = ascii_is_print(c) && special.find(c) == std::string::npos &&
                           disc_codes(disc, std::string(1, c), name) == 1 &&
                           name[0] == entry.name[i];
        typed += plain ? std::string(1, c) : text_printf("#%02x", entry.name[i]);
    }
    return typed;
}

std::string discs_trimmed(std::string name) {
    return name.erase(name.find_last_not_of(' ') + 1);
}

std::string discs_type(const DiscEntry& entry) {
    std::string type = entry.type <= DISC_REL ? disc_type_name(entry.type) : "???";
    std::ranges::transform(type, type.begin(), ascii_to_upper);
    return type;
}

Json discs_entry_json(const DiscEntry& entry) {
    Json json;
    json.set("number", entry.number);
    json.set("name", entry.text);
    json.set("name_hex", json_hex(std::span(entry.name).first(disc_name_length(entry.name))));
    json.set("type", disc_type_name(entry.type));
    json.set("blocks", entry.blocks);
    json.set("locked", entry.locked);
    json.set("closed", entry.closed);
    json.set("track", entry.start.track);
    json.set("sector", entry.start.sector);
    return json;
}

int discs_put(Disc& disc, const std::vector<std::string>& files, const DiscsPut& how,
              std::vector<int>& written) {
    if (files.size() > 1 && !how.name.empty()) {
        return report_fail(KxError::Usage, "-N names one file, there are more");
    }
    std::vector<Source> sources;
    if (const int status = read_sources(disc, files, how, sources)) {
        return status;
    }
    const int free = count_free(disc, sources);
    for (Source& source : sources) {
        DiscFile& file = source.file;
        file.bytes = source.bytes;
        const int result = source.from == nullptr ? disc_write(disc, file)
                                                  : disc_copy(disc, *source.from, source.number,
                                                              file.name, file.replace);
        if (result != 1) {
            return fail_put(disc, sources, free);
        }
        written.push_back(disc_find(disc, file.name));
    }
    return 0;
}

void discs_tell_written(Disc& disc, const std::vector<int>& written) {
    Json array = Json::array();
    for (const int number : written) {
        const DiscEntry& entry = disc_entries(disc)[static_cast<std::size_t>(number)];
        report_done(disc.path + ": " + entry.text + "  " +
                    text_count(static_cast<std::uint64_t>(entry.blocks), "block"));
        array.append(discs_entry_json(entry));
    }
    report_json().set("image", disc.path);
    report_json().set("files", std::move(array));
    report_json().set("blocks_free", disc_info(disc).blocks_free);
}

} // namespace kx
