#include "app/LibraryModel.hpp"
#include "app/LibraryWords.hpp"
#include "app/MediaCachePurge.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace vorlen::app {
namespace {

LibraryVideo video(const std::string& folder, const std::string& title, const char* created,
                   VideoVisibility visibility = VideoVisibility::publicVideo) {
    const auto time = parseIso8601(created).value();
    return {folder, folder + "/",
            LibraryVideo::Valid{{VideoDetails(title, std::nullopt, std::nullopt, visibility), std::nullopt, 30.0,
                                 std::nullopt, time, time, std::nullopt, std::nullopt}},
            true, std::nullopt};
}

class ScriptedLibraryService final : public LibraryService {
public:
    std::optional<std::vector<LibraryVideo>> cached;
    std::vector<LibraryVideo> current;
    std::optional<std::string> failure;
    std::mutex mutex;
    std::condition_variable released;
    bool holdChanges = false;
    std::vector<std::string> changed;

    // A change waits while holdChanges stands, so that the test can try another meanwhile.
    void change(const std::string& what) {
        std::unique_lock lock(mutex);
        released.wait(lock, [&] { return !holdChanges; });
        changed.push_back(what);
    }
    void release() {
        std::lock_guard lock(mutex);
        holdChanges = false;
        released.notify_all();
    }

    std::optional<std::vector<LibraryVideo>> cachedVideos(const BucketAccess&) override { return cached; }
    std::vector<LibraryVideo> read(const BucketAccess&, const std::function<void(const LibraryReadProgress&)>& onProgress) override {
        onProgress({LibraryReadProgress::Reading{1, 1}});
        if (failure) throw std::runtime_error(*failure);
        return current;
    }
    std::optional<std::filesystem::path> thumbnail(const BucketAccess&, const LibraryVideo&) override { return std::nullopt; }
    void clearCache() override {}
    LibraryVideo video(const BucketAccess&, const std::string& folder) override {
        return {folder, folder + "/", LibraryVideo::Missing{}, true, std::nullopt};
    }
    LibraryVideo saveDetails(const BucketAccess&, const LibraryVideo& video, const VideoDetails&) override {
        change("saved " + video.folder);
        return video;
    }
    PosterChange changePoster(const BucketAccess&, const LibraryVideo&, const std::filesystem::path&) override {
        throw std::runtime_error("The poster is not a JPEG image.");
    }
    PosterChange changePosterToFrame(const BucketAccess&, const LibraryVideo&, double) override {
        throw std::runtime_error("no frame");
    }
    VideoMove changeVisibility(const BucketAccess&, const LibraryVideo& video, VideoVisibility) override {
        change("moved " + video.folder);
        return {video, std::string("403 AccessDenied")};
    }
    void remove(const BucketAccess&, const LibraryVideo& video) override { change("deleted " + video.folder); }
    std::vector<PublishedSubtitle> subtitles(const BucketAccess&, const LibraryVideo&) override { return {}; }
    SubtitleChangeResult changeSubtitles(const BucketAccess&, const LibraryVideo& video, const SubtitleChange&) override {
        change("subtitles of " + video.folder);
        return {};
    }
    // Beta's old audio files cannot be deleted; the record of Gamma cannot be written.
    AudioReplacement reimportAudio(const BucketAccess&, const LibraryVideo& video, const std::optional<std::filesystem::path>& file,
                                   AudioLoudness loudness, const ProgressHandler&) override {
        change("audio of " + video.folder + " from " + (file ? file->string() : "its own audio") + " at " + rawValue(loudness));
        AudioReplacement result;
        if (video.folder == "b") result.oldFilesFailure = "403 AccessDenied";
        if (video.folder == "c") result.metadataFailure = "412 Precondition Failed";
        return result;
    }
    // This computer's token may not purge; the account token, when given, may.
    std::vector<std::string> purgedWithAccountToken;
    void purge(const BucketAccess&, const std::string& prefix, bool, const std::optional<std::string>& accountToken) override {
        if (!accountToken) throw VorlenError::config(MediaCachePurge::cannotPurge);
        purgedWithAccountToken.push_back(prefix);
    }
};

TEST(LibraryModelTest, TheCachedListShowsFirstAndAFailedReadingKeepsTheCurrentOne) {
    PostedQueue queue;
    auto service = std::make_shared<ScriptedLibraryService>();
    service->cached = std::vector{video("old", "Old", "2026-01-01T00:00:00Z")};
    service->current = {video("old", "Old", "2026-01-01T00:00:00Z"), video("new", "New", "2026-02-01T00:00:00Z")};
    SiteSummary site;
    site.pageHost = Hostname::parse("videos.example.com");
    auto model = LibraryModel::make(service, nullptr, [site] { return BucketAccess{site, std::nullopt}; }, site, queue);
    // A view learns of a reading from its first word on: the list it shows is about to change.
    std::vector<bool> toldRefreshing;
    model->onChange([&] { toldRefreshing.push_back(model->isRefreshing()); });

    model->refresh();
    EXPECT_EQ(toldRefreshing, std::vector<bool>{true});
    ASSERT_TRUE(model->listing());
    EXPECT_FALSE(model->listing()->isCurrent);
    EXPECT_EQ(model->listing()->entries.size(), 1u);
    queue.runUntil([&] { return !model->isRefreshing(); });
    ASSERT_TRUE(model->listing()->isCurrent);
    EXPECT_EQ(model->listing()->entries[1].page, "https://videos.example.com/new");

    service->failure = "The bucket does not answer.";
    model->refresh();
    queue.runUntil([&] { return !model->isRefreshing(); });
    EXPECT_EQ(model->refreshFailure(), "The bucket does not answer.");
    EXPECT_EQ(model->listing()->entries.size(), 2u);
}

TEST(LibraryModelTest, OneChangeAtATimeForAFolderAndWhatRemainsIsTold) {
    PostedQueue queue;
    auto service = std::make_shared<ScriptedLibraryService>();
    service->current = {video("a", "Alpha", "2026-01-01T00:00:00Z"), video("b", "Beta", "2026-01-02T00:00:00Z")};
    SiteSummary site;
    auto model = LibraryModel::make(service, nullptr, [site] { return BucketAccess{site, std::nullopt}; }, site, queue);
    int rebuilds = 0;
    model->videosDidChange = [&] { ++rebuilds; };
    model->refresh();
    queue.runUntil([&] { return !model->isRefreshing(); });
    const auto alpha = model->listing()->entries[0], beta = model->listing()->entries[1];
    const VideoDetails details("Alpha 2", std::nullopt, std::nullopt, VideoVisibility::publicVideo);

    service->holdChanges = true;
    EXPECT_FALSE(model->saveDetails(alpha, details));
    EXPECT_EQ(model->changes().at("a"), LibraryModel::Change::saving);
    const auto refused = model->remove(alpha);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->title, "Vorlen cannot change \u201cAlpha\u201d");
    model->setEditing("b", true);
    EXPECT_TRUE(model->remove(beta));
    EXPECT_FALSE(model->remove(beta, true));  // the edit window's own change
    service->release();
    queue.runUntil([&] { return model->changes().empty() && !model->isRefreshing(); });
    std::sort(service->changed.begin(), service->changed.end());  // two folders change at once
    EXPECT_EQ(service->changed, (std::vector<std::string>{"deleted b", "saved a"}));
    EXPECT_EQ(rebuilds, 2);
    EXPECT_EQ(model->problem()->title, "The Old Files of \u201cBeta\u201d Can Stay in the Cache");

    EXPECT_FALSE(model->changeVisibility(alpha, VideoVisibility::unlisted));
    queue.runUntil([&] { return model->changes().empty() && !model->isRefreshing(); });
    EXPECT_EQ(model->problem()->title, "\u201cAlpha\u201d Has a New Link, but Its Old Folder Remains");
    EXPECT_FALSE(model->changePoster(alpha, "/nowhere.png"));
    queue.runUntil([&] { return model->changes().empty() && !model->isRefreshing(); });
    EXPECT_EQ(model->problem(), (LibraryModel::Problem{"Cannot Change the Poster of \u201cAlpha\u201d", "The poster is not a JPEG image."}));

    const auto unreadable = LibraryEntry::from({"c", "c/", LibraryVideo::Unreadable{"newer"}, true, std::nullopt}, site);
    EXPECT_TRUE(model->remove(unreadable));
}

TEST(LibraryModelTest, ABulkChangeRunsOneVideoAfterAnotherAndSumsUpWhatRemains) {
    PostedQueue queue;
    auto service = std::make_shared<ScriptedLibraryService>();
    service->current = {video("a", "Alpha", "2026-01-01T00:00:00Z"), video("b", "Beta", "2026-01-02T00:00:00Z"),
                        video("c", "Gamma", "2026-01-03T00:00:00Z", VideoVisibility::unlisted)};
    SiteSummary site;
    auto model = LibraryModel::make(service, nullptr, [site] { return BucketAccess{site, std::nullopt}; }, site, queue);
    model->refresh();
    queue.runUntil([&] { return !model->isRefreshing(); });
    const auto entries = model->listing()->entries;
    model->setEditing("b", true);

    service->holdChanges = true;
    model->changeVisibility(entries, VideoVisibility::unlisted);
    EXPECT_EQ(model->bulkChange(), (LibraryModel::BulkChange{LibraryModel::BulkChange::Action::makeUnlisted, 3, 2}))
        << "Beta is refused and Gamma is unlisted already";
    EXPECT_EQ(model->changes().at("a"), LibraryModel::Change::waiting);
    EXPECT_TRUE(model->saveDetails(entries[0], VideoDetails("A", std::nullopt, std::nullopt, VideoVisibility::publicVideo)))
        << "a waiting video is refused other changes";
    service->release();
    queue.runUntil([&] { return !model->bulkChange() && !model->isRefreshing(); });
    EXPECT_EQ(service->changed, std::vector<std::string>{"moved a"});
    ASSERT_TRUE(model->problem());
    EXPECT_EQ(model->problem()->message,
              "Vorlen could not change this video:\n"
              "\u201cBeta\u201d: Vorlen cannot read the video.json of a video, its edit window is open, or a different "
              "change of it runs now\n\n"
              "These videos have new links, but Vorlen could not delete all of their old folders. Delete the old folders in "
              "the library, so that the old links cannot work:\n\u201cAlpha\u201d: 403 AccessDenied");

    // This computer's token may not purge: the account token does, asked for once a run.
    int asked = 0;
    model->accountToken = [&]() -> std::optional<std::string> {
        ++asked;
        return "account-token";
    };
    model->setEditing("b", false);
    model->dismissProblem();
    model->remove({entries[0], entries[1]});
    queue.runUntil([&] { return !model->bulkChange() && !model->isRefreshing(); });
    EXPECT_EQ(service->changed, (std::vector<std::string>{"moved a", "deleted a", "deleted b"}));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(service->purgedWithAccountToken, (std::vector<std::string>{"a/", "b/"}));
    EXPECT_FALSE(model->problem()) << "nothing stays in the cache";

    // A declined passphrase is told in its words.
    model->accountToken = []() -> std::optional<std::string> { throw Cancelled(); };
    model->dismissProblem();
    EXPECT_FALSE(model->remove(entries[2]));
    queue.runUntil([&] { return model->changes().empty() && !model->isRefreshing(); });
    EXPECT_EQ(model->problem(), (LibraryModel::Problem{"The Old Files of \u201cGamma\u201d Can Stay in the Cache",
                                                       LibraryWords::oldFilesInCache("The authentication was cancelled.")}));
}

TEST(LibraryModelTest, AudioIsReimportedForOneVideoOrManyAndWhatDidNotFollowIsTold) {
    PostedQueue queue;
    auto service = std::make_shared<ScriptedLibraryService>();
    service->current = {video("a", "Alpha", "2026-01-01T00:00:00Z"), video("b", "Beta", "2026-01-02T00:00:00Z"),
                        video("c", "Gamma", "2026-01-03T00:00:00Z")};
    SiteSummary site;
    auto model = LibraryModel::make(service, nullptr, [site] { return BucketAccess{site, std::nullopt}; }, site, queue);
    model->accountToken = []() -> std::optional<std::string> { return "account-token"; };
    model->refresh();
    queue.runUntil([&] { return !model->isRefreshing(); });
    const auto entries = model->listing()->entries;

    auto oldAudioStays = [](const std::string& failure) {
        AudioReplacement replaced;
        replaced.oldFilesFailure = failure;
        return replaced.notes().front();
    };
    auto recordStaysOld = [](const std::string& failure) {
        AudioReplacement replaced;
        replaced.metadataFailure = failure;
        return replaced.notes().front();
    };
    service->holdChanges = true;
    EXPECT_FALSE(model->reimportAudio(entries[1], std::filesystem::path("/music/beta.wav"), AudioLoudness::web));
    EXPECT_EQ(model->changes().at("b"), LibraryModel::Change::reimportingAudio);
    service->release();
    queue.runUntil([&] { return model->changes().empty() && !model->isRefreshing(); });
    EXPECT_EQ(model->problem(), (LibraryModel::Problem{"“Beta” Plays the New Audio",
                                                       oldAudioStays("403 AccessDenied")}));

    model->dismissProblem();
    model->reimportAudio(entries, AudioLoudness::broadcast);
    EXPECT_EQ(model->bulkChange(), (LibraryModel::BulkChange{LibraryModel::BulkChange::Action::reimportAudio, 3, 0}));
    queue.runUntil([&] { return !model->bulkChange() && !model->isRefreshing(); });
    EXPECT_EQ(service->changed, (std::vector<std::string>{"audio of b from /music/beta.wav at web",
                                                          "audio of a from its own audio at broadcast",
                                                          "audio of b from its own audio at broadcast",
                                                          "audio of c from its own audio at broadcast"}));
    ASSERT_TRUE(model->problem());
    EXPECT_EQ(model->problem()->message,
              "Vorlen could not change these videos:\n\u201cBeta\u201d: " + oldAudioStays("403 AccessDenied") +
                  "\n\u201cGamma\u201d: " + recordStaysOld("412 Precondition Failed"));
}

TEST(LibraryModelTest, EntriesAreOrderedAndSearchedAsPeopleExpect) {
    SiteSummary site;
    std::vector<LibraryEntry> entries;
    entries.push_back(LibraryEntry::from(video("b", "Été à Paris", "2026-03-01T00:00:00Z"), site));
    entries.push_back(LibraryEntry::from(video("a", "autumn", "2026-01-01T00:00:00Z", VideoVisibility::unlisted), site));
    entries.push_back(LibraryEntry::from({"c", "c/", LibraryVideo::Missing{}, true, std::nullopt}, site));
    entries.push_back(LibraryEntry::from({"d", "d/", LibraryVideo::Unreadable{"newer"}, true, std::nullopt}, site));

    auto folders = [](const std::vector<LibraryEntry>& arranged) {
        std::string text;
        for (const auto& entry : arranged) text += entry.folder();
        return text;
    };
    EXPECT_EQ(folders(arrangedEntries(entries, LibraryOrder::newest)), "bacd");  // undated last, by folder
    EXPECT_EQ(folders(arrangedEntries(entries, LibraryOrder::title)), "acdb");   // "c", "d" by folder name as title
    EXPECT_EQ(folders(arrangedEntries(entries, LibraryOrder::title, "ete PARIS")), "b");
    EXPECT_EQ(entries[2].visibility, VideoVisibility::publicVideo);
    EXPECT_FALSE(entries[3].visibility);
    EXPECT_EQ(entries[3].problem, "newer");
}

}  // namespace
}  // namespace vorlen::app
