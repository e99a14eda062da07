#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "core/publish/VideoMetadata.hpp"

// libvips' image, named here without libvips' headers, which stay inside this library.
namespace vips {
class VImage;
}

namespace vorlen {

// A poster: JPEG bytes under a name made from their content.
struct Poster {
    std::string jpeg;
    std::string name;
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::optional<double> time;  // seconds in the video; an image file has none

    PixelSize size() const { return {width, height}; }
};

// "poster-" and the first 8 hex digits of the JPEG's SHA-256, then ".jpg".
std::string posterName(std::string_view jpeg);
bool isValidPosterName(std::string_view name);

// Encodes a picture as the poster JPEG: sRGB, 8 bits, transparency flattened
// onto white, quality 85.
Poster makePoster(const vips::VImage& image, std::optional<double> time);

// The pixel size of bytes that must be a JPEG; fails with "The poster is not a JPEG image."
PixelSize checkPosterJpeg(std::string_view jpeg);

// A poster from an image file, upright by its EXIF orientation and no larger
// than maximumSize.
Poster posterFromImage(const std::filesystem::path& file, PixelSize maximumSize);

// A smaller poster of the same picture, whose longer side is at most maxPixelSize.
Poster thumbnail(std::string_view jpeg, int maxPixelSize, std::optional<double> time = std::nullopt);

}  // namespace vorlen
