#pragma once

#include <string>
#include <vector>

#include "core/storage/Bucket.hpp"

namespace vorlen {

// The content type and cache lifetime of a file of a video folder, from its path
// inside the folder ("v_1080/001.mp4", "master.m3u8"). Objects that change in
// place live briefly in caches; everything else is written once, immutable.
ObjectHeaders videoFolderHeaders(const std::string& relativePath);

// The order in which a video folder's files go up, as groups that each wait for
// the one before: media first, then posters, video.json, the media playlists,
// manifest.mpd, and master.m3u8 last, so that a player finds the master only
// once everything it names is there. Empty groups are left out.
std::vector<std::vector<std::string>> videoFolderBatches(const std::vector<std::string>& relativePaths);

}  // namespace vorlen
