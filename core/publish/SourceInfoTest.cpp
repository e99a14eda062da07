#include "core/publish/SourceInfo.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"
#include "core/publish/Inspection.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

Json videoStream(int index = 0) {
    return Json{{"index", index}, {"codec_type", "video"}, {"width", 1920}, {"height", 1080},
                {"avg_frame_rate", "30000/1001"}, {"r_frame_rate", "30000/1001"}};
}

Json probeOf(Json streams, Json format = Json{{"duration", "12.5"}}) {
    return Json{{"streams", std::move(streams)}, {"format", std::move(format)}};
}

std::string sourceFailure(const Json& probe) {
    try {
        sourceInfoFromProbe(probe);
    } catch (const VorlenError& error) {
        return error.text();
    }
    return "no failure";
}

std::vector<std::string> ids(const std::vector<Rung>& rungs) {
    std::vector<std::string> list;
    for (const auto& rung : rungs) list.push_back(rung.id);
    return list;
}

TEST(SourceInfo, PicksTheRealPictureAndTheDefaultAudio) {
    auto cover = Json{{"index", 0}, {"codec_type", "video"}, {"width", 600}, {"height", 600},
                      {"avg_frame_rate", "0/0"}, {"disposition", {{"attached_pic", 1}, {"default", 0}}}};
    auto video = videoStream(1);
    video["avg_frame_rate"] = "0/0";  // falls back to r_frame_rate
    video["r_frame_rate"] = "25/1";
    video["color_transfer"] = "smpte2084";
    auto first = Json{{"index", 2}, {"codec_type", "audio"}, {"channels", 2}, {"disposition", {{"default", 0}}}};
    auto second = Json{{"index", 3}, {"codec_type", "audio"}, {"channels", 6}, {"disposition", {{"default", 1}}}};
    auto info = sourceInfoFromProbe(probeOf({cover, video, first, second}));
    EXPECT_EQ(info.width, 1920);
    EXPECT_EQ(info.fps, 25.0);
    EXPECT_EQ(info.durationSeconds, 12.5);
    EXPECT_EQ(info.hdr, HDRTransfer::pq);
    EXPECT_EQ(info.audio, (AudioStream{3, 6}));

    // No default: the first audio stream; no channel count: two.
    auto plain = Json{{"index", 1}, {"codec_type", "audio"}};
    auto hlg = videoStream();
    hlg["color_transfer"] = "arib-std-b67";
    info = sourceInfoFromProbe(probeOf({hlg, plain, first}));
    EXPECT_EQ(info.audio, (AudioStream{1, 2}));
    EXPECT_EQ(info.hdr, HDRTransfer::hlg);
    EXPECT_EQ(sourceInfoFromProbe(probeOf({videoStream()})).audio, std::nullopt);
}

TEST(SourceInfo, AnAudioSourceNeedsNoPicture) {
    auto second = Json{{"index", 1}, {"codec_type", "audio"}, {"channels", 6}, {"disposition", {{"default", 1}}}};
    auto info = audioInfoFromProbe(probeOf({Json{{"index", 0}, {"codec_type", "audio"}}, second}));
    EXPECT_EQ(info.audio, (AudioStream{1, 6}));
    EXPECT_EQ(info.durationSeconds, 12.5);
    EXPECT_EQ(audioInfoFromProbe(probeOf({videoStream()})).audio, std::nullopt);
    EXPECT_THROW(audioInfoFromProbe(probeOf({second}, Json::object())), VorlenError);
}

TEST(SourceInfo, AppliesQuarterTurnsOnly) {
    for (double rotation : {-90.0, 90.0, 270.0, -270.5}) {
        auto video = videoStream();
        video["side_data_list"] = Json::array({Json{{"side_data_type", "Display Matrix"}}, Json{{"rotation", rotation}}});
        auto info = sourceInfoFromProbe(probeOf({video}));
        EXPECT_EQ(std::pair(info.width, info.height), std::pair(std::int64_t(1080), std::int64_t(1920))) << rotation;
    }
    auto video = videoStream();
    video["side_data_list"] = Json::array({Json{{"rotation", 180}}});
    EXPECT_EQ(sourceInfoFromProbe(probeOf({video})).width, 1920);
}

TEST(SourceInfo, RefusesWhatItCannotUse) {
    auto audioOnly = Json{{"index", 0}, {"codec_type", "audio"}, {"channels", 2}};
    EXPECT_EQ(sourceFailure(probeOf({audioOnly})), "the file has no video stream");
    EXPECT_EQ(sourceFailure(Json::object()), "the file has no video stream");

    auto flat = videoStream();
    flat["height"] = 0;
    EXPECT_EQ(sourceFailure(probeOf({flat})), "the video stream has no dimensions");

    for (auto rate : {"0/0", "30/0", "30", "1/2/3", "-30/1"}) {
        auto noRate = videoStream();
        noRate["avg_frame_rate"] = rate;
        noRate["r_frame_rate"] = rate;
        EXPECT_EQ(sourceFailure(probeOf({noRate})), "the video stream has no frame rate") << rate;
    }

    // A format duration that does not parse is not rescued by the stream's.
    auto timed = videoStream();
    timed["duration"] = "10.0";
    EXPECT_EQ(sourceFailure(probeOf({timed}, Json{{"duration", "N/A"}})), "the file has no known duration");
    EXPECT_EQ(sourceInfoFromProbe(probeOf({timed}, Json::object())).durationSeconds, 10.0);
    EXPECT_EQ(sourceFailure(probeOf({videoStream()}, Json{{"duration", "0"}})), "the file has no known duration");
}

TEST(SourceInfo, ReadsHDRMasteringMetadataForX265) {
    auto probe = Json{{"frames", Json::array({Json{{"side_data_list", Json::array({
        Json{{"side_data_type", "Mastering display metadata"}, {"red_x", "34000/50000"}, {"red_y", "16000/50000"},
             {"green_x", "13250/50000"}, {"green_y", "34500/50000"}, {"blue_x", "7500/50000"},
             {"blue_y", "3000/50000"}, {"white_point_x", "15635/50000"}, {"white_point_y", "16450/50000"},
             {"min_luminance", "50/10000"}, {"max_luminance", "10000000/10000"}},
        Json{{"side_data_type", "Content light level metadata"}, {"max_content", 1000}, {"max_average", 400}}})}}})}};
    auto metadata = hdrMasteringMetadataFromProbe(probe);
    EXPECT_EQ(metadata.masterDisplay, "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,50)");
    EXPECT_EQ(metadata.maxCll, "1000,400");
    EXPECT_EQ(hdrMasteringMetadataFromProbe(Json::object()), HDRMasteringMetadata{});
}

TEST(Ladder, CutsTheTableToTheSource) {
    using List = std::vector<std::string>;
    EXPECT_EQ(ids(ladder(1920, 1080)), (List{"1080hevc", "1080", "720", "480", "360"}));
    EXPECT_EQ(ids(ladder(1080, 1920)), (List{"1080hevc", "1080", "720", "480", "360"}));
    EXPECT_EQ(ids(ladder(3840, 1600)), (List{"2160uhd", "2160lite", "1080hevc", "1080", "720", "480", "360"}));
    EXPECT_EQ(ids(ladder(640, 360)), (List{"360"}));
    EXPECT_EQ(ids(ladder(639, 300)), (List{"360"}));  // nothing reached: the 360 rung all the same
    EXPECT_EQ(ids(ladder(854, 200)), (List{"480", "360"}));
}

TEST(Inspection, SuggestsTitlesFromFileNames) {
    EXPECT_EQ(suggestedTitle("_My.clip  final.mp4"), "My clip final");
    EXPECT_EQ(suggestedTitle(".mov"), "mov");
    EXPECT_EQ(suggestedTitle("take."), "take");
    EXPECT_EQ(suggestedTitle("holiday.final"), "holiday");
    EXPECT_EQ(suggestedTitle("holiday.finals"), "holiday finals");
    EXPECT_EQ(suggestedTitle("___.mov"), "");
    EXPECT_EQ(suggestedTitle("Re-cut\u00a0day.m2ts"), "Re-cut day");
    EXPECT_EQ(suggestedTitle("Cafe\u0301 v2.mp4"), "Caf\u00e9 v2");
}

TEST(Inspection, EstimatesFromTargetBitrates) {
    SoftwareEncoder encoder;
    // 360: 685 kbps (0.8 of 856, rounded) + stereo 256 kbps, for 10 s.
    EXPECT_EQ(estimatedBytes(10, ladder(320, 180), renditions(2), encoder), 1'176'250u);
    EXPECT_EQ(estimatedBytes(10, ladder(320, 180), {}, encoder), 856'250u);
}

// Real files made by ffmpeg: what ffprobe says about them, end to end.
TEST(Inspection, ReadsRealFiles) {
    testing::ClipFolder clips;
    auto tools = Tools::locate();
    SoftwareEncoder encoder;

    auto phone = clips.make("Phone clip_2024.mp4", testing::lavfiVideo(640, 360, 1) + " " + testing::lavfiTone(1, 6) +
                                                       " -c:v libx264 -preset ultrafast -c:a aac -shortest");
    auto rotated = clips.make("rotated.mp4", "-i '" + phone.string() + "' -c copy -metadata:s:v:0 rotate=-90");
    auto inspection = inspect(tools, encoder, rotated);
    EXPECT_EQ(std::pair(inspection.info.width, inspection.info.height), std::pair(std::int64_t(360), std::int64_t(640)));
    EXPECT_EQ(ids(inspection.ladder), (std::vector<std::string>{"480", "360"}));
    EXPECT_EQ(inspection.info.audio->channels, 6);
    EXPECT_EQ(inspection.audio.size(), 2u);
    EXPECT_NEAR(inspection.info.durationSeconds, 1.0, 0.1);
    EXPECT_EQ(inspection.info.fps, 25.0);

    inspection = inspect(tools, encoder, phone);
    EXPECT_EQ(inspection.suggestedTitle, "Phone clip 2024");
    EXPECT_EQ(inspection.suggestedName, Naming::folderNameForFile("Phone clip_2024.mp4"));

    auto cover = clips.make("cover.jpg", testing::lavfiVideo(64, 64, 1) + " -frames:v 1");
    auto covered = clips.make("covered.mp4", testing::lavfiVideo(320, 180, 1) + " -i '" + cover.string() +
                                                 "' -map 0 -map 1 -c:v:0 libx264 -preset ultrafast -c:v:1 mjpeg"
                                                 " -disposition:v:1 attached_pic");
    testing::moveUserDataFirst(covered);
    auto info = inspectFile(tools, covered);
    EXPECT_EQ(std::pair(info.width, info.height), std::pair(std::int64_t(320), std::int64_t(180)));
    EXPECT_EQ(info.audio, std::nullopt);

    auto song = clips.make("song.m4a", testing::lavfiTone(1) + " -c:a aac");
    try {
        inspect(tools, encoder, song);
        FAIL();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "the file has no video stream");
    }
    EXPECT_THROW(inspect(tools, encoder, clips.path() / "missing.mp4"), VorlenError);
}

}  // namespace
}  // namespace vorlen
