#include <gtest/gtest.h>

#include "core/base/Clock.hpp"
#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/publish/Publisher.hpp"
#include "core/storage/VideoFolderHeaders.hpp"
#include "testing/FaultyBucket.hpp"

using namespace vorlen;
using namespace std::chrono_literals;

namespace {

struct Fixture : ::testing::Test {
    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-publish-upload-");
    DirectoryRemover remover{folder};
    std::shared_ptr<FolderBucket> store = std::make_shared<FolderBucket>(folder / "bucket");
    std::shared_ptr<FaultyBucket> bucket = std::make_shared<FaultyBucket>(store);
    UploadJournal journal;

    // A finished folder as a build leaves it: chunks, a poster, video.json and the manifests.
    std::shared_ptr<BuiltFolder> built() {
        fs::path publish = folder / "work" / "publish";
        std::uint64_t bytes = 0;
        auto write = [&](const std::string& name, std::size_t size) {
            fs::create_directories((publish / name).parent_path());
            writeFileAtomically(publish / name, std::string(size, 'x'));
            bytes += size;
        };
        for (auto name : {"v_360/001.mp4", "a_stereo/001.mp4", "poster-0a1b2c3d.jpg", "poster.jpg", "video.json",
                          "v_360.m3u8", "a_stereo.m3u8", "manifest.mpd", "master.m3u8"})
            write(name, 100);
        VideoMetadata metadata{VideoDetails("Clip", std::nullopt, std::nullopt, VideoVisibility::publicVideo),
                               PosterFile{"poster-0a1b2c3d.jpg", {16, 9}},
                               12.0,
                               PixelSize{640, 360},
                               wallNow(),
                               wallNow(),
                               AudioTrack{AudioLoudness::web},
                               std::nullopt};
        Built made{{"v_360/001.mp4", "a_stereo/001.mp4"},
                   Poster{"jpeg", "poster-0a1b2c3d.jpg", 16, 9, 1.0},
                   nullptr,
                   metadata,
                   {"v_360.m3u8", "a_stereo.m3u8", "manifest.mpd", "master.m3u8"}};
        return std::make_shared<BuiltFolder>(made, publish, bytes, WorkDirectory{folder / "work"});
    }

    Publisher publisher() {
        Publisher made;
        made.destination = Destination{bucket, "videos/", "folder"};
        made.upload.concurrency = 2;
        made.upload.retryDelay = 1ms;
        made.upload.maxRetries = 2;
        return made;
    }

    std::vector<std::string> putKeys() {
        std::vector<std::string> keys;
        for (auto& call : bucket->recorded())
            if (call.operation == "put") keys.push_back(call.key);
        return keys;
    }

    // Another computer's video, published in a folder after this upload resolved the name.
    void publishElsewhere(const std::string& folder) {
        for (std::string name : {"v_360/001.mp4", "video.json", "master.m3u8"})
            store->put("videos/" + folder + "/" + name, RequestBody::bytes("theirs: " + name), videoFolderHeaders(name));
    }

    // Every object under a prefix with its bytes and ETag.
    std::map<std::string, std::pair<std::string, std::string>> objects(const std::string& prefix) {
        std::map<std::string, std::pair<std::string, std::string>> found;
        for (const auto& key : store->listKeys(prefix)) {
            auto object = store->taggedObject(key);
            found[key] = {object->data, object->etag};
        }
        return found;
    }

    bool anyDeletes() {
        auto calls = bucket->recorded();
        return std::any_of(calls.begin(), calls.end(), [](auto& call) { return call.operation == "delete"; });
    }

    // Fails the upload at manifest.mpd and refuses every delete, so that the folder stays as leftovers.
    void failWithLeftovers(BuiltFolder& folderBuilt, const std::string& folder) {
        bucket->fault = [](const FaultyBucket::Call& call, const RequestBody*) {
            if (call.key.ends_with("manifest.mpd") && call.operation == "put") throw VorlenError::status(403, "AccessDenied");
            if (call.operation == "delete") throw VorlenError::status(403, "AccessDenied");
            return FaultyBucket::Fault::none;
        };
        EXPECT_THROW(publisher().publish(folderBuilt, {folder, folder}, journal, nullptr), VorlenError);
        bucket->fault = nullptr;
    }
};

}  // namespace

TEST_F(Fixture, PlaceholderFirstMasterLastAndEveryFileStored) {
    auto folderBuilt = built();
    std::vector<PublishProgress> progress;
    auto published = publisher().publish(*folderBuilt, {"clip", "clip"}, journal, [&](const PublishProgress& p) { progress.push_back(p); });
    EXPECT_EQ(published.hlsKey, "videos/clip/master.m3u8");
    EXPECT_EQ(published.fileCount, 9);
    auto keys = putKeys();
    ASSERT_EQ(keys.size(), 10u);
    EXPECT_EQ(keys.front(), "videos/clip/video.json");
    EXPECT_EQ(keys.back(), "videos/clip/master.m3u8");
    EXPECT_EQ(keys[keys.size() - 2], "videos/clip/manifest.mpd");
    EXPECT_EQ(store->listKeys("videos/clip/").size(), 9u);
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back().stageFraction, 1.0);
    EXPECT_TRUE(journal.entries().back().find("upload ended: 900 bytes in") != std::string::npos);
}

TEST_F(Fixture, DeathInTheManifestBatchLeavesNoMasterEvenWhenTheCleanupFails) {
    auto folderBuilt = built();
    failWithLeftovers(*folderBuilt, "clip");
    EXPECT_FALSE(store->object("videos/clip/master.m3u8"));
    ASSERT_TRUE(folderBuilt->leftovers());
    EXPECT_EQ(folderBuilt->leftovers()->folder, "clip");
    auto entries = journal.entries();
    EXPECT_TRUE(std::any_of(entries.begin(), entries.end(), [](auto& line) {
        return line.find("the cleanup did not delete every file") != std::string::npos;
    }));
}

TEST_F(Fixture, CancelledUploadRemovesEverythingItWroteWithThePlaceholder) {
    auto folderBuilt = built();
    std::atomic<int> puts{0};
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody*) {
        if (call.operation == "put" && ++puts == 4)
            for (;;) sleepFor(1s);  // hangs until cancelled
        return FaultyBucket::Fault::none;
    };
    auto job = Task<void>::spawn([&] { publisher().publish(*folderBuilt, {"clip", "clip"}, journal, nullptr); });
    while (puts < 4) std::this_thread::sleep_for(1ms);
    job.cancel();
    EXPECT_THROW(job.value(), Cancelled);
    EXPECT_TRUE(store->listKeys("videos/clip/").empty());
    EXPECT_FALSE(folderBuilt->leftovers());
}

TEST_F(Fixture, AFolderTakenMeanwhileMovesTheUploadToTheNextFreeNameAndStaysUntouched) {
    publishElsewhere("clip");
    auto theirs = objects("videos/clip/");
    auto folderBuilt = built();
    std::vector<std::string> moves;
    auto published = publisher().publish(*folderBuilt, {"clip", "clip"}, journal, nullptr,
                                         [&](const std::string& folder) { moves.push_back(folder); });
    EXPECT_EQ(published.folderPrefix, "videos/clip-1/");
    EXPECT_EQ(moves, std::vector<std::string>{"clip-1"});
    EXPECT_EQ(store->listKeys("videos/clip-1/").size(), 9u);
    EXPECT_EQ(objects("videos/clip/"), theirs);
    EXPECT_FALSE(anyDeletes());
}

TEST_F(Fixture, ATypedNameThatWasTakenFailsWithTheConflictAndKeepsTheBuild) {
    publishElsewhere("clip");
    auto theirs = objects("videos/clip/");
    auto folderBuilt = built();
    try {
        publisher().publish(*folderBuilt, {"clip", "clip", true}, journal, nullptr);
        ADD_FAILURE() << "the publish took a folder that another upload had";
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Conflict>());
        EXPECT_STREQ(error.what(), "videos/clip/video.json changed after it was read, or it exists already");
    }
    EXPECT_EQ(objects("videos/clip/"), theirs);
    EXPECT_TRUE(store->listKeys("videos/clip-1/").empty());
    EXPECT_FALSE(anyDeletes());
    EXPECT_TRUE(fs::exists(folderBuilt->directory() / "master.m3u8"));
    EXPECT_FALSE(folderBuilt->leftovers());
}

TEST_F(Fixture, ALostPlaceholderAnswerIsTheUploadsOwnButAnIdenticalPlaceholderOfAnotherIsNot) {
    auto folderBuilt = built();
    std::atomic<int> clipAttempts{0};
    std::atomic<int> filmAttempts{0};
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody* body) {
        if (call.operation != "put") return FaultyBucket::Fault::none;
        if (call.key == "videos/clip/video.json" && ++clipAttempts == 1) return FaultyBucket::Fault::lose;
        if (call.key == "videos/film/video.json" && ++filmAttempts == 1) {
            // Another computer stores the same bytes while this attempt fails on its way.
            store->put(call.key, *body, videoFolderHeaders("video.json"));
            throw VorlenError::status(503, "SlowDown");
        }
        return FaultyBucket::Fault::none;
    };
    std::vector<std::string> moves;
    auto onMove = [&](const std::string& folder) { moves.push_back(folder); };

    auto own = publisher().publish(*folderBuilt, {"clip", "clip"}, journal, nullptr, onMove);
    EXPECT_EQ(own.folderPrefix, "videos/clip/");
    EXPECT_EQ(store->listKeys("videos/clip/").size(), 9u);
    EXPECT_TRUE(moves.empty());

    auto moved = publisher().publish(*folderBuilt, {"film", "film"}, journal, nullptr, onMove);
    EXPECT_EQ(moved.folderPrefix, "videos/film-1/");
    EXPECT_EQ(moves, std::vector<std::string>{"film-1"});
    EXPECT_EQ(store->listKeys("videos/film/"), std::vector<std::string>{"videos/film/video.json"});
    EXPECT_FALSE(anyDeletes());
}

TEST_F(Fixture, ARetryTakesItsLeftoversBackUnlessAnotherUploadTookTheFolderOver) {
    auto folderBuilt = built();
    failWithLeftovers(*folderBuilt, "clip");
    ASSERT_TRUE(folderBuilt->leftovers());
    EXPECT_EQ(folderBuilt->leftovers()->placeholderETag, store->taggedObject("videos/clip/video.json")->etag);
    std::vector<std::string> moves;
    auto onMove = [&](const std::string& folder) { moves.push_back(folder); };
    auto retried = publisher().publish(*folderBuilt, {"clip", "clip"}, journal, nullptr, onMove);
    EXPECT_EQ(retried.folderPrefix, "videos/clip/");
    EXPECT_FALSE(folderBuilt->leftovers());

    // Someone removed the leftovers of "film" and published there before the retry.
    failWithLeftovers(*folderBuilt, "film");
    ASSERT_TRUE(folderBuilt->leftovers());
    store->deleteObjects(store->listKeys("videos/film/"));
    publishElsewhere("film");
    auto theirs = objects("videos/film/");
    auto moved = publisher().publish(*folderBuilt, {"film", "film"}, journal, nullptr, onMove);
    EXPECT_EQ(moved.folderPrefix, "videos/film-1/");
    EXPECT_EQ(moves, std::vector<std::string>{"film-1"});
    EXPECT_EQ(objects("videos/film/"), theirs);
    EXPECT_FALSE(folderBuilt->leftovers());
}

// A bucket where another computer publishes into the folder the moment that its video.json is gone.
struct BucketWithANewcomer : FaultyBucket {
    using FaultyBucket::FaultyBucket;
    std::atomic<bool> arrived{false};

    std::vector<DeleteFailure> deleteObjects(const std::vector<std::string>& keys) override {
        auto failures = FaultyBucket::deleteObjects(keys);
        if (!arrived && !inner->object("videos/clip/video.json")) {
            arrived = true;
            inner->put("videos/clip/video.json", RequestBody::bytes("theirs"), {}, WriteCondition::absent());
            inner->put("videos/clip/master.m3u8", RequestBody::bytes("theirs"), {});
        }
        return failures;
    }
};

TEST_F(Fixture, TheCleanupHoldsTheFolderUntilItsLastDeleteSoANewcomerKeepsItsFiles) {
    auto newcomer = std::make_shared<BucketWithANewcomer>(store);
    newcomer->fault = [](const FaultyBucket::Call& call, const RequestBody*) {
        if (call.key.ends_with("manifest.mpd") && call.operation == "put") throw VorlenError::status(403, "AccessDenied");
        return FaultyBucket::Fault::none;
    };
    auto made = publisher();
    made.destination.bucket = newcomer;
    auto folderBuilt = built();
    EXPECT_THROW(made.publish(*folderBuilt, {"clip", "clip"}, journal, nullptr), VorlenError);
    EXPECT_TRUE(newcomer->arrived);
    EXPECT_EQ(store->listKeys("videos/clip/"), (std::vector<std::string>{"videos/clip/master.m3u8", "videos/clip/video.json"}));
    EXPECT_EQ(store->object("videos/clip/video.json"), "theirs");
    EXPECT_FALSE(folderBuilt->leftovers());
}

TEST_F(Fixture, FolderResolutionSkipsTakenNames) {
    store->put("videos/clip/video.json", RequestBody::bytes("{}"), {});
    store->put("videos/clip-1/video.json", RequestBody::bytes("{}"), {});
    auto made = publisher();
    EXPECT_EQ(made.resolveFolder("clip"), "clip-2");
    EXPECT_EQ(made.resolveFolder("clip", {"clip-2"}), "clip-3");
    EXPECT_EQ(made.resolveFolder("other"), "other");
    EXPECT_THROW(made.resolveFolder("Not Valid"), VorlenError);

    // A listing that the store refuses for a moment is asked again, as every other request is.
    struct SlowingBucket : FolderBucket {
        using FolderBucket::FolderBucket;
        int refusals = 1;
        bool hasObjects(const std::string& prefix) override {
            if (refusals-- > 0) throw VorlenError::status(503, "<Error><Code>SlowDown</Code></Error>");
            return FolderBucket::hasObjects(prefix);
        }
    };
    made.destination.bucket = std::make_shared<SlowingBucket>(folder / "bucket");
    made.upload.retryDelay = std::chrono::milliseconds(1);
    EXPECT_EQ(made.resolveFolder("clip"), "clip-2");
}
