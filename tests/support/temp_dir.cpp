// Temporary directories and whole files, for tests that work on real files.
#include "tests/support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace kx::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
    // Canonical: what is tested reports paths as the system resolves them.
    path_ = fs::canonical(fs::temp_directory_path()).string() + "/kxtest.XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
        ADD_FAILURE() << "no directory could be made from " << path_;
        std::abort(); // the test would write into whatever the name means
    }
}

TempDir::~TempDir() {
    std::error_code error;
    fs::remove_all(path_, error);
    EXPECT_FALSE(error) << path_ << " stays: " << error.message();
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    std::string path = file(name);
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    std::ofstream stream(path, std::ios::binary);
    stream << content << std::flush;
    EXPECT_TRUE(stream) << path << " could not be written";
    return path;
}

std::string read_file(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    EXPECT_TRUE(stream.is_open()) << path;
    EXPECT_FALSE(stream.bad()) << path << " could not be read";
    return content.str();
}

} // namespace kx::test
