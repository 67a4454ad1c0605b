// kx get: files of a disc image onto the host.
#include "tools/discs.h"
#include "tools/discs_toolkit.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/report.h"
#include "tools/verbs.h"
#include "util/ascii.h"
#include "util/text.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace kx {

namespace {

struct State {
    std::string image;
    std::vector<std::string> names;
    std::string directory;
    std::string output;
    bool bare = false;
    bool lower = false;
    bool replace = false;
    bool toolkit_rules = false;
};
State state;

constexpr Option options[] = {
    {"IMAGE", &state.image, "", "a 1541's disc image"},
    {"[NAME...]", &state.names, "", "names, with * and ?; #xx any code; :N entry N; all without"},
    {"-C,--directory", &state.directory, "DIR", "where the files go (the current directory)"},
    {"-o,--output", &state.output, "FILE", "the one file goes there; - is standard output"},
    {"--bare", &state.bare, "", "names without .prg, .seq and so on"},
    {"-l,--lower", &state.lower, "", "names in lower case"},
    {"-f,--force", &state.replace, "", "replace files that are there"},
    {"--toolkit-rules", &state.toolkit_rules, "",
     "the last block by the toolkit's rule, not a drive's"},
};

/// A file to be copied, and where to.
struct Job {
    int number;
    std::string path;
};

/// Where each file goes: two whose names are the same for the host get "~2" and so on.
std::vector<Job> plan(const Disc& disc, const std::vector<int>& numbers) {
    std::vector<Job> jobs;
    std::set<std::string> taken;
    for (const int number : numbers) {
        const DiscEntry& entry = disc_entries(disc)[static_cast<std::size_t>(number)];
        std::string name = entry.host_name;
        if (state.lower) {
            std::ranges::transform(name, name.begin(), ascii_to_lower);
        }
        const std::string ending = state.bare ? "" : std::string(".") + disc_type_name(entry.type);
        std::string unique = name + ending;
        for (int i = 2; !taken.insert(unique).second; i++) {
            unique = std::string(name).append("~").append(std::to_string(i)).append(ending);
        }
        jobs.push_back(
            {number, state.output.empty() ? state.directory + "/" + unique : state.output});
        jobs.back().path.erase(0, jobs.back().path.starts_with("./") ? 2 : 0);
    }
    return jobs;
}

/// Nothing is copied when one of the files is there already or cannot be made.
int check_paths(const std::vector<Job>& jobs) {
    for (const Job& job : jobs) {
        if (const int status = host_may_write(job.path, state.replace)) {
            return status;
        }
    }
    return 0;
}

void warn(const Disc& disc, const DiscEntry& entry) {
    if (entry.type == DISC_REL || entry.geos) {
        report_warning(disc.path + ": " + entry.text +
                       ": only the chain of its data is copied, not " +
                       (entry.geos ? "its GEOS header" : "its record length"));
    }
}

/// The file's bytes to its path. 0 or the exit status.
int write_file(Disc& disc, const Job& job, std::uint64_t& size) {
    const DiscEntry& entry = disc_entries(disc)[static_cast<std::size_t>(job.number)];
    if (state.toolkit_rules) {
        std::error_code unknown;
        const int status = toolkit_get(state.image, entry, job.path);
        size = status == 0 ? std::filesystem::file_size(job.path, unknown) : 0;
        return status;
    }
    std::vector<std::uint8_t> bytes;
    if (disc_read(disc, job.number, bytes) != 1) {
        return discs_fail(disc);
    }
    size = bytes.size();
    return host_write(job.path, bytes, state.replace);
}

/// One file. An error does not keep the others from being copied.
int copy(Disc& disc, const Job& job, Json& files) {
    const DiscEntry& entry = disc_entries(disc)[static_cast<std::size_t>(job.number)];
    std::uint64_t size = 0;
    warn(disc, entry);
    if (const int status = write_file(disc, job, size)) {
        return status;
    }
    if (job.path == "-") {
        return 0;
    }
    report_done(job.path + "  " + text_count(size, "byte"));
    Json json = discs_entry_json(entry);
    json.set("file", job.path);
    json.set("bytes", size);
    files.append(std::move(json));
    return 0;
}

int copy_all(Disc& disc, const std::vector<int>& numbers) {
    const std::vector<Job> jobs = plan(disc, numbers);
    int status = check_paths(jobs);
    if (status != 0) {
        return status;
    }
    Json files = Json::array();
    for (const Job& job : jobs) {
        const int result = copy(disc, job, files);
        status = result != 0 ? result : status;
    }
    report_json().set("files", std::move(files));
    return status;
}

int run() {
    if (globals.json && state.output == "-") {
        return report_fail(KxError::Usage, "--json and -o - want the same standard output");
    }
    if (!state.output.empty() && !state.directory.empty()) {
        return report_fail_usage("-C and -o exclude each other");
    }
    if (state.directory.empty()) {
        state.directory = ".";
    }
    if (state.toolkit_rules && state.output == "-") {
        return report_fail_usage("--toolkit-rules writes files, not standard output");
    }
    report_json().set("image", state.image);
    Disc disc;
    std::vector<int> numbers;
    if (const int status = discs_open(disc, state.image, DiscAccess::Read)) {
        return status;
    }
    if (const int status = discs_select(disc, state.names, numbers)) {
        return status;
    }
    if (!state.output.empty() && numbers.size() != 1) {
        return report_fail(KxError::Usage,
                           "-o takes one file, not " + std::to_string(numbers.size()));
    }
    if (numbers.size() > 1) {
        std::erase_if(numbers, [&](int number) {
            return disc_is_decoration(disc_entries(disc)[static_cast<std::size_t>(number)]);
        });
    }
    const int status = copy_all(disc, numbers);
    const bool damaged = !disc_info(disc).fault.empty(); // files may be missing
    return status == 0 && state.names.empty() && damaged ? discs_fail_damaged(disc) : status;
}

} // namespace

extern const Verb verb_get = {
    .name = "get",
    .alias = nullptr,
    .synopsis = "IMAGE [NAME...] [-C DIR | -o FILE] [-f]",
    .summary = "copy files out of a disc image",
    .options = options,
    .run = run,
};

} // namespace kx
