#include "core/publish/HLSRewriter.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"
#include "core/publish/Chunker.hpp"

namespace vorlen {
namespace {

const char* const packagerPlaylist =
    "#EXTM3U\n"
    "#EXT-X-VERSION:6\n"
    "#EXT-X-TARGETDURATION:7\n"
    "#EXT-X-PLAYLIST-TYPE:VOD\n"
    "#EXT-X-MAP:URI=\"v_180/init.mp4\"\n"
    "#EXTINF:6.000,\n"
    "v_180/1.m4s\n"
    "\n"
    "#EXTINF:6.000,\n"
    "  v_180/2.m4s  \r\n"
    "#EXTINF:1.000,\n"
    "v_180/3.m4s\n"
    "#EXT-X-ENDLIST\n";

std::string failureOf(std::string_view playlist, const StreamLayout& layout) {
    try {
        HLSRewriter::rewrite(playlist, layout);
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Manifest>());
        return error.text();
    }
    return "no failure";
}

TEST(HLSRewriterTest, EverySegmentBecomesAnExplicitByteRange) {
    auto layout = Chunker::layout("v_180", 800, {1000, 2000, 300}, 2500);
    EXPECT_EQ(HLSRewriter::rewrite(packagerPlaylist, layout),
              "#EXTM3U\n"
              "#EXT-X-VERSION:6\n"
              "#EXT-X-TARGETDURATION:7\n"
              "#EXT-X-PLAYLIST-TYPE:VOD\n"
              "#EXT-X-MAP:URI=\"v_180/001.mp4\",BYTERANGE=\"800@0\"\n"
              "#EXTINF:6.000,\n"
              "#EXT-X-BYTERANGE:1000@800\n"
              "v_180/001.mp4\n"
              "\n"
              "#EXTINF:6.000,\n"
              "#EXT-X-BYTERANGE:2000@0\n"
              "v_180/002.mp4\n"
              "#EXTINF:1.000,\n"
              "#EXT-X-BYTERANGE:300@2000\n"
              "v_180/002.mp4\n"
              "#EXT-X-ENDLIST\n");
}

TEST(HLSRewriterTest, ARewrittenPlaylistReadsBackAsItsLayout) {
    auto layout = Chunker::layout("v_180", 800, {1000, 2000, 300}, 2500);
    auto read = HLSRewriter::layoutOf(HLSRewriter::rewrite(packagerPlaylist, layout));
    EXPECT_EQ(read.initSegment, layout.initSegment);
    EXPECT_EQ(read.segments, layout.segments);

    EXPECT_THROW(HLSRewriter::layoutOf(packagerPlaylist), VorlenError);  // no byte ranges
    EXPECT_THROW(HLSRewriter::layoutOf("#EXT-X-MAP:URI=\"a/001.mp4\",BYTERANGE=\"800\"\n"), VorlenError);
}

TEST(HLSRewriterTest, APlaylistThatDoesNotMatchItsStreamIsRefused) {
    auto three = Chunker::layout("v_180", 8, {1, 2, 3}, 100);
    auto two = Chunker::layout("v_180", 8, {1, 2}, 100);
    auto four = Chunker::layout("v_180", 8, {1, 2, 3, 4}, 100);
    EXPECT_EQ(failureOf(packagerPlaylist, two), "media playlist has more segments than the packaged stream");
    EXPECT_EQ(failureOf(packagerPlaylist, four), "media playlist has fewer segments than the packaged stream");

    std::string noMap = packagerPlaylist;
    noMap.erase(noMap.find("#EXT-X-MAP"), std::string("#EXT-X-MAP:URI=\"v_180/init.mp4\"\n").size());
    EXPECT_EQ(failureOf(noMap, three), "media playlist has 0 EXT-X-MAP tags, expected 1");
    EXPECT_EQ(failureOf(std::string(packagerPlaylist) + " #EXT-X-MAP:URI=\"x\"\n", three),
              "media playlist has 2 EXT-X-MAP tags, expected 1");
    EXPECT_EQ(failureOf("#EXTM3U\n#EXT-X-MAP:URI=\"v_180/init.mp4\"\n#EXTINF:6,\n#EXT-X-BYTERANGE:10@0\nv.mp4\n", three),
              "media playlist already uses byte ranges");
}

}  // namespace
}  // namespace vorlen
