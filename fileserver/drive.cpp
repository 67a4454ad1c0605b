// Load and save of the two servers that play a Commodore's drive.
#include "fileserver/drive_private.h"

#include "core/active_config.h"
#include "fileserver/directory_search_private.h"
#include "fileserver/host_files_private.h"
#include "fileserver/line_private.h"
#include "fileserver/request_private.h"
#include "link/rate.h"
#include "util/ascii.h"

#include <climits>

namespace kx {

namespace {

int change_directory(const Drive& drive, const std::string& name, const char* kind) {
    if (host_chdir(name) != 0) {
        request_fail("no such directory");
        return -1;
    }
    line_put(drive.changed);
    std::string directory;
    host_getcwd(directory, PATH_MAX);
    request_event().file = directory;
    fileserver_log("KX> chdir(\"%s\") to %.255s%s%s", ascii_escape(name).c_str(),
                   ascii_escape(directory).c_str(), drive.tells_kind ? kind : "", drive.line_end);
    return 0;
}

} // namespace

std::string drive_get_name(int behind) {
    std::string name = line_get_name('\r');
    for (int i = 0; i < behind; i++) {
        line_get();
    }
    request_event().name = name;
    return name;
}

bool drive_is_directory_name(const std::string& name) {
    return name.starts_with('$');
}

int drive_load(const Drive& drive, const std::string& name) {
    if (drive_is_directory_name(name)) {
        return drive.send_directory();
    }
    if (name.starts_with('.')) {
        return change_directory(drive, name, " (up)");
    }
    DirectoryEntry entry;
    std::string found = name;
    if (active_config.fileserver_open_match && directory_find_best(name, entry) == 0) {
        found = entry.name;
    } else if (directory_find(name, entry) != 0) {
        request_fail("not found");
        return -1;
    }
    if ((entry.attribute & DIRECTORY_ATTRIBUTE) != 0) {
        return change_directory(drive, found, "");
    }
    if ((entry.attribute & ROOT_ATTRIBUTE) != 0) {
        return change_directory(drive, found, " (root)");
    }
    return drive.send_file(found); // a name with wildcards fails there
}

int drive_save(const Drive& drive, const std::string& name) {
    const std::string shown = ascii_escape(name);
    fileserver_log("getting file \"%s\" ...%s", shown.c_str(), drive.line_end);
    if (drive_is_directory_name(name)) {
        request_fail("a directory");
        return -1;
    }
    HostSave file(name);
    if (!file) {
        request_fail("couldn't be created");
        return -1;
    }
    line_put(drive.ready);
    const std::uint32_t length = line_get16() + drive.uncounted;
    if (!request_is_dropped()) { // 16 bits of the sum are shown, but all of it comes
        fileserver_log("KX> getting file \"%s\" (%d bytes.)...%s", shown.c_str(),
                       static_cast<int>(length & 0xFFFF), drive.line_end);
    }
    rate_start();
    bool written = false;
    line_receive_file(file.fd(), length, written);
    if (request_is_dropped() || !written || file.replace() != 0) {
        request_fail("couldn't be written"); // the protocol has no way to tell the target
        fileserver_log("KX> file \"%s\" is not saved: %s.%s", shown.c_str(),
                       request_event().why.c_str(), drive.line_end);
    } else if (drive.meters) {
        rate_stop_report(length);
    }
    return 0;
}

void drive_note_directory(std::size_t bytes, std::size_t entries) {
    request_event().expected = bytes;
    request_event().bytes = bytes;
    request_event().entries = static_cast<std::uint32_t>(entries);
}

} // namespace kx
