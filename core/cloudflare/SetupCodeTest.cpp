#include "core/cloudflare/SetupCode.hpp"

#include <gtest/gtest.h>

#include "core/base/Crypto.hpp"
#include "core/cloudflare/DailyTokens.hpp"
#include "core/cloudflare/TokenPermission.hpp"
#include "core/cloudflare/VorlenTokenName.hpp"

namespace vorlen {
namespace {

using Kind = SetupCode::ParseError::Kind;

Kind refusal(std::string_view text) {
    try {
        SetupCode::parse(text);
    } catch (const SetupCode::ParseError& error) {
        return error.kind();
    }
    ADD_FAILURE() << "accepted: " << text;
    return Kind::notASetupCode;
}

std::string codeWithPayload(const std::string& json) { return "vorlen1:" + base64Url(json); }

TEST(SetupCodeTest, RoundTripsAndNeverShowsItsToken) {
    const SetupCode code{"0123456789abcdef0123456789abcdef", "my-videos", APIToken{"cfat_secret/+value"}};
    const std::string text = code.text();
    EXPECT_TRUE(text.starts_with("vorlen1:"));
    EXPECT_EQ(text.find_first_of("+/=", 8), std::string::npos);
    const auto read = SetupCode::parse("  \n" + text + "\n ");
    EXPECT_EQ(read.accountID, code.accountID);
    EXPECT_EQ(read.bucket, code.bucket);
    EXPECT_EQ(read.token, code.token);
    EXPECT_EQ(code.description(), "SetupCode(account: 0123456789abcdef0123456789abcdef, bucket: my-videos)");
}

TEST(SetupCodeTest, RefusesWhatIsNotAWholeCodeOfThisVersion) {
    const std::string good = SetupCode{"abc123", "videos", APIToken{"cfat_x"}}.text();
    EXPECT_EQ(refusal("hello"), Kind::notASetupCode);
    EXPECT_EQ(refusal("vorlen:abc"), Kind::notASetupCode);
    EXPECT_EQ(refusal("vorlenx:abc"), Kind::notASetupCode);
    EXPECT_EQ(refusal("vorlen2:abc"), Kind::newerVersion);
    EXPECT_EQ(refusal("vorlen1:"), Kind::notReadable);
    EXPECT_EQ(refusal(good.substr(0, good.size() - 7)), Kind::notReadable);  // cut
    EXPECT_EQ(refusal(good + "=="), Kind::notReadable);                      // padded
    EXPECT_EQ(refusal(codeWithPayload(R"({"account":"abc","token":"t"})")), Kind::missingValue);
    EXPECT_EQ(refusal(codeWithPayload(R"({"account":"abc","bucket":"","token":"t"})")), Kind::missingValue);
    EXPECT_EQ(refusal(codeWithPayload(R"({"account":"ABC","bucket":"videos","token":"t"})")), Kind::invalidAccount);
    EXPECT_EQ(refusal(codeWithPayload(R"({"account":"abc","bucket":"My_Videos","token":"t"})")), Kind::invalidBucket);

    try {
        SetupCode::parse("vorlen7:abc");
    } catch (const SetupCode::ParseError& error) {
        EXPECT_STREQ(error.what(), "This setup code (\u201cvorlen7\u201d) is from a newer version of Vorlen. Update the app.");
    }
    try {
        SetupCode::parse(codeWithPayload(R"({"account":"abc","bucket":"videos"})"));
    } catch (const SetupCode::ParseError& error) {
        EXPECT_STREQ(error.what(), "The setup code has no token. Ask for a new code.");
    }
}

TEST(SetupCodeTest, TokenNamesCarryTheirKindThroughTheLengthLimit) {
    const std::string longName(200, 'n');
    const auto computer = VorlenTokenName::computer("  Studio iMac \n");
    EXPECT_EQ(computer.text(), "Vorlen \u2013 Studio iMac");
    const auto cut = VorlenTokenName::parse(VorlenTokenName::computer(longName).text());
    ASSERT_TRUE(cut);
    EXPECT_FALSE(cut->isInvite());
    // 120 characters, the en dash counted once.
    EXPECT_EQ(VorlenTokenName::computer(longName).text().size(), 120u + 2);
    const auto invite = VorlenTokenName::parse(VorlenTokenName::invite(longName).text());
    ASSERT_TRUE(invite);
    EXPECT_TRUE(invite->isInvite());
    EXPECT_EQ(VorlenTokenName::parse("Vorlen \u2013 invite Ana")->name(), "Ana");
    EXPECT_FALSE(VorlenTokenName::parse("Vorlen - Ana"));  // a hyphen, not the en dash
    EXPECT_FALSE(VorlenTokenName::parse("Backup token"));

    // The same value gives the same S3 secret on every computer.
    EXPECT_EQ(s3Credentials("id1", APIToken{"abc"}).secretAccessKey,
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const DailyToken daily{s3Credentials("id1", APIToken{"abc"}), APIToken{"abc"}};
    EXPECT_EQ(daily.description(), "DailyToken(tokenID: id1)");
}

TEST(SetupCodeTest, SetupTokenFormCarriesItsRowsAndName) {
    const std::string url = setupTokenFormURL("https://dash.example/", false);
    const std::string start = "https://dash.example/?to=/:account/api-tokens&permissionGroupKeys=";
    ASSERT_TRUE(url.starts_with(start)) << url;
    EXPECT_TRUE(url.ends_with("&name=Vorlen%20setup"));
    EXPECT_NE(url.find("%5B%7B%22key%22%3A%22c1fde68c7bcc44588cbb6ddbc16d6480%22%2C%22type%22%3A%22read%22%7D"),
              std::string::npos);
    EXPECT_NE(url.find("cache_settings%22%2C%22type%22%3A%22edit"), std::string::npos);
    EXPECT_NE(url.find("5bc3f8b21c554832afc660159ab75fa4"), std::string::npos);
    EXPECT_EQ(setupTokenFormURL("https://dash.example", true).find("5bc3f8b21c554832afc660159ab75fa4"), std::string::npos);
    EXPECT_EQ(TokenPermission::setupTokenRows(false).size(), 11u);

    const auto manual = ManualTokenRequest::make("https://dash.example", "acc", "videos", "Vorlen \u2013 Mac");
    EXPECT_EQ(manual.url,
              "https://dash.example/acc/r2/api-tokens/create?type=account&name=Vorlen%20%E2%80%93%20Mac&permission=object-write");
}

}  // namespace
}  // namespace vorlen
