#include "core/base/Files.hpp"

#include <algorithm>
#include <utility>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>

#include "core/base/Random.hpp"

namespace vorlen {

void throwErrno(const std::string& what, const fs::path& path) {
    throw fs::filesystem_error(what, path, std::error_code(errno, std::generic_category()));
}

FileHandle::FileHandle(const fs::path& path, int flags, unsigned mode)
    : path_(path), fd_(::open(path.c_str(), flags | O_CLOEXEC, static_cast<mode_t>(mode))) {
    if (fd_ < 0) throwErrno("cannot open", path);
}

FileHandle::~FileHandle() { reset(); }

FileHandle::FileHandle(FileHandle&& other) noexcept : path_(std::move(other.path_)), fd_(std::exchange(other.fd_, -1)) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        reset();
        path_ = std::move(other.path_);
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

void FileHandle::reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void FileHandle::close() {
    int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) throwErrno("cannot close", path_);
}

void writeAll(int fd, std::string_view bytes, const fs::path& path) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            throwErrno("cannot write", path);
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void writeFileAtomically(const fs::path& path, std::string_view bytes, unsigned mode) {
    fs::path folder = path.parent_path().empty() ? fs::path(".") : path.parent_path();
    fs::path temporary = folder / ("." + path.filename().string() + "." + randomString(12, "abcdefghijklmnopqrstuvwxyz0123456789") + ".tmp");
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, static_cast<mode_t>(mode));
    if (fd < 0) throwErrno("cannot create", temporary);
    try {
        writeAll(fd, bytes, temporary);
    } catch (...) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw;
    }
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        throwErrno("cannot flush", temporary);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        throwErrno("cannot rename", path);
    }
    // The rename itself lives in the folder's entry.
    int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throwErrno("cannot open", path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<fs::path> walkVisibleFiles(const fs::path& root) {
    std::vector<fs::path> files;
    // Folder by folder, so that a failure names the folder that could not be read.
    std::vector<fs::path> folders{root};
    while (!folders.empty()) {
        const fs::path folder = std::move(folders.back());
        folders.pop_back();
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
            if (it->path().filename().string().starts_with(".")) continue;
            // A linked folder is not followed: a link to a folder above would never end.
            if (it->is_directory() && !it->is_symlink())
                folders.push_back(it->path());
            else if (it->is_regular_file())
                files.push_back(it->path());
        }
        if (error) throw fs::filesystem_error("cannot read the folder", folder, error);
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::uint64_t availableSpace(const fs::path& path) {
    struct statvfs info {};
    if (::statvfs(path.c_str(), &info) != 0) throwErrno("cannot read the free space of", path);
    return static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
}

fs::path makeUniqueDirectory(const fs::path& parent, std::string_view prefix) {
    fs::create_directories(parent);
    for (;;) {
        fs::path candidate = parent / (std::string(prefix) + randomString(10, "abcdefghijklmnopqrstuvwxyz0123456789"));
        if (::mkdir(candidate.c_str(), 0700) == 0) return candidate;
        if (errno != EEXIST) throwErrno("cannot create", candidate);
    }
}

DirectoryRemover::~DirectoryRemover() {
    if (path_.empty()) return;
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

}  // namespace vorlen
