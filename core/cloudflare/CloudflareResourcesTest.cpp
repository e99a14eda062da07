#include "core/cloudflare/CloudflareResources.hpp"

#include <gtest/gtest.h>

#include "core/cloudflare/CloudflareError.hpp"
#include "core/cloudflare/MultipartForm.hpp"

namespace vorlen {
namespace {

TEST(CloudflareResourcesTest, RecordsReadTheirKeysIgnoreOthersAndRefuseWrongTypes) {
    const auto zone = Json::parse(R"({"id":"z1","name":"Example.com","status":"active","paused":false,
        "account":{"id":"a1","name":"Acme"},"plan":{"legacy_id":"free","name":"Free Website","price":0}})")
                          .get<CloudflareZone>();
    EXPECT_EQ(zone, (CloudflareZone{"z1", "Example.com", "active", "a1", CloudflareZone::Plan{"free", "Free Website"}}));
    const auto bare = Json::parse(R"({"id":"z2","name":"b.org","account":null})").get<CloudflareZone>();
    EXPECT_FALSE(bare.accountID);
    EXPECT_FALSE(bare.plan);

    EXPECT_THROW(Json::parse(R"({"name":"no id"})").get<CloudflareAccount>(), nlohmann::json::exception);
    EXPECT_THROW(Json::parse(R"({"id":"z","name":"n","status":7})").get<CloudflareZone>(), nlohmann::json::exception);

    // A ruleset without "rules" has none; a rule keeps its parameters as they came.
    EXPECT_TRUE(Json::parse(R"({"id":"r"})").get<Ruleset>().rules.empty());
    const auto ruleset = Json::parse(R"({"id":"r","phase":"http_request_cache_settings","rules":[
        {"id":"x","action":"set_cache_settings","action_parameters":{"cache":true},"enabled":true}]})")
                             .get<Ruleset>();
    ASSERT_EQ(ruleset.rules.size(), 1u);
    EXPECT_EQ(ruleset.rules[0].actionParameters, Json::parse(R"({"cache":true})"));
    EXPECT_FALSE(ruleset.rules[0].expression);
}

TEST(CloudflareResourcesTest, WrittenRecordsLeaveOutWhatIsAbsent) {
    R2CORSRule rule;
    rule.allowed = {{"https://a.example"}, {"GET", "HEAD"}, std::nullopt};
    rule.maxAgeSeconds = 3600;
    const Json written = rule;
    EXPECT_EQ(written, Json::parse(R"({"allowed":{"methods":["GET","HEAD"],"origins":["https://a.example"]},
                                       "maxAgeSeconds":3600})"));
    EXPECT_EQ(written.get<R2CORSRule>(), rule);

    const Json definition = RuleDefinition{"d", "true", "block", std::nullopt, true};
    EXPECT_FALSE(definition.contains("action_parameters"));
}

TEST(CloudflareResourcesTest, CustomDomainIsReadyOnlyWhenEnabledAndBothChecksAreActive) {
    auto domain = Json::parse(R"({"domain":"media.example.com","enabled":true,
        "status":{"ownership":"active","ssl":"pending"},"zoneId":"z"})")
                      .get<R2CustomDomain>();
    EXPECT_FALSE(domain.isReady());
    EXPECT_EQ(domain.statusText(), "ownership active, certificate pending");
    domain.status->ssl = "active";
    EXPECT_TRUE(domain.isReady());
    domain.enabled = false;
    EXPECT_FALSE(domain.isReady());
    domain.status.reset();
    EXPECT_EQ(domain.statusText(), "ownership unknown, certificate unknown");
}

TEST(CloudflareResourcesTest, ErrorDescribesItselfAndClassifies) {
    using Message = CloudflareError::Message;
    const CloudflareError refused("GET", "zones/z1", 403, {{10000, "Authentication error"}, {std::nullopt, "more"}},
                                  std::nullopt);
    EXPECT_STREQ(refused.what(), "Cloudflare GET /zones/z1: HTTP 403, code 10000: Authentication error; more");
    EXPECT_TRUE(refused.isPermissionRefused());
    EXPECT_TRUE(refused.has(CloudflareError::Code::authentication));
    EXPECT_FALSE(refused.isTransient());

    // An account without R2 answers 403 too, and must not read as a missing permission.
    const CloudflareError noR2("POST", "accounts/a/r2/buckets", 403,
                               {Message{10042, "Please enable R2 through the Cloudflare Dashboard."}}, std::nullopt);
    EXPECT_FALSE(noR2.isPermissionRefused());
    EXPECT_TRUE(noR2.has(CloudflareError::Code::r2NotEnabled));

    for (const char* words : {"Maximum Number Of Rules reached", "rules exceeded", "EXCEEDED the limit of RULES"})
        EXPECT_TRUE(CloudflareError("POST", "p", 400, {Message{20217, words}}, std::nullopt).isRuleLimitReached()) << words;
    EXPECT_FALSE(CloudflareError("POST", "p", 403, {Message{1, "maximum number of rules"}}, std::nullopt).isRuleLimitReached());
    EXPECT_FALSE(CloudflareError("POST", "p", 400, {Message{1, "bad expression"}}, std::nullopt).isRuleLimitReached());

    EXPECT_EQ(CloudflareError("GET", "p", 500, {}, std::nullopt).description(), "Cloudflare GET /p: HTTP 500");
    EXPECT_TRUE(CloudflareError("GET", "p", 429, {}, std::chrono::seconds(60)).isTransient());
    EXPECT_FALSE(CloudflareError("GET", "p", 429, {}, std::chrono::seconds(61)).isTransient());
    EXPECT_FALSE(isTransient(std::make_exception_ptr(CloudflareError("GET", "p", 503, {}, std::chrono::seconds(120)))));
    EXPECT_TRUE(isTransient(std::make_exception_ptr(CloudflareError("GET", "p", 502, {}, std::nullopt))));
}

TEST(CloudflareResourcesTest, MultipartFormFramesEachPart) {
    MultipartForm form{"b", {{"metadata", std::nullopt, "application/json", "{}"}, {"main.js", "main.js", std::nullopt, "x"}}};
    EXPECT_EQ(form.bytes(),
              "--b\r\nContent-Disposition: form-data; name=\"metadata\"\r\nContent-Type: application/json\r\n\r\n{}\r\n"
              "--b\r\nContent-Disposition: form-data; name=\"main.js\"; filename=\"main.js\"\r\n\r\nx\r\n--b--\r\n");
    const auto fresh = MultipartForm::make({});
    EXPECT_TRUE(fresh.boundary.starts_with("vorlen-"));
    EXPECT_EQ(fresh.boundary.size(), 7u + 36u);
    EXPECT_NE(fresh.boundary, MultipartForm::make({}).boundary);
    EXPECT_EQ(fresh.boundary.find_first_of("abcdef", 7), std::string::npos);
}

}  // namespace
}  // namespace vorlen
