#include "core/cloudflare/DailyTokens.hpp"

#include <gtest/gtest.h>

#include "core/base/Random.hpp"
#include "core/base/VorlenError.hpp"
#include "core/cloudflare/SiteInvite.hpp"
#include "core/storage/S3Bucket.hpp"
#include "testing/LocalCloudflareAccount.hpp"

namespace vorlen {
namespace {

using testing::LocalCloudflareAccount;

class DailyTokensAccountTest : public ::testing::Test {
protected:
    LocalCloudflareAccount& account = LocalCloudflareAccount::shared();

    void SetUp() override { account.reset(); }
    void TearDown() override { account.reset(); }

    Endpoints endpoints() const {
        Endpoints local;
        local.cloudflareAPI = account.api();
        local.r2Storage = account.r2();
        return local;
    }
    CloudflareAPI client(const APIToken& token) const {
        return CloudflareAPI(token, std::make_shared<HttpClient>(), endpoints(), RetryPolicy(0));
    }
    // Whether S3 credentials can write into the bucket.
    bool canWrite(const S3Credentials& credentials, const std::string& bucket) const {
        S3Bucket s3(BucketLocation{account.accountID(), bucket}, credentials, endpoints());
        try {
            s3.put("probe.txt", RequestBody::bytes("probe"), {});
            return true;
        } catch (const VorlenError&) {
            return false;
        }
    }
};

TEST_F(DailyTokensAccountTest, AComputersTokenReachesItsBucketUntilItIsRevoked) {
    const CloudflareAPI setup = client(account.setupToken());
    const std::string bucket = setup.createBucket(account.accountID(), "daily-" + randomString(8, "abcdefghij"), std::nullopt).name;
    const DailyTokens tokens{setup, account.accountID(), bucket, account.zones().begin()->second};

    const DailyToken daily = tokens.makeForComputer("Studio Mac");
    ASSERT_TRUE(daily.value);
    EXPECT_TRUE(canWrite(daily.credentials, bucket));
    // The same value, verified on another computer, gives the same keys.
    const auto verified = client(*daily.value).verifyToken(account.accountID());
    EXPECT_EQ(s3Credentials(verified.id, *daily.value), daily.credentials);
    // The token can purge the media zone and nothing else of the account.
    client(*daily.value).purgeByPrefix(account.zones().begin()->second, {"media.example/videos/"});
    try {
        client(*daily.value).zones(account.accountID());
        client(*daily.value).kvNamespaces(account.accountID());
        ADD_FAILURE() << "the daily token reached the account's namespaces";
    } catch (const CloudflareError& error) {
        EXPECT_TRUE(error.isPermissionRefused()) << error.what();
    }

    const SiteInvite invite = SiteInvite::make(tokens, "Ana");
    EXPECT_EQ(SetupCode::parse(invite.code.text()).token, invite.token.value);
    EXPECT_EQ(invite.token.description().find(invite.token.value.value), std::string::npos);

    std::vector<std::string> kinds;
    for (const auto& token : tokens.vorlenTokens())
        if (token.id == daily.tokenID() || token.id == invite.token.id)
            kinds.push_back((token.name.isInvite() ? "invite " : "computer ") + token.name.name());
    EXPECT_EQ(kinds, (std::vector<std::string>{"computer Studio Mac", "invite Ana"}));

    tokens.revoke(daily.tokenID());
    EXPECT_FALSE(canWrite(daily.credentials, bucket));
    for (const auto& token : tokens.vorlenTokens()) EXPECT_NE(token.id, daily.tokenID());
}

TEST_F(DailyTokensAccountTest, VerificationTellsTheKindAndKeepsTroubleApartFromRefusal) {
    const auto setupKind = client(account.setupToken()).verifyToken(account.accountID());
    EXPECT_EQ(setupKind.kind, VerifiedToken::Kind::account);
    EXPECT_EQ(setupKind.status, "active");

    const auto user = account.makeUserToken();
    EXPECT_EQ(client(user).verifyToken(account.accountID()).kind, VerifiedToken::Kind::user);

    try {
        client(APIToken{"cfat_not-a-token"}).verifyToken(account.accountID());
        ADD_FAILURE();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "Cloudflare did not accept the API token");
    }

    // A server in trouble says nothing about the token: the 429 itself comes back.
    account.setFaults({{"script", {{{"status", 429}, {"retryAfter", "5"}}}}});
    try {
        client(account.setupToken()).verifyToken(account.accountID());
        ADD_FAILURE();
    } catch (const CloudflareError& error) {
        EXPECT_EQ(error.status(), 429);
    }
}

}  // namespace
}  // namespace vorlen
