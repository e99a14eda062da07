#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/base/Dates.hpp"
#include "core/vimeo/VimeoVideo.hpp"

namespace vorlen {

// The last list of an account read on this computer, so that the sync screen
// opens without reading thousands of videos again. It keeps only what the
// screen shows, and serves only the token that read it.
struct VimeoStoredList {
    VimeoAccount account;  // without its link
    SystemTime readAt;
    std::vector<VimeoVideo> videos;  // without descriptions, links, sizes, pictures or download sizes
    bool operator==(const VimeoStoredList&) const = default;
};

class VimeoVideoListStore {
public:
    static constexpr std::int64_t version = 1;
    static constexpr const char* fileName = "vimeo-videos.json";

    explicit VimeoVideoListStore(std::filesystem::path folder) : file_(std::move(folder) / fileName) {}

    void save(const std::string& token, const VimeoStoredList& list) const;
    // Absent when there is no list, it cannot be read, comes from another
    // version, or another token read it: it is only a cache.
    std::optional<VimeoStoredList> load(const std::string& token) const;
    void clear() const;

private:
    std::filesystem::path file_;
};

}  // namespace vorlen
