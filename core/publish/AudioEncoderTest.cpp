#include "core/publish/AudioEncoder.hpp"

#include <gtest/gtest.h>

#include "core/publish/ToolRunner.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

LoudnormMeasurement measured(std::string i, std::string tp) { return {i, tp, "7.20", "-31.10", "0.35"}; }

TEST(AudioEncoder, ReadsTheLastMeasurementBlockOfStandardError) {
    std::string standardError =
        "Input #0, mov,mp4 from 'in.mp4':\n{\n  not json\n}\n[Parsed_loudnorm_1 @ 0x55d0c]\r\n{\r\n"
        "\t\"input_i\" : \"-12.65\",\n\t\"input_tp\" : \"-0.51\",\n\t\"input_lra\" : \"7.20\",\n"
        "\t\"input_thresh\" : \"-23.01\",\n\t\"output_i\" : \"-24.00\",\n\t\"normalization_type\" : \"dynamic\",\n"
        "\t\"target_offset\" : \"inf\"\n}\nsize=N/A time=00:00:04.00\n";
    EXPECT_EQ(parseLoudnormMeasurement(standardError),
              (LoudnormMeasurement{"-12.65", "-0.51", "7.20", "-23.01", "inf"}));
    EXPECT_EQ(parseLoudnormMeasurement("no block here\n"), std::nullopt);
    EXPECT_EQ(parseLoudnormMeasurement("{\n\"input_i\": \"-1\"\n}\n"), std::nullopt);
    EXPECT_EQ(parseLoudnormMeasurement("{\n\"input_i\": \"-1\"\n"), std::nullopt);
}

TEST(AudioEncoder, ChoosesPassesAndLoudnessFilters) {
    auto stereo = renditions(6)[0];
    auto surround = renditions(6)[1];
    EXPECT_FALSE(needsMeasurement(AudioLoudness::original, stereo, 2));
    EXPECT_FALSE(needsMeasurement(AudioLoudness::original, stereo, 1));
    EXPECT_FALSE(needsMeasurement(AudioLoudness::original, surround, 6));
    EXPECT_TRUE(needsMeasurement(AudioLoudness::original, stereo, 6));  // a downmix may clip
    EXPECT_TRUE(needsMeasurement(AudioLoudness::web, stereo, 2));
    EXPECT_TRUE(needsMeasurement(AudioLoudness::broadcast, surround, 6));

    // web: to -14 unless the peak would pass -2.
    EXPECT_EQ(loudnessFilter(AudioLoudness::web, measured("-20.00", "-10.00")), "volume=6.00dB");
    EXPECT_EQ(loudnessFilter(AudioLoudness::web, measured("-20.00", "-3.00")), "volume=1.00dB");
    EXPECT_EQ(loudnessFilter(AudioLoudness::web, measured("-10.00", "-1.00")), "volume=-4.00dB");
    EXPECT_EQ(loudnessFilter(AudioLoudness::web, measured("-14.004", "-20")), std::nullopt);
    EXPECT_EQ(loudnessFilter(AudioLoudness::web, measured("-inf", "-inf")), std::nullopt);
    // original: only ever down, and only to keep the peak at -2.
    EXPECT_EQ(loudnessFilter(AudioLoudness::original, measured("-30", "0.50")), "volume=-2.50dB");
    EXPECT_EQ(loudnessFilter(AudioLoudness::original, measured("-30", "-6")), std::nullopt);
    EXPECT_EQ(loudnessFilter(AudioLoudness::original, measured("-inf", "-inf")), std::nullopt);
    // broadcast: the measurement goes back digit for digit, except for silence.
    EXPECT_EQ(loudnessFilter(AudioLoudness::broadcast, measured("-12.65", "-0.51")),
              "loudnorm=I=-24:TP=-2:LRA=20:measured_I=-12.65:measured_TP=-0.51:measured_LRA=7.20:"
              "measured_thresh=-31.10:offset=0.35:linear=true");
    EXPECT_EQ(loudnessFilter(AudioLoudness::broadcast, measured("-inf", "-inf")), std::nullopt);
}

struct Probed {
    std::string codec;
    std::int64_t channels = 0;
    std::int64_t sampleRate = 0;
};

Probed probeAudio(const Tools& tools, const std::filesystem::path& file) {
    auto output = ToolRunner::run("ffprobe", tools.ffprobe,
                                  {"-v", "error", "-print_format", "json", "-show_streams", file.string()});
    auto stream = decodeJson(output.standardOutput).at("streams").at(0);
    return {stream.value("codec_name", ""), stream.value("channels", 0),
            std::stoll(stream.value("sample_rate", "0"))};
}

TEST(AudioEncoder, EncodesSurroundAndSilenceForReal) {
    testing::ClipFolder clips;
    auto tools = Tools::locate();

    auto surroundSource = clips.make("surround.mp4", testing::lavfiTone(3, 6) + " -c:a aac -ar 44100");
    AudioSource source{surroundSource, {0, 6}, 3};
    std::vector<double> stereoFractions, surroundFractions;
    auto stereo = encodeAudio(tools, source, renditions(6)[0], AudioLoudness::original, clips.path(),
                              [&](double f) { stereoFractions.push_back(f); });
    auto surround = encodeAudio(tools, source, renditions(6)[1], AudioLoudness::original, clips.path(),
                                [&](double f) { surroundFractions.push_back(f); });
    EXPECT_EQ(stereo.file, clips.path() / "a_stereo.mp4");
    auto probed = probeAudio(tools, stereo.file);
    EXPECT_EQ(std::tuple(probed.codec, probed.channels, probed.sampleRate), std::tuple("aac", 2, 48000));
    probed = probeAudio(tools, surround.file);
    EXPECT_EQ(std::tuple(probed.codec, probed.channels, probed.sampleRate), std::tuple("eac3", 6, 48000));
    // The downmix was measured first (its first pass ends at one half); the surround was not.
    EXPECT_NE(std::find(stereoFractions.begin(), stereoFractions.end(), 0.5), stereoFractions.end());
    EXPECT_EQ(stereoFractions.back(), 1.0);
    EXPECT_TRUE(std::all_of(surroundFractions.begin(), surroundFractions.end(), [](double f) { return f != 0.5; }));

    // Silence measures -inf, which must not reach a second loudnorm or a volume.
    auto silent = clips.make("silence.mp4", testing::lavfiVideo(64, 64, 2) + " " + testing::lavfiSilence(2) +
                                                " -c:v libx264 -preset ultrafast -c:a aac");
    for (auto loudness : {AudioLoudness::web, AudioLoudness::broadcast}) {
        auto encoded = encodeAudio(tools, {silent, {1, 2}, 2}, renditions(2)[0], loudness, clips.path(), {});
        EXPECT_EQ(probeAudio(tools, encoded.file).channels, 2);
    }
}

}  // namespace
}  // namespace vorlen
