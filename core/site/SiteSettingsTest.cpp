#include "core/site/SiteSettings.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"
#include "testing/ContractCases.hpp"

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
    EXPECT_EQ(text.find("private"), std::string::npos);
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

TEST(SiteSettingsTest, LenientFieldsFallBackAndRequiredOnesFailWithTheirWords) {
    Json json = minimal();
    json["stylesheets"] = Json::array({{{"url", "https://fonts.example/css"}, {"origins", {"https://fonts.example"}}, {"families", {"Inter"}}},
                                       {{"url", 5}}});
    EXPECT_EQ(SiteSettings::fromJson(json).stylesheets.size(), 1u);

    Json badHost = minimal();
    badHost["page_host"] = "a_b.example.com";
    EXPECT_EQ(failureOf(badHost), "\u201ca_b.example.com\u201d is not a hostname");
    Json badPath = minimal();
    badPath["path"] = "_vorlen";
    EXPECT_EQ(failureOf(badPath), "\u201c_vorlen\u201d is not a valid folder path: use letters, digits, \u201c.\u201d, "
                                  "\u201c_\u201d and \u201c-\u201d between the \u201c/\u201d, and do not start it with \u201c_\u201d");
}

// The cases that the page Worker's tests read too: a refused file is "newer" when
// it comes from a newer version, else "invalid"; a read file is compared in its
// file form, key by key.
TEST(SiteSettingsTest, AnswersEverySharedSettingsCase) {
    for (const Json& entry : vorlen::testing::contractCases("site-settings.json")) {
        std::string text = entry.contains("text") ? entry["text"].get<std::string>() : encodeJson(entry.at("file"));
        SCOPED_TRACE(text);
        try {
            Json read = SiteSettings::decoded(text).toJson();
            ASSERT_TRUE(entry.contains("read")) << "read a file that is to be refused";
            for (auto& [key, value] : entry["read"].items()) EXPECT_EQ(read[key], value) << key;
        } catch (const VorlenError& error) {
            ASSERT_TRUE(entry.contains("refused")) << error.text();
            bool newer = error.text().find("from a newer version of Vorlen") != std::string::npos;
            EXPECT_EQ(newer ? "newer" : "invalid", entry["refused"]) << error.text();
        }
    }
}

TEST(SiteSettingsTest, AnswersEverySharedHostnameOriginAndFolderPathCase) {
    for (const Json& entry : vorlen::testing::contractCases("hostnames.json")) {
        auto host = Hostname::normalised(entry.at("input").get<std::string>());
        EXPECT_EQ(host ? Json(host->name) : Json(), entry.at("normalised")) << entry.at("input");
    }
    for (const Json& entry : vorlen::testing::contractCases("web-origins.json")) {
        auto origin = WebOrigin::strict(entry.at("input").get<std::string>());
        EXPECT_EQ(origin ? Json(origin->text) : Json(), entry.at("normalised")) << entry.at("input");
    }
    for (const Json& entry : vorlen::testing::contractCases("folder-paths.json")) {
        Json path;
        try {
            path = SiteFolder::normalisedPath(entry.at("input").get<std::string>());
        } catch (const VorlenError&) {
        }
        EXPECT_EQ(path, entry.at("normalised")) << entry.at("input");
    }
}

TEST(SiteSettingsTest, TypedOriginsLoseTheirDefaultPortPathAndQuery) {
    EXPECT_EQ(WebOrigin::fromInput("  HTTPS://A.example:443/path?q#f \n")->text, "https://a.example");
    EXPECT_EQ(WebOrigin::fromInput("http://localhost:8080")->text, "http://localhost:8080");
    EXPECT_FALSE(WebOrigin::fromInput("https://user:pw@a.example"));
}
