#pragma once

#include <cstdint>

namespace vorlen {

// A picture's width and height in pixels.
struct PixelSize {
    std::int64_t width = 0;
    std::int64_t height = 0;
    bool operator==(const PixelSize&) const = default;
};

}  // namespace vorlen
