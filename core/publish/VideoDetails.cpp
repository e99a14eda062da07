#include "core/publish/VideoDetails.hpp"

#include "core/base/Text.hpp"

namespace vorlen {

namespace {

std::optional<std::string> nonEmpty(std::string text) {
    if (text.empty()) return std::nullopt;
    return text;
}

// CR LF and lone CR both become LF, so text pasted from anywhere reads the same.
std::string unifiedLineEnds(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            result += '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
        } else {
            result += text[i];
        }
    }
    return result;
}

}  // namespace

std::string rawValue(VideoVisibility visibility) {
    return visibility == VideoVisibility::unlisted ? "unlisted" : "public";
}

std::optional<VideoVisibility> videoVisibilityFromRawValue(std::string_view text) {
    if (text == "public") return VideoVisibility::publicVideo;
    if (text == "unlisted") return VideoVisibility::unlisted;
    return std::nullopt;
}

VideoDetails::VideoDetails(std::string_view title, std::optional<std::string_view> reference,
                           std::optional<std::string_view> description, VideoVisibility visibility)
    : title_(trimmed(title)), visibility_(visibility) {
    if (reference) reference_ = nonEmpty(trimmed(*reference));
    if (description) description_ = nonEmpty(trimmed(unifiedLineEnds(*description)));
}

}  // namespace vorlen
