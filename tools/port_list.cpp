// /sys/class/tty has a folder for each terminal device; those of hardware have a `device` in it.
#include "tools/port_list.h"

#include "util/file.h"
#include "util/text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace kx {

namespace {

namespace fs = std::filesystem;
using std::error_code;

constexpr int USB_LEVELS = 3; // from a port's device up to the adapter, which has a name

std::string read_line(const fs::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::vector<fs::path> entries(const fs::path& folder) {
    std::vector<fs::path> found;
    error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        found.push_back(at->path());
    }
    return found;
}

// The file behind a path's links; the path itself where there is none.
std::string resolved(const fs::path& path) {
    error_code error;
    const fs::path real = fs::canonical(path, error);
    return error ? path.string() : real.string();
}

// The adapter's name, from the first folder upwards that has one.
std::string product(const fs::path& device) {
    error_code error;
    fs::path folder = fs::canonical(device, error);
    for (int level = 0; !error && level < USB_LEVELS; level++, folder = folder.parent_path()) {
        std::string name = read_line(folder / "product");
        if (!name.empty()) {
            return name;
        }
    }
    return "";
}

std::string driver_of(const fs::path& device) {
    error_code error;
    const fs::path link = fs::read_symlink(device / "driver", error);
    return error ? "" : link.filename().string();
}

// A built-in port has no name but its chip's.
std::string chip(const fs::path& folder) {
    constexpr const char* chips[] = {"", "8250", "16450", "16550", "16550A"};
    const std::string type = read_line(folder / "type");
    const bool known = type.size() == 1 && type[0] >= '0' && type[0] <= '4';
    return known ? chips[type[0] - '0'] : "";
}

// Built-in ports are numbered whether they are there or not; type 0 has no chip.
bool has_chip(const fs::path& folder) {
    return read_line(folder / "type") != "0";
}

std::string by_id(const std::string& root, const std::string& device) {
    for (const fs::path& link : entries(root + "/dev/serial/by-id")) {
        if (resolved(link) == device) {
            return link.filename().string();
        }
    }
    return "";
}

PortEntry describe(const std::string& root, const fs::path& folder) {
    const std::string device = "/dev/" + folder.filename().string();
    PortEntry port = {.device = device,
                      .by_id = by_id(root, resolved(root + device)),
                      .what = product(folder / "device"),
                      .driver = driver_of(folder / "device"),
                      .access = access((root + device).c_str(), R_OK | W_OK) == 0,
                      .holder = port_list_holder(root, device)};
    for (const std::string& other : {chip(folder), port.driver}) {
        port.what = port.what.empty() ? other : port.what;
    }
    return port;
}

// By name, and by number where names differ in that: ttyS2 stands before ttyS10.
bool stands_before(const PortEntry& a, const PortEntry& b) {
    const auto stem = [](const std::string& name) {
        return name.find_last_not_of("0123456789") + 1;
    };
    const auto key = [&](const PortEntry& port) {
        const std::string digits = port.device.substr(stem(port.device));
        return std::tuple(port.device.substr(0, stem(port.device)), digits.size(), digits);
    };
    return key(a) < key(b);
}

// Out of the files alone: the name service is part of the system's C library, and this program may
// have another one linked in. The number where there is no name.
std::string user_name(uid_t id) {
    const FilePtr file(std::fopen("/etc/passwd", "re"));
    for (const passwd* user = nullptr;
         file != nullptr && (user = fgetpwent(file.get())) != nullptr;) {
        if (user->pw_uid == id) {
            return user->pw_name;
        }
    }
    return std::to_string(id);
}

std::string group_name(gid_t id) {
    const FilePtr file(std::fopen("/etc/group", "re"));
    for (const group* members = nullptr;
         file != nullptr && (members = fgetgrent(file.get())) != nullptr;) {
        if (members->gr_gid == id) {
            return members->gr_name;
        }
    }
    return std::to_string(id);
}

// 0 for what is no number.
int number_of(const std::string& text) {
    int number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    return end.ptr == text.data() + text.size() ? number : 0;
}

std::string process_name(const std::string& root, int pid) {
    return read_line(root + "/proc/" + std::to_string(pid) + "/comm");
}

bool has_open(const std::string& root, const fs::path& process, const std::string& device) {
    for (const fs::path& fd : entries(process / "fd")) {
        error_code error;
        if (root + fs::read_symlink(fd, error).string() == device && !error) {
            return true;
        }
    }
    return false;
}

// Lines of /proc/locks are "1: FLOCK  ADVISORY  WRITE 4711 00:18:5 0 EOF": process, then device and
// inode of the file. 0 for none.
int find_locker(const std::string& root, const std::string& device) {
    struct stat status = {};
    std::ifstream locks(root + "/proc/locks");
    if (stat(device.c_str(), &status) != 0) {
        return 0;
    }
    const std::string file =
        text_printf("%02x:%02x:%llu", major(status.st_dev), minor(status.st_dev),
                    static_cast<unsigned long long>(status.st_ino));
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, mode, access, pid, place;
        words >> number >> kind >> mode >> access >> pid >> place;
        if (kind == "FLOCK" && place == file) {
            return number_of(pid);
        }
    }
    return 0;
}

} // namespace

std::vector<PortEntry> port_list(const std::string& root, bool all) {
    std::vector<PortEntry> ports;
    error_code error;
    for (const fs::path& folder : entries(root + "/sys/class/tty")) {
        if (fs::exists(folder / "device", error) && (all || has_chip(folder))) {
            ports.push_back(describe(root, folder));
        }
    }
    std::ranges::sort(ports, stands_before);
    return ports;
}

PortHolder port_list_holder(const std::string& root, const std::string& device) {
    const std::string wanted = resolved(root + device);
    // A program that has locked it goes before one that only has it open. A shell's lock is named
    // after the program that took it for the shell, and has ended.
    const int locker = find_locker(root, wanted);
    const std::string locked_by = locker != 0 ? process_name(root, locker) : "";
    if (!locked_by.empty()) {
        return {locker, locked_by};
    }
    for (const fs::path& process : entries(root + "/proc")) {
        const int pid = number_of(process.filename());
        if (pid != 0 && pid != getpid() && has_open(root, process, wanted)) {
            return {pid, process_name(root, pid)};
        }
    }
    return {};
}

std::string port_list_rights(const std::string& device) {
    struct stat status = {};
    if (stat(device.c_str(), &status) != 0) {
        return "";
    }
    constexpr char letters[] = "rwxrwxrwx";
    std::string mode;
    for (unsigned i = 0; i < 9; i++) {
        mode += (status.st_mode & (0400U >> i)) != 0 ? letters[i] : '-';
    }
    return text_printf("%s:%s, %s", user_name(status.st_uid).c_str(),
                       group_name(status.st_gid).c_str(), mode.c_str());
}

std::string port_list_way_in(const std::string& device) {
    struct stat status = {};
    constexpr mode_t both = S_IRGRP | S_IWGRP;
    return stat(device.c_str(), &status) == 0 && (status.st_mode & both) == both
               ? "sudo adduser $USER " + group_name(status.st_gid) + ", then log in anew"
               : "";
}

std::string port_list_find(const std::string& root, const std::string& name) {
    const std::string link = root + "/dev/serial/by-id/" + name;
    error_code error;
    const bool is_id = name.find('/') == std::string::npos && !name.empty();
    return is_id && fs::exists(link, error) ? link : name;
}

} // namespace kx
