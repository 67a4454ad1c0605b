// The disc verbs by the toolkit's own rules.
#include "tools/discs_toolkit.h"

#include "charsets/charset.h"
#include "core/active_config.h"
#include "files/disc.h"
#include "files/imgfile.h"
#include "tools/base.h"
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

/// Runs `work` with the image open; it gives the library's 1 or -1, or 0 after a failure that has
/// been reported, all of which have one exit status.
int with_image(const std::string& path, bool writing,
               const std::function<int(ImageHandle& image)>& work) {
    if (globals.dry_run) {
        return report_fail(KxError::Usage,
                           "--toolkit-rules changes at once: -n does not go with it");
    }
    if (const int status = load_charsets()) {
        return status;
    }
    report_json().set("image", path);
    ImageHandle image;
    if (image_open(image, path, false, writing) != 1) {
        return report_fail_library(KxError::HostFile, "", path + ": cannot be opened");
    }
    std::fflush(stdout); // which is for data: what the library says there of entries is none
    const Fd out(dup(STDOUT_FILENO)), nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
    dup2(nothing.get(), STDOUT_FILENO);
    const int result = work(image);
    image_close(image);
    std::fflush(stdout);
    dup2(out.get(), STDOUT_FILENO);
    if (result == 0) {
        return report_status(KxError::HostFile);
    }
    return result == 1 ? 0 : report_fail_library(KxError::HostFile, path + ": ", "failed");
}

/// Looks for the names as the library does. False, reported, when one is none or, unless
/// `locked_too`, of a locked file: the library itself minds no locks.
bool have_files(const ImageHandle& image, const std::string& path,
                const std::vector<std::string>& names, bool locked_too) {
    Disc disc;
    disc.image = image;
    for (const std::string& name : names) {
        const auto entry = std::ranges::find_if(disc_entries(disc), [&](const DiscEntry& each) {
            return each.type != 0 && each.text == name;
        });
        if (entry == disc_entries(disc).end()) {
            report_fail(KxError::NotFound,
                        text_printf("%s: there is no file '%s'", path.c_str(), name.c_str()));
            return false;
        }
        if (entry->locked && !locked_too) {
            report_fail(KxError::Locked,
                        text_printf("%s: '%s' is locked", path.c_str(), name.c_str()),
                        "-f takes it, too");
            return false;
        }
    }
    return true;
}

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

/// Where the named files go, or all that the image has.
std::vector<std::string> host_paths(const ImageHandle& image, const std::vector<std::string>& names,
                                    const std::string& directory, const std::string& output) {
    std::vector<std::string> paths;
    std::ranges::transform(names, std::back_inserter(paths), [&](const std::string& name) {
        return !output.empty() ? output : directory + "/" + host_name(name) + ".prg";
    });
    Disc disc;
    disc.image = image;
    for (const DiscEntry& entry : disc_entries(disc)) {
        if (names.empty() && entry.start.track != 0) {
            paths.push_back(directory + "/" + entry.host_name);
        }
    }
    return paths;
}

} // namespace

int toolkit_get(const std::string& image_path, const std::vector<std::string>& names,
                const std::string& directory, const std::string& output, bool replace) {
    if (output == "-" || (!output.empty() && names.size() != 1)) {
        return report_fail(KxError::Usage, "-o takes one NAME and a file");
    }
    return with_image(image_path, false, [&](ImageHandle& image) {
        const std::vector<std::string> paths = host_paths(image, names, directory, output);
        if (!have_files(image, image_path, names, true)) {
            return 0;
        }
        if (std::ranges::any_of(paths, [&](const std::string& path) {
                return host_may_write(path, replace) != 0;
            })) {
            return 0;
        }
        if (names.empty() && (chdir(directory.c_str()) != 0 || imgfile_extract_all(image) != 1)) {
            return -1;
        }
        for (std::size_t i = 0; i < paths.size(); i++) {
            if (!names.empty() && imgfile_extract_file(image, names[i], paths[i]) != 1) {
                return -1;
            }
            report_done(paths[i]);
        }
        return 1;
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
    return with_image(image_path, true, [&](ImageHandle& image) {
        for (const std::string& file : files) {
            std::string own = host_name(file);
            own.erase(host_ending(file) == "prg" ? own.size() - 4 : own.size());
            if (imgfile_write_file(image, file, name.empty() ? own : name) != 1) {
                return -1;
            }
            report_done(image_path + ": " + (name.empty() ? own : name));
        }
        return 1;
    });
}

int toolkit_rm(const std::string& image_path, const std::vector<std::string>& names,
               bool locked_too) {
    return with_image(image_path, true, [&](ImageHandle& image) {
        if (!have_files(image, image_path, names, locked_too)) {
            return 0;
        }
        for (const std::string& name : names) {
            if (imgfile_delete_file(image, name) != 1) {
                return -1;
            }
            report_done(std::string(image_path).append(": ").append(name).append(" scratched"));
        }
        return 1;
    });
}

} // namespace kx
