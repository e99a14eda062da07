// A built folder must play in a real player: Shaka Player in headless Chromium
// over a loopback server that answers byte ranges, and ffmpeg over HTTP.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "core/base/Files.hpp"
#include "core/publish/Packager.hpp"
#include "core/publish/PackagedFiles.hpp"
#include "core/publish/Publisher.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "core/publish/ToolRunner.hpp"
#include "testing/MediaClip.hpp"
#include "testing/PlayerCheck.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

TEST(PlaybackTest, AChunkedFolderPlaysInShakaPlayerAndDecodesInFFmpeg) {
    if (!fs::exists(testing::chromiumPath())) GTEST_SKIP() << "no Chromium at " << testing::chromiumPath();
    auto tools = Tools::locate();

    fs::path work = makeUniqueDirectory(fs::temp_directory_path(), "playback-test-");
    DirectoryRemover remover(work);
    auto encode = work / "encode";
    fs::create_directories(encode);

    // Two small H.264 rungs, one HEVC rung that Chromium cannot decode, and AAC stereo;
    // keyframes on the 6 s grid, 14 s: three segments each.
    const std::vector<std::string> keyframes{"-g", "180", "-keyint_min", "180", "-sc_threshold", "0",
                                             "-force_key_frames", "expr:gte(t,n_forced*6)"};
    std::vector<std::string> args{"-v", "error", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=30:duration=14",
                                  "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=14",
                                  "-filter_complex", "[0:v]split=3[a][b][c];[b]scale=192:108[small];[c]format=yuv420p10le[hdr]"};
    auto addVideo = [&](const char* label, const char* rate, const fs::path& file) {
        args.insert(args.end(), {"-map", label, "-c:v", "libx264", "-preset", "veryfast", "-profile:v", "high",
                                 "-b:v", rate});
        args.insert(args.end(), keyframes.begin(), keyframes.end());
        args.insert(args.end(), {"-an", file.string()});
    };
    addVideo("[a]", "400k", encode / "180.mp4");
    addVideo("[small]", "150k", encode / "108.mp4");
    args.insert(args.end(), {"-map", "[hdr]", "-c:v", "libx265", "-preset", "ultrafast", "-profile:v", "main10",
                             "-tag:v", "hvc1", "-b:v", "300k", "-x265-params",
                             "log-level=error:keyint=180:min-keyint=180:scenecut=0:open-gop=0",
                             "-force_key_frames", "expr:gte(t,n_forced*6)", "-an", (encode / "180hevc.mp4").string()});
    args.insert(args.end(), {"-map", "1:a", "-c:a", "aac", "-b:a", "96k", "-ac", "2", (encode / "stereo.mp4").string()});
    ToolRunner::run("ffmpeg", tools.ffmpeg, args);

    Rung top, small, hevc;
    top.id = "180";
    small.id = "108";
    hevc.id = "180hevc";
    hevc.codec = VideoCodec::hevc;
    AudioRendition stereo;
    stereo.name = "stereo";
    stereo.channels = 2;
    PackageInputs inputs{{EncodedRung{hevc, encode / "180hevc.mp4"}, EncodedRung{top, encode / "180.mp4"},
                          EncodedRung{small, encode / "108.mp4"}},
                         {EncodedAudio{stereo, encode / "stereo.mp4"}}};
    auto streams = Packager::package(inputs, tools, work / "package", 6);
    // Small chunks, so that playback crosses from one chunk file to the next.
    auto files = assemble(streams, work / "package", work / "publish", 120'000);
    EXPECT_GT(files.media.size(), streams.size()) << "some stream spans several chunks";

    testing::expectPlayed(testing::playFolder(work / "publish", tools.ffmpeg));
}

TEST(PlaybackTest, SubtitleTracksOfABuiltFolderShowInShakaPlayer) {
    if (!fs::exists(testing::chromiumPath())) GTEST_SKIP() << "no Chromium at " << testing::chromiumPath();

    testing::ClipFolder clips;
    auto source = clips.make("talk.mp4", testing::lavfiVideo(320, 180, 4) + " " + testing::lavfiTone(4) +
                                             " -c:v libx264 -preset ultrafast -c:a aac -shortest");
    // SubRip from an old editor (Windows-1252, font tags) and WebVTT with a byte-order mark.
    writeFileAtomically(clips.path() / "talk.srt",
                        "1\r\n00:00:00,500 --> 00:00:01,900\r\n<font color=\"#ffff00\">Caf\xE9</font>\r\n\r\n"
                        "2\r\n00:00:02.000 --> 00:00:03.500\r\nAu revoir\r\n");
    writeFileAtomically(clips.path() / "talk.vtt",
                        "\xEF\xBB\xBFWEBVTT\n\n00:00.500 --> 00:01.900\nHello\n\n00:02.000 --> 00:03.500\n<i>Bye</i>\n");

    Publisher publisher;
    publisher.tools = Tools::locate();
    publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
    publisher.workRoot = clips.path() / "work";
    auto built = publisher.build(publisher.inspect(source), {"Talk", std::nullopt, std::nullopt, VideoVisibility::publicVideo},
                                 AudioLoudness::original, std::nullopt, {}, {},
                                 {{clips.path() / "talk.srt", "fr", SubtitleTrack::Kind::subtitles},
                                  {clips.path() / "talk.vtt", "en", SubtitleTrack::Kind::captions}});
    auto folder = built->directory();
    EXPECT_EQ(readFile(folder / "sub_fr.vtt"),
              "WEBVTT\n\n00:00:00.500 --> 00:00:01.900\nCaf\u00e9\n\n00:00:02.000 --> 00:00:03.500\nAu revoir\n\n");
    auto all = built->allFiles();
    for (const char* file : {"sub_fr.vtt", "sub_fr.m3u8", "sub_en.vtt", "sub_en.m3u8"})
        EXPECT_NE(std::find(all.begin(), all.end(), file), all.end()) << file;

    // The seek to 7 s ends this 4 s clip.
    auto report = testing::playFolder(folder, publisher.tools.ffmpeg);
    testing::expectPlayed(report, 3.9);
    for (const char* manifest : {"hls", "dash"}) {
        SCOPED_TRACE(manifest);
        const auto& result = report[manifest];
        std::set<std::pair<std::string, std::string>> tracks;
        for (const auto& track : result["textTracks"])
            tracks.emplace(track["language"].get<std::string>(), track["label"].get<std::string>());
        EXPECT_EQ(tracks, (std::set<std::pair<std::string, std::string>>{{"fr", "French"}, {"en", "English"}}))
            << result["textTracks"];
        EXPECT_EQ(result["textCues"], 2) << "the shown track's cues were fetched and parsed";
    }
}

}  // namespace
}  // namespace vorlen
