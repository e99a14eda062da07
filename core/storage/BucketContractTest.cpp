#include "core/storage/BucketContractTest.hpp"

#include <algorithm>
#include <fstream>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/Random.hpp"

namespace vorlen {

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(BucketContract);

void BucketContract::SetUp() {
    bucket = GetParam().make();
    prefix = "contract-" + randomString(10, "abcdefghijklmnopqrstuvwxyz0123456789") + "/";
}

void BucketContract::TearDown() {
    if (!bucket) return;
    std::vector<std::string> keys;
    std::optional<std::string> token;
    do {
        auto page = bucket->listPage(prefix, std::nullopt, token);
        for (auto& object : page.objects) keys.push_back(object.key);
        token = page.nextToken;
    } while (token);
    bucket->deleteObjects(keys);
    for (auto& upload : bucket->listMultipartUploads(prefix)) bucket->abortMultipart(upload);
}

namespace {

std::string quotedMd5(std::string_view bytes) { return "\"" + hex(md5(bytes)) + "\""; }

std::string unquote(const std::string& etag) {
    return etag.size() >= 2 && etag.front() == '"' ? etag.substr(1, etag.size() - 2) : etag;
}

template <class F>
int statusOf(F operation) {
    try {
        operation();
    } catch (const VorlenError& error) {
        if (auto* status = error.as<failure::Status>()) return status->code;
        ADD_FAILURE() << "not a status failure: " << error.what();
        return -1;
    }
    ADD_FAILURE() << "no failure";
    return 0;
}

template <class F>
bool isConflict(F operation) {
    try {
        operation();
    } catch (const VorlenError& error) {
        return error.is<failure::Conflict>();
    }
    return false;
}

// Key and upload ID of each, in the order listed.
std::vector<std::pair<std::string, std::string>> keysAndIDs(const std::vector<MultipartUpload>& uploads) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (auto& upload : uploads) pairs.emplace_back(upload.key, upload.uploadID);
    return pairs;
}

std::vector<std::pair<std::string, std::string>> sortedKeysAndIDs(const std::vector<MultipartUpload>& uploads) {
    auto pairs = keysAndIDs(uploads);
    std::sort(pairs.begin(), pairs.end());
    return pairs;
}

// A scratch file that goes away with the test.
struct ScratchFile {
    fs::path path;
    explicit ScratchFile(std::string_view bytes)
        : path(fs::temp_directory_path() / ("vorlen-contract-" + randomString(12, "abcdefghij0123456789"))) {
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    ~ScratchFile() { fs::remove(path); }
};

}  // namespace

TEST_P(BucketContract, readsBackWhatItStoredUnderAwkwardKeys) {
    ObjectHeaders headers{"text/plain", "no-cache", {{"Owner", "Ann"}, {"clip-id", "42"}}};
    for (std::string name : {"plain.txt", "with space+plus.txt", "Grüße/ünï cödé.txt", "punct!*'()&$@=;:,#[]%.txt"}) {
        std::string key = prefix + name;
        std::string bytes = "bytes of " + name;
        auto etag = bucket->put(key, RequestBody::bytes(bytes), headers);
        ASSERT_TRUE(etag) << name;
        EXPECT_EQ(*etag, quotedMd5(bytes));
        EXPECT_EQ(bucket->object(key), bytes);
        auto tagged = bucket->taggedObject(key);
        ASSERT_TRUE(tagged);
        EXPECT_EQ(tagged->data, bytes);
        EXPECT_EQ(tagged->etag, *etag);
        auto info = bucket->info(key);
        ASSERT_TRUE(info);
        EXPECT_EQ(info->size, static_cast<std::int64_t>(bytes.size()));
        EXPECT_TRUE(info->lastModified);
        EXPECT_EQ(info->metadata, (std::map<std::string, std::string>{{"owner", "Ann"}, {"clip-id", "42"}}));
    }
    EXPECT_FALSE(bucket->object(prefix + "missing"));
    EXPECT_FALSE(bucket->taggedObject(prefix + "missing"));
    EXPECT_FALSE(bucket->info(prefix + "missing"));

    auto empty = bucket->put(prefix + "empty", RequestBody::bytes(""), headers);
    EXPECT_EQ(empty, quotedMd5(""));
    EXPECT_EQ(bucket->object(prefix + "empty"), "");
}

TEST_P(BucketContract, sendsAFileRangeAndReportsEveryByte) {
    ScratchFile file("0123456789abcdefghijklmnopqrstuvwxyz");
    std::uint64_t sent = 0;
    auto body = RequestBody::file(file.path, {3, 20});
    body.onSend = [&](std::uint64_t bytes) { sent += bytes; };
    auto etag = bucket->put(prefix + "range", body, {"text/plain", "no-cache", {}});
    EXPECT_EQ(bucket->object(prefix + "range"), "3456789abcdefghijklm");
    EXPECT_EQ(etag, quotedMd5("3456789abcdefghijklm"));
    EXPECT_GE(sent, 20u);  // a retry inside the transport may send again, never less

    // A file that became shorter than planned stores nothing.
    EXPECT_ANY_THROW(bucket->put(prefix + "short", RequestBody::file(file.path, {30, 20}), {"text/plain", "", {}}));
    EXPECT_FALSE(bucket->info(prefix + "short"));
}

TEST_P(BucketContract, readsARangeOfAnObject) {
    bucket->put(prefix + "chunk", RequestBody::bytes("0123456789abcdef"), {"video/mp4", "", {}});
    EXPECT_EQ(bucket->objectRange(prefix + "chunk", {3, 5}), "34567");
    EXPECT_EQ(bucket->objectRange(prefix + "chunk", {10, 6}), "abcdef");
    EXPECT_FALSE(bucket->objectRange(prefix + "missing", {0, 4}));
    EXPECT_ANY_THROW(bucket->objectRange(prefix + "chunk", {12, 8}));
}

TEST_P(BucketContract, conditionalWritesLoseWithAConflictAndChangeNothing) {
    std::string key = prefix + "record.json";
    ObjectHeaders json{"application/json", "no-cache", {}};
    EXPECT_TRUE(isConflict([&] { bucket->put(key, RequestBody::bytes("x"), json, WriteCondition::unchanged("\"0\"")); }));
    EXPECT_FALSE(bucket->info(key));

    auto first = bucket->put(key, RequestBody::bytes("one"), json, WriteCondition::absent());
    ASSERT_TRUE(first);
    EXPECT_TRUE(isConflict([&] { bucket->put(key, RequestBody::bytes("two"), json, WriteCondition::absent()); }));

    auto read = bucket->taggedObject(key);
    ASSERT_TRUE(read);
    auto second = bucket->put(key, RequestBody::bytes("two"), json, WriteCondition::unchanged(read->etag));
    ASSERT_TRUE(second);
    EXPECT_TRUE(isConflict([&] { bucket->put(key, RequestBody::bytes("three"), json, WriteCondition::unchanged(read->etag)); }));
    EXPECT_EQ(bucket->object(key), "two");

    bucket->put(key, RequestBody::bytes("four"), json);
    EXPECT_EQ(bucket->object(key), "four");
}

TEST_P(BucketContract, listsInByteOrderFromAStartKey) {
    std::vector<std::string> names = {"z", "a!", "B", "é", "a/b", "a-", "~"};
    for (auto& name : names) bucket->put(prefix + name, RequestBody::bytes(name), {"text/plain", "", {}});
    bucket->put(prefix.substr(0, prefix.size() - 1) + "-outside", RequestBody::bytes("x"), {"text/plain", "", {}});

    auto page = bucket->listPage(prefix, std::nullopt, std::nullopt);
    std::vector<std::string> keys;
    for (auto& object : page.objects) {
        keys.push_back(object.key.substr(prefix.size()));
        ASSERT_TRUE(object.etag);
        EXPECT_EQ(unquote(*object.etag), hex(md5(keys.back())));
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"B", "a!", "a-", "a/b", "z", "~", "é"}));
    EXPECT_FALSE(page.nextToken);

    auto after = bucket->listPage(prefix, prefix + "a-", std::nullopt);
    ASSERT_EQ(after.objects.size(), 4u);
    EXPECT_EQ(after.objects.front().key, prefix + "a/b");

    EXPECT_EQ(bucket->listPage(prefix + "a/", std::nullopt, std::nullopt).objects.size(), 1u);
    EXPECT_TRUE(bucket->hasObjects(prefix + "a/"));
    EXPECT_FALSE(bucket->hasObjects(prefix + "b/"));
    EXPECT_TRUE(bucket->listPage(prefix + "nothing/", std::nullopt, std::nullopt).objects.empty());

    bucket->remove(prefix.substr(0, prefix.size() - 1) + "-outside");
}

TEST_P(BucketContract, deletesOneOrManyAndMissingKeysAreNoFailure) {
    for (auto name : {"a", "b", "c & d <e>"}) bucket->put(prefix + name, RequestBody::bytes(name), {"text/plain", "", {}});
    bucket->remove(prefix + "a");
    bucket->remove(prefix + "never-was");
    EXPECT_FALSE(bucket->info(prefix + "a"));
    EXPECT_TRUE(bucket->deleteObjects({}).empty());
    EXPECT_TRUE(bucket->deleteObjects({prefix + "b", prefix + "c & d <e>", prefix + "never-was"}).empty());
    EXPECT_FALSE(bucket->hasObjects(prefix));
}

TEST_P(BucketContract, copyKeepsBytesAndMetadata) {
    bucket->put(prefix + "from", RequestBody::bytes("copied"), {"text/plain", "no-cache", {{"title", "A"}}});
    bucket->copy(prefix + "from", prefix + "to/there");
    EXPECT_EQ(bucket->object(prefix + "to/there"), "copied");
    auto info = bucket->info(prefix + "to/there");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->metadata.at("title"), "A");
    EXPECT_EQ(statusOf([&] { bucket->copy(prefix + "missing", prefix + "to/else"); }), 404);
}

TEST_P(BucketContract, multipartJoinsPartsAndAnAbortedUploadIsGone) {
    // Parts before the last must be at least 5 MiB on S3.
    std::string first(5 * 1024 * 1024, 'a');
    for (std::size_t i = 0; i < first.size(); i += 4096) first[i] = static_cast<char>('a' + i / 4096 % 26);
    ScratchFile file(first + "tail");

    std::string key = prefix + "v_1080/big.mp4";
    auto upload = bucket->createMultipart(key, {"video/mp4", "public, max-age=31536000, immutable", {{"n", "1"}}});
    EXPECT_EQ(upload.key, key);
    EXPECT_FALSE(upload.uploadID.empty());
    auto part2 = bucket->uploadPart(upload, 2, RequestBody::file(file.path, {first.size(), 4}));
    auto part1 = bucket->uploadPart(upload, 1, RequestBody::file(file.path, {0, first.size()}));
    EXPECT_EQ(part1.number, 1);
    EXPECT_EQ(part1.etag, hex(md5(first)));
    EXPECT_FALSE(bucket->info(key));
    bucket->completeMultipart(upload, {part1, part2});

    auto tagged = bucket->taggedObject(key);
    ASSERT_TRUE(tagged);
    EXPECT_EQ(tagged->data, first + "tail");
    auto joined = md5(first);
    auto tail = md5("tail");
    std::string digests(reinterpret_cast<const char*>(joined.data()), 16);
    digests.append(reinterpret_cast<const char*>(tail.data()), 16);
    EXPECT_EQ(tagged->etag, "\"" + hex(md5(digests)) + "-2\"");
    EXPECT_EQ(bucket->info(key)->metadata.at("n"), "1");

    auto aborted = bucket->createMultipart(prefix + "aborted", {"video/mp4", "", {}});
    auto part = bucket->uploadPart(aborted, 1, RequestBody::bytes("x"));
    bucket->abortMultipart(aborted);
    EXPECT_EQ(statusOf([&] { bucket->completeMultipart(aborted, {part}); }), 404);
    EXPECT_FALSE(bucket->info(prefix + "aborted"));
}


TEST_P(BucketContract, listsOpenMultipartUploadsUnderAPrefixUntilTheyEnd) {
    const std::string key = prefix + "v_1080/a&b <c> \"d\" 'é'.mp4";
    const ObjectHeaders headers{"video/mp4", "", {}};
    auto first = bucket->createMultipart(key, headers);
    auto second = bucket->createMultipart(key, headers);
    auto longer = bucket->createMultipart(key + ".old", headers);
    auto elsewhere = bucket->createMultipart(prefix + "v_720/a.mp4", headers);

    // A prefix also matches longer keys; uploads come in key order.
    auto listed = bucket->listMultipartUploads(key);
    std::vector<std::string> keys;
    for (auto& upload : listed) keys.push_back(upload.key);
    EXPECT_EQ(keys, (std::vector<std::string>{key, key, key + ".old"}));
    EXPECT_EQ(sortedKeysAndIDs(listed), sortedKeysAndIDs({first, second, longer}));
    EXPECT_EQ(sortedKeysAndIDs(bucket->listMultipartUploads(prefix)), sortedKeysAndIDs({first, second, longer, elsewhere}));
    EXPECT_TRUE(bucket->listMultipartUploads(prefix + "v_360/").empty());

    // Completed and aborted uploads are no longer open.
    bucket->completeMultipart(second, {bucket->uploadPart(second, 1, RequestBody::bytes("x"))});
    bucket->abortMultipart(first);
    EXPECT_EQ(keysAndIDs(bucket->listMultipartUploads(key)), keysAndIDs({longer}));
    bucket->abortMultipart(longer);
    bucket->abortMultipart(elsewhere);
    EXPECT_TRUE(bucket->listMultipartUploads(prefix).empty());
}

}  // namespace vorlen
