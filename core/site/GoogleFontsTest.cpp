#include "core/site/GoogleFonts.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "core/site/FontFacts.hpp"
#include "testing/FailureText.hpp"
#include "testing/LocalGoogleFonts.hpp"

namespace vorlen {
namespace {

using testing::failureOf;
using testing::LocalGoogleFonts;

const std::string latin = "U+0000-00FF, U+0131";

std::string rule(const std::string& family, int weight, const std::string& style, const std::string& url,
                 const std::string& range = latin) {
    return fmt::format("/* latin */\n@font-face {{\n  font-family: '{}';\n  font-style: {};\n  font-weight: {};\n"
                       "  font-display: swap;\n  src: url({}) format('woff2');\n  unicode-range: {};\n}}\n",
                       family, style, weight, url, range);
}

TEST(GoogleFontsTest, RulesThatShareAFileBecomeOneFaceOverTheirWeights) {
    const std::string file = "https://fonts.gstatic.com/s/inter/v1/";
    const auto declared = GoogleFonts::parse(rule("Inter", 400, "normal", file + "a.woff2") +
                                                 rule("Inter", 700, "normal", file + "a.woff2") +
                                                 rule("Inter", 400, "italic", file + "b.woff2", "U+0100-02BA") +
                                                 rule("Other", 400, "normal", file + "c.woff2"),
                                             "fonts.gstatic.com");
    ASSERT_EQ(declared.size(), 4u);
    EXPECT_EQ(declared[2], (GoogleFonts::DeclaredFace{"Inter", 400, true, file + "b.woff2", "U+0100-02BA"}));
    EXPECT_EQ(GoogleFonts::select("Inter", declared),
              (std::vector<GoogleFonts::SelectedFace>{{{400, 700}, false, file + "a.woff2", latin},
                                                      {{400, 400}, true, file + "b.woff2", "U+0100-02BA"}}));
}

TEST(GoogleFontsTest, ARuleWithoutAWeightOrWithAFileElsewhereCannotBeRead) {
    const auto unreadable = "Google Fonts sent a font rule that Vorlen cannot read.";
    for (const auto& css : {rule("Inter", 400, "normal", "http://fonts.gstatic.com/a.woff2"),
                            rule("Inter", 400, "normal", "https://fonts.gstatic.com.evil.example/a.woff2"),
                            rule("Inter", 400, "normal", "https://other.example/a.woff2"),
                            rule("Inter", 400, "normal", "/relative.woff2"),
                            std::string("@font-face { font-family: 'Inter'; src: url(https://fonts.gstatic.com/a.woff2); }"),
                            std::string("@font-face { font-weight: 400; src: url(https://fonts.gstatic.com/a.woff2); }")})
        EXPECT_EQ(failureOf([&] { GoogleFonts::parse(css, "fonts.gstatic.com"); }), unreadable) << css;
}

class GoogleFontsServiceTest : public ::testing::Test {
protected:
    static LocalGoogleFonts& local() { return LocalGoogleFonts::shared(); }

    static GoogleFonts client() {
        GoogleFonts fonts;
        fonts.session = std::make_shared<HttpClient>(local().httpOptions());
        fonts.baseURL = local().api();
        fonts.fileHost = local().fileHost();
        fonts.options.maxRetries = 0;
        return fonts;
    }

    static std::size_t requestsSoFar() { return local().requests().size(); }
};

TEST_F(GoogleFontsServiceTest, AFamilyBecomesAPackageOfItsStylesAndSubsetsInWoff2) {
    const auto before = requestsSoFar();
    const auto package = client().copy("DejaVu Serif");
    EXPECT_EQ(package.font.family, "DejaVu Serif");
    EXPECT_TRUE(package.font.folder.starts_with("_fonts/dejavu-serif-")) << package.font.folder;
    // Regular, bold and italic (the family has no bold italic), each in latin-ext and latin.
    ASSERT_EQ(package.files.size(), 6u);
    for (const auto& file : package.files) {
        EXPECT_EQ(fontFormatOf(file.data), FontFormat::woff2) << file.name;
        EXPECT_EQ(FontFacts::read(file.data, file.name).family, "DejaVu Serif");
    }
    EXPECT_EQ(package.files[0].name, "dejavu-serif-400-1.woff2");
    EXPECT_EQ(package.files[5].name, "dejavu-serif-400-italic-6.woff2");
    EXPECT_NE(package.stylesheet.find("  font-style: italic;\n  font-weight: 400;\n  font-display: swap;\n"
                                      "  src: url(dejavu-serif-400-italic-6.woff2) format(\"woff2\");\n  unicode-range: U+0000-00FF,"),
              std::string::npos)
        << package.stylesheet;

    const auto requests = local().requests();
    std::size_t stylesheets = 0;
    for (std::size_t index = before; index < requests.size(); ++index) {
        const auto& request = requests[index];
        EXPECT_EQ(request["userAgent"], GoogleFonts::userAgent);
        if (request["path"] == "/css2") {
            ++stylesheets;
            EXPECT_NE(request["query"].get<std::string>().find("&display=swap"), std::string::npos);
        } else {
            EXPECT_EQ(request["host"], local().fileHost());
        }
    }
    EXPECT_EQ(stylesheets, 4u) << "one request for each style";
    EXPECT_EQ(requests.size() - before, 4u + 6u);
}

TEST_F(GoogleFontsServiceTest, AVariableFamilyGivesEachFileOnceForAllItsWeights) {
    const auto package = client().copy(" DejaVu Sans Mono ");
    EXPECT_EQ(package.font.family, "DejaVu Sans Mono");
    ASSERT_EQ(package.files.size(), 4u);
    EXPECT_EQ(package.files[0].name, "dejavu-sans-mono-400-700-1.woff2");
    EXPECT_NE(package.stylesheet.find("font-weight: 400 700;"), std::string::npos);
}

TEST_F(GoogleFontsServiceTest, WhatTheServiceCannotGiveFailsInWords) {
    const auto fonts = client();
    EXPECT_EQ(failureOf([&] { fonts.copy("  "); }), "Enter the name of a family from Google Fonts.");
    EXPECT_EQ(failureOf([&] { fonts.copy("dejavu serif"); }),
              "Google Fonts has no family with the name \u201cdejavu serif\u201d. Check its spelling and its capitals on "
              "fonts.google.com.");
    EXPECT_EQ(failureOf([&] { fonts.copy("DejaVu Sans Condensed"); }), "Google Fonts did not send a WOFF2 font file.");
    const auto before = requestsSoFar();
    EXPECT_EQ(failureOf([&] { fonts.copy("Serif'); } body { x"); }),
              "\u201cSerif'); } body { x\u201d is not a font name that Vorlen can use.");
    EXPECT_EQ(requestsSoFar(), before) << "a name that cannot go into a stylesheet is never sent";
}

TEST_F(GoogleFontsServiceTest, FilesOnAnotherHostThanTheFileHostAreNeverFetched) {
    auto fonts = client();
    fonts.fileHost = "fonts.example.com";
    const auto before = requestsSoFar();
    EXPECT_EQ(failureOf([&] { fonts.copy("DejaVu Sans"); }), "Google Fonts sent a font rule that Vorlen cannot read.");
    const auto requests = local().requests();
    ASSERT_EQ(requests.size(), before + 4);
    for (std::size_t index = before; index < requests.size(); ++index) EXPECT_EQ(requests[index]["path"], "/css2");
}

}  // namespace
}  // namespace vorlen
