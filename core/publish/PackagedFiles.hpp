#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/publish/StreamLayout.hpp"
#include "core/publish/SubtitleDocument.hpp"
#include "core/publish/SubtitleStream.hpp"

namespace vorlen {

// The files of a built folder, relative to it: chunk files, then manifests.
struct PackagedFiles {
    std::vector<std::string> media;
    std::vector<std::string> manifests;  // media playlists, then master.m3u8 and manifest.mpd
    bool operator==(const PackagedFiles&) const = default;
};

// Turns the packager's output into the folder as it will stand in the bucket:
// each stream folded into chunk files, its playlist rewritten to byte ranges,
// master.m3u8 copied, manifest.mpd rewritten. Streams are chunked one after
// another, so the disk holds the media at most twice.
PackagedFiles assemble(const std::vector<PackagedStream>& streams, const std::filesystem::path& packageDirectory,
                       const std::filesystem::path& publishDirectory, std::uint64_t maxChunkBytes);

// Writes each subtitle stream's <base>.vtt and <base>.m3u8 into an assembled folder
// and declares them in its master.m3u8 and manifest.mpd. The .vtt files join the
// media and the playlists join the manifests ahead of the master.
void addSubtitles(PackagedFiles& files, const std::filesystem::path& publishDirectory,
                  const std::vector<SubtitleStream>& streams, const std::vector<SubtitleDocument>& documents,
                  double durationSeconds);

}  // namespace vorlen
