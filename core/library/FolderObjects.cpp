#include "core/library/FolderObjects.hpp"

#include <algorithm>

#include "core/base/VorlenError.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen::FolderObjects {

namespace {
constexpr std::size_t deleteGroupSize = 1000;
}

bool isPlaylist(std::string_view file) { return file.ends_with(".m3u8") || file.ends_with(".mpd"); }

std::vector<std::string> filesOf(Bucket& bucket, const std::string& prefix) {
    auto keys = bucket.listKeys(prefix);
    for (auto& key : keys) key.erase(0, prefix.size());
    return keys;
}

std::vector<std::vector<std::string>> deletionStages(const std::vector<std::string>& files) {
    std::vector<std::vector<std::string>> stages(4);
    for (const auto& file : files) {
        if (file == switchFile) stages[0].push_back(file);
        else if (isPlaylist(file)) stages[1].push_back(file);
        else if (file == recordFile) stages[3].push_back(file);
        else stages[2].push_back(file);
    }
    return stages;
}

void deleteStages(Bucket& bucket, const std::string& prefix, const std::vector<std::vector<std::string>>& stages,
                  const RetryPolicy& retry) {
    for (const auto& stage : stages) {
        std::vector<DeleteFailure> failures;
        for (std::size_t start = 0; start < stage.size(); start += deleteGroupSize) {
            std::vector<std::string> group;
            for (auto index = start; index < std::min(stage.size(), start + deleteGroupSize); ++index)
                group.push_back(prefix + stage[index]);
            auto refused = retry.run([&](std::int64_t) { return bucket.deleteObjects(group); });
            failures.insert(failures.end(), refused.begin(), refused.end());
        }
        if (!failures.empty()) throw VorlenError::notDeleted(std::move(failures));
    }
}

std::optional<std::string> writeConditionally(Bucket& bucket, const std::string& key, const std::string& body,
                                              const ObjectHeaders& headers, const WriteCondition& condition,
                                              const RetryPolicy& retry) {
    return retry.run([&](std::int64_t attempt) -> std::optional<std::string> {
        try {
            return bucket.put(key, RequestBody::bytes(body), headers, condition);
        } catch (const VorlenError& error) {
            if (attempt == 1 || !error.is<failure::Conflict>()) throw;
            const auto current = bucket.taggedObject(key);
            if (!current || current->data != body) throw;
            return current->etag;
        }
    });
}

std::optional<std::string> writeRecord(Bucket& bucket, const std::string& folderPrefix, const VideoMetadata& record,
                                       const RetryPolicy& retry, const WriteCondition& condition) {
    auto etag = writeConditionally(bucket, folderPrefix + recordFile, record.encoded(), videoFolderHeaders(recordFile),
                                   condition, retry);
    return etag ? std::optional(unquotedETag(*etag)) : std::nullopt;
}

WriteCondition overRecordOf(const LibraryVideo& video) {
    return video.metadataTag ? WriteCondition::unchanged("\"" + *video.metadataTag + "\"") : WriteCondition::absent();
}

VideoDetails detailsOf(const LibraryVideo& video) {
    if (const auto* metadata = video.metadata()) return metadata->details;
    return VideoDetails("", std::nullopt, std::nullopt, VideoVisibility::publicVideo);
}

}  // namespace vorlen::FolderObjects
