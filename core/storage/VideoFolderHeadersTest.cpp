#include "core/storage/VideoFolderHeaders.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

TEST(VideoFolderHeaders, chooseTypeAndLifetimeBySuffixFirst) {
    auto expect = [](const std::string& path, const std::string& type, const std::string& cache) {
        auto headers = videoFolderHeaders(path);
        EXPECT_EQ(headers.contentType, type) << path;
        EXPECT_EQ(headers.cacheControl, cache) << path;
    };
    const std::string immutable = "public, max-age=31536000, immutable";
    expect("v_1080/001.mp4", "video/mp4", immutable);
    expect("a_en_web/001.mp4", "audio/mp4", immutable);
    expect("a_en/main.m3u8", "application/vnd.apple.mpegurl", "public, max-age=300");
    expect("master.m3u8", "application/vnd.apple.mpegurl", "public, max-age=300");
    expect("manifest.mpd", "application/dash+xml", "public, max-age=300");
    expect("subtitles/a_de.vtt", "text/vtt; charset=utf-8", immutable);
    expect("poster-1a2b3c4d.jpg", "image/jpeg", immutable);
    expect("poster.jpg", "image/jpeg", "public, max-age=300, s-maxage=86400");
    expect("video.json", "application/json", "no-cache");
}

TEST(VideoFolderHeaders, batchesPutTheMasterLastAndMediaFirst) {
    auto batches = videoFolderBatches({"master.m3u8", "poster.jpg", "v_720/main.m3u8", "video.json", "manifest.mpd",
                                       "poster-0badf00d.jpg", "v_720/001.mp4", "a_en/001.mp4", "en.vtt"});
    EXPECT_EQ(batches, (std::vector<std::vector<std::string>>{{"v_720/001.mp4", "a_en/001.mp4", "en.vtt"},
                                                              {"poster-0badf00d.jpg", "poster.jpg"},
                                                              {"video.json"},
                                                              {"v_720/main.m3u8"},
                                                              {"manifest.mpd"},
                                                              {"master.m3u8"}}));
    EXPECT_EQ(videoFolderBatches({"v/1.mp4"}).size(), 1u);
}

}  // namespace
}  // namespace vorlen
