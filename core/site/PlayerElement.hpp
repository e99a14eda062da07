#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vorlen {

// One element of the player's controls, as the lists of PlayerUISettings name it.
struct PlayerElement {
    // Where an element can stand: bits of `places`.
    struct Places {
        static constexpr std::int64_t controlBar = 1;
        static constexpr std::int64_t overflowMenu = 2;
        static constexpr std::int64_t bigButtons = 4;
    };

    std::string_view name;
    std::string_view label;
    std::int64_t places = 0;
    // False for an element that can do nothing for a Vorlen video (a playlist, VR). It
    // stays in the table so that a list written elsewhere keeps its meaning.
    bool appliesToVorlenVideos = true;

    bool operator==(const PlayerElement&) const = default;

    // Every element, in the order an editor offers them.
    static std::span<const PlayerElement> all();
    static std::optional<PlayerElement> named(std::string_view name);
    // The elements whose places hold every bit of `places`, in table order.
    static std::vector<PlayerElement> inPlace(std::int64_t places);
};

}  // namespace vorlen
