#include <gtest/gtest.h>

#include <fmt/format.h>

#include <map>

#include "core/base/Files.hpp"
#include "core/library/Library.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "testing/FailureText.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/MediaClip.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using testing::Fault;
using testing::failureOf;
using testing::FaultProxy;
using testing::RgwServer;
namespace fs = std::filesystem;

constexpr double clipSeconds = 4;

// Short published videos, one with a tone and one without sound, and new audio
// files for them; each test publishes into a fresh bucket through a proxy.
class LibraryAudioRgwTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        clips = new testing::ClipFolder;
        const auto picture = testing::lavfiVideo(160, 90, clipSeconds) + " ";
        const auto encode = " -c:v libx264 -preset ultrafast -c:a aac -shortest";
        withSound = build("Harbour", clips->make("harbour.mp4", picture + testing::lavfiTone(clipSeconds) + encode));
        silent = build("Quiet", clips->make("quiet.mp4", picture + "-c:v libx264 -preset ultrafast"));
    }
    static void TearDownTestSuite() {
        withSound.reset();
        silent.reset();
        delete clips;
    }

    static Publisher basePublisher() {
        Publisher publisher;
        publisher.tools = Tools::locate();
        publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
        publisher.workRoot = clips->path() / "work";
        publisher.maxChunkBytes = 40'000;  // the audio spans several chunk files
        return publisher;
    }
    static std::shared_ptr<BuiltFolder> build(const std::string& title, const fs::path& source) {
        const auto publisher = basePublisher();
        return publisher.build(publisher.inspect(source),
                               VideoDetails(title, "R-7", std::nullopt, VideoVisibility::publicVideo), AudioLoudness::web,
                               std::nullopt, nullptr);
    }

    LibraryAudioRgwTest()
        : direct_(RgwServer::shared().makeBucket()),
          proxy_(RgwServer::shared().endpoint(), RgwServer::shared().credentials()) {
        const auto bucket = RgwServer::shared().client(direct_->location().bucket, proxy_.endpoint());
        publisher_ = basePublisher();
        publisher_.destination = Destination{bucket, "videos/", "rgw"};
        publisher_.upload.maxRetries = 0;
        library_ = Library{publisher_.destination, bucket->location(), publisher_.upload, nullptr};
    }

    void publish(const std::string& folder, BuiltFolder& built) {
        UploadJournal journal;
        publisher_.publish(built, {folder, folder}, journal, nullptr);
    }

    AudioReplacement reimport(const std::string& folder, const fs::path& file, AudioLoudness loudness) {
        const auto target = library_.replacementTarget(folder);
        const auto built = library_.buildAudio(target, inspectAudio(publisher_.tools, file), loudness, publisher_, nullptr);
        UploadJournal journal;
        return library_.replaceAudio(target, *built, publisher_, journal, nullptr);
    }

    // Every object of the folder with its ETag.
    std::map<std::string, std::string> objects(const std::string& folder) const {
        std::map<std::string, std::string> found;
        for (const auto& page : direct_->listAll("videos/" + folder + "/"))
            for (const auto& object : page.objects)
                found[object.key.substr(("videos/" + folder + "/").size())] = object.etag.value_or("");
        return found;
    }

    static inline testing::ClipFolder* clips = nullptr;
    static inline std::shared_ptr<BuiltFolder> withSound;
    static inline std::shared_ptr<BuiltFolder> silent;

    std::shared_ptr<S3Bucket> direct_;
    FaultProxy proxy_;
    Publisher publisher_;
    Library library_;
};

TEST_F(LibraryAudioRgwTest, ThePublishedAudioComesBackAtANewLoudnessAndThePictureStaysAsItWas) {
    publish("harbour", *withSound);
    const auto before = objects("harbour");
    const auto record = *library_.video("harbour").metadata();

    // No file at hand: the source is the video's own audio, read from the bucket.
    const auto target = library_.replacementTarget("harbour");
    EXPECT_EQ(Library::publishedAudio(target), PublishedAudio{"a_stereo.m3u8"});
    const auto source = library_.savePublishedAudio(target, clips->path());
    std::uintmax_t published = 0;
    for (const auto& file : withSound->built().media)
        if (file.starts_with("a_stereo/")) published += fs::file_size(withSound->directory() / file);
    EXPECT_EQ(fs::file_size(source), published);
    const auto built = library_.buildAudio(target, inspectAudio(publisher_.tools, source), AudioLoudness::broadcast, publisher_, nullptr);
    UploadJournal journal;
    const auto replaced = library_.replaceAudio(target, *built, publisher_, journal, nullptr);
    EXPECT_FALSE(replaced.metadataFailure || replaced.oldFilesFailure);
    EXPECT_NE(journal.entries().front().find("audio replacement started: 3 files, "), std::string::npos)
        << journal.entries().front();

    // The record takes the new loudness, and keeps its creation and details.
    const auto after = *library_.video("harbour").metadata();
    EXPECT_EQ(after.audio, VideoAudio(AudioTrack{AudioLoudness::broadcast}));
    EXPECT_EQ(after.created, record.created);
    EXPECT_EQ(after.details, record.details);
    EXPECT_EQ(replaced.metadata, after);

    // The picture's objects are the same; the old audio files are gone, the new ones lie under one prefix.
    const auto now = objects("harbour");
    std::string prefix;
    for (const auto& [file, etag] : before) {
        if (file.starts_with("v_") || file.starts_with("poster")) {
            EXPECT_EQ(now.at(file), etag) << file;
        } else if (file.starts_with("a_")) {
            EXPECT_FALSE(now.contains(file)) << file;
        }
    }
    for (const auto& [file, etag] : now)
        if (file.starts_with("r-")) prefix = file.substr(0, 11);
    EXPECT_TRUE(now.contains(prefix + "a_stereo.m3u8") && now.contains(prefix + "a_stereo/001.mp4"));
    const auto master = direct_->object("videos/harbour/master.m3u8").value();
    EXPECT_EQ(HLSMasterPlaylist::audio(master), (std::vector<HLSMasterPlaylist::AudioMedia>{{prefix + "a_stereo.m3u8", 2}}));
    const auto mpd = direct_->object("videos/harbour/manifest.mpd").value();
    EXPECT_NE(mpd.find("sourceURL=\"" + prefix + "a_stereo/001.mp4\""), std::string::npos) << mpd;
    EXPECT_NE(mpd.find("sourceURL=\"v_"), std::string::npos) << mpd;
}

TEST_F(LibraryAudioRgwTest, ASourceThatDoesNotFitTheVideoIsRefusedAndChangesNothing) {
    publish("harbour", *withSound);
    publish("quiet", *silent);
    const auto harbour = objects("harbour");
    const auto quiet = objects("quiet");
    auto refusal = [&](const std::string& folder, const std::string& name, const std::string& arguments) {
        const auto file = clips->make(name, arguments);
        return failureOf([&] { reimport(folder, file, AudioLoudness::web); });
    };
    const auto tone = testing::lavfiTone(clipSeconds);

    EXPECT_EQ(refusal("quiet", "tone.m4a", tone),
              "The video in the site has no audio, so Vorlen cannot give it new audio. To add the audio of \u201ctone.m4a\u201d, "
              "use \u201cRe-import Video and Audio\u201d.");
    EXPECT_EQ(refusal("harbour", "picture.mp4", testing::lavfiVideo(160, 90, clipSeconds) + " -c:v libx264 -preset ultrafast"),
              "\u201cpicture.mp4\u201d has no audio, so Vorlen did not change the audio of the video.");
    EXPECT_EQ(refusal("harbour", "surround.m4a", testing::lavfiTone(clipSeconds, 6)),
              "\u201csurround.m4a\u201d has 5.1 surround audio, and the video in the site has stereo audio. To change the "
              "audio renditions, use \u201cRe-import Video and Audio\u201d.");
    EXPECT_EQ(refusal("harbour", "long.m4a", testing::lavfiTone(clipSeconds + 3)),
              "\u201clong.m4a\u201d is 7 seconds long, and the video in the site is 4 seconds long. A file of a different "
              "length can be a different edit, and its audio would not match the picture. Choose the file of this video, "
              "or use \u201cRe-import Video and Audio\u201d.");

    EXPECT_EQ(objects("harbour"), harbour);
    EXPECT_EQ(objects("quiet"), quiet);
}

TEST_F(LibraryAudioRgwTest, AFailureBeforeTheSwitchLeavesNoPrefixBehind) {
    publish("harbour", *withSound);
    const auto before = objects("harbour");
    const auto file = clips->make("again.m4a", testing::lavfiTone(clipSeconds));
    // The new media playlist cannot be written: the upload fails after the chunks went up.
    proxy_.setPolicy([](const testing::ProxyRequest& request) {
        return request.method == "PUT" && request.target.find("/a_stereo.m3u8") != std::string::npos
                   ? Fault::respond(500, "<Error><Code>InternalError</Code></Error>")
                   : Fault::none();
    });
    EXPECT_NE(failureOf([&] { reimport("harbour", file, AudioLoudness::broadcast); }), "no failure");
    EXPECT_EQ(objects("harbour"), before);
}

}  // namespace
}  // namespace vorlen
