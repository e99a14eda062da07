#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/publish/StreamLayout.hpp"

namespace vorlen {

// Folds a stream's many small segment files into a few large chunk files
// (001.mp4, 002.mp4, ...) so that the bucket holds few objects and players
// fetch segments by byte range.
namespace Chunker {

inline constexpr std::uint64_t maxChunkBytes = 268'435'456;  // 256 MiB
inline constexpr std::size_t copyBufferBytes = 1'048'576;

// One input file and where it lands.
struct Piece {
    std::filesystem::path source;
    ChunkRange range;
};

// The media segments 1.m4s .. n.m4s of a stream directory, in playing order.
// Throws a manifest VorlenError when there are none or the numbers have a gap.
std::vector<std::filesystem::path> segmentFiles(const std::filesystem::path& directory);

// Pure: the init segment opens chunk 1; a segment starts a new chunk when it
// would carry a non-empty chunk past maxChunkBytes. No segment is ever split.
StreamLayout layout(const std::string& directory, std::uint64_t initSize, const std::vector<std::uint64_t>& segmentSizes,
                    std::uint64_t maxChunkBytes);

// Reads <input>/<stream> (init.mp4 and the segments), writes <output>/<stream>/NNN.mp4.
StreamLayout chunk(const PackagedStream& stream, const std::filesystem::path& input,
                   const std::filesystem::path& output, std::uint64_t maxChunkBytes);

}  // namespace Chunker

}  // namespace vorlen
