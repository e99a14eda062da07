#pragma once

#include <string>
#include <vector>

#include "core/net/RequestBody.hpp"

namespace vorlen {

// Where a piece of a stream lies: a chunk file relative to the video's folder
// (such as "v_1080/001.mp4") and the bytes inside it.
struct ChunkRange {
    std::string file;
    ByteRange range;
    bool operator==(const ChunkRange&) const = default;
};

// Where one stream's bytes lie in its chunk files, in playing order.
struct StreamLayout {
    std::string directory;  // "v_1080", "a_stereo": the stream's directory and playlist stem
    ChunkRange initSegment;
    std::vector<ChunkRange> segments;

    // The chunk file names in order, each once.
    std::vector<std::string> files() const;

    bool operator==(const StreamLayout&) const = default;
};

// The packager's stream: its directory and playlist stem, "v_<rung>" or "a_<rendition>".
struct PackagedStream {
    std::string directoryName;
    bool operator==(const PackagedStream&) const = default;
};

}  // namespace vorlen
