#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "core/publish/VideoMetadata.hpp"

namespace vorlen {

// One video folder of a site as a reading of the bucket found it.
struct LibraryVideo {
    struct Valid {
        VideoMetadata metadata;
        bool operator==(const Valid&) const = default;
    };
    // A record that could not be read, with the failure's words.
    struct Unreadable {
        std::string reason;
        bool operator==(const Unreadable&) const = default;
    };
    // A folder without video.json (the first version of Vorlen wrote none).
    struct Missing {
        bool operator==(const Missing&) const = default;
    };
    using MetadataFile = std::variant<Valid, Unreadable, Missing>;

    std::string folder;
    std::string prefix;  // the folder's full key prefix, ending with "/"
    MetadataFile metadataFile = Missing{};
    bool isComplete = false;  // master.m3u8 exists
    // The ETag of the record as read, without quotes: a change writes only over that record.
    std::optional<std::string> metadataTag;

    const VideoMetadata* metadata() const {
        const auto* valid = std::get_if<Valid>(&metadataFile);
        return valid ? &valid->metadata : nullptr;
    }
    bool isUnreadable() const { return std::holds_alternative<Unreadable>(metadataFile); }

    bool operator==(const LibraryVideo&) const = default;
};

struct LibraryReadProgress {
    struct Listing {
        std::int64_t folders = 0;  // found so far
    };
    struct Reading {
        std::int64_t read = 0;
        std::int64_t total = 0;
    };
    std::variant<Listing, Reading> value;
};

}  // namespace vorlen
