#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <variant>

#include "core/publish/Poster.hpp"

namespace vorlen {

// What a build offers for review: the chosen poster or why there is none, and
// the rendition to read other frames from.
struct PosterProposal {
    std::variant<Poster, std::exception_ptr> selection;
    std::filesystem::path video;
    double duration = 0;
    PixelSize maximumSize;  // the largest poster that an image file may give

    // The standard width for the top rendition's height, by that height.
    static PixelSize maximumSizeFor(std::int64_t height) {
        std::int64_t width = 640;
        switch (height) {
            case 480: width = 854; break;
            case 720: width = 1280; break;
            case 1080: width = 1920; break;
            case 2160: width = 3840; break;
            default: break;
        }
        return {width, height};
    }
};

// Lets someone change the proposed poster; returns the poster to publish, or none.
using PosterReview = std::function<std::optional<Poster>(const PosterProposal&)>;

}  // namespace vorlen
