#pragma once

#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "core/publish/Poster.hpp"
#include "core/publish/PosterFrameScorer.hpp"
#include "core/publish/Tools.hpp"

// libvips' image, named here without libvips' headers, which stay inside this library.
namespace vips {
class VImage;
}

namespace vorlen {

// Reads exact frames of a video with ffmpeg: an accurate seek to each time,
// decoded to that frame, turned upright by the video's rotation.
class FrameReader {
public:
    struct Frame {
        double time = 0;
        std::shared_ptr<const vips::VImage> image;  // absent when the frame could not be read
        std::exception_ptr error;
    };

    explicit FrameReader(Tools tools) : tools_(std::move(tools)) {}

    // All frames in one ffmpeg run; with maxSide > 0 each is scaled down to fit
    // in a square of that side. Fails only on cancellation.
    std::vector<Frame> frames(const std::filesystem::path& video, const std::vector<double>& times, int maxSide = 0) const;

    // One frame at full size as a poster.
    Poster frame(const std::filesystem::path& video, double at) const;
    // One frame of a short HLS playlist (a single segment of a published video),
    // `offset` seconds into it: decoded from its start, since ffmpeg cannot seek
    // in fragmented MP4. Its media may be files or https addresses.
    Poster frameOfSegment(const std::filesystem::path& playlist, double offset, double at) const;

    // Samples the video, chooses the best frame and reads it again at full size.
    Poster chooseFrame(const std::filesystem::path& video, double duration,
                       const std::shared_ptr<PosterFrameScorer>& scorer) const;

    // ffmpeg's -ss value for a time: whole nanoseconds rounded up. Fails with
    // "<t> s is not a valid frame time." for a time outside the video's clock.
    static std::string seekArgument(double time);

private:
    Tools tools_;
};

}  // namespace vorlen
