#include "core/storage/Uploader.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <random>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/storage/S3Bucket.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using testing::Fault;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;

constexpr std::uint64_t mib = 1024 * 1024;

std::size_t openUploads(const std::string& bucket) { return RgwServer::shared().openUploads(bucket); }

bool isStart(const ProxyRequest& request) {
    return request.method == "POST" && request.target.find("uploads") != std::string::npos &&
           request.target.find("uploadId") == std::string::npos;
}

bool isPart(const ProxyRequest& request) {
    return request.method == "PUT" && request.target.find("partNumber=") != std::string::npos;
}

bool isCompletion(const ProxyRequest& request) {
    return request.method == "POST" && request.target.find("uploadId=") != std::string::npos;
}

class UploaderRgwTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto& server = RgwServer::shared();
        proxy = std::make_unique<FaultProxy>(server.endpoint(), server.credentials());
        bucket = server.makeBucket(proxy->endpoint());
    }

    UploadFile file(const std::string& key, std::size_t size, unsigned seed) {
        std::mt19937 random(seed);
        std::string bytes(size, '\0');
        for (auto& byte : bytes) byte = static_cast<char>(random());
        fs::path path = folder / key;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(size));
        return {path, "clip/" + key, {"video/mp4", "public, max-age=31536000, immutable", {}}};
    }

    Uploader uploader(std::int64_t concurrency) {
        UploadOptions options;
        options.concurrency = concurrency;
        options.partSize = 5 * mib;  // the smallest part S3 takes
        options.retryDelay = std::chrono::milliseconds(10);
        return Uploader{bucket, std::make_shared<RateLimiter>(), options, journal};
    }

    void expectStored(const std::vector<UploadFile>& files) {
        for (auto& file : files) {
            auto stored = bucket->object(file.key);
            ASSERT_TRUE(stored) << file.key;
            EXPECT_TRUE(*stored == readFile(file.url)) << file.key;
        }
    }

    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-uploader-rgw-");
    DirectoryRemover remover{folder};
    std::unique_ptr<FaultProxy> proxy;
    std::shared_ptr<S3Bucket> bucket;
    std::shared_ptr<UploadJournal> journal = std::make_shared<UploadJournal>();
};

TEST_F(UploaderRgwTest, aMixedFolderArrivesWholeThroughOneFailureInTen) {
    std::vector<UploadFile> files;
    for (unsigned i = 0; i < 12; ++i) files.push_back(file(fmt::format("v_360/{:03}.mp4", i), 10000 + 17000 * i, i));
    files.push_back(file("v_1080/000.mp4", 5 * mib + 300000, 100));
    files.push_back(file("v_1080/001.mp4", 10 * mib + 1, 101));
    files.push_back(file("a_en/000.mp4", 6 * mib, 102));
    proxy->setPolicy(FaultProxy::randomFaults(0.1, 20261122));
    uploader(4).upload(files);
    EXPECT_GT(proxy->faultsInjected(), 0u);
    proxy->setPolicy(nullptr);
    expectStored(files);
    EXPECT_EQ(openUploads(bucket->location().bucket), 0u);
}

TEST_F(UploaderRgwTest, aCompletionWhoseAnswerWasLostCountsAsDone) {
    auto big = file("v_1080/big.mp4", 5 * mib + 10, 7);
    int completions = 0;
    proxy->setPolicy([&](const ProxyRequest& request) {
        return isCompletion(request) && completions++ == 0 ? Fault::loseAnswer() : Fault::none();
    });
    uploader(2).upload({big});
    proxy->setPolicy(nullptr);
    EXPECT_EQ(completions, 2);
    expectStored({big});
    EXPECT_EQ(openUploads(bucket->location().bucket), 0u);
}

TEST_F(UploaderRgwTest, anUploadThatALostStartOpenedIsAbortedWhetherTheUploadEndsOrIsCancelled) {
    auto big = file("v_1080/big.mp4", 5 * mib + 10, 8);
    // Someone else's upload under a longer key: the listing by prefix finds it too, and it stays.
    auto foreign = bucket->createMultipart(big.key + ".old", {});
    std::atomic<int> starts = 0;
    proxy->setPolicy([&](const ProxyRequest& request) {
        return isStart(request) && starts++ == 0 ? Fault::loseAnswer() : Fault::none();
    });
    uploader(2).upload({big});
    EXPECT_EQ(starts, 2);
    expectStored({big});
    EXPECT_EQ(openUploads(bucket->location().bucket), 1u);
    auto lines = journal->entries();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](auto& line) { return line.find("aborted: v_1080/big.mp4, upload ") != std::string::npos; }),
              1);

    // Cancelled while the parts go.
    starts = 0;
    auto scope = CancellationScope::makeRoot();
    proxy->setPolicy([&](const ProxyRequest& request) {
        if (isStart(request)) return starts++ == 0 ? Fault::loseAnswer() : Fault::none();
        if (!isPart(request)) return Fault::none();
        scope->cancel();
        return Fault::slowBody(std::chrono::milliseconds(10));
    });
    {
        ScopeBinding binding(scope);
        EXPECT_THROW(uploader(2).upload({file("v_1080/other.mp4", 5 * mib + 10, 9)}), Cancelled);
    }
    EXPECT_EQ(starts, 2);
    EXPECT_EQ(openUploads(bucket->location().bucket), 1u);
    bucket->abortMultipart(foreign);
    EXPECT_EQ(openUploads(bucket->location().bucket), 0u);
}

TEST_F(UploaderRgwTest, aCancelAtRandomMomentsLeavesNoOpenUpload) {
    std::vector<UploadFile> files = {file("v_1080/a.mp4", 11 * mib, 1), file("v_360/b.mp4", 200000, 2),
                                     file("v_720/c.mp4", 7 * mib, 3)};
    proxy->setPolicy([](const ProxyRequest&) { return Fault::slowBody(std::chrono::milliseconds(2)); });
    std::mt19937 random(std::random_device{}());
    for (int round = 0; round < 3; ++round) {
        auto upload = Task<void>::spawn([&] { uploader(2).upload(files); });
        sleepFor(std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 600)(random)));
        upload.cancel();
        try {
            upload.value();
        } catch (const Cancelled&) {
        }
        EXPECT_EQ(openUploads(bucket->location().bucket), 0u) << "round " << round;
    }
}

}  // namespace
}  // namespace vorlen
