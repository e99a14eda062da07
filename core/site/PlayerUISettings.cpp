#include "core/site/PlayerUISettings.hpp"

namespace vorlen {

// The default control bar holds elements that do nothing for a Vorlen video (skip_previous,
// queue): it is the player's own list, kept in its order.
PlayerUISettings PlayerUISettings::desktopDefaults() {
    PlayerUISettings ui;
    ui.controlPanelElements = {{"play_pause", "skip_previous", "skip_next", "mute_volume", "time_and_duration", "spacer",
                                "queue", "autoplay", "captions", "overflow_menu", "fullscreen"}};
    ui.overflowMenuButtons = {{"captions-settings", "quality", "video_type", "language", "chapter", "picture_in_picture",
                               "playback_rate", "recenter_vr", "toggle_stereoscopic"}};
    ui.bigButtons = std::vector<std::string>{};
    ui.playbackRates = {{1, 1.25, 1.5, 2, 3}};
    return ui;
}

}  // namespace vorlen
