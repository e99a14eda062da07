#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/library/LibraryVideo.hpp"
#include "core/storage/S3Bucket.hpp"

namespace vorlen {

// What the cache keeps of one folder: enough to rebuild its LibraryVideo without
// a request while the listing shows the same ETag.
struct LibraryFolderRecord {
    struct MetadataCopy {
        std::string tag;   // the ETag of the copy, without quotes
        std::string data;  // the bytes of the video.json
        bool operator==(const MetadataCopy&) const = default;
    };
    std::string folder;
    bool isComplete = false;
    std::optional<MetadataCopy> metadata;
    bool operator==(const LibraryFolderRecord&) const = default;
};

// The file library-videos.json.
struct StoredLibraryList {
    static constexpr std::int64_t version = 1;
    std::string accountID;
    std::string bucket;
    std::string prefix;
    std::vector<LibraryFolderRecord> folders;  // in folder-name order

    std::string encoded() const;
    // Absent for anything this version does not read as its own.
    static std::optional<StoredLibraryList> decoded(std::string_view text);
    bool isFor(const BucketLocation& location, const std::string& prefix) const;
    bool operator==(const StoredLibraryList&) const = default;
};

// Decodes a cached or fetched video.json: a record that does not decode is unreadable, never a failure.
LibraryVideo::MetadataFile metadataFileFrom(std::string_view data);

// This computer's copy of a site's library and its poster thumbnails: a cache
// that may vanish at any time. Shared by the readers of one site.
class LibraryCache : public std::enable_shared_from_this<LibraryCache> {
public:
    // A thumbnail being built: it lands only if no clear() came in between.
    class ThumbnailSlot {
    public:
        const std::filesystem::path& file() const { return file_; }
        // True when the file was written.
        bool store(std::string_view data) const;

    private:
        friend class LibraryCache;
        ThumbnailSlot(std::shared_ptr<LibraryCache> cache, std::filesystem::path file, std::int64_t generation)
            : cache_(std::move(cache)), file_(std::move(file)), generation_(generation) {}
        std::shared_ptr<LibraryCache> cache_;
        std::filesystem::path file_;
        std::int64_t generation_;
    };

    // Either may be absent: a cache without a file keeps its list in memory only.
    static std::shared_ptr<LibraryCache> make(std::optional<std::filesystem::path> file,
                                              std::optional<std::filesystem::path> thumbnailFolder);
    // library-videos.json and poster-thumbnails inside a site's cache folder.
    static std::shared_ptr<LibraryCache> inFolder(const std::filesystem::path& folder);

    // The stored list when it belongs to this bucket and prefix.
    std::optional<StoredLibraryList> list(const BucketLocation& location, const std::string& prefix);
    // Raised by every clear().
    std::int64_t generation() const;
    // Best-effort: a file that cannot be written keeps the list in memory. A
    // reading that began before a clear() (generation older) stores nothing.
    void store(StoredLibraryList list, std::int64_t readingGeneration);
    // The videos of the stored list in its order, without the network.
    std::optional<std::vector<LibraryVideo>> cachedVideos(const BucketLocation& location, const std::string& prefix);
    // Removes the file and the thumbnails; a thumbnail being built no longer lands.
    void clear();

    // The thumbnail of a poster when one was built.
    std::optional<std::filesystem::path> thumbnail(const BucketLocation& location, const std::string& posterKey) const;
    // Absent when the cache has no thumbnail folder.
    std::optional<ThumbnailSlot> thumbnailSlot(const BucketLocation& location, const std::string& posterKey);

private:
    LibraryCache(std::optional<std::filesystem::path> file, std::optional<std::filesystem::path> thumbnailFolder)
        : file_(std::move(file)), thumbnailFolder_(std::move(thumbnailFolder)) {}
    void loadLocked();
    // Writes the file unless a clear() came after `generation` was taken; true when it did.
    bool writeIfCurrent(const std::filesystem::path& file, std::string_view data, std::int64_t generation);
    std::optional<std::filesystem::path> thumbnailPath(const BucketLocation& location, const std::string& posterKey) const;

    const std::optional<std::filesystem::path> file_;
    const std::optional<std::filesystem::path> thumbnailFolder_;
    mutable std::mutex mutex_;
    bool isLoaded_ = false;
    std::optional<StoredLibraryList> list_;
    std::int64_t generation_ = 0;
};

}  // namespace vorlen
