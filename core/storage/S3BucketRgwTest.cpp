#include "core/storage/S3Bucket.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <random>
#include <set>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/net/TransportError.hpp"
#include "core/storage/BucketContractTest.hpp"
#include "core/storage/WriteFailure.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using testing::Fault;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;

template <class F>
VorlenError failureOf(F&& operation) {
    try {
        operation();
    } catch (const VorlenError& error) {
        return error;
    }
    ADD_FAILURE() << "expected a failure";
    return VorlenError::status(0, "");
}

void expectStatus(const VorlenError& error, int code, const std::string& bodyPart) {
    const auto* status = error.as<failure::Status>();
    ASSERT_NE(status, nullptr) << error.what();
    EXPECT_EQ(status->code, code);
    EXPECT_NE(status->body.find(bodyPart), std::string::npos) << status->body;
}

std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (auto& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

const std::string listWithRepeatedToken =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ListBucketResult xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">"
    "<IsTruncated>true</IsTruncated><NextContinuationToken>same</NextContinuationToken>"
    "<Contents><Key>a</Key></Contents></ListBucketResult>";

// Every test gets a fresh bucket on the one server of this binary, and a proxy in front of it.
class S3BucketTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto& server = RgwServer::shared();
        proxy = std::make_unique<FaultProxy>(server.endpoint(), server.credentials());
        bucket = server.makeBucket(proxy->endpoint());
        dir = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-s3-");
        remover.emplace(dir);
    }

    std::size_t requestsWhere(const std::function<bool(const ProxyRequest&)>& test) const {
        const auto seen = proxy->requests();
        return static_cast<std::size_t>(std::count_if(seen.begin(), seen.end(), test));
    }

    std::unique_ptr<FaultProxy> proxy;
    std::shared_ptr<S3Bucket> bucket;
    std::filesystem::path dir;
    std::optional<DirectoryRemover> remover;
};

TEST_F(S3BucketTest, ObjectsKeepTheirBytesHeadersAndMetadata) {
    EXPECT_FALSE(bucket->hasObjects("v/"));
    EXPECT_EQ(bucket->object("v/none"), std::nullopt);
    EXPECT_EQ(bucket->taggedObject("v/none"), std::nullopt);
    EXPECT_EQ(bucket->info("v/none"), std::nullopt);

    const ObjectHeaders headers{"application/json", "no-cache", {{"Title", "Ein Film"}, {"kind", "video"}}};
    const auto etag = bucket->put("v/video.json", RequestBody::bytes("{\"a\":1}"), headers);
    EXPECT_EQ(etag, "\"" + hex(md5("{\"a\":1}")) + "\"");
    EXPECT_TRUE(bucket->hasObjects("v/"));
    EXPECT_EQ(bucket->object("v/video.json"), "{\"a\":1}");
    const auto tagged = bucket->taggedObject("v/video.json");
    ASSERT_TRUE(tagged);
    EXPECT_EQ(tagged->data, "{\"a\":1}");
    EXPECT_EQ(tagged->etag, etag);

    const auto info = bucket->info("v/video.json");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->size, 7);
    EXPECT_TRUE(info->lastModified.has_value());
    EXPECT_EQ(info->metadata, (std::map<std::string, std::string>{{"title", "Ein Film"}, {"kind", "video"}}));

    // A body from the middle of a file.
    const std::string bytes = randomBytes(600'000, 1);
    writeFileAtomically(dir / "media", bytes);
    bucket->put("v/chunk", RequestBody::file(dir / "media", {1000, 500'000}), {"video/mp4", "max-age=60", {}});
    EXPECT_EQ(bucket->object("v/chunk"), bytes.substr(1000, 500'000));

    bucket->copy("v/video.json", "w/video.json");
    EXPECT_EQ(bucket->object("w/video.json"), "{\"a\":1}");
    EXPECT_EQ(bucket->info("w/video.json")->metadata, info->metadata);

    bucket->remove("v/video.json");
    EXPECT_EQ(bucket->object("v/video.json"), std::nullopt);
}

TEST_F(S3BucketTest, KeysWithSpacesPunctuationAndOtherScriptsRoundTripAndDelete) {
    const std::vector<std::string> keys = {"k/a b+c.txt", "k/x&y<z>'\"", "k/!*'()$@=;:,?#[]%~", "k/\xC3\xA9t\xC3\xA9/\xE6\x97\xA5\xE6\x9C\xAC",
                                           "k/\xF0\x9F\x8E\xA5 clip", "k/double//slash"};
    for (const auto& key : keys) bucket->put(key, RequestBody::bytes("bytes of " + key), {});
    for (const auto& key : keys) EXPECT_EQ(bucket->object(key), "bytes of " + key) << key;
    auto listed = bucket->listKeys("k/");
    auto expected = keys;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed, expected);

    EXPECT_EQ(bucket->deleteObjects(keys), std::vector<DeleteFailure>{});
    EXPECT_TRUE(bucket->listKeys("k/").empty());

    std::vector<MultipartUpload> started;
    for (const auto& key : keys) started.push_back(bucket->createMultipart(key, {}));
    std::vector<std::string> open;
    for (const auto& upload : bucket->listMultipartUploads("k/")) open.push_back(upload.key);
    EXPECT_EQ(open, expected);
    for (const auto& upload : started) bucket->abortMultipart(upload);
    EXPECT_TRUE(bucket->listMultipartUploads("k/").empty());
}

TEST_F(S3BucketTest, ConditionalWritesReportALostRaceAsAConflict) {
    const auto first = bucket->put("site.json", RequestBody::bytes("1"), {}, WriteCondition::absent());
    ASSERT_TRUE(first);
    const auto again = failureOf([&] { bucket->put("site.json", RequestBody::bytes("2"), {}, WriteCondition::absent()); });
    EXPECT_TRUE(again.is<failure::Conflict>());
    EXPECT_STREQ(again.what(), "site.json changed after it was read, or it exists already");

    const auto second = bucket->put("site.json", RequestBody::bytes("2"), {}, WriteCondition::unchanged(*first));
    const auto stale = failureOf([&] { bucket->put("site.json", RequestBody::bytes("3"), {}, WriteCondition::unchanged(*first)); });
    EXPECT_TRUE(stale.is<failure::Conflict>());
    EXPECT_EQ(bucket->taggedObject("site.json")->etag, second);

    // Without a condition, a 412 is only a status.
    proxy->setPolicy([](const ProxyRequest& request) {
        return request.method == "PUT" ? Fault::respond(412, "<Error><Code>PreconditionFailed</Code></Error>") : Fault::none();
    });
    expectStatus(failureOf([&] { bucket->put("site.json", RequestBody::bytes("4"), {}); }), 412, "PreconditionFailed");
}

TEST_F(S3BucketTest, ABadDigestIsAnIntegrityFailureThatMayBeSentAgain) {
    proxy->setPolicy([](const ProxyRequest& request) {
        return request.method == "PUT" ? Fault::respond(400, "<Error><Code>BadDigest</Code></Error>") : Fault::none();
    });
    const auto error = failureOf([&] { bucket->put("a", RequestBody::bytes("x"), {}); });
    ASSERT_TRUE(error.is<failure::Integrity>());
    EXPECT_EQ(error.as<failure::Integrity>()->key, "a");
    EXPECT_TRUE(isTransient(std::make_exception_ptr(error)));
    // The server itself checks the digest that the client sends.
    proxy->setPolicy(nullptr);
    bucket->put("a", RequestBody::bytes("x"), {});
    EXPECT_EQ(bucket->object("a"), "x");
}

TEST_F(S3BucketTest, ManyKeysListInPagesAndRangesAndDeleteInBatchesOfAThousand) {
    std::vector<std::string> keys;
    for (int i = 0; i < 1001; ++i) keys.push_back(fmt::format("m/{:04}", i));
    forEachInWindow(keys.size(), 16, [&](std::size_t index) { bucket->put(keys[index], RequestBody::bytes(""), {}); });

    EXPECT_EQ(bucket->listKeys("m/"), keys);
    EXPECT_EQ(requestsWhere([](const ProxyRequest& r) { return r.target.find("continuation-token=") != std::string::npos; }), 1u);

    // Ranges: every key once, each page within its range, a range ended where its page ran past it.
    const auto ranges = Bucket::ranges({"m/0700", "m/0100", "m/0400"});
    ASSERT_EQ(ranges.size(), 4u);
    std::mutex mutex;
    std::vector<std::string> seen;
    bucket->listRanges("m/", ranges, 0, std::chrono::duration<double>(0), [&](const Bucket::ListPage& page) {
        std::lock_guard lock(mutex);
        for (const auto& object : page.objects) seen.push_back(object.key);
    });
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, keys);

    const auto before = proxy->requests().size();
    EXPECT_TRUE(bucket->deleteObjects({}).empty());
    EXPECT_EQ(proxy->requests().size(), before);
    EXPECT_TRUE(bucket->deleteObjects(keys).empty());
    EXPECT_EQ(requestsWhere([](const ProxyRequest& r) { return r.method == "POST" && r.target.find("delete=") != std::string::npos; }), 2u);
    EXPECT_FALSE(bucket->hasObjects("m/"));
}

TEST_F(S3BucketTest, RangesTrimPagesThatRunPastTheirEnd) {
    for (const auto* key : {"r/a", "r/b", "r/c", "r/d", "r/e"}) bucket->put(key, RequestBody::bytes(""), {});
    std::mutex mutex;
    std::vector<std::vector<std::string>> pages;
    bucket->listRanges("r/", Bucket::ranges({"r/b"}), 0, std::chrono::duration<double>(0), [&](const Bucket::ListPage& page) {
        std::lock_guard lock(mutex);
        std::vector<std::string> page_keys;
        for (const auto& object : page.objects) page_keys.push_back(object.key);
        pages.push_back(page_keys);
        EXPECT_FALSE(page.nextToken);
    });
    std::sort(pages.begin(), pages.end());
    EXPECT_EQ(pages, (std::vector<std::vector<std::string>>{{"r/a", "r/b"}, {"r/c", "r/d", "r/e"}}));
}

TEST_F(S3BucketTest, MultipartUploadsCompleteFromFileRangesAndAbort) {
    const std::size_t partSize = 5 * 1024 * 1024;
    const std::string bytes = randomBytes(partSize + 1000, 2);
    writeFileAtomically(dir / "big", bytes);
    const auto upload = bucket->createMultipart("big.mp4", {"video/mp4", "public, max-age=31536000, immutable", {{"a", "b"}}});
    EXPECT_EQ(upload.key, "big.mp4");
    const auto first = bucket->uploadPart(upload, 1, RequestBody::file(dir / "big", {0, partSize}));
    const auto second = bucket->uploadPart(upload, 2, RequestBody::file(dir / "big", {partSize, 1000}));
    EXPECT_EQ(first.number, 1);
    EXPECT_EQ(first.etag, hex(md5(bytes.substr(0, partSize))));
    bucket->completeMultipart(upload, {first, second});
    EXPECT_EQ(bucket->object("big.mp4"), bytes);
    const auto tagged = bucket->taggedObject("big.mp4");
    EXPECT_TRUE(tagged->etag.ends_with("-2\"")) << tagged->etag;
    EXPECT_EQ(bucket->info("big.mp4")->metadata.at("a"), "b");

    const auto abandoned = bucket->createMultipart("gone.mp4", {});
    bucket->uploadPart(abandoned, 1, RequestBody::bytes("x"));
    bucket->abortMultipart(abandoned);
    expectStatus(failureOf([&] { bucket->completeMultipart(abandoned, {{1, "x"}}); }), 404, "NoSuchUpload");
    EXPECT_EQ(bucket->info("gone.mp4"), std::nullopt);
}

TEST_F(S3BucketTest, AnswersThatHideAFailureAreFailures) {
    bucket->put("src", RequestBody::bytes("x"), {});
    std::string answer;
    proxy->setPolicy([&](const ProxyRequest&) { return Fault::respond(200, answer); });

    answer = "<?xml version=\"1.0\"?><Error><Code>InternalError</Code></Error>";
    expectStatus(failureOf([&] { bucket->copy("src", "dst"); }), 200, "<Error>");
    expectStatus(failureOf([&] { bucket->completeMultipart({"k", "u"}, {{1, "e"}}); }), 200, "InternalError");

    // Namespaces play no part: elements are matched by their local names.
    answer = "<Error xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><Code>SlowDown</Code></Error>";
    expectStatus(failureOf([&] { bucket->copy("src", "dst"); }), 200, "SlowDown");
    expectStatus(failureOf([&] { bucket->completeMultipart({"k", "u"}, {{1, "e"}}); }), 200, "SlowDown");
    answer = "<s3:InitiateMultipartUploadResult xmlns:s3=\"http://s3.amazonaws.com/doc/2006-03-01/\">"
             "<s3:Key>k</s3:Key><s3:UploadId>u-1</s3:UploadId></s3:InitiateMultipartUploadResult>";
    EXPECT_EQ(bucket->createMultipart("k", {}).uploadID, "u-1");
    answer = "<s3:ListBucketResult xmlns:s3=\"http://s3.amazonaws.com/doc/2006-03-01/\"><s3:KeyCount>1</s3:KeyCount>"
             "</s3:ListBucketResult>";
    EXPECT_TRUE(bucket->hasObjects(""));
    answer = "<CopyObjectResult><ETag>";
    expectStatus(failureOf([&] { bucket->copy("src", "dst"); }), 200, "response is not XML: ");

    answer = listWithRepeatedToken;
    EXPECT_EQ(bucket->listPage("", std::nullopt, std::nullopt).nextToken, "same");
    expectStatus(failureOf([&] { bucket->listAll(""); }), 200, "list response repeats its continuation token");

    answer = "<ListBucketResult><IsTruncated>true</IsTruncated></ListBucketResult>";
    expectStatus(failureOf([&] { bucket->listPage("", std::nullopt, std::nullopt); }), 200,
                 "truncated list response has no NextContinuationToken");
    answer = "<ListBucketResult><Contents><ETag>\"e\"</ETag></Contents><Contents><Key>k</Key></Contents></ListBucketResult>";
    const auto page = bucket->listPage("", std::nullopt, std::nullopt);
    ASSERT_EQ(page.objects.size(), 1u);
    EXPECT_EQ(page.objects[0].key, "k");
    EXPECT_EQ(page.objects[0].etag, std::nullopt);
    answer = "<ListBucketResult><Contents><Key>k";
    expectStatus(failureOf([&] { bucket->listPage("", std::nullopt, std::nullopt); }), 200, "response is not XML: ");
    answer = "<DeleteResult/>";
    expectStatus(failureOf([&] { bucket->listPage("", std::nullopt, std::nullopt); }), 200, "<DeleteResult/>");
    expectStatus(failureOf([&] { bucket->hasObjects(""); }), 200, "list response has no KeyCount");
    expectStatus(failureOf([&] { bucket->createMultipart("k", {}); }), 200, "multipart response has no UploadId");
    expectStatus(failureOf([&] { bucket->uploadPart({"k", "u"}, 1, RequestBody::bytes("x")); }), 200, "part response has no ETag");
    expectStatus(failureOf([&] { bucket->taggedObject("k"); }), 200, "the response for k has no ETag");

    answer = "<DeleteResult><Error><Key>a&amp;b</Key><Code>AccessDenied</Code></Error><Error><Key>c</Key></Error></DeleteResult>";
    EXPECT_EQ(bucket->deleteObjects({"a&b", "c"}),
              (std::vector<DeleteFailure>{{"a&b", "AccessDenied", ""}, {"c", "", ""}}));
}

TEST_F(S3BucketTest, OpenUploadsListInPagesThatGoOnFromBothMarkers) {
    const std::string firstPage =
        "<ListMultipartUploadsResult xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><IsTruncated>true</IsTruncated>"
        "<NextKeyMarker>a&amp;b</NextKeyMarker><NextUploadIdMarker>2</NextUploadIdMarker>"
        "<Upload><Key>a&amp;b</Key><UploadId>1</UploadId></Upload><Upload><Key>a&amp;b</Key><UploadId>2</UploadId></Upload>"
        "</ListMultipartUploadsResult>";
    const std::string lastPage =
        "<ListMultipartUploadsResult><IsTruncated>false</IsTruncated>"
        "<Upload><Key>a&amp;c</Key><UploadId>3</UploadId></Upload></ListMultipartUploadsResult>";
    proxy->setPolicy([&](const ProxyRequest& request) {
        return Fault::respond(200, request.target.find("key-marker=") == std::string::npos ? firstPage : lastPage);
    });
    const auto uploads = bucket->listMultipartUploads("a&");
    std::vector<std::pair<std::string, std::string>> listed;
    for (const auto& upload : uploads) listed.emplace_back(upload.key, upload.uploadID);
    EXPECT_EQ(listed, (std::vector<std::pair<std::string, std::string>>{{"a&b", "1"}, {"a&b", "2"}, {"a&c", "3"}}));
    const auto seen = proxy->requests();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_NE(seen[0].target.find("prefix=a%26&uploads="), std::string::npos) << seen[0].target;
    EXPECT_NE(seen[1].target.find("key-marker=a%26b&prefix=a%26&upload-id-marker=2&uploads="), std::string::npos)
        << seen[1].target;

    // A server that does not move on stops the listing instead of looping.
    proxy->setPolicy([&](const ProxyRequest&) { return Fault::respond(200, firstPage); });
    expectStatus(failureOf([&] { bucket->listMultipartUploads("a&"); }), 200, "truncated upload list has no new NextKeyMarker");
    proxy->setPolicy([&](const ProxyRequest&) { return Fault::respond(200, "<ListBucketResult/>"); });
    expectStatus(failureOf([&] { bucket->listMultipartUploads(""); }), 200, "<ListBucketResult/>");
}

TEST_F(S3BucketTest, AListPageRetriesTransientFailuresAndHonoursTheServersWait) {
    bucket->put("l/a", RequestBody::bytes(""), {});
    std::mutex mutex;
    std::deque<Fault> planned = {Fault::respond(503, "<Error><Code>SlowDown</Code></Error>", "0"), Fault::loseAnswer()};
    proxy->setPolicy([&](const ProxyRequest& request) {
        std::lock_guard lock(mutex);
        if (request.method != "GET" || planned.empty()) return Fault::none();
        Fault next = planned.front();
        planned.pop_front();
        return next;
    });
    EXPECT_EQ(bucket->listPage("l/", std::nullopt, std::nullopt, 2, std::chrono::duration<double>(0.001)).objects.size(), 1u);

    planned = {Fault::respond(503, "<Error><Code>SlowDown</Code></Error>")};
    expectStatus(failureOf([&] { bucket->listPage("l/", std::nullopt, std::nullopt, 0); }), 503, "SlowDown");
    // A failure that is not transient is not retried.
    proxy->setPolicy([](const ProxyRequest&) { return Fault::respond(403, "<Error><Code>AccessDenied</Code></Error>"); });
    expectStatus(failureOf([&] { bucket->listPage("l/", std::nullopt, std::nullopt, 3, std::chrono::duration<double>(0)); }),
                 403, "AccessDenied");
    EXPECT_EQ(requestsWhere([](const ProxyRequest& r) { return r.method == "GET"; }), 5u);
}

TEST_F(S3BucketTest, AnAnswerThatStallsTimesOutAsATransientFailure) {
    auto& server = RgwServer::shared();
    Endpoints endpoints;
    endpoints.r2Storage = proxy->endpoint();
    S3Bucket impatient(bucket->location(), server.credentials(), endpoints, 1, std::chrono::seconds(1));
    proxy->setPolicy([](const ProxyRequest&) { return Fault::stall(std::chrono::milliseconds(2500)); });
    try {
        impatient.object("a");
        FAIL() << "expected a time-out";
    } catch (const TransportError& error) {
        EXPECT_EQ(error.domainAndCode(), "curl 28");
        EXPECT_TRUE(isTransient(std::current_exception()));
    }
}

TEST_F(S3BucketTest, AWrongSecretIsRefused) {
    auto& server = RgwServer::shared();
    Endpoints endpoints;
    endpoints.r2Storage = server.endpoint();
    S3Bucket wrong(bucket->location(), {server.credentials().accessKeyID, "not-the-secret"}, endpoints);
    expectStatus(failureOf([&] { wrong.object("a"); }), 403, "SignatureDoesNotMatch");
}

TEST_F(S3BucketTest, WritesRetriedUnderRandomFaultsStoreEveryByte) {
    proxy->setPolicy(FaultProxy::randomFaults(0.3, 11));
    const RetryPolicy policy{10, std::chrono::duration<double>(0.001)};
    std::vector<std::string> bodies;
    for (int i = 0; i < 24; ++i) bodies.push_back(randomBytes(1000 + 40'000 * static_cast<std::size_t>(i), 100 + i));
    forEachInWindow(bodies.size(), 4, [&](std::size_t index) {
        const std::string key = fmt::format("f/{:02}", index);
        policy.run([&](std::int64_t) {
            try {
                return bucket->put(key, RequestBody::bytes(bodies[index]), {});
            } catch (const VorlenError&) {
                std::rethrow_exception(mappedWriteFailure(std::current_exception(), key, false));
            }
        });
    });
    proxy->setPolicy(nullptr);
    EXPECT_GT(proxy->faultsInjected(), 0u);
    for (std::size_t index = 0; index < bodies.size(); ++index)
        EXPECT_EQ(bucket->object(fmt::format("f/{:02}", index)), bodies[index]) << index;
}

// The contract suite on one bucket, behind a proxy that lives as long as the binary
// (it smooths the test server's if-match quirk, and injects nothing).
std::shared_ptr<Bucket> makeContractBucket() {
    static FaultProxy proxy(RgwServer::shared().endpoint(), RgwServer::shared().credentials());
    static std::shared_ptr<Bucket> bucket = RgwServer::shared().makeBucket(proxy.endpoint());
    return bucket;
}

INSTANTIATE_TEST_SUITE_P(S3, BucketContract, ::testing::Values(BucketFactory{"s3", makeContractBucket}), BucketFactory::name);

}  // namespace
}  // namespace vorlen
