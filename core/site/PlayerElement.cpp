#include "core/site/PlayerElement.hpp"

#include <algorithm>
#include <array>

namespace vorlen {

namespace {

constexpr std::array<PlayerElement, 46> elements = {{
    {"play_pause", "Play and pause", 5, true},
    {"play_pause_buffering", "Play and pause, with buffering", 5, true},
    {"seek_backward", "Seek backward", 5, true},
    {"seek_forward", "Seek forward", 5, true},
    {"rewind", "Rewind", 5, true},
    {"fast_forward", "Fast forward", 5, true},
    {"mute_volume", "Mute and volume", 1, true},
    {"mute", "Mute", 7, true},
    {"volume", "Volume", 1, true},
    {"time_and_duration", "Time and duration", 1, true},
    {"spacer", "Flexible space", 1, true},
    {"remote", "AirPlay and remote playback", 7, true},
    {"overflow_menu", "Overflow menu", 1, true},
    {"fullscreen", "Full screen", 5, true},
    {"quality", "Quality", 3, true},
    {"language", "Audio", 3, true},
    {"playback_rate", "Playback speed", 3, true},
    {"picture_in_picture", "Picture in picture", 7, true},
    {"loop", "Loop", 7, true},
    {"statistics", "Statistics", 2, true},
    {"copy_video_frame", "Copy video frame", 2, true},
    {"save_video_frame", "Save video frame", 2, true},
    {"captions", "Subtitles", 3, true},
    {"captions-settings", "Subtitle settings", 3, true},
    {"content_title", "Video title", 1, false},
    {"skip_previous", "Previous video", 5, false},
    {"skip_previous_always", "Previous video, always shown", 5, false},
    {"skip_next", "Next video", 5, false},
    {"skip_next_always", "Next video, always shown", 5, false},
    {"queue", "Playlist", 3, false},
    {"autoplay", "Autoplay next video", 3, false},
    {"chapter", "Chapters", 3, false},
    {"captions-style", "Subtitle style", 3, false},
    {"captions-font-family", "Subtitle font", 3, false},
    {"captions-font-color", "Subtitle colour", 3, false},
    {"captions-font-opacity", "Subtitle opacity", 3, false},
    {"captions-size", "Subtitle size", 3, false},
    {"captions-background-color", "Subtitle background colour", 3, false},
    {"captions-background-opacity", "Subtitle background opacity", 3, false},
    {"captions-character-edge-style", "Subtitle edge style", 3, false},
    {"captions-position", "Subtitle position", 3, false},
    {"captions-style-reset", "Reset subtitle style", 2, false},
    {"video_type", "Video type", 3, false},
    {"recenter_vr", "Recentre VR view", 3, false},
    {"toggle_stereoscopic", "Stereoscopic view", 3, false},
    {"ad_statistics", "Ad statistics", 2, false},
}};

}  // namespace

std::span<const PlayerElement> PlayerElement::all() { return elements; }

std::optional<PlayerElement> PlayerElement::named(std::string_view name) {
    auto found = std::find_if(elements.begin(), elements.end(), [&](const PlayerElement& each) { return each.name == name; });
    if (found == elements.end()) return std::nullopt;
    return *found;
}

std::vector<PlayerElement> PlayerElement::inPlace(std::int64_t places) {
    std::vector<PlayerElement> out;
    std::copy_if(elements.begin(), elements.end(), std::back_inserter(out),
                 [&](const PlayerElement& each) { return (each.places & places) == places; });
    return out;
}

}  // namespace vorlen
