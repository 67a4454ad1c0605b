// The disc verbs by the toolkit's own rules.
#include "tools/discs_toolkit.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "files/d64.h"
#include "files/disc.h"
#include "files/filetype.h"
#include "files/imgfile.h"
#include "tools/base.h"
#include "tools/discs.h"
#include "tools/global.h"
#include "tools/host.h"
#include "tools/report.h"
#include "util/fd.h"
#include "util/text.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <unistd.h>

namespace kx {

namespace {

/// Names go by the tables of the base directory, where there is one.
int load_charsets() {
    if (!base_find_quietly()) {
        return 0;
    }
    IniDocument main_doc;
    ini_read(active_config.base_dir + "kx.ini", main_doc); // one that is not there names no table
    ini_add_section(main_doc, "charsets");                 // without, the loader ends the process
    const std::string problem = charset_check_defaults(active_config.base_dir, main_doc);
    if (!problem.empty()) {
        return report_fail(KxError::BadConfig, problem);
    }
    charset_load_defaults(active_config.base_dir, main_doc);
    return 0;
}

/// Whether another program has changed the image since the entry was found.
bool is_there(const Disc& disc, const DiscEntry* entry) {
    const auto& all = disc_entries(disc);
    return entry == nullptr ||
           (static_cast<std::size_t>(entry->number) < all.size() &&
            all[static_cast<std::size_t>(entry->number)].name == entry->name &&
            all[static_cast<std::size_t>(entry->number)].raw_type == entry->raw_type);
}

/// Runs `work`, for an entry or none, with the image open; it gives the library's 1 or -1.
int with_image(const std::string& path, bool writing, const DiscEntry* entry,
               const std::function<int(ImageHandle& image)>& work) {
    if (globals.dry_run) {
        return report_fail(KxError::Usage, "-n does not go with --toolkit-rules");
    }
    if (const int status = load_charsets()) {
        return status;
    }
    Disc disc; // refuses what is none, and holds the lock that the library does not take
    if (const int status =
            discs_open(disc, path, writing ? DiscAccess::Change : DiscAccess::Read)) {
        return status;
    }
    report_json().set("image", path);
    if (!is_there(disc, entry)) {
        return report_fail(KxError::NotFound, path + ": " + entry->text + " is not there any more");
    }
    ImageHandle image;
    if (image_open(image, path, false, writing) != 1) {
        return report_fail_library(KxError::HostFile, "", path + ": cannot be opened");
    }
    image.type = FILETYPE_D64; // whatever its name
    std::fflush(stdout);       // which is for data: what the library says there of entries is none
    const Fd out(dup(STDOUT_FILENO)), nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
    dup2(nothing.get(), STDOUT_FILENO);
    const int result = work(image);
    image_close(image);
    std::fflush(stdout);
    dup2(out.get(), STDOUT_FILENO);
    return result == 1 ? 0 : report_fail_library(KxError::HostFile, path + ": ", "failed");
}

/// The entry with the number, as the library finds it in its listings' style.
class Numbered {
public:
    explicit Numbered(int number) : name(text_printf("%02x", number)), style_(d64_ls_style) {
        d64_ls_style = 1;
    }
    ~Numbered() { d64_ls_style = style_; }
    Numbered(const Numbered&) = delete;
    Numbered& operator=(const Numbered&) = delete;
    const std::string name;

private:
    int style_;
};

/// Whether the library can read the host file; it finds out when its name stands on the disc.
int check_file(const std::string& file) {
    std::error_code unknown;
    std::vector<std::uint8_t> head;
    const auto status = std::filesystem::status(file, unknown);
    return file == "-" || (exists(status) && !is_regular_file(status))
               ? report_fail(KxError::BadType,
                             file + ": no regular file, which --toolkit-rules needs")
               : host_read_part(file, 0, 1, head);
}

/// The files that are on the disc; none when it cannot be read.
std::set<int> numbers_of(const std::string& image_path) {
    Disc disc;
    std::set<int> numbers;
    if (disc_open(disc, image_path, DiscAccess::Read) == 1) {
        for (const DiscEntry& entry : disc_entries(disc)) {
            if (entry.raw_type != 0) {
                numbers.insert(entry.number);
            }
        }
    }
    return numbers;
}

/// Says what has come since, also before a failure: it stays.
void tell_new(const std::string& image_path, const std::set<int>& before) {
    Disc disc;
    std::vector<int> written;
    std::ranges::set_difference(numbers_of(image_path), before, std::back_inserter(written));
    if (disc_open(disc, image_path, DiscAccess::Read) == 1) {
        discs_tell_written(disc, written);
    }
}

} // namespace

int toolkit_get(const std::string& image_path, const DiscEntry& entry, const std::string& path) {
    const Numbered numbered(entry.number);
    return with_image(image_path, false, &entry, [&](ImageHandle& image) {
        return imgfile_extract_file(image, numbered.name, path);
    });
}

int toolkit_put(const std::string& image_path, const std::vector<std::string>& files,
                const std::string& name) {
    if (!name.empty() && files.size() > 1) {
        return report_fail(KxError::Usage, "-N names one file, there are more");
    }
    for (const std::string& file : files) {
        if (const int status = check_file(file)) {
            return status;
        }
    }
    std::vector<std::string> names;
    for (const std::string& file : files) {
        const std::string own = host_name(file);
        const std::size_t ending = host_ending(file) == "prg" ? 4 : 0;
        names.push_back(!name.empty() ? name : own.substr(0, own.size() - ending));
        if (names.back().size() > DiscName().size()) {
            return report_fail(KxError::Usage,
                               "'" + names.back() + "' is no name: it has more than 16 characters");
        }
    }
    const std::set<int> before = numbers_of(image_path);
    const int status = with_image(image_path, true, nullptr, [&](ImageHandle& image) {
        for (std::size_t i = 0; i < files.size(); i++) {
            if (imgfile_write_file(image, files[i], names[i]) != 1) {
                return -1;
            }
        }
        return 1;
    });
    tell_new(image_path, before);
    return status;
}

int toolkit_rm(const std::string& image_path, const DiscEntry& entry) {
    const Numbered numbered(entry.number);
    return with_image(image_path, true, &entry, [&](ImageHandle& image) {
        return imgfile_delete_file(image, numbered.name);
    });
}

} // namespace kx
