#include <gtest/gtest.h>

#include <fmt/format.h>

#include <random>
#include <regex>

#include "core/base/Files.hpp"
#include "core/library/Library.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/Naming.hpp"
#include "testing/FailureText.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/MediaClip.hpp"
#include "core/storage/VideoFolderHeaders.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using testing::Fault;
using testing::failureOf;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;
namespace fs = std::filesystem;

const VideoDetails holiday("Holiday", "H-1", std::nullopt, VideoVisibility::publicVideo);

std::string master(const std::string& rendition, bool withSubtitles) {
    return fmt::format("#EXTM3U\n#EXT-X-INDEPENDENT-SEGMENTS\n"
                       "#EXT-X-MEDIA:TYPE=AUDIO,URI=\"a_stereo.m3u8\",GROUP-ID=\"audio\",NAME=\"stereo\",CHANNELS=\"2\"\n{}"
                       "#EXT-X-STREAM-INF:BANDWIDTH=500000,CODECS=\"avc1.64001e,mp4a.40.2\",RESOLUTION=640x360,AUDIO=\"audio\"{}\n"
                       "{}.m3u8\n",
                       withSubtitles ? "#EXT-X-MEDIA:TYPE=SUBTITLES,URI=\"sub_en.m3u8\",GROUP-ID=\"subtitles\",LANGUAGE=\"en\","
                                       "NAME=\"English\",DEFAULT=NO,AUTOSELECT=YES,CHARACTERISTICS=\"public.machine-generated\"\n"
                                     : "",
                       withSubtitles ? ",SUBTITLES=\"subtitles\"" : "", rendition);
}

std::string mpd(const std::string& rendition, bool withSubtitles) {
    return fmt::format(R"(<?xml version="1.0"?>
<MPD xmlns="urn:mpeg:dash:schema:mpd:2011" type="static" mediaPresentationDuration="PT4S">
  <Period id="0">
    <AdaptationSet id="0" contentType="video">
      <Representation id="0" bandwidth="500000" mimeType="video/mp4">
        <SegmentList timescale="1000"><Initialization sourceURL="{0}/001.mp4" range="0-9"/><SegmentURL media="{0}/001.mp4" mediaRange="10-19"/></SegmentList>
      </Representation>
    </AdaptationSet>{1}
  </Period>
</MPD>
)",
                       rendition,
                       withSubtitles ? R"(
    <AdaptationSet contentType="text" mimeType="text/vtt" lang="en"><Label>English</Label><Representation id="sub_en" bandwidth="10"><BaseURL>sub_en.vtt</BaseURL></Representation></AdaptationSet>)"
                                     : "");
}

// A published folder of small objects, and new builds of it on disk, changed
// through a proxy that sees every request.
class LibraryReplacementRgwTest : public ::testing::Test {
protected:
    LibraryReplacementRgwTest()
        : direct_(RgwServer::shared().makeBucket()),
          proxy_(RgwServer::shared().endpoint(), RgwServer::shared().credentials()) {
        const auto bucket = RgwServer::shared().client(direct_->location().bucket, proxy_.endpoint());
        UploadOptions options;
        options.maxRetries = 0;
        const Destination destination{bucket, "videos/", "rgw"};
        library_ = Library{destination, bucket->location(), options, nullptr};
        publisher_.destination = destination;
        publisher_.upload = options;
    }

    void publish(const std::string& folder, bool withSubtitles = true, bool withMPD = true) {
        auto put = [&](const std::string& file, const std::string& text) {
            direct_->put("videos/" + folder + "/" + file, RequestBody::bytes(text), videoFolderHeaders(file));
        };
        const auto time = parseIso8601("2026-01-01T00:00:00Z").value();
        put("video.json", VideoMetadata{holiday, PosterFile{"poster-0a1b2c3d.jpg", {16, 9}}, 4.0, PixelSize{640, 360}, time,
                                        time, AudioTrack{}, std::nullopt}
                              .encoded());
        for (const auto* file : {"v_360/001.mp4", "a_stereo/001.mp4", "poster-0a1b2c3d.jpg", "poster.jpg", "v_360.m3u8", "a_stereo.m3u8"})
            put(file, file);
        if (withSubtitles) {
            put("sub_en.vtt", "WEBVTT\n\n00:00:00.500 --> 00:00:01.500\nHello\n");
            put("sub_en.m3u8", SubtitleStream::mediaPlaylist("sub_en", 4));
        }
        if (withMPD) put("manifest.mpd", mpd("v_360", withSubtitles));
        put("master.m3u8", master("v_360", withSubtitles));
    }

    // What a build of the new file makes: a taller rendition, its own poster and record.
    std::shared_ptr<BuiltFolder> build() {
        const auto directory = work_.path() / fmt::format("build-{}", builds_++);
        const std::vector<std::string> media{"v_720/001.mp4", "a_stereo/001.mp4"};
        const std::vector<std::string> manifests{"v_720.m3u8", "a_stereo.m3u8", "master.m3u8", "manifest.mpd"};
        fs::create_directories(directory / "v_720");
        fs::create_directories(directory / "a_stereo");
        for (const auto& file : media) writeFileAtomically(directory / file, "new " + file);
        writeFileAtomically(directory / "v_720.m3u8", "#EXTM3U\nv_720/001.mp4\n");
        writeFileAtomically(directory / "a_stereo.m3u8", "#EXTM3U\na_stereo/001.mp4\n");
        writeFileAtomically(directory / "master.m3u8", master("v_720", false));
        writeFileAtomically(directory / "manifest.mpd", mpd("v_720", false));
        const auto now = parseIso8601("2026-06-01T00:00:00Z").value();
        const VideoMetadata metadata{VideoDetails("new.mp4", std::nullopt, std::nullopt, VideoVisibility::publicVideo),
                                     PosterFile{"poster-55aa55aa.jpg", {1280, 720}}, 7.5, PixelSize{1280, 720}, now, now,
                                     AudioTrack{}, std::nullopt};
        Built built{media, Poster{"new poster", "poster-55aa55aa.jpg", 1280, 720, 1.0}, nullptr, metadata, manifests};
        return std::make_shared<BuiltFolder>(std::move(built), directory, 100, WorkDirectory{directory});
    }

    VideoReplacement replace(const std::string& folder) {
        UploadJournal journal;
        return library_.replace(library_.replacementTarget(folder), *build(), publisher_, journal, {});
    }

    std::vector<std::string> files(const std::string& folder) const {
        auto keys = direct_->listKeys("videos/" + folder + "/");
        for (auto& key : keys) key.erase(0, ("videos/" + folder + "/").size());
        return keys;
    }
    std::string text(const std::string& key) const { return direct_->object("videos/" + key).value_or("(none)"); }
    // The writes seen since the start: "PUT key" or "delete".
    std::vector<std::string> writes() const {
        std::vector<std::string> seen;
        for (const auto& request : proxy_.requests()) {
            const auto key = request.target.find("/videos/");
            if (request.method == "PUT" && key != std::string::npos) seen.push_back("PUT " + request.target.substr(key + 1));
            else if (request.method == "POST" || request.method == "DELETE") seen.push_back("delete");
        }
        return seen;
    }
    void failWhen(const std::function<bool(const ProxyRequest&)>& matches) {
        proxy_.setPolicy([matches](const ProxyRequest& request) {
            return matches(request) ? Fault::respond(500, "<Error><Code>InternalError</Code></Error>") : Fault::none();
        });
    }

    testing::ClipFolder work_;
    int builds_ = 0;
    std::shared_ptr<S3Bucket> direct_;
    FaultProxy proxy_;
    Library library_;
    Publisher publisher_;
};

TEST_F(LibraryReplacementRgwTest, TheNewMediaGoesInBesideTheOldAndTheManifestsSwitchBeforeAnythingIsDeleted) {
    publish("holiday");
    const auto replaced = replace("holiday");
    EXPECT_FALSE(replaced.metadataFailure || replaced.fixedPosterFailure || replaced.oldFilesFailure);

    const auto kept = files("holiday");
    ASSERT_EQ(kept.size(), 11u) << ::testing::PrintToString(kept);
    const auto prefix = kept.at(4).substr(0, 11);  // sorted after the manifests and the posters
    EXPECT_TRUE(prefix.starts_with("r-") && prefix.ends_with("/")) << prefix;
    for (const auto* file : {"a_stereo.m3u8", "a_stereo/001.mp4", "sub_en.m3u8", "sub_en.vtt", "v_720.m3u8", "v_720/001.mp4"})
        EXPECT_NE(std::find(kept.begin(), kept.end(), prefix + file), kept.end()) << file;
    EXPECT_EQ(text("holiday/" + prefix + "v_720/001.mp4"), "new v_720/001.mp4");
    EXPECT_EQ(text("holiday/" + prefix + "sub_en.vtt"), "WEBVTT\n\n00:00:00.500 --> 00:00:01.500\nHello\n");

    // The switch names the new files, and the tracks survive with their names and kinds.
    const auto newMaster = text("holiday/master.m3u8");
    EXPECT_NE(newMaster.find("\n" + prefix + "v_720.m3u8\n"), std::string::npos) << newMaster;
    EXPECT_EQ(HLSMasterPlaylist::subtitles(newMaster),
              (std::vector<PublishedSubtitle>{{"sub_en", "en", "English", SubtitleTrack::Kind::autoGenerated, prefix}}));
    EXPECT_NE(text("holiday/manifest.mpd").find("<BaseURL>" + prefix + "sub_en.vtt</BaseURL>"), std::string::npos);
    EXPECT_NE(text("holiday/manifest.mpd").find("media=\"" + prefix + "v_720/001.mp4\""), std::string::npos);

    // The record keeps its creation, details and poster, and takes the new media's facts.
    const auto read = library_.video("holiday");
    const auto* record = read.metadata();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->details, holiday);
    EXPECT_EQ(record->created, parseIso8601("2026-01-01T00:00:00Z").value());
    EXPECT_EQ(record->poster, (PosterFile{"poster-0a1b2c3d.jpg", {16, 9}}));
    EXPECT_EQ(record->duration, 7.5);
    EXPECT_EQ(record->size, (PixelSize{1280, 720}));
    EXPECT_EQ(replaced.published.metadata, *record);

    // Order: every new file, then manifest.mpd, then master.m3u8, and only then deletions.
    const auto seen = writes();
    const auto at = [&](const std::string& entry) { return std::find(seen.begin(), seen.end(), entry) - seen.begin(); };
    EXPECT_EQ(at("PUT videos/holiday/manifest.mpd"), 6) << ::testing::PrintToString(seen);
    EXPECT_EQ(at("PUT videos/holiday/master.m3u8"), 7);
    EXPECT_EQ(at("PUT videos/holiday/video.json"), 8);
    EXPECT_EQ(at("delete"), 9);

    // A second replacement takes the first one's prefix away.
    replace("holiday");
    const auto again = files("holiday");
    EXPECT_EQ(again.size(), 11u);
    EXPECT_EQ(std::count_if(again.begin(), again.end(), [&](const auto& file) { return file.starts_with(prefix); }), 0);
}

TEST_F(LibraryReplacementRgwTest, AChangeByAnotherComputerBeforeTheSwitchWinsAndTheNewFilesGo) {
    publish("holiday");
    const auto target = library_.replacementTarget("holiday");
    direct_->put("videos/holiday/master.m3u8", RequestBody::bytes(master("v_360", false)), {});  // another computer's change
    UploadJournal journal;
    EXPECT_EQ(failureOf([&] { library_.replace(target, *build(), publisher_, journal, {}); }),
              "A different computer changed \u201cHoliday\u201d while Vorlen prepared the new video, so the video did not "
              "change. Try again to replace the video as it is now.");
    EXPECT_EQ(text("holiday/master.m3u8"), master("v_360", false));
    EXPECT_EQ(text("holiday/manifest.mpd"), mpd("v_360", true)) << "the MPD was put back";
    EXPECT_EQ(files("holiday").size(), 11u) << "no new prefix stays";
}

TEST_F(LibraryReplacementRgwTest, AFailedMasterWriteRestoresTheMPDAndAFailedRestoreSaysPlayersDisagree) {
    publish("holiday");
    failWhen([](const ProxyRequest& request) {
        return request.method == "PUT" && request.target.find("/master.m3u8") != std::string::npos;
    });
    EXPECT_NE(failureOf([&] { replace("holiday"); }), "no failure");
    EXPECT_EQ(text("holiday/manifest.mpd"), mpd("v_360", true));
    EXPECT_EQ(files("holiday").size(), 11u);

    int mpdWrites = 0;
    failWhen([&](const ProxyRequest& request) {
        return request.method == "PUT" && (request.target.find("/master.m3u8") != std::string::npos ||
                                           (request.target.find("/manifest.mpd") != std::string::npos && ++mpdWrites > 1));
    });
    EXPECT_EQ(failureOf([&] { replace("holiday"); }),
              "Vorlen could not finish the change of \u201choliday\u201d. Some browsers can play the new video and others "
              "the old video. Try again to replace the video.");
    EXPECT_GT(files("holiday").size(), 11u) << "the new files stay while DASH players may use them";
    proxy_.setPolicy([](const ProxyRequest&) { return Fault::none(); });
    replace("holiday");  // a second try repairs it
    EXPECT_EQ(files("holiday").size(), 11u);
}

TEST_F(LibraryReplacementRgwTest, AFolderWithoutDASHGetsOneAndAFolderThatDoesNotPlayIsRefused) {
    publish("holiday", false, false);
    replace("holiday");
    EXPECT_NE(text("holiday/manifest.mpd").find("v_720/001.mp4"), std::string::npos);
    EXPECT_EQ(files("holiday").size(), 9u);

    direct_->put("videos/broken/video.json", RequestBody::bytes(text("holiday/video.json")), {});
    EXPECT_EQ(failureOf([&] { library_.replacementTarget("broken"); }),
              "cannot replace the video of \u201cbroken\u201d: it is not playable");
}

TEST_F(LibraryReplacementRgwTest, SubtitleTracksChangeThroughTheSameSwitch) {
    publish("holiday");
    writeFileAtomically(work_.path() / "de.srt", "1\n0:00:01,000 --> 0:00:02,500\n<font color=red>Hallo</font>\n");
    writeFileAtomically(work_.path() / "en.vtt", "\xEF\xBB\xBFWEBVTT\n\n00:00:00.000 --> 00:00:01.000\nHi\n");
    const auto added = library_.changeSubtitles(library_.video("holiday"),
                                                SubtitleChange{{}, {{"sub_en", work_.path() / "en.vtt", "en"}},
                                                               {{work_.path() / "de.srt", "de", SubtitleTrack::Kind::captions}}});
    EXPECT_FALSE(added.oldFilesFailure);
    ASSERT_EQ(added.subtitles.size(), 2u);
    const auto english = added.subtitles[0], german = added.subtitles[1];
    EXPECT_TRUE(english.baseName.starts_with("sub_en-") && english.baseName != "sub_en") << english.baseName;
    EXPECT_EQ(english.kind, SubtitleTrack::Kind::autoGenerated) << "a replaced track keeps its kind";
    EXPECT_EQ(german.name, "German");
    EXPECT_EQ(german.kind, SubtitleTrack::Kind::captions);
    EXPECT_EQ(text("holiday/" + german.baseName + ".vtt"), "WEBVTT\n\n00:00:01.000 --> 00:00:02.500\nHallo\n\n");
    EXPECT_EQ(text("holiday/sub_en.vtt"), "(none)") << "the replaced track's files go";
    EXPECT_NE(text("holiday/manifest.mpd").find(german.baseName + ".vtt"), std::string::npos);
    EXPECT_EQ(text("holiday/manifest.mpd").find("<BaseURL>sub_en.vtt"), std::string::npos);

    // The last tracks go, and with them the group on the variants.
    library_.changeSubtitles(library_.video("holiday"), SubtitleChange{{english.baseName, german.baseName}, {}, {}});
    EXPECT_EQ(text("holiday/master.m3u8").find("SUBTITLES"), std::string::npos);
    EXPECT_EQ(files("holiday").size(), 9u);

    // A file that is no subtitle file is refused before anything is written.
    writeFileAtomically(work_.path() / "notes.srt", "just some notes\n");
    const auto before = writes().size();
    EXPECT_EQ(failureOf([&] {
                  library_.changeSubtitles(library_.video("holiday"),
                                           SubtitleChange{{}, {}, {{work_.path() / "notes.srt", "fr", SubtitleTrack::Kind::subtitles}}});
              }),
              fmt::format("\u201c{}\u201d is not a subtitle file. Vorlen reads WebVTT and SubRip files.",
                          (work_.path() / "notes.srt").filename().string()));
    EXPECT_EQ(writes().size(), before);
}

TEST_F(LibraryReplacementRgwTest, ASubtitleChangeThatMeetsAnotherComputersChangeLeavesTheTracksAsTheyWere) {
    publish("holiday");
    const auto video = library_.video("holiday");
    writeFileAtomically(work_.path() / "fr.vtt", "WEBVTT\n\n00:00:00.000 --> 00:00:01.000\nSalut\n");
    // The other computer's switch lands between this change's reading and its own switch.
    proxy_.setPolicy([&](const ProxyRequest& request) {
        if (request.method == "PUT" && request.target.find(".vtt") != std::string::npos)
            direct_->put("videos/holiday/manifest.mpd", RequestBody::bytes(mpd("v_360", false)), {});
        return Fault::none();
    });
    EXPECT_EQ(failureOf([&] {
                  library_.changeSubtitles(video, SubtitleChange{{}, {}, {{work_.path() / "fr.vtt", "fr", SubtitleTrack::Kind::subtitles}}});
              }),
              "A different computer changed \u201cHoliday\u201d while Vorlen saved the subtitles, so the subtitles did not "
              "change. Try again to change the subtitles.");
    EXPECT_EQ(files("holiday").size(), 11u) << "the new track's files went again";
    EXPECT_EQ(text("holiday/master.m3u8"), master("v_360", true));
}

// Every address that the manifests of a folder name, and the media playlists' own, must be there.
void expectPlayableOrUnplayable(S3Bucket& bucket, const std::string& folder) {
    const auto prefix = "videos/" + folder + "/";
    const auto master = bucket.object(prefix + "master.m3u8");
    if (!master) return;  // not playable: the library shows it so, and a second try repairs it
    std::vector<std::string> named;
    std::istringstream lines(*master);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        if (line.front() != '#') named.push_back(line);
        if (auto uri = line.find("URI=\""); uri != std::string::npos)
            named.push_back(line.substr(uri + 5, line.find('"', uri + 5) - uri - 5));
    }
    const auto mpd = bucket.object(prefix + "manifest.mpd").value_or("");
    const std::regex address(R"((?:sourceURL|media)="([^"]+)\"|<BaseURL>([^<]+)</BaseURL>)");
    for (auto match = std::sregex_iterator(mpd.begin(), mpd.end(), address); match != std::sregex_iterator(); ++match)
        named.push_back((*match)[1].matched ? (*match)[1].str() : (*match)[2].str());
    for (const auto& file : named) {
        EXPECT_TRUE(bucket.info(prefix + file)) << folder << " names " << file << " which is not there";
        if (!file.ends_with(".m3u8")) continue;
        const auto slash = file.rfind('/');
        std::istringstream media(bucket.object(prefix + file).value_or(""));
        for (std::string line; std::getline(media, line);) {
            if (!line.empty() && line.front() != '#') {
                EXPECT_TRUE(bucket.info(prefix + file.substr(0, slash == std::string::npos ? 0 : slash + 1) + line))
                    << file << " names " << line;
            }
        }
    }
}

TEST_F(LibraryReplacementRgwTest, UnderInjectedFaultsEachChangeEndsWholeOrWithItsWordsAndASecondTryRepairs) {
    writeFileAtomically(work_.path() / "fr.vtt", "WEBVTT\n\n00:00:00.000 --> 00:00:01.000\nSalut\n");
    const Poster poster{"new poster", "poster-77aa77aa.jpg", 320, 180, std::nullopt};
    const VideoDetails renamed("Renamed", std::nullopt, std::nullopt, VideoVisibility::publicVideo);

    std::size_t failures = 0;
    for (unsigned seed = 1; seed <= 8; ++seed) {
        // Retries absorb most faults; without them, the faults reach the changes themselves.
        UploadOptions options;
        options.maxRetries = seed <= 3 ? 3 : 0;
        options.retryDelay = std::chrono::duration<double>(0.01);
        library_.options = options;
        publisher_.upload = options;
        const auto folder = fmt::format("trip-{}", seed);
        publish(folder);
        std::string current = folder;
        // Each change as the library runs it: read afresh, then change. The second of
        // a pair is the person's retry, without faults.
        const std::vector<std::pair<std::string, std::function<void()>>> changes{
            {"details", [&] { library_.saveDetails(library_.video(current), renamed); }},
            {"poster", [&] { library_.changePoster(library_.video(current), poster); }},
            {"subtitles",
             [&] {
                 library_.changeSubtitles(library_.video(current),
                                          SubtitleChange{{}, {}, {{work_.path() / "fr.vtt", "fr", SubtitleTrack::Kind::subtitles}}});
             }},
            {"replace", [&] { replace(current); }},
            {"move",
             [&] {
                 const auto moved = library_.move(library_.video(current), Naming::unlistedName(folder), renamed);
                 current = moved.video.folder;
             }},
            {"delete", [&] { library_.remove(library_.video(current)); }},
        };
        std::mt19937 random(seed);
        for (const auto& [name, change] : changes) {
            proxy_.setPolicy([&random](const ProxyRequest&) { return Fault::tenthOfTheTime(random()); });
            const auto outcome = failureOf(change);
            proxy_.setPolicy([](const ProxyRequest&) { return Fault::none(); });
            // Whatever happened, every folder reads, and a folder that plays has all it names.
            for (const auto& video : library_.read()) {
                EXPECT_FALSE(video.isUnreadable()) << name << ": " << video.folder;
                expectPlayableOrUnplayable(*direct_, video.folder);
            }
            if (outcome == "no failure") continue;
            ++failures;
            EXPECT_EQ(outcome.find("Cancelled"), std::string::npos) << name << ": " << outcome;
            EXPECT_EQ(failureOf(change), "no failure") << name << " after " << outcome;
        }
        EXPECT_TRUE(files(current).empty()) << "the folder is gone at the end";
    }
    EXPECT_GT(failures, 0u) << "the faults reached no change";
    RecordProperty("failedFirstTries", static_cast<int>(failures));
    RecordProperty("faults", static_cast<int>(proxy_.faultsInjected()));
}

}  // namespace
}  // namespace vorlen
