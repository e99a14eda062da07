#pragma once

// Plays a video folder the way a viewer does (testing/player/play.mjs: Shaka
// Player in headless Chromium over a loopback server that answers byte ranges,
// and ffmpeg over HTTP) and judges what came out. For test binaries only.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>

#include "core/base/Json.hpp"
#include "core/publish/ToolRunner.hpp"

namespace vorlen::testing {

inline std::optional<std::filesystem::path> findInPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream entries(path ? path : "");
    std::string directory;
    while (std::getline(entries, directory, ':'))
        if (!directory.empty() && std::filesystem::is_regular_file(std::filesystem::path(directory) / name))
            return std::filesystem::path(directory) / name;
    return std::nullopt;
}

inline std::filesystem::path chromiumPath() {
    const char* given = std::getenv("VORLEN_CHROMIUM");
    return given ? given : "/usr/bin/chromium";
}

// The player's report of both manifests and of ffmpeg's decode.
inline Json playFolder(const std::filesystem::path& folder, const std::filesystem::path& ffmpeg) {
    auto node = findInPath("node");
    if (!node) throw std::runtime_error("node is needed to drive the player");
    auto output = ToolRunner::run("node", *node, {std::string(VORLEN_SOURCE_DIR) + "/testing/player/play.mjs",
                                                  folder.string(), ffmpeg.string(), chromiumPath().string()});
    return decodeJson(output.standardOutput);
}

// Both manifests played without errors, with sound and H.264 video, on past a seek
// to `seekTarget` seconds, with segments as 206 answers; ffmpeg decoded the HLS cleanly.
inline void expectPlayed(const Json& report, double seekTarget = 7.5) {
    for (const char* manifest : {"hls", "dash"}) {
        SCOPED_TRACE(manifest);
        const auto& result = report[manifest];
        EXPECT_EQ(result["errors"], Json::array());
        EXPECT_GT(result["currentTime"].get<double>(), 2.0);
        EXPECT_GE(result["afterSeek"].get<double>(), seekTarget) << "playing on after a seek into a later chunk";
        EXPECT_GT(result["audioBytes"].get<double>(), 0) << "audio was decoded";
        EXPECT_EQ(result["audioCodec"], "mp4a.40.2");
        EXPECT_EQ(result["videoCodec"].get<std::string>().substr(0, 4), "avc1") << "HEVC gave way to H.264";
        EXPECT_GT(result["ranged"].get<int>(), 0) << "segments came as byte ranges answered with 206";
    }
    EXPECT_EQ(report["ffmpeg"]["code"], 0) << report["ffmpeg"]["stderr"];
    EXPECT_EQ(report["ffmpeg"]["stderr"], "");
    EXPECT_GT(report["ffmpeg"]["ranged"].get<int>(), 0);
}

}  // namespace vorlen::testing
