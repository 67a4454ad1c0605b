// INI documents as files hold them, and files that are replaced without being lost.
#include "ini/ini.h"

#include "tests/support/temp_dir.h"
#include "util/file.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory_resource>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace kx;
using kx::test::read_file;
using kx::test::TempDir;
using testing::ElementsAre;
using testing::ExitedWithCode;

namespace {

/// A document read from `text`.
struct ReadDocument : IniDocument {
    TempDir dir;
    int result;

    explicit ReadDocument(const std::string& text)
        : result(ini_read(dir.write("test.ini", text), *this)) {}

    /// What is stored, as a file.
    std::string written() {
        EXPECT_EQ(ini_write(dir.file("out.ini"), *this), 0);
        return read_file(dir.file("out.ini"));
    }
};

/// What happens at the next call of that name, and the error that it then fails with, if any.
struct {
    std::string call;
    int error = 0;
    std::function<void()> happens;
} fault;

bool fails(const char* call) {
    if (fault.call != call) {
        return false;
    }
    const int error = fault.error;
    if (const auto happens = std::exchange(fault.happens, nullptr)) {
        fault = {};
        happens();
    }
    errno = error;
    return error != 0;
}

long files_in(const std::string& directory) {
    const std::filesystem::directory_iterator entries(directory);
    return std::distance(begin(entries), end(entries));
}

} // namespace

// These stand before the C library's.
extern "C" int fsync(int fd) {
    return fails("fsync") ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
}
extern "C" int rename(const char* from, const char* to) noexcept {
    return fails("rename")
               ? -1
               : static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
extern "C" int fchmod(int fd, mode_t mode) noexcept {
    return fails("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}
extern "C" int lock_file(int fd, int operation) noexcept
    __asm__("flock"); // there is a record flock
int lock_file(int fd, int operation) noexcept {
    return fails("flock") ? -1 : static_cast<int>(syscall(SYS_flock, fd, operation));
}

TEST(Ini, StoresWhatTheTextHolds) {
    using namespace std::string_literals;
    const std::string n31(31, 'n'), k63(63, 'k'), v255(255, 'v');
    const struct {
        std::string text;
        std::string stored;
        int items;
    } rows[] = {
        {"x=1\n;[\n[a]\ny=2\n", "[\n[a]\ny=2\n", 1}, // the first "[" counts, even in a comment
        {"x=1\n[a]\r\nkey = value\r\nk=a;b\r\n\r\n  b=c\r\n", "[a]\nkey = value\nk=a;b\nb=c\n", 3},
        {"[a] rest\nkey=abc\tdef\nu=\xC3\xA4\nd=1\177x\n\tt=1\n", "[a]\nkey=abc\nu=\nd=1\n\tt=1\n",
         4},
        {"[a]\nno equals\nx=1\n;c=2\n ;c\n[b]\nlast", "[a]\nno equals\nx=1\n[b]\nlast=\n", 2},
        {"[a]\nx=1\ny=2\n[b]\nx=3\n[a]\nx=4\nX=5", "[a]\nx=4\ny=2\nX=5\n[b]\nx=3\n", 5},
        {"[]\nlost=1\n[a]\n=2\nx==3", "[a]\nx==3\n", 3},
        {"[a\nb]c\nx=1\n[open", "[a\nb]\nx=1\n[open]\n", 1},
        {"[a\0b]\nk\0l=1\0002\n\0=3\n"s, "[a]\nk=1\n", 2},
        {"[" + n31 + "1]\n" + k63 + "1=" + v255 + "1\n" + k63 + "2=x" + v255 + "345\nz=1",
         "[" + n31 + "]\n" + k63 + "=x" + v255.substr(1) + "\nz=1\n", 3},
        {"no section\n", "", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        ReadDocument doc(row.text);
        EXPECT_EQ(doc.result, 0);
        EXPECT_EQ(doc.written(), row.stored);
        EXPECT_EQ(doc.item_count, row.items);
    }
}

TEST(Ini, DocumentsAreBuiltInMemory) {
    const std::string n31(31, 'n'), v255(255, 'v');
    IniDocument doc;
    ini_create(doc, "made.ini");
    EXPECT_EQ(ini_add_section(doc, ""), nullptr);
    EXPECT_EQ(ini_add_section(doc, n31 + "1"), ini_add_section(doc, n31 + "2"));
    IniItem* item = ini_set_item(doc, n31, "k", "old");
    EXPECT_EQ(ini_set_item(doc, n31, "", "lost"), nullptr);
    EXPECT_EQ(ini_set_item(doc, "none", "k", "lost"), nullptr);
    for (const char* text : {"#", "x", ";x", "-", "xy"}) {
        EXPECT_EQ(ini_add_item_comment(doc, n31, "k", text), 0) << text;
    }
    EXPECT_EQ(ini_set_item(doc, n31, "k", v255 + "1"), item);
    EXPECT_EQ(ini_add_item_comment(doc, n31, "none", "lost"), -1);
    EXPECT_EQ(ini_add_item_comment(doc, "none", "k", "lost"), -1);
    EXPECT_EQ(ini_add_section_comment(doc, "none", "lost"), -1);
    const TempDir dir;
    EXPECT_EQ(ini_write(dir.path(), doc), -1);
    EXPECT_EQ(ini_write(dir.file("out"), doc), 0);
    EXPECT_EQ(read_file(dir.file("out")), "[" + n31 + "]\n;" + std::string(78, '#') + "\n;;x\n;# " +
                                              std::string(76, '-') + "\n;# xy\nk=" + v255 + "\n");
    ini_free(doc);
    EXPECT_EQ(doc.file_name, "");
    EXPECT_EQ(ini_find_section(doc, n31), nullptr);
    EXPECT_EQ(ini_write(dir.file("out"), doc), 0);
    EXPECT_EQ(read_file(dir.file("out")), "");
}

TEST(Ini, LongListsKeepOrderAndPlaces) {
    ReadDocument doc("[long]\n");
    std::vector<IniItem*> items;
    for (int i = 0; i < 2000; i++) {
        const std::string name = std::to_string(i * 7919 % 2000);
        ini_add_section(doc, name);
        ini_add_section(doc, "long");
        items.push_back(ini_set_item(doc, "long", name, "old"));
        ASSERT_EQ(ini_find_item(*ini_find_section(doc, "long"), name + "x"), nullptr);
    }
    ASSERT_EQ(ini_set_item(doc, "long", items[1000]->name, "new"), items[1000]);
    std::size_t i = 0;
    for (const IniItem& item : ini_find_section(doc, "long")->items) {
        ASSERT_EQ(&item, items[i++]);
        ASSERT_EQ(ini_find_section(doc, item.name)->name, item.name);
    }
    EXPECT_EQ(i, 2000U);
}

TEST(Ini, ConvertsNumbersWithBaseDetection) {
    const ReadDocument doc("[s]\nl=0x1F,010,12abc,, -1,$10,0x1FFFFFFFF,4294967297\n"
                           "b0=1,2\nb1=\nb2=258,4\nb4=9\nu=0xDE000000\n"
                           "l32=0x1DE000001\nmax=9223372036854775809\ne=\n");
    std::int32_t numbers[] = {9, 9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(ini_get_number_list(doc, numbers, "s", "l"), 8);
    EXPECT_THAT(numbers, ElementsAre(31, 8, 12, 0, -1, 0, -1, 1, 9));
    EXPECT_EQ(ini_get_number(doc, "s", "u"), 0xDE000000);
    EXPECT_EQ(ini_get_number(doc, "s", "l32"), 0xDE000001);
    EXPECT_EQ(ini_get_number(doc, "s", "max"), 1U);
    EXPECT_EQ(ini_get_number(doc, "s", "e"), 0U);
    EXPECT_EQ(ini_get_number(doc, "s", "none"), 0U);
    EXPECT_EQ(ini_get_number_list(doc, numbers, "s", "none"), 0);
    std::uint8_t bytes[] = {9, 9, 9, 9, 9};
    EXPECT_EQ(ini_get_byte_array(doc, std::span(bytes, 3), "s", "b"), 3);
    EXPECT_THAT(bytes, ElementsAre(1, 2, 2, 9, 9));
    EXPECT_EQ(ini_get_byte_array(doc, bytes, "s", "b"), 4); // b3 is missing
}

TEST(Ini, SplitsLists) {
    const struct {
        std::string value;
        int count;
        std::vector<std::string> elements; // of a list with room for 4
    } rows[] = {{" a, b ,c", 3, {"a", "b ", "c", ""}},
                {"", 0, {"", "", "", ""}},
                {" ", 1, {"", "", "", ""}},
                {"a,,b,", 3, {"a", "", "b", ""}},
                {"a, ", 2, {"a", "", "", ""}},
                {"1,2,3,4,5", 4, {"1", "2", "3", "4"}}};
    for (const auto& row : rows) {
        std::vector<std::string> dest(4, "old");
        const ReadDocument list("[s]\nl=" + row.value + "\n");
        EXPECT_EQ(ini_get_string_list(list, dest, "s", "l"), row.count) << row.value;
        EXPECT_EQ(dest, row.elements) << row.value;
    }
    const ReadDocument doc("[s]\n");
    std::string text = "cleared", list[] = {"old"};
    EXPECT_EQ(ini_get_string(doc, text, "s", "none"), -1);
    EXPECT_EQ(ini_get_string_list(doc, list, "s", "none"), -1);
    EXPECT_EQ(text, "");
    EXPECT_EQ(list[0], "old");
}

TEST(Ini, ReportsUnreadableFilesAndLeavesTheDocument) {
    static std::string reported;
    ini_set_reporter([](const char* text) { reported += text; });
    ReadDocument doc("[s]\nk=v\n");
    const std::string pipe = doc.dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int writer = open(pipe.c_str(), O_RDWR);
    for (const std::string& path : {doc.dir.file("none"), doc.dir.path(), pipe}) {
        reported.clear();
        EXPECT_EQ(ini_read(path, doc), -1);
        EXPECT_EQ(reported, "warning: couldn't find .ini file " + path + "\n");
    }
    close(writer);
    reported.clear();
    const std::string empty = doc.dir.write("a\x1b", "");
    EXPECT_EQ(ini_read(empty, doc), -1);
    EXPECT_EQ(reported, "warning: .ini file " + doc.dir.file("a\\x1b") + " is 0 byte long\n");
    EXPECT_EQ(doc.file_name, doc.dir.file("test.ini"));
    EXPECT_EQ(doc.written(), "[s]\nk=v\n");
    EXPECT_EQ(ini_read(doc.file_name, doc), 0); // its own name
    EXPECT_EQ(doc.written(), "[s]\nk=v\n");
}

TEST(IniDeathTest, MissingSectionsAndNoMemoryEndTheProgram) {
    ReadDocument doc("[s]\nk=v\n");
    std::string text;
    const std::function<void()> getters[] = {
        [&] { ini_get_string(doc, text, "t", "k"); },
        [&] { ini_get_number(doc, "t", "k"); },
        [&] { ini_get_byte_array(doc, {}, "t", "k"); },
    };
    for (const auto& get : getters) {
        EXPECT_EXIT((dup2(2, 1), get()), ExitedWithCode(255),
                    "^error in ini file " + doc.file_name + ": couldnt find section t\n$");
    }
    EXPECT_EXIT((dup2(2, 1), std::pmr::set_default_resource(std::pmr::null_memory_resource()),
                 ini_read(doc.file_name, doc)),
                ExitedWithCode(255), "^error: couldn't allocate memory.\n$");
}

TEST(File, ReplacingFollowsLinksAndKeepsPermissions) {
    namespace fs = std::filesystem;
    const TempDir dir;
    chmod(dir.write("real/file", "a longer old text").c_str(), 0640);
    fs::create_symlink("file", dir.file("real/again"));
    fs::create_symlink("real/again", dir.file("link")); // a chain
    fs::create_symlink("real/new", dir.file("dangling"));
    fs::create_symlink("loop", dir.file("loop"));
    umask(027);
    EXPECT_EQ(file_replace(dir.file("link"), "text"), 0);
    EXPECT_EQ(file_replace(dir.file("dangling"), "new"), 0);
    EXPECT_EQ(file_replace(dir.file("loop"), "lost"), -1);
    EXPECT_EQ(file_replace(dir.path(), "lost"), -1);
    EXPECT_EQ(file_replace("/dev/full", "lost"), -1);
    EXPECT_EQ(file_replace("/dev/null", "gone"), 0);
    EXPECT_EQ(umask(027), 027U);
    for (const char* name : {"link", "dangling", "real/again"}) {
        EXPECT_TRUE(fs::is_symlink(dir.file(name))) << name;
    }
    EXPECT_EQ(read_file(dir.file("real/file")), "text");
    EXPECT_EQ(read_file(dir.file("real/new")), "new");
    for (const char* name : {"real/file", "real/new"}) {
        EXPECT_EQ(fs::status(dir.file(name)).permissions(), static_cast<fs::perms>(0640)) << name;
    }
    EXPECT_EQ(files_in(dir.file("real")), 3); // no temporary stays
}

TEST(FileDeathTest, AFileThatCannotBeReplacedStaysWhole) {
    const struct {
        const char* what;
        mode_t directory, file;
        bool others;  // owned by somebody else
        rlim_t limit; // bytes that a file may have, as a full disc
        int status;
        std::size_t old_size = 3;
    } rows[] = {
        {"read-only file", 0777, 0444, false, RLIM_INFINITY, 1},
        {"full disc, through a new file", 0777, 0666, false, 4096, 1},
        {"in place, as the directory takes no file", 0555, 0666, false, RLIM_INFINITY, 0},
        {"in place, to keep the owner", 0777, 0666, true, RLIM_INFINITY, 0},
        {"in place, and shorter", 0555, 0666, true, RLIM_INFINITY, 0, 20000},
        {"full disc, in place", 0555, 0666, true, 4096, 1},
    };
    const std::string text(10000, 'n');
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const TempDir dir;
        const std::string old(row.old_size, 'o'), path = dir.write("f", old);
        chmod(path.c_str(), row.file);
        chmod(dir.path().c_str(), row.directory);
        const bool root = geteuid() == 0; // who may do anything, so another user tries
        const uid_t owner = root && !row.others ? 65534 : geteuid();
        ASSERT_EQ(chown(path.c_str(), owner, owner == 65534 ? 65534 : getegid()), 0);
        const auto replace = [&] {
            const rlimit limit = {row.limit, row.limit};
            setrlimit(RLIMIT_FSIZE, &limit);
            std::signal(SIGXFSZ, SIG_IGN);
            const bool user = !root || (setegid(65534) == 0 && seteuid(65534) == 0);
            _exit(!user ? 2 : file_replace(path, text) == 0 ? 0 : 1);
        };
        EXPECT_EXIT(replace(), ExitedWithCode(row.status), "");
        chmod(dir.path().c_str(), 0700);
        EXPECT_EQ(read_file(path), row.status == 0 ? text : old);
        struct stat status = {};
        stat(path.c_str(), &status);
        EXPECT_EQ(status.st_uid, owner);
        EXPECT_EQ(files_in(dir.path()), 1);
    }
}

TEST(File, AFaultAtAnyStepLeavesTheOldFileAndNoLitter) {
    const struct {
        const char* call;
        int error;
        const char* step; // null: the new content is there all the same
    } rows[] = {
        {"fsync", EIO, "sync"},     {"fsync", EPERM, "sync"},       {"rename", EIO, "rename"},
        {"rename", EBUSY, nullptr}, {"fchmod", EIO, "permissions"}, {"fchmod", EPERM, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.call) + ": " + std::strerror(row.error));
        const TempDir dir;
        const std::string path = dir.write("f", "old");
        fault = {row.call, row.error, nullptr};
        const int result = file_replace(path, "new");
        fault = {};
        EXPECT_EQ(result, row.step != nullptr ? -1 : 0);
        EXPECT_EQ(read_file(path), row.step != nullptr ? "old" : "new");
        EXPECT_EQ(files_in(dir.path()), 1);
        EXPECT_EQ(file_last_error().error, row.error);
        if (row.step != nullptr) {
            EXPECT_STREQ(file_last_error().step, row.step);
        }
    }
}

TEST(FileDeathTest, ADeathWhileReplacingLeavesOneWholeFile) {
    const TempDir dir;
    const std::string path = dir.write("f", "old");
    for (int i = 0; i < 3; i++) { // a temporary of the same name each time
        EXPECT_EXIT((fault = {"fsync", 0, [] { raise(SIGKILL); }}, file_replace(path, "new")),
                    testing::KilledBySignal(SIGKILL), "");
        EXPECT_EQ(read_file(path), "old");
        EXPECT_EQ(files_in(dir.path()), 2);
    }
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) { // those wait until all is done
        const std::string text = std::to_string(number);
        EXPECT_EXIT((fault = {"fsync", 0, [=] { raise(number); }}, file_replace(path, text)),
                    testing::KilledBySignal(number), "");
        EXPECT_EQ(read_file(path), text);
        EXPECT_EQ(files_in(dir.path()), 1);
    }
}

TEST(File, ProcessesThatReplaceOneFileTakeTurns) {
    const TempDir dir;
    const std::string path = dir.file("f"), texts[] = {std::string(70000, 'a'), "b"};
    pid_t children[2];
    for (int i = 0; i < 2; i++) {
        children[i] = fork();
        int wrong = 0;
        for (int k = 0; children[i] == 0 && k < 80; k++) {
            wrong |= file_replace(path, texts[i]) != 0 ? 1 : 0;
            const std::string found = read_file(path);
            wrong |= found != texts[0] && found != texts[1] ? 2 : 0;
        }
        if (children[i] == 0) {
            _exit(wrong);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    fault = {"flock", 0, [&] { // between opening and locking one gets ready, another begins
                 std::filesystem::rename(dir.file(".f.kxnew"), path);
                 dir.write(".f.kxnew", "another's");
             }};
    EXPECT_EQ(file_replace(path, "last"), 0);
    EXPECT_EQ(read_file(path), "last");
    EXPECT_EQ(files_in(dir.path()), 1);
}

TEST(File, AFifoIsNeverWaitedFor) {
    const TempDir dir;
    const std::string pipe = dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(file_replace(pipe, "read by nobody"), -1);
    EXPECT_EQ(file_last_error().error, ENXIO);
    const FilePtr input = file_open(pipe, "rb");
    ASSERT_NE(input, nullptr);
    EXPECT_EQ(file_size(input.get()), -1);
    EXPECT_EQ(file_last_error().error, ESPIPE);
    EXPECT_EQ(file_replace(pipe, "read by input"), 0);
    char text[20] = {};
    EXPECT_EQ(file_read(input.get(), {reinterpret_cast<std::uint8_t*>(text), 13}), 13);
    EXPECT_STREQ(text, "read by input");
}
