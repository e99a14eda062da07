#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/publish/Poster.hpp"
#include "core/publish/VideoMetadata.hpp"

namespace vorlen {

// What a build made, relative to its publish folder.
struct Built {
    std::vector<std::string> media;
    std::optional<Poster> poster;
    std::exception_ptr posterSelectionError;  // why no poster was chosen, when one was tried
    VideoMetadata metadata;
    std::vector<std::string> manifests;
};

// What an upload left in a bucket when its clean-up could not finish.
struct UploadLeftovers {
    std::string bucketIdentity;
    std::string folderPrefix;
    std::string folder;
    // The ETag of the video.json that the upload left, with which a retry takes the
    // folder back; absent when it is gone or could not be read.
    std::optional<std::string> placeholderETag;
};

struct WorkDirectory {
    std::filesystem::path url;
};

// A finished folder on disk. It owns its work directory and removes it when the
// last holder lets go, so a cancelled or abandoned job leaves nothing behind.
class BuiltFolder {
public:
    BuiltFolder(Built built, std::filesystem::path directory, std::uint64_t byteCount, WorkDirectory work)
        : built_(std::move(built)), directory_(std::move(directory)), byteCount_(byteCount), work_(std::move(work)) {}
    ~BuiltFolder();
    BuiltFolder(const BuiltFolder&) = delete;
    BuiltFolder& operator=(const BuiltFolder&) = delete;

    const Built& built() const { return built_; }
    // The publish folder: the video folder as it will stand in the bucket.
    const std::filesystem::path& directory() const { return directory_; }
    std::uint64_t byteCount() const { return byteCount_; }
    const WorkDirectory& work() const { return work_; }

    // Media, then the poster files, then video.json, then the manifests.
    std::vector<std::string> allFiles() const;

    std::optional<UploadLeftovers> leftovers() const {
        std::lock_guard lock(mutex_);
        return leftovers_;
    }
    void setLeftovers(std::optional<UploadLeftovers> leftovers) {
        std::lock_guard lock(mutex_);
        leftovers_ = std::move(leftovers);
    }

private:
    Built built_;
    std::filesystem::path directory_;
    std::uint64_t byteCount_;
    WorkDirectory work_;
    mutable std::mutex mutex_;
    std::optional<UploadLeftovers> leftovers_;
};

}  // namespace vorlen
