#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

enum class VideoVisibility { publicVideo, unlisted };

// "public" / "unlisted"
std::string rawValue(VideoVisibility visibility);
std::optional<VideoVisibility> videoVisibilityFromRawValue(std::string_view text);

// What a person says about a video. Always normalised: made only through the
// constructor, so a title read from a file is trimmed just as a typed one is.
class VideoDetails {
public:
    VideoDetails(std::string_view title, std::optional<std::string_view> reference,
                 std::optional<std::string_view> description, VideoVisibility visibility);

    const std::string& title() const { return title_; }
    const std::optional<std::string>& reference() const { return reference_; }
    const std::optional<std::string>& description() const { return description_; }
    VideoVisibility visibility() const { return visibility_; }

    bool operator==(const VideoDetails&) const = default;

private:
    std::string title_;
    std::optional<std::string> reference_;
    std::optional<std::string> description_;
    VideoVisibility visibility_;
};

}  // namespace vorlen
