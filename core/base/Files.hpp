#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlen {

namespace fs = std::filesystem;

// Writes through a temporary file in the same folder, flushed to disk, then
// renamed over the target: a reader sees the old file or the new one, never half.
// The file has `mode` from its first byte on (0600 for a file of secrets).
void writeFileAtomically(const fs::path& path, std::string_view bytes, unsigned mode = 0644);

std::string readFile(const fs::path& path);

// Regular files under root, in sorted order, skipping hidden files and folders.
// A folder that cannot be read throws a filesystem_error whose path1 is that folder.
std::vector<fs::path> walkVisibleFiles(const fs::path& root);

// Bytes free for an ordinary user on the volume that holds path.
std::uint64_t availableSpace(const fs::path& path);

// A new empty folder under parent with a unique name starting with prefix.
fs::path makeUniqueDirectory(const fs::path& parent, std::string_view prefix);

// Throws the file system error of errno for path.
[[noreturn]] void throwErrno(const std::string& what, const fs::path& path);

// Writes all of bytes to fd, through short writes and interruptions; a failure names path.
void writeAll(int fd, std::string_view bytes, const fs::path& path);

// An open file descriptor that closes itself; close() reports a failed close of a written file.
class FileHandle {
public:
    FileHandle(const fs::path& path, int flags, unsigned mode = 0644);
    // Owns a descriptor opened elsewhere (a pipe's end, a pidfd); -1 owns nothing.
    explicit FileHandle(int fd = -1) : fd_(fd) {}
    ~FileHandle();
    FileHandle(FileHandle&& other) noexcept;
    FileHandle& operator=(FileHandle&& other) noexcept;

    int fd() const { return fd_; }
    void close();
    // Closes the descriptor now, without a word of failure (a pipe's end handed to a child).
    void reset();

private:
    fs::path path_;
    int fd_;
};

// Removes a folder when it goes out of scope, unless released.
class DirectoryRemover {
public:
    explicit DirectoryRemover(fs::path path) : path_(std::move(path)) {}
    ~DirectoryRemover();
    DirectoryRemover(const DirectoryRemover&) = delete;
    DirectoryRemover& operator=(const DirectoryRemover&) = delete;
    void release() { path_.clear(); }

private:
    fs::path path_;
};

}  // namespace vorlen
