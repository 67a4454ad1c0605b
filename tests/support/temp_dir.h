// A directory of the test's own, removed with everything in it, and small file helpers.
#pragma once

#include <string>

namespace kx::test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    /// The directory's path, without a separator at its end.
    const std::string& path() const { return path_; }

    /// The path of `name` in it.
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    /// Writes a file, making the directories on the way; returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string path_;
};

/// The file's bytes; a test failure when it cannot be read.
std::string read_file(const std::string& path);

} // namespace kx::test
