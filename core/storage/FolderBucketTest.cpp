#include "core/storage/FolderBucket.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/Dates.hpp"
#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/storage/BucketContractTest.hpp"
#include "testing/ContractCases.hpp"

namespace vorlen {
namespace {

fs::path scratchFolder() { return makeUniqueDirectory(fs::temp_directory_path(), "vorlen-folder-bucket-"); }

std::shared_ptr<Bucket> makeFolderBucket() {
    fs::path root = scratchFolder();
    return std::shared_ptr<Bucket>(new FolderBucket(root), [root](Bucket* bucket) {
        delete bucket;
        fs::remove_all(root);
    });
}

INSTANTIATE_TEST_SUITE_P(Folder, BucketContract, ::testing::Values(BucketFactory{"folder", makeFolderBucket}),
                         BucketFactory::name);

class FolderBucketTest : public ::testing::Test {
protected:
    fs::path root = scratchFolder();
    DirectoryRemover remover{root};
    FolderBucket bucket{root};
};

TEST_F(FolderBucketTest, keepsObjectsWhereAWebServerFindsThemAndHeadersBeside) {
    bucket.put("site/v/master.m3u8", RequestBody::bytes("#EXTM3U\n"),
               {"application/vnd.apple.mpegurl", "public, max-age=300", {{"Title", "x"}}});
    EXPECT_EQ(readFile(root / "objects/site/v/master.m3u8"), "#EXTM3U\n");
    Json meta = decodeJson(readFile(root / ".meta" / (sha256Hex("site/v/master.m3u8") + ".json")));
    EXPECT_EQ(meta["contentType"], "application/vnd.apple.mpegurl");
    EXPECT_EQ(meta["cacheControl"], "public, max-age=300");
    EXPECT_EQ(meta["metadata"]["title"], "x");
    EXPECT_EQ(meta["key"], "site/v/master.m3u8");
    const auto headers = bucket.headers("site/v/master.m3u8");
    ASSERT_TRUE(headers);
    EXPECT_EQ(headers->contentType, "application/vnd.apple.mpegurl");
    EXPECT_EQ(headers->cacheControl, "public, max-age=300");
    EXPECT_EQ(headers->metadata, (std::map<std::string, std::string>{{"title", "x"}}));

    // Removing the last object of a folder removes the folder, so the name may become a key.
    bucket.remove("site/v/master.m3u8");
    EXPECT_FALSE(bucket.headers("site/v/master.m3u8"));
    EXPECT_FALSE(fs::exists(root / "objects/site"));
    bucket.put("site", RequestBody::bytes("now a file"), {"text/plain", "", {}});
    EXPECT_EQ(bucket.object("site"), "now a file");
}

// The layout that the page Worker's tools write and read too.
TEST_F(FolderBucketTest, keepsEachKeyWhereTheSharedLayoutSays) {
    Json layout = testing::contractCases("folder-bucket-layout.json");
    for (const Json& entry : layout.at("stored")) {
        auto key = entry.at("key").get<std::string>();
        bucket.put(key, RequestBody::bytes("x"), {"video/mp4", "", {}});
        EXPECT_EQ(readFile(root / entry.at("object").get<std::string>()), "x") << key;
        EXPECT_EQ(decodeJson(readFile(root / entry.at("record").get<std::string>())).at("key"), key);
    }
    const Json& sample = layout.at("record");
    const Json& headers = sample.at("headers");
    bucket.put(sample.at("key"), RequestBody::bytes(sample.at("body")),
               {headers.at("contentType"), headers.at("cacheControl"), headers.at("metadata")});
    Json record = decodeJson(readFile(root / ".meta" / (sha256Hex(sample.at("key").get<std::string>()) + ".json")));
    for (auto& [field, value] : sample.at("record").items()) EXPECT_EQ(record[field], value) << field;
    EXPECT_TRUE(parseIso8601(record["lastModified"].get<std::string>()));
}

TEST_F(FolderBucketTest, refusesKeysThatAFileSystemCannotHold) {
    ObjectHeaders plain{"text/plain", "", {}};
    bucket.put("a", RequestBody::bytes("x"), plain);
    auto refused = testing::contractCases("folder-bucket-layout.json").at("refused").get<std::vector<std::string>>();
    refused.push_back("a/b");  // through the object "a" as if it were a folder
    for (const auto& key : refused) {
        try {
            bucket.put(key, RequestBody::bytes("x"), plain);
            ADD_FAILURE() << "stored " << key;
        } catch (const VorlenError& error) {
            EXPECT_TRUE(error.is<failure::Config>()) << error.what();
        }
        EXPECT_FALSE(bucket.info(key));
    }
    auto page = bucket.listPage("", std::nullopt, std::nullopt);
    ASSERT_EQ(page.objects.size(), 1u);
    EXPECT_EQ(page.objects[0].key, "a");
}

TEST_F(FolderBucketTest, listsOnlyUnderPrefixesThatAreKeysOrFoldersOfKeys) {
    bucket.put("v/a", RequestBody::bytes("x"), {"text/plain", "", {}});
    for (auto prefix : {"", "v", "v/", "v/a"}) {
        EXPECT_TRUE(bucket.hasObjects(prefix)) << prefix;
        EXPECT_EQ(bucket.listPage(prefix, std::nullopt, std::nullopt).objects.size(), 1u) << prefix;
    }
    auto failureOf = [](auto list) -> std::string {
        try {
            list();
        } catch (const VorlenError& error) {
            return error.text();
        }
        return "listed";
    };
    for (const auto& prefix : {std::string("../"), std::string(".."), std::string("v/../"), std::string("/tmp/"),
                               std::string("v//"), std::string("v/./"), std::string("v\0/", 3)}) {
        std::string words = "“" + prefix + "” cannot be kept in a folder bucket";
        EXPECT_EQ(failureOf([&] { bucket.hasObjects(prefix); }), words);
        EXPECT_EQ(failureOf([&] { bucket.listPage(prefix, std::nullopt, std::nullopt); }), words);
    }
}

TEST_F(FolderBucketTest, pagesWithContinuationTokens) {
    FolderBucket paged(root, 10);
    for (int i = 0; i < 11; ++i) paged.put(fmt::format("p/{:02}", i), RequestBody::bytes(""), {"text/plain", "", {}});
    auto first = paged.listPage("p/", std::nullopt, std::nullopt);
    ASSERT_EQ(first.objects.size(), 10u);
    ASSERT_TRUE(first.nextToken);
    auto second = paged.listPage("p/", std::nullopt, first.nextToken);
    ASSERT_EQ(second.objects.size(), 1u);
    EXPECT_EQ(second.objects[0].key, "p/10");
    EXPECT_FALSE(second.nextToken);
    // A token wins over a start key.
    EXPECT_EQ(paged.listPage("p/", "p/00", first.nextToken).objects.size(), 1u);
    EXPECT_EQ(paged.listPage("p/", "p/08", std::nullopt).objects.size(), 2u);
    EXPECT_FALSE(paged.listPage("p/", "p/00", std::nullopt).nextToken);
}

TEST_F(FolderBucketTest, conditionalWritesHoldBetweenProcesses) {
    const std::string key = "counter";
    bucket.put(key, RequestBody::bytes("0"), {"text/plain", "", {}});
    constexpr int processes = 4;
    constexpr int increments = 25;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            FolderBucket own(root);
            for (int done = 0; done < increments;) {
                auto read = own.taggedObject(key);
                try {
                    own.put(key, RequestBody::bytes(std::to_string(std::stoi(read->data) + 1)), {"text/plain", "", {}},
                            WriteCondition::unchanged(read->etag));
                    ++done;
                } catch (const VorlenError&) {
                }
            }
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(bucket.object(key), std::to_string(processes * increments));
}

TEST_F(FolderBucketTest, aChangeThatACrashInterruptedIsFinishedByTheNextReader) {
    bucket.put("v/old.json", RequestBody::bytes("old"), {"application/json", "", {}});
    // What a writer leaves when it dies after recording its change and making
    // only the first rename: new bytes in place, the rest still to do.
    std::string meta = encodeJson(Json{{"key", "v/new.json"}, {"etag", "\"" + hex(md5("new")) + "\""}, {"size", 3},
                                       {"contentType", "application/json"}, {"cacheControl", ""},
                                       {"metadata", Json::object()}, {"lastModified", "2026-01-01T00:00:00Z"}});
    writeFileAtomically(root / ".tmp/second", "new");
    fs::create_directories(root / "objects/v");
    writeFileAtomically(root / "objects/v/new.json", "new");
    writeFileAtomically(root / ".pending/crash.json",
                        encodeJson(Json{{"renames", Json::array({Json::array({".tmp/first", "objects/v/new.json"}),
                                                                 Json::array({".tmp/second", "objects/v/copy.json"})})},
                                        {"writes", Json::array({Json::array({".meta/" + sha256Hex("v/new.json") + ".json", meta})})},
                                        {"removals", Json::array({".meta/" + sha256Hex("v/old.json") + ".json", "objects/v/old.json"})}}));
    FolderBucket reader(root);
    EXPECT_EQ(reader.object("v/new.json"), "new");
    EXPECT_EQ(reader.taggedObject("v/new.json")->etag, "\"" + hex(md5("new")) + "\"");
    EXPECT_EQ(readFile(root / "objects/v/copy.json"), "new");
    EXPECT_FALSE(reader.info("v/old.json"));
    EXPECT_FALSE(fs::exists(root / "objects/v/old.json"));
    EXPECT_TRUE(fs::is_empty(root / ".pending"));
}

TEST_F(FolderBucketTest, aChangeRecordThatNamesAPathOutsideIsDroppedUndone) {
    fs::path outside = scratchFolder();
    DirectoryRemover outsideRemover{outside};
    writeFileAtomically(outside / "victim", "keep me");
    writeFileAtomically(outside / "planted", "planted");
    writeFileAtomically(root / ".tmp/ready", "ready");
    std::string meta = encodeJson(Json{{"key", "ready"}, {"etag", "\"" + hex(md5("ready")) + "\""}, {"size", 5},
                                       {"contentType", "text/plain"}, {"cacheControl", ""},
                                       {"metadata", Json::object()}, {"lastModified", "2026-01-01T00:00:00Z"}});
    for (Json change : {Json{{"renames", Json::array({Json::array({(outside / "planted").string(), "objects/planted"})})},
                             {"writes", Json::array()}, {"removals", Json::array()}},
                        Json{{"renames", Json::array({Json::array({".tmp/ready", "objects/ready"})})},
                             {"writes", Json::array({Json::array({".meta/" + sha256Hex("ready") + ".json", meta})})},
                             {"removals", Json::array({"../" + outside.filename().string() + "/victim"})}}}) {
        writeFileAtomically(root / ".pending/planted.json", encodeJson(change));
        FolderBucket reader(root);
        EXPECT_TRUE(fs::is_empty(root / ".pending"));
    }
    EXPECT_EQ(readFile(outside / "victim"), "keep me");
    EXPECT_EQ(readFile(outside / "planted"), "planted");
    EXPECT_FALSE(bucket.info("planted"));
    EXPECT_FALSE(bucket.info("ready")) << "no step of a refused record is done, also not the harmless ones";
    EXPECT_FALSE(fs::exists(root / "objects/ready"));
}

TEST_F(FolderBucketTest, tracksOpenMultipartUploadsUntilCompletedOrAborted) {
    auto kept = bucket.createMultipart("big", {"video/mp4", "", {}});
    auto dropped = bucket.createMultipart("other", {"video/mp4", "", {}});
    EXPECT_EQ(bucket.openMultipartUploads().size(), 2u);
    auto part = bucket.uploadPart(kept, 1, RequestBody::bytes("abc"));
    bucket.abortMultipart(dropped);
    bucket.completeMultipart(kept, {part});
    EXPECT_TRUE(bucket.openMultipartUploads().empty());
    EXPECT_EQ(bucket.object("big"), "abc");
    // A part whose ETag does not match what was stored is refused.
    auto again = bucket.createMultipart("big2", {"video/mp4", "", {}});
    bucket.uploadPart(again, 1, RequestBody::bytes("abc"));
    try {
        bucket.completeMultipart(again, {{1, hex(md5("abd"))}});
        ADD_FAILURE() << "completed with a wrong ETag";
    } catch (const VorlenError& error) {
        EXPECT_NE(error.text().find("InvalidPart"), std::string::npos);
    }
}

}  // namespace
}  // namespace vorlen
