// Publishing end to end against a real S3 server with a fault proxy between:
// what the bucket holds after a publish through faults, after a stop at a random
// moment, and after a death late in the upload whose clean-up fails too.
#include <gtest/gtest.h>

#include <random>

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
    // One real build serves every test: a 10 s clip, so that a seek crosses chunks.
    static void SetUpTestSuite() {
        clips = new testing::ClipFolder;
        auto source = clips->make("Harbour.mp4", testing::lavfiVideo(320, 180, 10) + " " + testing::lavfiTone(10) +
                                                     " -c:v libx264 -preset ultrafast -c:a aac -shortest");
        Publisher builder = basePublisher();
        built = builder.build(builder.inspect(source), VideoDetails("Harbour", std::nullopt, std::nullopt,
                                                                     VideoVisibility::publicVideo),
                              AudioLoudness::web, std::nullopt, nullptr);
    }
    static void TearDownTestSuite() {
        built.reset();
        delete clips;
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

    static inline testing::ClipFolder* clips = nullptr;
    static inline std::shared_ptr<BuiltFolder> built;
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
    auto published = publisher().publish(*built, "harbour", journal, nullptr);
    proxy->setPolicy(nullptr);
    EXPECT_GT(proxy->faultsInjected(), 0u);
    auto requests = proxy->requests();
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(), isMultipartStart)) << "larger chunks went in parts";
    EXPECT_EQ(published.hlsKey, "videos/harbour/master.m3u8");

    auto files = built->allFiles();
    auto keys = direct->listKeys("videos/harbour/");
    EXPECT_EQ(keys.size(), files.size());
    fs::path readBack = clips->path() / "read-back";
    for (const auto& file : files) {
        auto stored = direct->object("videos/harbour/" + file);
        ASSERT_TRUE(stored) << file;
        ASSERT_TRUE(*stored == readFile(built->directory() / file)) << file << " differs from the built file";
        fs::create_directories((readBack / file).parent_path());
        writeFileAtomically(readBack / file, *stored);
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
        auto job = Task<void>::spawn([&] { publisher().publish(*built, folder, journal, nullptr); });
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
    EXPECT_THROW(publisher().publish(*built, "harbour", journal, nullptr), VorlenError);
    EXPECT_FALSE(direct->object("videos/harbour/master.m3u8"));
    EXPECT_TRUE(direct->object("videos/harbour/video.json")) << "the failed clean-up left the placeholder";
    ASSERT_TRUE(built->leftovers());
    EXPECT_EQ(built->leftovers()->folder, "harbour");
    built->setLeftovers(std::nullopt);
}

}  // namespace
}  // namespace vorlen
