#include "core/storage/Uploader.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <mutex>

#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/FaultyBucket.hpp"

namespace vorlen {
namespace {

struct Fixture : ::testing::Test {
    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-uploader-");
    DirectoryRemover remover{folder};
    std::shared_ptr<FolderBucket> store = std::make_shared<FolderBucket>(folder / "bucket");
    std::shared_ptr<FaultyBucket> bucket = std::make_shared<FaultyBucket>(store);
    std::shared_ptr<UploadJournal> journal = std::make_shared<UploadJournal>();

    Uploader uploader(std::int64_t concurrency, std::uint64_t partSize) {
        UploadOptions options;
        options.concurrency = concurrency;
        options.partSize = partSize;
        options.retryDelay = std::chrono::microseconds(1);
        return Uploader{bucket, std::make_shared<RateLimiter>(), options, journal};
    }

    UploadFile file(const std::string& key, std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + key.size() * 13 + i / 251) & 0xff);
        fs::path path = folder / "files" / key;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(size));
        return {path, "videos/clip/" + key, {"video/mp4", "public, max-age=31536000, immutable", {}}};
    }

    void expectStored(const std::vector<UploadFile>& files) {
        for (auto& file : files) EXPECT_EQ(store->object(file.key), readFile(file.url)) << file.key;
        EXPECT_TRUE(store->openMultipartUploads().empty());
    }
};

using UploaderTest = Fixture;

TEST_F(UploaderTest, cutsAtThePartSizeAndWithOneRequestKeepsListOrder) {
    std::vector<UploadFile> files = {file("a_en/exact.mp4", 1000), file("v_720/over.mp4", 1001),
                                     file("v_720/empty.mp4", 0), file("v_1080/three.mp4", 2500)};
    uploader(1, 1000).upload(files);
    expectStored(files);

    std::vector<std::string> seen;
    for (auto& call : bucket->recorded())
        seen.push_back(fmt::format("{} {} {} {}", call.operation, uploadLabel(call.key), call.part, call.bytes));
    EXPECT_EQ(seen, (std::vector<std::string>{
                        // planning opens the multipart uploads first, in list order
                        "create v_720/over.mp4 0 0", "create v_1080/three.mp4 0 0",
                        "put a_en/exact.mp4 0 1000", "part v_720/over.mp4 1 1000", "part v_720/over.mp4 2 1",
                        "put v_720/empty.mp4 0 0", "part v_1080/three.mp4 1 1000", "part v_1080/three.mp4 2 1000",
                        "part v_1080/three.mp4 3 500", "complete v_720/over.mp4 0 0", "complete v_1080/three.mp4 0 0"}));
    EXPECT_EQ(journal->storedRequests(), 7);
    EXPECT_EQ(journal->failedAttempts(), 0);
}

TEST_F(UploaderTest, retriesEveryKindOfFaultAndStoresEveryByte) {
    std::vector<UploadFile> files;
    for (int i = 0; i < 12; ++i) files.push_back(file(fmt::format("v_360/{:03}.mp4", i), 3000 + 100 * i));
    for (int i = 0; i < 3; ++i) files.push_back(file(fmt::format("v_1080/{:03}.mp4", i), 20000 + 999 * i));

    // Decided by the request and how often it was tried, not by thread timing:
    // about a quarter of the attempts fail, none more than three times.
    std::mutex mutex;
    std::map<std::string, int> attempts;
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody* body) {
        int attempt;
        {
            std::lock_guard lock(mutex);
            attempt = attempts[fmt::format("{} {} {}", call.operation, call.key, call.part)]++;
        }
        std::size_t roll = std::hash<std::string>{}(fmt::format("{}{}{}{}", call.operation, call.key, call.part, attempt)) % 20;
        if (attempt >= 3 || roll >= 5 || call.operation == "abort") return FaultyBucket::Fault::none;
        switch (roll) {
            case 0: throw VorlenError::status(503, "<Error><Code>SlowDown</Code></Error>");
            case 1: throw VorlenError::status(429, "");
            case 2:  // a reset in the middle of the body
                if (body && body->onSend && body->size() > 1) body->onSend(body->size() / 2);
                throw VorlenError::status(500, "<Error><Code>InternalError</Code></Error>");
            case 3:
                if (body) throw VorlenError::status(400, "<Error><Code>BadDigest</Code></Error>");
                [[fallthrough]];
            default: return FaultyBucket::Fault::lose;
        }
    };
    std::uint64_t total = 0;
    for (auto& file : files) total += fs::file_size(file.url);
    std::vector<std::uint64_t> given;
    std::mutex givenMutex;
    uploader(4, 8192).upload(files, [&](std::uint64_t bytes) {
        std::lock_guard lock(givenMutex);
        given.push_back(bytes);
    });
    expectStored(files);
    EXPECT_GT(journal->failedAttempts(), 0);
    ASSERT_FALSE(given.empty());
    EXPECT_EQ(given.back(), total);
    // Bytes of failed attempts were taken back at least once.
    EXPECT_TRUE(std::adjacent_find(given.begin(), given.end(), std::greater<>()) != given.end());
    auto lines = journal->entries();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](auto& line) {
        return line.find("failed: ") != std::string::npos && line.ends_with(": storage rejected a checksum");
    }));
}

TEST_F(UploaderTest, aCompletionWhoseAnswerWasLostCountsOnlyWhenTheObjectExists) {
    auto big = file("v_1080/big.mp4", 5000);
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody*) {
        return call.operation == "complete" ? FaultyBucket::Fault::lose : FaultyBucket::Fault::none;
    };
    uploader(2, 2048).upload({big});
    expectStored({big});

    // Now the first answer is lost before anything happened, and the upload is gone after.
    auto other = file("v_1080/other.mp4", 5000);
    int completions = 0;
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody*) {
        if (call.operation != "complete") return FaultyBucket::Fault::none;
        if (completions++ == 0) throw VorlenError::status(500, "");
        for (auto& open : store->openMultipartUploads()) store->abortMultipart(open);
        return FaultyBucket::Fault::none;
    };
    try {
        uploader(2, 2048).upload({other});
        ADD_FAILURE() << "the upload did not fail";
    } catch (const VorlenError& error) {
        ASSERT_TRUE(error.is<failure::Status>());
        EXPECT_EQ(error.as<failure::Status>()->code, 404);
    }
    EXPECT_FALSE(store->info(other.key));
}

TEST_F(UploaderTest, anUploadThatALostStartLeftOpenIsAbortedAndOthersStay) {
    // Someone else's upload under a longer key: a listing by prefix finds it too.
    auto foreign = store->createMultipart("videos/clip/v_1080/a.mp4.old", {});
    std::map<std::string, int> calls;
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody*) {
        int seen = calls[call.operation + " " + call.key]++;
        if (call.operation == "create" && seen == 0) return FaultyBucket::Fault::lose;
        if (call.operation == "uploads" && seen == 0) throw VorlenError::status(503, "<Error><Code>SlowDown</Code></Error>");
        if (call.operation == "part" && call.key.ends_with("b.mp4"))
            throw VorlenError::status(403, "<Error><Code>AccessDenied</Code></Error>");
        return FaultyBucket::Fault::none;
    };
    auto a = file("v_1080/a.mp4", 5000);
    uploader(1, 2048).upload({a});
    EXPECT_EQ(store->object(a.key), readFile(a.url));
    ASSERT_EQ(store->openMultipartUploads().size(), 1u);
    EXPECT_EQ(store->openMultipartUploads()[0].uploadID, foreign.uploadID);

    // The same after a failure: the clean-up looks for what the lost start opened.
    EXPECT_THROW(uploader(1, 2048).upload({file("v_1080/b.mp4", 5000)}), VorlenError);
    ASSERT_EQ(store->openMultipartUploads().size(), 1u);
    EXPECT_EQ(store->openMultipartUploads()[0].uploadID, foreign.uploadID);

    auto lines = journal->entries();
    auto count = [&](const std::string& text) {
        return std::count_if(lines.begin(), lines.end(), [&](auto& line) { return line.find(text) != std::string::npos; });
    };
    EXPECT_EQ(count("aborted: v_1080/a.mp4, upload "), 1);
    EXPECT_EQ(count("aborted: v_1080/b.mp4, upload "), 1);
    EXPECT_EQ(count("failed: clean-up of v_1080/a.mp4, attempt 1 of 6: HTTP 503 SlowDown"), 1);
    EXPECT_EQ(count("failed: clean-up of v_1080/b.mp4, attempt 1 of 6: HTTP 503 SlowDown"), 1);
}

TEST_F(UploaderTest, aFailureThatIsNotTransientAbortsOpenUploadsAtOnce) {
    std::vector<UploadFile> files = {file("v_1080/a.mp4", 9000), file("v_1080/b.mp4", 9000)};
    bucket->fault = [&](const FaultyBucket::Call& call, const RequestBody*) {
        if (call.operation == "part" && call.key.ends_with("b.mp4") && call.part == 2)
            throw VorlenError::status(403, "<Error><Code>AccessDenied</Code></Error>");
        return FaultyBucket::Fault::none;
    };
    EXPECT_THROW(uploader(3, 2000).upload(files), VorlenError);
    EXPECT_TRUE(store->openMultipartUploads().empty());
    auto lines = journal->entries();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto& line) { return line.find("HTTP 403 AccessDenied") != std::string::npos; }), 1);
}

TEST_F(UploaderTest, aCancelAtAnyMomentLeavesNoOpenMultipartUpload) {
    std::vector<UploadFile> files = {file("v_360/small.mp4", 1500), file("v_1080/a.mp4", 7000),
                                     file("v_1080/b.mp4", 6000), file("a_en/c.mp4", 4100)};
    for (int cancelAt : {1, 2, 4, 7, 11, 15}) {
        for (auto& open : store->openMultipartUploads()) store->abortMultipart(open);
        auto scope = CancellationScope::makeRoot();
        int calls = 0;
        std::mutex mutex;
        bucket->fault = [&](const FaultyBucket::Call&, const RequestBody*) {
            std::lock_guard lock(mutex);
            if (++calls == cancelAt) scope->cancel();
            return FaultyBucket::Fault::none;
        };
        {
            ScopeBinding binding(scope);
            EXPECT_THROW(uploader(2, 1024).upload(files), Cancelled) << "cancelled at call " << cancelAt;
        }
        EXPECT_TRUE(store->openMultipartUploads().empty()) << "cancelled at call " << cancelAt;
    }
    auto lines = journal->entries();
    EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), [](auto& line) { return line.find("failed: ") != std::string::npos; }));
    EXPECT_EQ(journal->failedAttempts(), 0);
}

}  // namespace
}  // namespace vorlen
