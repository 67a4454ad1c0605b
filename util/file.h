// Owners of the operating system's file handles, and what every reader of files needs.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace kx {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// A stream that is closed when its owner goes.
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

/// Opens `path` as fopen does, for this process alone (close on exec). Null when it cannot be
/// opened, and also for a directory, which is no file that can be read.
FilePtr file_open(const std::string& path, const char* mode);

/// Whether a file can be had or made at `path`, to be known before slow work has run for nothing.
/// Nothing is left there that was not there before.
bool file_can_write(const std::string& path);

/// The stream's length in bytes; the stream's position is restored. -1 when the stream cannot seek.
long file_size(std::FILE* file);

/// Reads exactly `length` bytes from the stream's position on. 0, or -1 when the stream ends
/// before; `bytes` then holds what there was. No more room is taken than the stream has bytes, a
/// piece of it at a time, whatever the length.
int file_read_bytes(std::FILE* file, std::uint64_t length, std::vector<std::uint8_t>& bytes);

/// Replaces the file at `path` by `content`: a temporary file beside it is written, checked,
/// given the old file's permissions, and renamed over it, so that a full disc leaves the old file
/// whole. Symbolic links are followed. A path that is no regular file (a device, a pipe) is
/// written straight, and so is a file whose directory takes no new files.
/// Returns 0, or -1 when the file may not be written or not all of it could be; prints nothing.
int file_replace(const std::string& path, const std::string& content);

} // namespace kx
