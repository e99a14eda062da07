#include "core/site/SiteFontChoice.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/site/FontFacts.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/FailureText.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;
using testing::failureOf;

const fs::path dejaVu = "/usr/share/fonts/truetype/dejavu";

class SiteFontChoiceTest : public ::testing::Test {
protected:
    SiteFontChoiceTest() {
        SiteSettings::fromJson(decodeJson(R"({"version": 1, "media_host": "media.example.com",
            "page_host": "watch.example.com", "template": "auto", "worker": {"name": "vorlen-pages", "version": "1.0.0"}})"))
            .write(bucket);
    }

    fs::path root = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-fonts-");
    DirectoryRemover remover{root};
    FolderBucket bucket{root};
};

TEST_F(SiteFontChoiceTest, TheFilesOfAFamilyBecomeWoff2FacesInAFolderThatReplacesTheLastOne) {
    const auto package = fontPackageFromFiles({dejaVu / "DejaVuSerif.ttf", dejaVu / "DejaVuSerif-Bold.ttf"});
    EXPECT_EQ(package.font.family, "DejaVu Serif");
    ASSERT_EQ(package.files.size(), 2u);
    EXPECT_EQ(package.files[0].name, "dejavu-serif-400.woff2");
    EXPECT_EQ(package.files[1].name, "dejavu-serif-700.woff2");
    const auto facts = FontFacts::read(package.files[1].data, "converted");
    EXPECT_EQ(facts.weight, (FontWeight{700, 700})) << "the converted file is a WOFF2 that says what it is";
    EXPECT_EQ(fontFormatOf(package.files[1].data), FontFormat::woff2);

    hostFont(bucket, package);
    const auto settings = SiteSettings::readRequired(bucket);
    EXPECT_EQ(settings.fonts.hosted, package.font);
    EXPECT_EQ(settings.fonts.text, "DejaVu Serif");
    EXPECT_EQ(bucket.object(package.font.folder + "/font.css"), package.stylesheet);

    const auto bold = fontPackageFromFiles({dejaVu / "DejaVuSerif-Bold.ttf"});
    EXPECT_NE(bold.font.folder, package.font.folder);
    hostFont(bucket, bold);
    EXPECT_TRUE(bucket.listKeys(package.font.folder + "/").empty()) << "the replaced font goes";
    removeFonts(bucket);
    EXPECT_TRUE(bucket.listKeys(FontPackage::fontsFolder).empty());
    EXPECT_TRUE(SiteSettings::readRequired(bucket).fonts.isEmpty());
}

TEST_F(SiteFontChoiceTest, FilesThatCannotMakeOneFontAreRefusedInWords) {
    const auto notFont = root / "notes.ttf";
    writeFileAtomically(notFont, "these are notes");
    EXPECT_EQ(failureOf([&] { fontPackageFromFiles({notFont}); }),
              "\u201cnotes.ttf\u201d is not a font that Vorlen can use. Use a WOFF2, WOFF, OTF or TTF file.");
    EXPECT_EQ(failureOf([&] { fontPackageFromFiles({dejaVu / "DejaVuSerif.ttf", dejaVu / "DejaVuSans.ttf"}); }),
              "\u201cDejaVuSerif.ttf\u201d is of the family \u201cDejaVu Serif\u201d, and \u201cDejaVuSans.ttf\u201d of "
              "\u201cDejaVu Sans\u201d. Add the files of one family.");
    EXPECT_EQ(failureOf([&] { fontPackageFromFiles({dejaVu / "DejaVuSerif.ttf", dejaVu / "DejaVuSerif.ttf"}); }),
              "\u201cDejaVuSerif.ttf\u201d and \u201cDejaVuSerif.ttf\u201d give the same weight and style. "
              "Choose one of them.");
}

}  // namespace
}  // namespace vorlen
