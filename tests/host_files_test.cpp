// What a root lets through, by the kernel and by the walk, what read-only forbids, and which
// descriptors are nobody's handles.
#include "core/active_config.h"
#include "fileserver/directory_search_private.h"
#include "tests/support/temp_dir.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <unistd.h>

namespace kx {

/// What opening gives: the file's text, "none", or "refused" when the log says so and all other
/// requests fail as well.
static std::string opened(const std::string& path, int flags = O_RDONLY) {
    testing::internal::CaptureStderr();
    const HostFd handle(host_open(path, static_cast<std::uint32_t>(flags)));
    if (testing::internal::GetCapturedStderr().starts_with("KX> refused: ")) {
        EXPECT_EQ(host_chdir(path), -1) << path;
        EXPECT_EQ(host_mkdir(path + "/"), -1) << path;
        EXPECT_EQ(host_rmdir(path), -1) << path;
        return HostSave(path) ? "made" : "refused";
    }
    char text[16] = {};
    return ::read(handle.get(), text, sizeof text - 1) < 0 ? "none" : text;
}

static unsigned mode_of(const std::string& path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
}

class Root : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(KernelAndWalk, Root, testing::Bool());

TEST_P(Root, HoldsEveryPath) {
    const test::TempDir dir;
    const std::string root = dir.file("served");
    dir.write("served-not/file", dir.write("served/top", "top"));
    dir.write("served/sub/deep/file", "in");
    std::istringstream links(
        "sub/deep/./file in ../secret out ../served/top back loop sub/loop .. up "
        "new dangling deep//file sub/near near sub/far ../top sub/up " +
        dir.write("secret", "out") + " absolute " + root + " self");
    for (std::string target, name; links >> target >> name;) {
        std::filesystem::create_symlink(target, dir.file("served/" + name));
    }
    active_config.fileserver_root = root + "/self"; // its real path counts
    host_files_force_walk(GetParam());
    ::umask(0);
    EXPECT_EQ(host_chdir("sub"), 0); // of the root, though the program is elsewhere
    const int lowest_free = HostFd(::dup(0)).get();
    const std::pair<std::string, std::string> rows[] = {
        {"top", "../top deep/.././/../top up " + root + "/top " + root + "//sub/../top"},
        {"in", "../in near far deep/file"},
        {"none", ". ../top/ ../top/../top missing loop " + std::string(5000, 'a')},
        {"refused", "../.. ../../new ../../secret deep/../../../secret ../.././served/top ../up "
                    "../up/new ../up/secret ../out ../back ../absolute ../self/top /new " +
                        root + "-not/file " + root + "/../new"}};
    for (const auto& [text, paths] : rows) {
        std::istringstream each(paths);
        for (std::string path; each >> path;) {
            EXPECT_EQ(opened(path), text) << path;
        }
    }
    EXPECT_EQ(host_chdir(""), -1);
    EXPECT_EQ(opened("../dangling", O_RDWR | O_CREAT | 1 << 30), ""); // makes what it leads to
    EXPECT_EQ(host_mkdir("made//"), 0);
    EXPECT_EQ(mode_of(root + "/sub/made"), 0700U);
    EXPECT_EQ(mode_of(root + "/new"), 0644U);
    EXPECT_EQ(host_chdir("made"), 0);
    EXPECT_EQ(host_rmdir("../made"), 0);
    std::string now;
    EXPECT_EQ(host_getcwd(now, 4096), 0);
    EXPECT_EQ(now, root); // where it stood is gone
    EXPECT_EQ(opened("new"), "");
    EXPECT_EQ(HostFd(::dup(0)).get(), lowest_free);
    DirectorySearch search;
    DirectoryEntry entry;
    std::set<std::string> shown; // all that does not lead out, wherever the program goes meanwhile
    for (int found = directory_find_first(search, "", entry); found == 0;
         found = directory_find_next(search, entry)) {
        shown.insert(entry.name);
        EXPECT_EQ(host_chdir(root + "/sub"), 0);
    }
    EXPECT_EQ(shown, (std::set<std::string>{".", "dangling", "in", "new", "sub", "top"}));
    testing::internal::CaptureStderr();
    EXPECT_EQ(host_chdir(".."), 0);
    EXPECT_EQ(directory_find_first(search, "out", entry), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KX> refused: out: not in the served directory\n\r");
}

TEST(HostFiles, OnlyFilesOfTheTargetAreItsHandles) {
    const test::TempDir dir;
    const std::string file = dir.write("file", "123");
    const std::string pipe = dir.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    HostFd ours(::open(pipe.c_str(), O_RDWR)); // has both its ends
    EXPECT_EQ(host_open(pipe, O_RDONLY), -1);
    EXPECT_EQ(host_open(pipe, O_RDWR), -1);
    EXPECT_EQ(host_open("/dev/ptmx", O_RDWR), -1);
    std::uint32_t size = 0;
    EXPECT_FALSE(HostSave(pipe));
    EXPECT_FALSE(host_open_file(file, size, 2));
    EXPECT_TRUE(ours = host_open_file(file, size, 3));
    EXPECT_EQ(size, 3U);
    for (const int handle : {-1, 0, 1, 2, ours.get(), ours.get() + 100}) {
        EXPECT_EQ(host_close(handle), -1) << handle;
    }
    const int handle = host_open(file, O_RDWR);
    EXPECT_EQ(::fcntl(handle, F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_RDWR);
    active_config.fileserver_root = dir.path();
    EXPECT_EQ(host_close(handle), 0);
    EXPECT_EQ(host_close(handle), -1);
    EXPECT_EQ(::dup(0), handle);
    EXPECT_FALSE(host_is_handle(handle)); // the target never got this one
    active_config.fileserver_read_only = true;
    for (const int flags : {O_WRONLY, O_RDWR, O_ACCMODE, O_TRUNC, O_CREAT, O_TMPFILE}) {
        EXPECT_EQ(opened(file, flags), "refused") << flags;
    }
    std::filesystem::create_directory(dir.file("empty"));
    EXPECT_EQ(host_rmdir(dir.file("empty")), -1);
    EXPECT_EQ(host_mkdir(dir.file("other")), -1);
}

} // namespace kx
