#include "core/publish/VideoMetadata.hpp"

#include <gtest/gtest.h>

#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

std::string failureOf(std::string_view data) {
    try {
        VideoMetadata::decoded(data);
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Metadata>());
        return error.text();
    }
    return "no failure";
}

TEST(VideoDetailsTest, NormalisesWhateverItIsGiven) {
    VideoDetails details("  Title \n", std::string_view(" \t "), std::string_view("\r\n one\r\ntwo\rthree \r\n"),
                         VideoVisibility::unlisted);
    EXPECT_EQ(details.title(), "Title");
    EXPECT_FALSE(details.reference());
    EXPECT_EQ(details.description(), "one\ntwo\nthree");

    VideoDetails blank("x", std::string_view(" ref-1 "), std::string_view("\u3000 \r\n"), VideoVisibility::publicVideo);
    EXPECT_EQ(blank.reference(), "ref-1");
    EXPECT_FALSE(blank.description());
}

TEST(VideoMetadataTest, AFullRecordSurvivesAWriteAndARead) {
    VideoMetadata metadata{VideoDetails("Summer", std::string_view("R-7"), std::string_view("a/b"), VideoVisibility::unlisted),
                           PosterFile{"poster-3fa2.jpg", {1280, 720}},
                           12.5,
                           PixelSize{1920, 1080},
                           *parseIso8601("2026-01-15T09:30:00Z"),
                           *parseIso8601("2026-02-01T00:00:01Z"),
                           VideoAudio{AudioTrack{AudioLoudness::web}},
                           std::nullopt};
    auto text = metadata.encoded();
    EXPECT_NE(text.find("\"a/b\""), std::string::npos) << "slashes stay unescaped";
    EXPECT_NE(text.find("\n"), std::string::npos) << "written pretty-printed";
    auto json = decodeJson(text);
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["created"], "2026-01-15T09:30:00Z");
    EXPECT_EQ(json["audio_loudness"], "web");
    EXPECT_EQ(json["poster"]["width"], 1280);
    EXPECT_EQ(VideoMetadata::decoded(text), metadata);
}

TEST(VideoMetadataTest, AnOldMinimalRecordReadsWithDefaults) {
    auto metadata = VideoMetadata::decoded(
        R"({"version":1,"title":"  Old  ","created":"2025-01-01T00:00:00Z","updated":"2025-01-02T00:00:00Z",
            "width":640,"future_key":{"x":1}})");
    EXPECT_EQ(metadata.details.title(), "Old");
    EXPECT_EQ(metadata.details.visibility(), VideoVisibility::publicVideo);
    EXPECT_FALSE(metadata.poster);
    EXPECT_FALSE(metadata.size) << "a width without a height gives no size";
    EXPECT_FALSE(metadata.audio);
    auto written = decodeJson(metadata.encoded());
    EXPECT_FALSE(written.contains("has_audio"));
    EXPECT_FALSE(written.contains("future_key"));
    EXPECT_FALSE(written.contains("width"));
    EXPECT_EQ(written["visibility"], "public");
}

TEST(VideoMetadataTest, AnUnknownLoudnessIsCarriedThrough) {
    auto metadata = VideoMetadata::decoded(
        R"({"version":1,"title":"T","created":"2025-01-01T00:00:00Z","updated":"2025-01-01T00:00:00Z",
            "has_audio":true,"audio_loudness":"studio"})");
    EXPECT_EQ(metadata.audio, VideoAudio{AudioTrack{}});
    EXPECT_EQ(metadata.unknownAudioLoudness, "studio");
    EXPECT_EQ(decodeJson(metadata.encoded())["audio_loudness"], "studio");

    auto silent = VideoMetadata::decoded(
        R"({"version":1,"title":"T","created":"2025-01-01T00:00:00Z","updated":"2025-01-01T00:00:00Z","has_audio":false})");
    EXPECT_EQ(silent.audio, VideoAudio{NoAudioTrack{}});
    auto json = decodeJson(silent.encoded());
    EXPECT_EQ(json["has_audio"], false);
    EXPECT_FALSE(json.contains("audio_loudness"));
}

TEST(VideoMetadataTest, RefusesWhatItCannotTrust) {
    const std::string dates = R"("created":"2025-01-01T00:00:00Z","updated":"2025-01-01T00:00:00Z")";
    EXPECT_EQ(failureOf(R"({"version":2,"title":"T",)" + dates + "}"),
              "video.json has version 2, from a newer version of Vorlen. This app reads version 1. Update the app.");
    EXPECT_EQ(failureOf(R"({"version":0,"title":"T",)" + dates + "}"), "video.json has version 0, which is not valid.");
    EXPECT_EQ(failureOf(R"({"version":1,"title":"T","visibility":"private",)" + dates + "}"),
              "“private” is not a visibility");
    EXPECT_EQ(failureOf(R"({"version":1,"title":"T","created":"yesterday","updated":"2025-01-01T00:00:00Z"})"),
              "“yesterday” is not an ISO 8601 date");
    EXPECT_EQ(failureOf(R"({"version":1,"title":"T","poster":{"name":"../x.jpg","width":1,"height":1},)" + dates + "}"),
              "“../x.jpg” is not a plain file name");
    EXPECT_EQ(failureOf(R"({"version":1,"title":"T","poster":{"name":".hidden","width":1,"height":1},)" + dates + "}"),
              "“.hidden” is not a plain file name");
    EXPECT_EQ(failureOf(R"({"version":1,)" + dates + "}"), "video.json has no “title”");
    EXPECT_NE(failureOf("{not json").find("video.json is not valid JSON"), std::string::npos);
    // The version is judged before anything else, so a newer record is never called broken.
    EXPECT_EQ(failureOf(R"({"version":3})"),
              "video.json has version 3, from a newer version of Vorlen. This app reads version 1. Update the app.");
}

}  // namespace
}  // namespace vorlen
