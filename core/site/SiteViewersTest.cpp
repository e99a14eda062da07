#include "core/site/SiteViewers.hpp"

#include <gtest/gtest.h>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/SiteSettings.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/FailureText.hpp"

namespace vorlen {
namespace {

using testing::failureOf;

class SiteViewersTest : public ::testing::Test {
protected:
    SiteViewersTest()
        : root_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-viewers-")),
          bucket_(std::make_shared<FolderBucket>(root_)),
          viewers_(bucket_, "https://videos.example.com") {}
    ~SiteViewersTest() override { std::filesystem::remove_all(root_); }

    std::string file(const ViewerID& id) const { return *bucket_->object(SiteViewers::keyOf(id)); }
    // What the page Worker does when the person makes a passkey with the invite.
    void redeem(const ViewerID& id) const {
        auto viewer = Viewer::decoded(file(id));
        viewer.access = ViewerPasskey{"credential", "public key", {"internal"}, viewer.created};
        bucket_->put(SiteViewers::keyOf(id), RequestBody::bytes(viewer.encoded()), {"application/json", "no-cache", {}});
    }

    std::filesystem::path root_;
    std::shared_ptr<FolderBucket> bucket_;
    SiteViewers viewers_;
};

TEST_F(SiteViewersTest, AnInviteLinkCarriesTheSecretAndTheFileOnlyItsHash) {
    EXPECT_EQ(failureOf([&] { viewers_.add(" \t "); }), "A viewer needs a name.");
    EXPECT_TRUE(bucket_->listKeys("").empty()) << "refused before any write";

    const auto first = viewers_.add("  Ana ");
    const auto second = viewers_.add("Ana");
    EXPECT_NE(first.viewer.id, second.viewer.id) << "two adds of one name make two viewers";
    const std::string prefix = "https://videos.example.com/_invite/" + first.viewer.id.text + ".";
    ASSERT_TRUE(first.link.starts_with(prefix)) << first.link;
    const auto secret = first.link.substr(prefix.size());
    const auto stored = file(first.viewer.id);
    EXPECT_EQ(stored.find(secret), std::string::npos);
    const auto& invite = std::get<ViewerInvite>(Viewer::decoded(stored).access);
    EXPECT_EQ(invite.hash, sha256Hex(secret));
    EXPECT_EQ(invite.expires - Viewer::decoded(stored).created, std::chrono::hours(24 * 7));

    const auto listed = viewers_.list();
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].viewer->name, "Ana");

    const auto renewed = viewers_.renewInvite(listed[0]);
    EXPECT_NE(renewed.link.substr(prefix.size()), secret);
    EXPECT_EQ(failureOf([&] { viewers_.renewInvite(listed[0]); }), VorlenError::conflict(SiteViewers::keyOf(listed[0].id)).text())
        << "the old ETag no longer holds";
}

TEST_F(SiteViewersTest, ARenameAfterTheInviteWasRedeemedLosesAndDoesNotBringTheInviteBack) {
    const auto added = viewers_.add("Ben").viewer;
    EXPECT_EQ(viewers_.rename(added, " Ben ").etag, added.etag) << "the same name writes nothing";
    redeem(added.id);
    EXPECT_TRUE(failureOf([&] { viewers_.rename(added, "Benjamin"); }).find("changed") != std::string::npos);
    EXPECT_TRUE(std::holds_alternative<ViewerPasskey>(Viewer::decoded(file(added.id)).access));

    const auto fresh = viewers_.read(added.id);
    viewers_.rename(fresh, "Benjamin");
    const auto renamed = Viewer::decoded(file(added.id));
    EXPECT_EQ(renamed.name, "Benjamin");
    EXPECT_TRUE(std::holds_alternative<ViewerPasskey>(renamed.access));

    viewers_.remove(added.id);  // no condition: the file changed since it was read, and still goes
    EXPECT_TRUE(viewers_.list().empty());
}

TEST_F(SiteViewersTest, MalformedFilesAreRefusedInWordsAndListedWithTheirProblem) {
    const auto failure = [](const std::string& json) { return failureOf([&] { Viewer::decoded(json); }); };
    const std::string hash(64, 'a');
    const auto invite = R"("invite": {"hash": ")" + hash + R"(", "expires": "2026-12-01T00:00:00Z"})";
    const auto passkey = R"("passkey": {"id": "c", "publicKey": "k", "transports": [], "created": "2026-11-01T00:00:00Z"})";
    const auto file = [&](const std::string& body) {
        return R"({"version": 1, "name": "Ana", "created": "2026-11-01T00:00:00Z", )" + body + "}";
    };
    EXPECT_EQ(failure(file(invite + ", " + passkey)), "the file must have an invite or a passkey, not both");
    EXPECT_EQ(failure(R"({"version": 1, "name": "Ana", "created": "2026-11-01T00:00:00Z"})"),
              "the file must have an invite or a passkey, not both");
    std::string upper = file(invite);
    upper.replace(upper.find(hash), 64, std::string(64, 'A'));
    EXPECT_EQ(failure(upper), "the hash is not a lowercase hex SHA-256");
    EXPECT_EQ(failure(R"({"version": 1, "name": "  ", "created": "2026-11-01T00:00:00Z", )" + invite + "}"),
              "the name is blank");
    EXPECT_EQ(failure(R"({"version": 1, "name": "Ana", "created": "yesterday", )" + invite + "}"),
              "\u201cyesterday\u201d is not an ISO 8601 date");
    EXPECT_EQ(failure(R"({"version": 0, "name": "Ana"})"), "The viewer file has version 0, which is not valid.");
    EXPECT_EQ(Viewer::decoded(file(passkey)).encoded(), encodeJson(decodeJson(file(passkey)), true));

    const auto newer = ViewerID::make();
    bucket_->put(SiteViewers::keyOf(newer), RequestBody::bytes(R"({"version": 2, "name": "Cy", "badge": {}})"), {});
    const auto listed = viewers_.list();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_FALSE(listed[0].viewer);
    EXPECT_EQ(*listed[0].problem,
              "The viewer file has version 2, from a newer version of Vorlen. This app reads version 1. Update the app.");
    EXPECT_EQ(failureOf([&] { viewers_.rename(listed[0], "Cyril"); }), SiteViewers::newerVersion);
    EXPECT_EQ(failureOf([] { ViewerID::parse("ABC"); }), "\u201cABC\u201d is not a viewer ID.");
}

TEST_F(SiteViewersTest, MakingASitePrivateChangesOnlyThatSetting) {
    EXPECT_EQ(failureOf([&] { viewers_.isPrivate(); }), "The bucket has no _vorlen/site.json. Set up the site first.");
    SiteSettings settings;
    settings.mediaHost = Hostname::parse("media.example.com");
    settings.pageHost = Hostname::parse("videos.example.com");
    settings.homePage.title = "Dovrin Films";
    settings.worker = DeployedWorker{"vorlen-pages", SemanticVersion::parse("1.0.0")};
    settings.write(*bucket_);
    const auto before = *bucket_->object(SiteRules::settingsKey);

    viewers_.setPrivate(true);
    EXPECT_TRUE(viewers_.isPrivate());
    auto changed = SiteSettings::readRequired(*bucket_);
    EXPECT_TRUE(changed.isPrivate);
    changed.isPrivate = false;
    EXPECT_EQ(changed, settings);

    viewers_.setPrivate(false);
    EXPECT_FALSE(viewers_.isPrivate());
    EXPECT_EQ(*bucket_->object(SiteRules::settingsKey), before);
}

}  // namespace
}  // namespace vorlen
