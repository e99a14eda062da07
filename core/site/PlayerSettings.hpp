#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/Json.hpp"
#include "core/site/PlayerUISettings.hpp"

namespace vorlen {

class Bucket;

enum class PlayerValueKind { boolean, number, numbers, names, color };

// One value of the file, named by its path of JSON keys ("ui.seekBarColors.played").
struct PlayerSettingKey {
    std::string path;
    PlayerValueKind kind = PlayerValueKind::boolean;
};

// The player's options of a site, kept in "_vorlen/player.json", which the page Worker
// hands to the player. The file records only what the person changed.
struct PlayerSettings {
    static constexpr int formatVersion = 1;

    bool autoplay = false;
    bool muted = false;
    bool loop = false;
    PlayerUISettings ui;
    std::optional<PlayerColors> colors;

    bool operator==(const PlayerSettings&) const = default;

    // Every value the file can hold, in the order of the file.
    static const std::vector<PlayerSettingKey>& keys();

    // Each value is read by its key, and one of the wrong type fails as a `metadata`
    // failure that names it; keys this version does not know are dropped.
    static PlayerSettings fromJson(const Json& json);
    static PlayerSettings decoded(std::string_view text);
    // Absent values and empty colour groups left out.
    Json toJson() const;
    // Pretty, with "version" first.
    std::string encoded() const;

    struct Stored;
    // The defaults, with no ETag, when the bucket has no file.
    static Stored read(Bucket& bucket);
    // Only over the version that was read (or where there was none): a file that another
    // computer changed in between fails as a conflict and stays as it is. Never cached,
    // so that the pages use the saved settings on their next load.
    void write(Bucket& bucket, const std::optional<std::string>& readETag) const;
};

struct PlayerSettings::Stored {
    PlayerSettings settings;
    std::optional<std::string> etag;
};

}  // namespace vorlen
