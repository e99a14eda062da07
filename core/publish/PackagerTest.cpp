#include "core/publish/Packager.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

EncodedRung rung(const std::string& id, VideoCodec codec) {
    Rung value;
    value.id = id;
    value.codec = codec;
    return EncodedRung{value, "/enc/" + id + ".mp4"};
}

EncodedAudio audio(const std::string& name, std::int64_t channels) {
    AudioRendition rendition;
    rendition.name = name;
    rendition.channels = channels;
    return EncodedAudio{rendition, "/enc/" + name + ".mp4"};
}

TEST(PackagerTest, H264RungsComeFirstAndSurroundHasItsOwnGroup) {
    PackageInputs inputs{{rung("1080hevc", VideoCodec::hevc), rung("720", VideoCodec::h264), rung("360", VideoCodec::h264)},
                         {audio("stereo", 2), audio("surround", 6)}};
    std::vector<std::string> names;
    for (const auto& stream : Packager::streams(inputs)) names.push_back(stream.directoryName);
    EXPECT_EQ(names, (std::vector<std::string>{"v_720", "v_360", "v_1080hevc", "a_stereo", "a_surround"}));

    auto arguments = Packager::arguments(inputs, "/pkg", 6);
    ASSERT_EQ(arguments.size(), 12u);
    EXPECT_EQ(arguments[0],
              "in=/enc/720.mp4,stream=video,init_segment=/pkg/v_720/init.mp4,"
              "segment_template=/pkg/v_720/$Number$.m4s,playlist_name=v_720.m3u8");
    EXPECT_TRUE(arguments[3].ends_with(",hls_group_id=audio,hls_name=stereo"));
    EXPECT_TRUE(arguments[4].ends_with(",hls_group_id=audio-surround,hls_name=surround"));
    EXPECT_EQ(std::vector<std::string>(arguments.begin() + 5, arguments.end()),
              (std::vector<std::string>{"--segment_duration", "6", "--hls_master_playlist_output", "/pkg/master.m3u8",
                                        "--mpd_output", "/pkg/manifest.mpd", "--generate_static_live_mpd"}));
}

}  // namespace
}  // namespace vorlen
