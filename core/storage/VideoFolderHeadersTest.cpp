#include "core/storage/VideoFolderHeaders.hpp"

#include <gtest/gtest.h>

#include "testing/ContractCases.hpp"

namespace vorlen {
namespace {

TEST(VideoFolderHeaders, answerEveryCaseOfTheSharedTable) {
    for (const Json& entry : testing::contractCases("object-headers.json")) {
        auto path = entry.at("path").get<std::string>();
        auto headers = videoFolderHeaders(path);
        EXPECT_EQ(headers.contentType, entry.at("contentType")) << path;
        EXPECT_EQ(headers.cacheControl, entry.at("cacheControl")) << path;
        EXPECT_TRUE(headers.metadata.empty()) << path;
    }
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
