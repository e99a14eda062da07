#include "core/site/SiteSetup.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

SiteSetupRequest validRequest() {
    SiteSetupRequest request;
    request.accountID = "4f2b8c1d9e3a47d6b5c0a1e2f3d4c5b6";
    request.bucket = "films";
    request.mediaHost = {Hostname::parse("media.example.com"), CloudflareZone{"z1", "example.com", {}, {}, {}}};
    request.pageHost = {Hostname::parse("videos.example.com"), CloudflareZone{"z1", "example.com", {}, {}, {}}};
    request.dailyToken = {DailyTokenSource::Create{"laptop"}};
    return request;
}

std::string refusal(const SiteSetupRequest& request) {
    try {
        request.validate();
    } catch (const VorlenError& error) {
        return error.text();
    }
    return "";
}

TEST(SiteSetupTest, ARequestIsRefusedBeforeAnythingIsSentInTheOrderOfTheRules) {
    auto request = validRequest();
    EXPECT_EQ(refusal(request), "");

    // The Worker's name "vorlen-<bucket>" must fit in 63 characters.
    request.bucket = std::string(56, 'a');
    EXPECT_EQ(refusal(request), "");
    request.bucket = std::string(57, 'a');
    EXPECT_EQ(refusal(request), "The Worker name \u201cvorlen-" + request.bucket +
                                    "\u201d is too long. Use a bucket name of 56 characters at most.");
    request.bucket = "Films";
    EXPECT_EQ(refusal(request),
              "\u201cFilms\u201d is not a valid bucket name: use 3 to 63 lowercase letters, digits and hyphens.");

    request = validRequest();
    request.pageHost.hostname = request.mediaHost.hostname;
    request.path = "_private";  // a later rule: the hostnames are told first
    EXPECT_EQ(refusal(request), "The media hostname and the page hostname must be different.");

    request = validRequest();
    request.path = "a//b";
    EXPECT_NE(refusal(request).find("is not a valid folder path"), std::string::npos);

    request = validRequest();
    request.dailyToken = {DailyTokenSource::Create{"  "}};
    EXPECT_EQ(refusal(request), "Give a name for this computer, for the name of its R2 API Token.");
    request.dailyToken = {DailyTokenSource::Stored{}};
    EXPECT_EQ(refusal(request), "");
}

}  // namespace
}  // namespace vorlen
