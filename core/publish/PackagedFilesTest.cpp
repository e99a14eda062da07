#include "core/publish/PackagedFiles.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>

#include "core/base/Files.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/DASHSubtitles.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

// A package directory with two streams shaped as the packager leaves them.
struct FakePackage {
    fs::path root = makeUniqueDirectory(fs::temp_directory_path(), "assemble-test-");
    fs::path package = root / "package";
    fs::path publish = root / "publish";

    FakePackage() {
        fs::create_directories(publish);
        addStream("v_180", {"video-init", "v1", "v22", "v333"});
        addStream("a_stereo", {"audio-init", "a1", "a22", "a333"});
        writeFileAtomically(package / "master.m3u8", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nv_180.m3u8\n");
        std::string mpd = "<MPD profiles=\"urn:mpeg:dash:profile:isoff-live:2011\"><Period>";
        for (const char* stream : {"v_180", "a_stereo"}) {
            mpd += fmt::format(R"(<AdaptationSet><Representation><SegmentTemplate initialization="{}/init.mp4">)"
                               R"(<SegmentTimeline><S d="6" r="2"/></SegmentTimeline></SegmentTemplate>)"
                               R"(</Representation></AdaptationSet>)",
                               stream);
        }
        writeFileAtomically(package / "manifest.mpd", mpd + "</Period></MPD>");
    }
    ~FakePackage() { fs::remove_all(root); }

    void addStream(const std::string& name, const std::vector<std::string>& pieces) {
        fs::create_directories(package / name);
        writeFileAtomically(package / name / "init.mp4", pieces[0]);
        std::string playlist = fmt::format("#EXTM3U\n#EXT-X-MAP:URI=\"{}/init.mp4\"\n", name);
        for (std::size_t i = 1; i < pieces.size(); ++i) {
            writeFileAtomically(package / name / fmt::format("{}.m4s", i), pieces[i]);
            playlist += fmt::format("#EXTINF:6.000,\n{}/{}.m4s\n", name, i);
        }
        writeFileAtomically(package / (name + ".m3u8"), playlist + "#EXT-X-ENDLIST\n");
    }
};

TEST(PackagedFilesTest, AssemblesAFolderWhoseRangesPointAtTheRightBytes) {
    FakePackage fake;
    auto files = assemble({PackagedStream{"v_180"}, PackagedStream{"a_stereo"}}, fake.package, fake.publish, 14);
    EXPECT_EQ(files.media, (std::vector<std::string>{"v_180/001.mp4", "v_180/002.mp4", "a_stereo/001.mp4",
                                                     "a_stereo/002.mp4"}));
    EXPECT_EQ(files.manifests,
              (std::vector<std::string>{"v_180.m3u8", "a_stereo.m3u8", "master.m3u8", "manifest.mpd"}));
    EXPECT_EQ(readFile(fake.publish / "master.m3u8"), readFile(fake.package / "master.m3u8"));

    // Follow the rewritten playlist: each range must give back the original segment.
    auto playlist = readFile(fake.publish / "v_180.m3u8");
    std::vector<std::string> fetched;
    std::istringstream lines(playlist);
    std::string line, range;
    while (std::getline(lines, line)) {
        if (line.rfind("#EXT-X-BYTERANGE:", 0) == 0) {
            range = line.substr(17);
        } else if (!line.empty() && line[0] != '#') {
            auto at = range.find('@');
            auto data = readFile(fake.publish / line);
            fetched.push_back(data.substr(std::stoull(range.substr(at + 1)), std::stoull(range.substr(0, at))));
        }
    }
    EXPECT_EQ(fetched, (std::vector<std::string>{"v1", "v22", "v333"}));
    EXPECT_NE(playlist.find("#EXT-X-MAP:URI=\"v_180/001.mp4\",BYTERANGE=\"10@0\""), std::string::npos);

    auto mpd = readFile(fake.publish / "manifest.mpd");
    EXPECT_NE(mpd.find(R"(<SegmentURL media="a_stereo/002.mp4" mediaRange="3-6" />)"), std::string::npos) << mpd;
    EXPECT_FALSE(fs::exists(fake.publish / "v_180/1.m4s"));
}

TEST(PackagedFilesTest, SubtitleTracksJoinTheFolderAndBothManifests) {
    FakePackage fake;
    auto files = assemble({PackagedStream{"v_180"}, PackagedStream{"a_stereo"}}, fake.package, fake.publish, 1000);
    std::vector<SubtitleStream> streams{
        {"sub_en", "en", "English", SubtitleTrack::Kind::subtitles, 8, std::nullopt},
        {"sub_fr", "fr", "French", SubtitleTrack::Kind::captions, 16, std::nullopt}};
    addSubtitles(files, fake.publish, streams, {{"WEBVTT\n\nen", 1}, {"WEBVTT\n\nfr", 1}}, 18);

    EXPECT_EQ(files.media, (std::vector<std::string>{"v_180/001.mp4", "a_stereo/001.mp4", "sub_en.vtt", "sub_fr.vtt"}));
    EXPECT_EQ(files.manifests, (std::vector<std::string>{"v_180.m3u8", "a_stereo.m3u8", "sub_en.m3u8", "sub_fr.m3u8",
                                                         "master.m3u8", "manifest.mpd"}));
    EXPECT_EQ(readFile(fake.publish / "sub_fr.vtt"), "WEBVTT\n\nfr");
    EXPECT_EQ(readFile(fake.publish / "sub_fr.m3u8"), SubtitleStream::mediaPlaylist("sub_fr", 18));
    auto master = readFile(fake.publish / "master.m3u8");
    EXPECT_EQ(HLSMasterPlaylist::subtitles(master).size(), 2u);
    EXPECT_EQ(HLSMasterPlaylist::withSubtitles(master, {}), readFile(fake.package / "master.m3u8"));
    EXPECT_EQ(DASHSubtitles::subtitles(readFile(fake.publish / "manifest.mpd")).size(), 2u);

    // The tracks go up with the media, as immutable text, long before master.m3u8 names them.
    std::vector<std::string> all = files.media;
    all.insert(all.end(), files.manifests.begin(), files.manifests.end());
    auto batches = videoFolderBatches(all);
    ASSERT_EQ(batches.size(), 4u);
    EXPECT_EQ(batches[0], files.media);
    EXPECT_EQ(batches[1], (std::vector<std::string>{"v_180.m3u8", "a_stereo.m3u8", "sub_en.m3u8", "sub_fr.m3u8"}));
    auto headers = videoFolderHeaders("sub_en.vtt");
    EXPECT_EQ(headers.contentType, "text/vtt; charset=utf-8");
    EXPECT_EQ(headers.cacheControl, "public, max-age=31536000, immutable");
}

}  // namespace
}  // namespace vorlen
