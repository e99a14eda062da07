// Publishing end to end against a real S3 server with a fault proxy between:
// what the bucket holds after a publish through faults, after a stop at a random
// moment, after a death late in the upload whose clean-up fails too, and when two
// computers publish under the same name.
#include <gtest/gtest.h>

#include <latch>
#include <random>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/publish/Publisher.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/MediaClip.hpp"
#include "testing/PlayerCheck.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;
using testing::Fault;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;

bool isMultipartStart(const ProxyRequest& request) {
    return request.method == "POST" && request.target.find("uploads") != std::string::npos &&
           request.target.find("uploadId") == std::string::npos;
}

class PublisherRgwTest : public ::testing::Test {
protected:
    // One real build serves most tests: a 10 s clip, so that a seek crosses chunks.
    // A second, shorter one is the other computer's video when two publish at once.
    static void SetUpTestSuite() {
        clips = new testing::ClipFolder;
        built = buildClip("Harbour", 10);
        otherBuilt = buildClip("Lighthouse", 4);
    }
    static void TearDownTestSuite() {
        built.reset();
        otherBuilt.reset();
        delete clips;
    }

    static std::shared_ptr<BuiltFolder> buildClip(const std::string& title, double seconds) {
        auto source = clips->make(title + ".mp4", testing::lavfiVideo(320, 180, seconds) + " " + testing::lavfiTone(seconds) +
                                                      " -c:v libx264 -preset ultrafast -c:a aac -shortest");
        Publisher builder = basePublisher();
        return builder.build(builder.inspect(source),
                             VideoDetails(title, std::nullopt, std::nullopt, VideoVisibility::publicVideo),
                             AudioLoudness::web, std::nullopt, nullptr);
    }

    static Publisher basePublisher() {
        Publisher publisher;
        publisher.tools = Tools::locate();
        publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
        publisher.workRoot = clips->path() / "work";
        publisher.maxChunkBytes = 300'000;  // several chunk files per stream
        return publisher;
    }

    void SetUp() override {
        auto& server = RgwServer::shared();
        proxy = std::make_unique<FaultProxy>(server.endpoint(), server.credentials());
        direct = server.makeBucket();
    }

    // A publisher that reaches the bucket through the proxy, in parts small enough for multipart.
    Publisher publisher() const {
        Publisher publisher = basePublisher();
        auto bucket = RgwServer::shared().client(direct->location().bucket, proxy->endpoint());
        publisher.destination = Destination{bucket, "videos/", direct->location().bucket};
        publisher.upload.concurrency = 4;
        publisher.upload.partSize = 128 * 1024;
        publisher.upload.retryDelay = std::chrono::milliseconds(10);
        return publisher;
    }

    std::size_t openUploads() const { return RgwServer::shared().openUploads(direct->location().bucket); }

    // The folder under folderPrefix holds the build's files and nothing else, byte for byte.
    void expectFolderIs(const std::string& folderPrefix, const BuiltFolder& folder) const {
        auto files = folder.allFiles();
        EXPECT_EQ(direct->listKeys(folderPrefix).size(), files.size()) << folderPrefix;
        for (const auto& file : files) {
            auto stored = direct->object(folderPrefix + file);
            ASSERT_TRUE(stored) << folderPrefix << file;
            ASSERT_TRUE(*stored == readFile(folder.directory() / file)) << folderPrefix << file << " differs from the built file";
        }
    }

    static inline testing::ClipFolder* clips = nullptr;
    static inline std::shared_ptr<BuiltFolder> built;
    static inline std::shared_ptr<BuiltFolder> otherBuilt;
    std::unique_ptr<FaultProxy> proxy;
    std::shared_ptr<S3Bucket> direct;  // the same bucket, without the proxy
    UploadJournal journal;
};

TEST_F(PublisherRgwTest, aPublishThroughTransientFaultsArrivesWholeAndPlaysWhenReadBack) {
    auto faults = FaultProxy::randomFaults(0.1, 7);
    // A lost answer to a multipart start leaves an upload that only a lifecycle rule clears.
    proxy->setPolicy([faults](const ProxyRequest& request) {
        Fault fault = faults(request);
        return isMultipartStart(request) && fault.kind == Fault::Kind::loseAnswer ? Fault::respond(503) : fault;
    });
    auto published = publisher().publish(*built, {"harbour", "harbour"}, journal, nullptr);
    proxy->setPolicy(nullptr);
    EXPECT_GT(proxy->faultsInjected(), 0u);
    auto requests = proxy->requests();
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(), isMultipartStart)) << "larger chunks went in parts";
    EXPECT_EQ(published.hlsKey, "videos/harbour/master.m3u8");

    expectFolderIs("videos/harbour/", *built);
    fs::path readBack = clips->path() / "read-back";
    for (const auto& file : built->allFiles()) {
        fs::create_directories((readBack / file).parent_path());
        writeFileAtomically(readBack / file, *direct->object("videos/harbour/" + file));
    }
    EXPECT_EQ(openUploads(), 0u);

    if (!fs::exists(testing::chromiumPath())) GTEST_SKIP() << "no Chromium at " << testing::chromiumPath();
    testing::expectPlayed(testing::playFolder(readBack, Tools::locate().ffmpeg));
}

TEST_F(PublisherRgwTest, aStopAtARandomMomentLeavesNothingBehind) {
    // Slow bodies keep requests in flight, so that a stop lands inside transfers.
    proxy->setPolicy([](const ProxyRequest&) { return Fault::slowBody(std::chrono::milliseconds(3)); });
    std::mt19937 random(std::random_device{}());
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        auto requestsBefore = proxy->requests().size();
        auto stopAfter = std::uniform_int_distribution<std::size_t>(1, 30)(random);
        std::string folder = "harbour-" + std::to_string(round);
        auto job = Task<void>::spawn([&] { publisher().publish(*built, {folder, folder}, journal, nullptr); });
        while (proxy->requests().size() - requestsBefore < stopAfter && !job.isFinished())
            sleepFor(std::chrono::milliseconds(2));
        job.cancel();
        try {
            job.value();
        } catch (const Cancelled&) {
        }
        if (direct->object("videos/" + folder + "/master.m3u8")) continue;  // finished before the stop
        EXPECT_EQ(direct->listKeys("videos/" + folder + "/"), std::vector<std::string>{})
            << fmt::format("{}", fmt::join(journal.entries(), "\n"));
        EXPECT_EQ(openUploads(), 0u);
        EXPECT_FALSE(built->leftovers());
    }
}

TEST_F(PublisherRgwTest, aDeathAtManifestMpdLeavesNoMasterEvenWhenTheCleanupFails) {
    proxy->setPolicy([](const ProxyRequest& request) {
        bool mpd = request.method == "PUT" && request.target.find("manifest.mpd") != std::string::npos;
        bool deletion = request.method == "DELETE" || (request.method == "POST" && request.target.find("delete") != std::string::npos);
        return mpd || deletion ? Fault::respond(403, "<Error><Code>AccessDenied</Code></Error>") : Fault::none();
    });
    EXPECT_THROW(publisher().publish(*built, {"harbour", "harbour"}, journal, nullptr), VorlenError);
    EXPECT_FALSE(direct->object("videos/harbour/master.m3u8"));
    EXPECT_TRUE(direct->object("videos/harbour/video.json")) << "the failed clean-up left the placeholder";
    ASSERT_TRUE(built->leftovers());
    EXPECT_EQ(built->leftovers()->folder, "harbour");
    built->setLeftovers(std::nullopt);
}

TEST_F(PublisherRgwTest, twoComputersPublishingTheSameNameAtOnceEachEndWithTheirOwnFolder) {
    std::latch start(2);
    UploadJournal otherJournal;
    auto publishAtOnce = [&](BuiltFolder* folder, UploadJournal* log) {
        return Task<Published>::spawn([this, &start, folder, log] {
            start.arrive_and_wait();
            return publisher().publish(*folder, {"regatta", "regatta"}, *log, nullptr);
        });
    };
    auto first = publishAtOnce(built.get(), &journal);
    auto second = publishAtOnce(otherBuilt.get(), &otherJournal);
    Published firstPublished = first.value();
    Published secondPublished = second.value();
    EXPECT_EQ((std::set<std::string>{firstPublished.folderPrefix, secondPublished.folderPrefix}),
              (std::set<std::string>{"videos/regatta/", "videos/regatta-1/"}));
    expectFolderIs(firstPublished.folderPrefix, *built);
    expectFolderIs(secondPublished.folderPrefix, *otherBuilt);
}

TEST_F(PublisherRgwTest, aPublishStoppedAfterLosingItsNameNeverRemovesTheOthersObjects) {
    publisher().publish(*built, {"quay", "quay"}, journal, nullptr);
    // The second computer resolved "quay" before the first took it; slow bodies keep its upload in flight.
    proxy->setPolicy([](const ProxyRequest&) { return Fault::slowBody(std::chrono::milliseconds(3)); });
    auto requestsBefore = proxy->requests().size();
    std::atomic<bool> moved{false};
    UploadJournal loserJournal;
    auto loser = Task<void>::spawn([&] {
        publisher().publish(*otherBuilt, {"quay", "quay"}, loserJournal, nullptr, [&](const std::string&) { moved = true; });
    });
    auto mediaSent = [&] {
        auto requests = proxy->requests();
        return std::any_of(requests.begin() + static_cast<std::ptrdiff_t>(requestsBefore), requests.end(),
                           [](const ProxyRequest& request) { return request.method == "PUT" && request.target.find("/v_") != std::string::npos; });
    };
    while (!mediaSent() && !loser.isFinished()) sleepFor(std::chrono::milliseconds(2));
    loser.cancel();
    try {
        loser.value();
    } catch (const Cancelled&) {
    }
    EXPECT_TRUE(moved);
    expectFolderIs("videos/quay/", *built);
    if (!direct->object("videos/quay-1/master.m3u8")) {  // else it finished before the stop
        EXPECT_EQ(direct->listKeys("videos/quay-1/"), std::vector<std::string>{})
            << fmt::format("{}", fmt::join(loserJournal.entries(), "\n"));
    }
}

}  // namespace
}  // namespace vorlen
