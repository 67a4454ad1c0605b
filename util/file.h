// Owners of the operating system's file handles, and what every reader of files needs.
#pragma once

#include "util/failure.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// A stream that is closed when its owner goes.
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

/// Why the last call of this file's functions that failed did; its steps are "find", "open",
/// "seek", "read", "lock", "create", "permissions", "write", "sync" and "rename".
const Failure& file_last_error();

/// Forgets it.
void file_reset();

/// Opens `path` as fopen does ("r", "w" or "a", with or without "b" and "+"), for this process
/// alone (close on exec). It never waits: a FIFO opens for reading whether anybody writes to it or
/// not (it has no size then, see `file_size`), and one that nobody reads does not open for writing
/// (ENXIO). Null when it cannot be opened, and also for a directory, which is no file that can be
/// read (EISDIR).
FilePtr file_open(const std::string& path, const char* mode);

/// Whether a file can be had or made at `path`, to be known before slow work has run for nothing.
/// Nothing is left there that was not there before.
bool file_can_write(const std::string& path);

/// The stream's length in bytes; the stream's position is restored. -1 when the stream cannot seek.
long file_size(std::FILE* file);

/// Reads from the stream's position on until `bytes` is full or the stream ends. How many bytes
/// were read, or -1 when reading failed.
long file_read(std::FILE* file, std::span<std::uint8_t> bytes);

/// Reads exactly `length` bytes from the stream's position on. 0, or -1 when they cannot be read,
/// the stream ends before (FailureKind::Ended), or memory does (ENOMEM); `bytes` then holds what
/// there was. No more room is taken than the stream has bytes, a piece of it at a time, whatever
/// the length.
int file_read_bytes(std::FILE* file, std::uint64_t length, std::vector<std::uint8_t>& bytes);

/// Replaces the file at `path` by `content`: a temporary beside it, named ".NAME.kxnew", is
/// written, given the old file's owner and permissions, synced, and renamed over it; then the
/// directory is synced. So whoever opens the file finds the old content or the new one whole,
/// whatever fails. Two processes at once take turns by a lock on the temporary, the last wins; one
/// that a killed process left behind is used again. SIGINT, SIGTERM and SIGHUP wait until it is
/// done. Symbolic links are followed.
///
/// Where the temporary may not be made or may not take the file's place (EACCES, EPERM, EBUSY or
/// EXDEV: the directory is not ours, the file is a mount point or has another owner), the file is
/// written in place. That is not atomic: a full disc is still found out before anything is lost,
/// but not a failing disc, a kill or a power cut. A path that is no regular file (a device, a FIFO
/// that somebody reads) is written straight.
///
/// Returns 0, or -1 when the file may not be written or not all of it could be; prints nothing.
int file_replace(const std::string& path, std::span<const std::uint8_t> content);
int file_replace(const std::string& path, std::string_view content);

/// The same for a file that is not there yet: -1, with EEXIST, when there is one by the time that
/// the content is whole. So of two who create it one fails. `Later` leaves it to the system when
/// the content gets to the disc, which is faster: only a power cut could lose it then.
enum class FileSync { Now, Later };
int file_create(const std::string& path, std::span<const std::uint8_t> content,
                FileSync sync = FileSync::Now);

/// Where a content that is too large to be held comes from: fills `bytes` with what stands at
/// `offset`, from 0 on and in order, and from 0 again when the way of writing changes. False when
/// it cannot be had: the file is not replaced then.
using FileSource = std::function<bool(std::uint64_t offset, std::span<std::uint8_t> bytes)>;

/// The same with `size` bytes of the source, which is asked for a piece at a time and should be
/// quick to answer: the signals wait for it too.
int file_replace(const std::string& path, std::uint64_t size, const FileSource& source);

} // namespace kx
