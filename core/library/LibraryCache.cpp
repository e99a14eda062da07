#include "core/library/LibraryCache.hpp"

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/base/Random.hpp"

namespace vorlen {

std::string StoredLibraryList::encoded() const {
    Json records = Json::array();
    for (const auto& record : folders) {
        Json entry{{"folder", record.folder}, {"isComplete", record.isComplete}};
        if (record.metadata) entry["metadata"] = {{"tag", record.metadata->tag}, {"data", base64(record.metadata->data)}};
        records.push_back(std::move(entry));
    }
    return encodeJson(Json{{"version", version}, {"accountID", accountID}, {"bucket", bucket}, {"prefix", prefix},
                           {"folders", std::move(records)}});
}

std::optional<StoredLibraryList> StoredLibraryList::decoded(std::string_view text) {
    try {
        const auto json = decodeJson(text);
        if (json.at("version").get<std::int64_t>() != version) return std::nullopt;
        StoredLibraryList list;
        list.accountID = json.at("accountID").get<std::string>();
        list.bucket = json.at("bucket").get<std::string>();
        list.prefix = json.at("prefix").get<std::string>();
        for (const auto& entry : json.at("folders")) {
            LibraryFolderRecord record{entry.at("folder").get<std::string>(), entry.at("isComplete").get<bool>(), {}};
            if (const auto metadata = entry.find("metadata"); metadata != entry.end()) {
                auto data = base64Decode(metadata->at("data").get<std::string>());
                if (!data) return std::nullopt;
                record.metadata = LibraryFolderRecord::MetadataCopy{metadata->at("tag").get<std::string>(), std::move(*data)};
            }
            list.folders.push_back(std::move(record));
        }
        return list;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool StoredLibraryList::isFor(const BucketLocation& location, const std::string& sitePrefix) const {
    return accountID == location.accountID && bucket == location.bucket && prefix == sitePrefix;
}

LibraryVideo::MetadataFile metadataFileFrom(std::string_view data) {
    try {
        return LibraryVideo::Valid{VideoMetadata::decoded(data)};
    } catch (const std::exception& error) {
        return LibraryVideo::Unreadable{error.what()};
    }
}

std::shared_ptr<LibraryCache> LibraryCache::make(std::optional<std::filesystem::path> file,
                                                 std::optional<std::filesystem::path> thumbnailFolder) {
    return std::shared_ptr<LibraryCache>(new LibraryCache(std::move(file), std::move(thumbnailFolder)));
}

std::shared_ptr<LibraryCache> LibraryCache::inFolder(const std::filesystem::path& folder) {
    return make(folder / "library-videos.json", folder / "poster-thumbnails");
}

void LibraryCache::loadLocked() {
    if (isLoaded_) return;
    isLoaded_ = true;
    if (!file_) return;
    try {
        list_ = StoredLibraryList::decoded(readFile(*file_));
    } catch (const std::exception&) {
        list_.reset();  // a cache that cannot be read is an empty one
    }
}

std::optional<StoredLibraryList> LibraryCache::list(const BucketLocation& location, const std::string& prefix) {
    std::lock_guard lock(mutex_);
    loadLocked();
    if (!list_ || !list_->isFor(location, prefix)) return std::nullopt;
    return list_;
}

std::int64_t LibraryCache::generation() const {
    std::lock_guard lock(mutex_);
    return generation_;
}

void LibraryCache::store(StoredLibraryList list, std::int64_t readingGeneration) {
    const auto text = list.encoded();
    {
        std::lock_guard lock(mutex_);
        if (readingGeneration != generation_) return;
        isLoaded_ = true;
        list_ = std::move(list);
    }
    // A file that cannot be written leaves the list in memory; the next reading fetches what it must.
    if (file_) writeIfCurrent(*file_, text, readingGeneration);
}

bool LibraryCache::writeIfCurrent(const std::filesystem::path& file, std::string_view data, std::int64_t generation) {
    // Written beside its place first; only the rename, under the lock, depends on the generation.
    const auto staging = file.parent_path() / ("." + file.filename().string() + "." + randomString(12, "0123456789abcdef"));
    try {
        std::filesystem::create_directories(file.parent_path());
        writeFileAtomically(staging, data);
        std::lock_guard lock(mutex_);
        if (generation == generation_) {
            std::filesystem::rename(staging, file);
            return true;
        }
    } catch (const std::exception&) {
    }
    std::error_code ignored;
    std::filesystem::remove(staging, ignored);
    return false;
}

std::optional<std::vector<LibraryVideo>> LibraryCache::cachedVideos(const BucketLocation& location, const std::string& prefix) {
    const auto stored = list(location, prefix);
    if (!stored) return std::nullopt;
    std::vector<LibraryVideo> videos;
    videos.reserve(stored->folders.size());
    for (const auto& record : stored->folders) {
        videos.push_back({record.folder, prefix + record.folder + "/",
                          record.metadata ? metadataFileFrom(record.metadata->data) : LibraryVideo::Missing{},
                          record.isComplete, record.metadata ? std::optional(record.metadata->tag) : std::nullopt});
    }
    return videos;
}

void LibraryCache::clear() {
    {
        std::lock_guard lock(mutex_);
        ++generation_;
        isLoaded_ = true;
        list_.reset();
    }
    std::error_code ignored;
    if (file_) std::filesystem::remove(*file_, ignored);
    if (thumbnailFolder_) std::filesystem::remove_all(*thumbnailFolder_, ignored);
}

std::optional<std::filesystem::path> LibraryCache::thumbnailPath(const BucketLocation& location,
                                                                 const std::string& posterKey) const {
    if (!thumbnailFolder_) return std::nullopt;
    return *thumbnailFolder_ / sha256Hex(location.accountID + "/" + location.bucket + "/" + posterKey);
}

std::optional<std::filesystem::path> LibraryCache::thumbnail(const BucketLocation& location, const std::string& posterKey) const {
    auto path = thumbnailPath(location, posterKey);
    std::error_code error;
    if (!path || !std::filesystem::is_regular_file(*path, error)) return std::nullopt;
    return path;
}

std::optional<LibraryCache::ThumbnailSlot> LibraryCache::thumbnailSlot(const BucketLocation& location,
                                                                       const std::string& posterKey) {
    auto path = thumbnailPath(location, posterKey);
    if (!path) return std::nullopt;
    std::lock_guard lock(mutex_);
    return ThumbnailSlot(shared_from_this(), std::move(*path), generation_);
}

bool LibraryCache::ThumbnailSlot::store(std::string_view data) const {
    return cache_->writeIfCurrent(file_, data, generation_);
}

}  // namespace vorlen
