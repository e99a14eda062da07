#include "core/publish/VideoCommand.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "core/publish/SoftwareEncoder.hpp"
#include "core/publish/ToolRunner.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

using Args = std::vector<std::string>;

// The arguments of output i: from its "-map" to its output path.
Args outputArguments(const VideoCommand& command, std::size_t i) {
    auto& args = command.arguments;
    auto map = std::find(args.begin(), args.end(), "[out" + std::to_string(i) + "]");
    auto path = std::find(map, args.end(), command.outputs[i].file.string());
    return Args(map - 1, path + 1);
}

std::string after(const Args& args, const std::string& key) {
    auto found = std::find(args.begin(), args.end(), key);
    return found == args.end() || found + 1 == args.end() ? "" : *(found + 1);
}

TEST(VideoCommand, SDRSourceEncodesHEVCInTenBitsAndH264InEight) {
    SourceInfo info{12, 30000.0 / 1001, 1920, 1080, std::nullopt, AudioStream{1, 2}};
    auto rungs = ladder(1920, 1080);
    auto command = VideoCommand::make("/in/source.mov", info, rungs, SoftwareEncoder(), 6, "/work/encode");

    auto graph = after(command.arguments, "-filter_complex");
    EXPECT_EQ(graph.rfind("[0:V:0]split=5[in0][in1][in2][in3][in4];[in0]scale=w=1920:h=1080:"
                          "force_original_aspect_ratio=decrease:force_divisible_by=2:flags=lanczos,format=yuv420p10le[out0];",
                          0),
              0u)
        << graph;
    EXPECT_EQ(graph.find("zscale"), std::string::npos);
    EXPECT_NE(graph.find(";[in4]scale=w=640:h=360:force_original_aspect_ratio=decrease:force_divisible_by=2:"
                         "flags=lanczos,format=yuv420p[out4]"),
              std::string::npos);
    EXPECT_EQ(Args(command.arguments.begin(), command.arguments.begin() + 5),
              (Args{"-hide_banner", "-nostdin", "-y", "-i", "/in/source.mov"}));

    auto hevc = outputArguments(command, 0);
    EXPECT_EQ(after(hevc, "-c:v"), "libx265");
    EXPECT_EQ(after(hevc, "-tag:v"), "hvc1");
    EXPECT_EQ(after(hevc, "-profile:v"), "main10");
    EXPECT_EQ(after(hevc, "-color_trc"), "bt709");
    EXPECT_EQ(after(hevc, "-x265-params"), "log-level=warning:keyint=180:min-keyint=180:scenecut=0:open-gop=0");
    EXPECT_EQ(after(hevc, "-b:v"), "3852k");
    EXPECT_EQ(hevc.back(), "/work/encode/v_1080hevc.mp4");

    auto h264 = outputArguments(command, 1);
    EXPECT_EQ(after(h264, "-c:v"), "libx264");
    EXPECT_EQ(after(h264, "-sc_threshold"), "0");
    EXPECT_EQ(after(h264, "-g"), "180");  // 29.97 fps × 6 s, rounded up
    EXPECT_EQ(after(h264, "-keyint_min"), "180");
    EXPECT_EQ(after(h264, "-force_key_frames"), "expr:gte(t,n_forced*6)");
    EXPECT_EQ(after(h264, "-maxrate"), "5350k");
    EXPECT_EQ(after(h264, "-bufsize"), "7500k");
    EXPECT_EQ(Args(h264.end() - 10, h264.end() - 1),
              (Args{"-g", "180", "-force_key_frames", "expr:gte(t,n_forced*6)", "-fps_mode", "cfr", "-an", "-sn", "-dn"}));
    EXPECT_FALSE(needsToneMapping(info, rungs));
}

TEST(VideoCommand, PQSourceToneMapsOnlyItsH264RungsAndKeepsItsMasteringData) {
    SourceInfo info{8, 25, 1920, 1080, HDRTransfer::pq, std::nullopt};
    std::vector<Rung> rungs{rungTable()[2], rungTable()[3]};
    HDRMasteringMetadata mastering{"G(1,2)B(3,4)R(5,6)WP(7,8)L(9,10)", "1000,400"};
    auto command = VideoCommand::make("/in/hdr.mov", info, rungs, SoftwareEncoder(), 6, "/out", mastering);
    auto graph = after(command.arguments, "-filter_complex");
    auto hevcChain = graph.substr(graph.find(";[in0]"), graph.find(";[in1]") - graph.find(";[in0]"));
    auto h264Chain = graph.substr(graph.find(";[in1]"));
    EXPECT_EQ(hevcChain.find("zscale"), std::string::npos);
    EXPECT_NE(h264Chain.find("lanczos,zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=tonemap=hable,"
                             "zscale=t=bt709:m=bt709:r=tv,format=yuv420p[out1]"),
              std::string::npos);

    auto hevc = outputArguments(command, 0);
    EXPECT_EQ(after(hevc, "-color_primaries"), "bt2020");
    EXPECT_EQ(after(hevc, "-color_trc"), "smpte2084");
    EXPECT_EQ(after(hevc, "-colorspace"), "bt2020nc");
    EXPECT_EQ(after(hevc, "-x265-params"), "log-level=warning:keyint=150:min-keyint=150:scenecut=0:open-gop=0:hdr10=1:"
                                           "master-display=G(1,2)B(3,4)R(5,6)WP(7,8)L(9,10):max-cll=1000,400");
    auto h264 = outputArguments(command, 1);
    EXPECT_EQ(after(h264, "-color_trc"), "bt709");
    EXPECT_TRUE(needsToneMapping(info, rungs));
    EXPECT_FALSE(needsToneMapping(info, {rungTable()[2]}));

    info.hdr = HDRTransfer::hlg;
    EXPECT_EQ(after(outputArguments(VideoCommand::make("/in", info, rungs, SoftwareEncoder(), 6, "/out"), 0),
                    "-color_trc"),
              "arib-std-b67");
}

TEST(VideoCommand, GroupOfPicturesAndTheFilterList) {
    EXPECT_EQ(groupOfPictures(30000.0 / 1001, 6), 180);
    EXPECT_EQ(groupOfPictures(25, 6), 150);
    EXPECT_EQ(groupOfPictures(0.01, 6), 1);
    EXPECT_TRUE(filtersListZscale(" ... zscale            V->V       Apply resizing, colorspace and bit depth conversion.\n"));
    EXPECT_FALSE(filtersListZscale(" ... scale V->V zscale\nzscale\n"));
}

TEST(SoftwareEncoder, SpeedsAreReadLenientlyAndKeepH264High) {
    EXPECT_EQ(encodingSpeedFromSettings(Json{{"encodingSpeed", "quality"}}), EncodingSpeed::quality);
    EXPECT_EQ(encodingSpeedFromSettings(Json{{"encodingSpeed", "fast"}, {"other", 1}}), EncodingSpeed::fast);
    EXPECT_EQ(encodingSpeedFromSettings(Json{{"encodingSpeed", "ludicrous"}}), EncodingSpeed::balanced);
    EXPECT_EQ(encodingSpeedFromSettings(Json{{"encodingSpeed", 3}}), EncodingSpeed::balanced);
    EXPECT_EQ(encodingSpeedFromSettings(Json::array()), EncodingSpeed::balanced);
    // x264's ultrafast writes Constrained Baseline whatever the profile asks for.
    for (auto speed : {EncodingSpeed::fast, EncodingSpeed::balanced, EncodingSpeed::quality})
        EXPECT_STRNE(SoftwareEncoder::x264Preset(speed), "ultrafast");
}

// Keyframe times of a file's picture, from ffprobe.
std::vector<double> keyframeTimes(const Tools& tools, const std::filesystem::path& file) {
    auto output = ToolRunner::run("ffprobe", tools.ffprobe,
                                  {"-v", "error", "-select_streams", "v:0", "-show_entries", "frame=pts_time,key_frame",
                                   "-of", "csv=p=0", file.string()});
    std::vector<double> times;
    std::istringstream lines(output.standardOutput);
    std::string line;
    while (std::getline(lines, line)) {
        auto comma = line.find(',');
        if (comma != std::string::npos && line.substr(0, comma) == "1") times.push_back(std::stod(line.substr(comma + 1)));
    }
    return times;
}

// A picture that turns black every other second: hard cuts that a scene-cut
// detector would answer with extra keyframes. A cover picture is listed ahead of it.
TEST(VideoCommand, EveryRungHasKeyframesOnTheGridOnlyAndEncodesThePictureNotTheCover) {
    testing::ClipFolder clips;
    auto tools = Tools::locate();
    auto cover = clips.make("cover.jpg", testing::lavfiVideo(64, 64, 1) + " -frames:v 1");
    auto source = clips.make("cuts.mp4", testing::lavfiVideo(320, 180, 13) + " -i '" + cover.string() +
                                             "' -map 0 -map 1 -vf \"drawbox=c=black:t=fill:enable='lt(mod(t,2),1)'\""
                                             " -c:v:0 libx264 -preset ultrafast -c:v:1 mjpeg -disposition:v:1 attached_pic");
    testing::moveUserDataFirst(source);
    auto info = inspectFile(tools, source);
    std::vector<Rung> rungs{{"hevc180", 180, VideoCodec::hevc, 400, 600}, {"h264180", 180, VideoCodec::h264, 400, 600}};
    auto command = VideoCommand::make(source, info, rungs, SoftwareEncoder(EncodingSpeed::fast), 6, clips.path());
    double lastSeconds = 0;
    auto outputs = encodeVideo(tools, command, [&](double seconds) { lastSeconds = seconds; });
    EXPECT_NEAR(lastSeconds, 13, 0.25);
    for (const auto& output : outputs) {
        EXPECT_EQ(keyframeTimes(tools, output.file), (std::vector<double>{0, 6, 12})) << output.rung.id;
        auto encoded = inspectFile(tools, output.file);
        EXPECT_NEAR(encoded.durationSeconds, 13, 0.1) << output.rung.id;
        EXPECT_EQ(encoded.width, 320);
    }
}

// A real PQ source with HDR10 metadata: the HEVC rung keeps the transfer and the
// mastering data, the H.264 rung is tone-mapped to BT.709.
TEST(VideoCommand, HDRSourceKeepsItsMetadataInHEVCAndToneMapsH264) {
    testing::ClipFolder clips;
    auto tools = Tools::locate();
    auto source = clips.make(
        "pq.mp4", testing::lavfiVideo(320, 180, 1) +
                      " -vf 'zscale=tin=bt709:min=bt709:pin=bt709:rin=tv:t=smpte2084:m=bt2020nc:p=bt2020:r=tv:npl=100,"
                      "format=yuv420p10le' -c:v libx265 -preset ultrafast -profile:v main10 -tag:v hvc1"
                      " -color_primaries bt2020 -color_trc smpte2084 -colorspace bt2020nc -x265-params '"
                      "log-level=error:hdr10=1:master-display=G(13250,34500)B(7500,3000)R(34000,16000)"
                      "WP(15635,16450)L(10000000,50):max-cll=1000,400'");
    auto info = inspectFile(tools, source);
    ASSERT_EQ(info.hdr, HDRTransfer::pq);
    auto mastering = readHDRMasteringMetadata(tools, source);
    EXPECT_EQ(mastering.masterDisplay, "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,50)");
    EXPECT_EQ(mastering.maxCll, "1000,400");

    checkToneMapping(tools);
    std::vector<Rung> rungs{{"hdr", 180, VideoCodec::hevc, 400, 600}, {"sdr", 180, VideoCodec::h264, 400, 600}};
    auto command = VideoCommand::make(source, info, rungs, SoftwareEncoder(EncodingSpeed::fast), 6, clips.path(), mastering);
    auto outputs = encodeVideo(tools, command, {});
    EXPECT_EQ(readHDRMasteringMetadata(tools, outputs[0].file), mastering);
    EXPECT_EQ(inspectFile(tools, outputs[0].file).hdr, HDRTransfer::pq);
    EXPECT_EQ(inspectFile(tools, outputs[1].file).hdr, std::nullopt);
    EXPECT_EQ(readHDRMasteringMetadata(tools, outputs[1].file), HDRMasteringMetadata{});
}

}  // namespace
}  // namespace vorlen
