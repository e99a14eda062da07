#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/library/LibraryVideo.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/storage/Bucket.hpp"

// The object work that the changes of a published video share.
namespace vorlen::FolderObjects {

inline constexpr const char* recordFile = "video.json";
inline constexpr const char* switchFile = "master.m3u8";
inline constexpr const char* dashFile = "manifest.mpd";

bool isPlaylist(std::string_view file);

// The keys under a prefix, relative to it.
std::vector<std::string> filesOf(Bucket& bucket, const std::string& prefix);

// Files in the stages of their deletion: the switch, the other playlists,
// everything else but the record, the record.
std::vector<std::vector<std::string>> deletionStages(const std::vector<std::string>& files);

// Deletes stage after stage; refusals of a stage end it with notDeleted, and
// the later stages wait, so what makes a video playable is gone before the rest goes.
void deleteStages(Bucket& bucket, const std::string& prefix, const std::vector<std::vector<std::string>>& stages,
                  const RetryPolicy& retry);

// A conditional write under the retry rule; gives the new ETag as the server
// sent it. After a lost answer an earlier attempt may have landed: a conflict
// then meets these very bytes, and that counts as this write.
std::optional<std::string> writeConditionally(Bucket& bucket, const std::string& key, const std::string& body,
                                              const ObjectHeaders& headers, const WriteCondition& condition,
                                              const RetryPolicy& retry);

// Writes a record and gives its new ETag without quotes. The condition makes a
// change of a record that another computer changed meanwhile a conflict.
std::optional<std::string> writeRecord(Bucket& bucket, const std::string& folderPrefix, const VideoMetadata& record,
                                       const RetryPolicy& retry, const WriteCondition& condition);

// Over the record as it was read, or where there was none.
WriteCondition overRecordOf(const LibraryVideo& video);

// The details of a video's record; empty ones for a folder without a record.
VideoDetails detailsOf(const LibraryVideo& video);

}  // namespace vorlen::FolderObjects
