#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/site/PlayerColors.hpp"

namespace vorlen {

// The options of the player's controls. Every field may be absent, and an absent one
// leaves the player's own default in force: the player's defaults depend on the
// viewer's device, and a stored value would apply on every device.
struct PlayerUISettings {
    // Lists of element names (PlayerElement); a name the table lacks stays in its list.
    std::optional<std::vector<std::string>> controlPanelElements;
    std::optional<std::vector<std::string>> topControlPanelElements;
    std::optional<std::vector<std::string>> overflowMenuButtons;
    std::optional<std::vector<std::string>> contextMenuElements;
    std::optional<std::vector<std::string>> bigButtons;

    std::optional<std::vector<double>> playbackRates;
    std::optional<std::vector<double>> fastForwardRates;
    std::optional<std::vector<double>> rewindRates;

    std::optional<SeekBarColors> seekBarColors;
    std::optional<VolumeBarColors> volumeBarColors;

    std::optional<bool> addSeekBar;
    std::optional<bool> customContextMenu;
    std::optional<bool> doubleClickForFullscreen;
    std::optional<bool> singleClickForPlayAndPause;
    std::optional<bool> enableKeyboardPlaybackControls;
    std::optional<bool> enableFullscreenOnRotation;
    std::optional<bool> forceLandscapeOnFullscreen;
    std::optional<bool> enableTooltips;
    std::optional<bool> seekOnTaps;
    std::optional<bool> alwaysShowVolumeBar;
    std::optional<bool> showUnbufferedStart;
    std::optional<bool> showRemainingTimeInPresentationTime;
    std::optional<bool> showUIOnPaused;
    std::optional<bool> showBufferingSpinner;

    // Seconds.
    std::optional<double> fadeDelay;
    std::optional<double> closeMenusDelay;
    std::optional<double> keyboardSeekDistance;
    std::optional<double> keyboardLargeSeekDistance;
    std::optional<double> tapSeekDistance;
    std::optional<double> seekButtonDistance;

    bool operator==(const PlayerUISettings&) const = default;

    // The lists of the desktop player, which an editor of the lists starts from; all else absent.
    static PlayerUISettings desktopDefaults();
};

}  // namespace vorlen
