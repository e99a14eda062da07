#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

// Each colour is CSS colour text; an absent one leaves the player's own colour in force.
struct SeekBarColors {
    std::optional<std::string> base;
    std::optional<std::string> buffered;
    std::optional<std::string> played;
    std::optional<std::string> adBreaks;
    std::optional<std::string> chapters;

    bool operator==(const SeekBarColors&) const = default;
    // The player's own colours: what a person sees before changing one, and what a reset gives back.
    static SeekBarColors defaults();
};

struct VolumeBarColors {
    std::optional<std::string> base;
    std::optional<std::string> level;

    bool operator==(const VolumeBarColors&) const = default;
};

// The colours of the controls around the video, which the pages' style sheet applies.
struct PlayerColors {
    std::optional<std::string> controls;
    std::optional<std::string> buttonBackground;
    std::optional<std::string> fade;
    std::optional<std::string> menuBackground;
    std::optional<std::string> menuText;

    bool operator==(const PlayerColors&) const = default;
    static PlayerColors defaults();
};

// Whether the pages put a colour into their style: a hex colour, a colour name, or
// rgb(), rgba(), hsl() or hsla() of plain numbers. Nothing else, since a colour
// stands inside the page and must not be able to end its style.
bool isPlayerColor(std::string_view text);

}  // namespace vorlen
