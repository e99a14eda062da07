#include "core/site/SiteTemplateChoice.hpp"

#include <gtest/gtest.h>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/BuiltInTemplate.hpp"
#include "core/site/CustomTemplateFile.hpp"
#include "core/site/PageTemplateError.hpp"
#include "core/storage/FolderBucket.hpp"

using namespace vorlen;

namespace {

class SiteTemplateChoiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        site.siteTemplate = SiteTemplate::dark;
        site.homePage.title = "Dovrin Films";
        site.mediaZoneID = "zone-1";
        site.write(bucket);
    }

    // The headers record that the folder bucket keeps beside the object.
    Json recordOf(const std::string& key) { return decodeJson(readFile(root / ".meta" / (sha256Hex(key) + ".json"))); }

    std::string failureOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const VorlenError& error) {
            return error.text();
        }
        return "";
    }

    fs::path root = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-template-");
    DirectoryRemover remover{root};
    FolderBucket bucket{root};
    SiteSettings site = SiteSettings::fromJson(decodeJson(R"({"version": 1, "media_host": "media.example.com",
        "page_host": "watch.example.com", "template": "auto", "worker": {"name": "vorlen-pages", "version": "1.0.0"}})"));
};

}  // namespace

TEST_F(SiteTemplateChoiceTest, AnImportKeepsThePageWithItsNameAndSwitchesOnlyTheTemplate) {
    const std::string name = "Page d\u2019\u00E9t\u00E9 2026.html";
    importSiteTemplate(bucket, PageTemplate::inspected("<head>{{head}}</head>{{player}}"), name);

    auto record = recordOf("_vorlen/template.html");
    EXPECT_EQ(record["contentType"], "text/html; charset=utf-8");
    EXPECT_EQ(record["cacheControl"], "no-cache");
    EXPECT_EQ(record["metadata"]["source-name"], "Page%20d%E2%80%99%C3%A9t%C3%A9%202026.html");

    auto stored = CustomTemplateFile::find(bucket);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->bytes, "<head>{{head}}</head>{{player}}");
    EXPECT_EQ(stored->file.size, 31);
    EXPECT_EQ(stored->file.sourceName, name);
    EXPECT_TRUE(stored->file.imported.has_value());

    auto expected = site;
    expected.siteTemplate = SiteTemplate::custom;
    EXPECT_EQ(SiteSettings::readRequired(bucket), expected);
}

TEST_F(SiteTemplateChoiceTest, ABuiltInChoiceKeepsTheCustomPageForLater) {
    importSiteTemplate(bucket, PageTemplate::inspected("{{head}}{{player}}"), std::nullopt);
    chooseSiteTemplate(bucket, SiteTemplate::light);
    EXPECT_EQ(SiteSettings::readRequired(bucket).siteTemplate, SiteTemplate::light);
    auto kept = CustomTemplateFile::find(bucket);
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->file.sourceName, std::nullopt);

    chooseSiteTemplate(bucket, SiteTemplate::custom);
    EXPECT_EQ(SiteSettings::readRequired(bucket).siteTemplate, SiteTemplate::custom);
}

TEST_F(SiteTemplateChoiceTest, NothingChangesWithoutAPageOrWithoutASite) {
    EXPECT_FALSE(CustomTemplateFile::find(bucket));
    EXPECT_EQ(failureOf([&] { chooseSiteTemplate(bucket, SiteTemplate::custom); }),
              "The bucket has no custom template in _vorlen/template.html. Import a template first.");
    EXPECT_THROW(importSiteTemplate(bucket, PageTemplate::inspected("{{head}} only"), "a.html"), PageTemplateError);
    EXPECT_FALSE(CustomTemplateFile::exists(bucket));
    EXPECT_EQ(SiteSettings::readRequired(bucket), site);

    bucket.remove("_vorlen/site.json");
    EXPECT_EQ(failureOf([&] { importSiteTemplate(bucket, PageTemplate::inspected("{{head}}{{player}}"), "a.html"); }),
              "The bucket has no _vorlen/site.json. Set up the site first.");
    EXPECT_FALSE(CustomTemplateFile::exists(bucket));
}

TEST_F(SiteTemplateChoiceTest, BuiltInTemplatesComeFromTheBundle) {
    const fs::path bundle = fs::path(VORLEN_SOURCE_DIR) / "worker";
    for (auto design : {SiteTemplate::automatic, SiteTemplate::light, SiteTemplate::dark})
        EXPECT_NO_THROW(PageTemplate::inspected(builtInTemplateText(bundle, design)).requireComplete()) << rawValue(design);
    EXPECT_EQ(failureOf([&] { builtInTemplateText(bundle, SiteTemplate::custom); }),
              "The Worker bundle has no file for the custom template.");
    EXPECT_EQ(failureOf([&] { builtInTemplateText(root, SiteTemplate::light); }),
              "The Worker bundle has no templates/ in " + root.string());
}
