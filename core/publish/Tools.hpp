#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vorlen {

// The three media programs, found once and passed to everything that runs them.
struct Tools {
    std::filesystem::path ffmpeg;
    std::filesystem::path ffprobe;
    std::filesystem::path packager;

    // Searches the helpers folder, then PATH, /opt/homebrew/bin and /usr/local/bin.
    // Fails with "cannot find <names>".
    static Tools locate(const std::optional<std::filesystem::path>& helpersDir = defaultHelpersDir());

    // The folders of locate, in order, for a given PATH value.
    static std::vector<std::filesystem::path> searchDirectories(const std::optional<std::filesystem::path>& helpersDir,
                                                                const std::string& pathVariable);
    static Tools locateIn(const std::vector<std::filesystem::path>& directories);

    // <prefix>/libexec/vorlen beside the running binary's <prefix>/bin.
    static std::optional<std::filesystem::path> defaultHelpersDir();
};

}  // namespace vorlen
