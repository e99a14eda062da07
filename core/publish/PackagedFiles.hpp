#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/publish/StreamLayout.hpp"

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

}  // namespace vorlen
