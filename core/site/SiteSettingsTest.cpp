#include "core/site/SiteSettings.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"

using namespace vorlen;

namespace {

Json minimal() {
    return decodeJson(R"({"version": 1, "media_host": "Media.Example.COM", "page_host": "watch.example.com",
                          "template": "auto", "worker": {"name": "vorlen-pages", "version": "1.2.0"}})");
}

std::string failureOf(const Json& json) {
    try {
        SiteSettings::fromJson(json);
    } catch (const VorlenError& error) {
        return error.text();
    }
    return "";
}

}  // namespace

TEST(SiteSettingsTest, MinimalFileReadsWithEveryDefaultAndRewritesShort) {
    auto settings = SiteSettings::fromJson(minimal());
    EXPECT_EQ(settings.mediaHost.name, "media.example.com");
    EXPECT_EQ(settings.path, "");
    EXPECT_EQ(settings.embeds.sites, EmbedSettings::Sites::noSite);
    EXPECT_EQ(settings.homePage, HomePageSettings{});
    EXPECT_EQ(settings.audioLoudness, AudioLoudness::broadcast);
    EXPECT_TRUE(settings.fonts.isEmpty());

    std::string text = settings.encoded();
    EXPECT_EQ(text.find("fonts"), std::string::npos);
    EXPECT_EQ(text.find("stylesheets"), std::string::npos);
    EXPECT_EQ(text.find("media_zone_id"), std::string::npos);
    EXPECT_EQ(SiteSettings::fromJson(decodeJson(text)), settings);
    EXPECT_EQ(SiteSettings::fromJson(decodeJson(text)).encoded(), text);
}

TEST(SiteSettingsTest, VersionsOutsideOneAreRefusedWithDifferentWords) {
    Json newer = minimal(), older = minimal();
    newer["version"] = 2;
    older["version"] = 0;
    EXPECT_EQ(failureOf(newer),
              "_vorlen/site.json has version 2, from a newer version of Vorlen. This app reads version 1. Update the app.");
    EXPECT_EQ(failureOf(older), "_vorlen/site.json has version 0, which is not valid.");
}

TEST(SiteSettingsTest, LenientFieldsFallBackAndRequiredOnesFail) {
    Json json = minimal();
    json["media_origins"] = Json::array({"https://a.example", 7, "notanorigin", "https://a.example"});
    json["audio_loudness"] = "loud";
    json["home_page"] = {{"sort", 3}, {"title", "Films"}};
    json["stylesheets"] = Json::array({{{"url", "https://fonts.example/css"}, {"origins", {"https://fonts.example"}}, {"families", {"Inter"}}},
                                       {{"url", 5}}});
    auto settings = SiteSettings::fromJson(json);
    ASSERT_EQ(settings.mediaOrigins.size(), 1u);
    EXPECT_EQ(settings.mediaOrigins[0].text, "https://a.example");
    EXPECT_EQ(settings.audioLoudness, AudioLoudness::broadcast);
    EXPECT_EQ(settings.homePage.sort, HomePageSettings::Sort::newest);
    EXPECT_EQ(settings.homePage.title, "Films");
    EXPECT_EQ(settings.stylesheets.size(), 1u);

    Json badHost = minimal();
    badHost["page_host"] = "a_b.example.com";
    EXPECT_EQ(failureOf(badHost), "\u201ca_b.example.com\u201d is not a hostname");
    Json noWorker = minimal();
    noWorker.erase("worker");
    EXPECT_FALSE(failureOf(noWorker).empty());
    Json embedsWithoutSites = minimal();
    embedsWithoutSites["embeds"] = {{"origins", Json::array()}};
    EXPECT_FALSE(failureOf(embedsWithoutSites).empty());
}

TEST(SiteSettingsTest, HostnamesOriginsAndFolderPaths) {
    EXPECT_EQ(Hostname::parse("Media.Example.COM").name, "media.example.com");
    for (auto bad : {"-a.example.com", "a_b.example.com", "a.example.com.", "a..b", "", "bücher.example"})
        EXPECT_FALSE(Hostname::normalised(bad)) << bad;
    EXPECT_TRUE(Hostname::normalised("localhost"));

    EXPECT_FALSE(WebOrigin::strict("https://a.example:0443"));
    EXPECT_EQ(WebOrigin::strict("https://a.example:443")->text, "https://a.example:443");
    EXPECT_EQ(WebOrigin::fromInput("  HTTPS://A.example:443/path?q#f \n")->text, "https://a.example");
    EXPECT_EQ(WebOrigin::fromInput("http://localhost:8080")->text, "http://localhost:8080");
    for (auto bad : {"ftp://a.example", "https://a.example/", "https://a.example:65536", "https://a:b:c", "a.example"})
        EXPECT_FALSE(WebOrigin::strict(bad)) << bad;
    EXPECT_FALSE(WebOrigin::fromInput("https://user:pw@a.example"));

    EXPECT_EQ(SiteFolder::normalisedPath(" /videos/2024/ "), "videos/2024");
    EXPECT_EQ(SiteFolder::normalisedPath(""), "");
    for (auto bad : {"_private/x", "a//b", "a/../b", "a b"}) EXPECT_THROW(SiteFolder::normalisedPath(bad), VorlenError) << bad;
}
