#include "core/site/FontPackage.hpp"

#include <gtest/gtest.h>

#include "core/site/StylesheetReader.hpp"
#include "testing/FailureText.hpp"

namespace vorlen {
namespace {

using testing::failureOf;

FontFace face(const std::string& name, FontWeight weight, bool isItalic = false,
              std::optional<std::string> range = std::nullopt) {
    return FontFace{FontFile{name, "wOF2", FontFormat::woff2}, weight, isItalic, std::move(range), std::nullopt};
}

TEST(FontPackageTest, EachFaceIsOneRuleWithItsWeightRangeAndOnlyTheLinesItHas) {
    const auto package = FontPackage::make("Source Serif 4", "source-serif-4",
                                           {face("roman.woff2", {200, 900}), face("italic.woff2", {400, 400}, true, "U+0000-00FF, U+0131")});
    EXPECT_EQ(package.stylesheet,
              "@font-face {\n  font-family: \"Source Serif 4\";\n  font-style: normal;\n  font-weight: 200 900;\n"
              "  font-display: swap;\n  src: url(roman.woff2) format(\"woff2\");\n}\n"
              "@font-face {\n  font-family: \"Source Serif 4\";\n  font-style: italic;\n  font-weight: 400;\n"
              "  font-display: swap;\n  src: url(italic.woff2) format(\"woff2\");\n  unicode-range: U+0000-00FF, U+0131;\n}\n");
    EXPECT_EQ(package.files.size(), 2u);
    EXPECT_EQ(fontFormatOf(std::string("\x00\x01\x00\x00", 4)), FontFormat::truetype);
    EXPECT_EQ(fontFormatOf("OTTO...."), FontFormat::opentype);
    EXPECT_EQ(fontFormatOf("<html>"), std::nullopt);
}

TEST(FontPackageTest, WhatCannotGoIntoAStylesheetIsRefusedInWords) {
    EXPECT_EQ(failureOf([] { FontPackage::make("Serif\"; } body { x: y", "f", {face("a.woff2", {})}); }),
              "\u201cSerif\"; } body { x: y\u201d is not a font name that Vorlen can use.");
    EXPECT_EQ(failureOf([] { FontPackage::make("Noto Sans JP", "f", {}); }), "The font has no font files.");
    EXPECT_EQ(failureOf([] { FontPackage::make("Ünïcode Sans", "f", {face("a.woff2", {}, false, "U+0025-00FF, u+4??")}); }),
              "\u201cU+0025-00FF, u+4??\u201d is not a valid character range for a font.");
    EXPECT_EQ(failureOf([] { FontPackage::make("Serif", "f", {face("a.woff2", {700, 700}), face("b.ttf", {700, 700})}); }),
              "\u201ca.woff2\u201d and \u201cb.ttf\u201d give the same weight and style. Choose one of them.");
}

TEST(StylesheetReaderTest, ALinkGivesItsAddressAndTheSheetItsOriginsAndFamilies) {
    EXPECT_EQ(StylesheetReader::addressOf(R"(<link rel='stylesheet' href='https://fonts.example.com/css?family=A'>)"),
              "https://fonts.example.com/css?family=A");
    EXPECT_EQ(StylesheetReader::addressOf(R"(<LINK HREF="https://fonts.example.com/a.css" rel=stylesheet>)"),
              "https://fonts.example.com/a.css");
    EXPECT_EQ(failureOf([] { StylesheetReader::addressOf("<script src=https://x.example/a.js></script>"); }),
              "Vorlen does not load scripts on the pages. Paste the <link> element of a stylesheet, or its address.");
    EXPECT_EQ(failureOf([] { StylesheetReader::addressOf("http://fonts.example.com/a.css"); }),
              "\u201chttp://fonts.example.com/a.css\u201d is not the address of a stylesheet. Use an address that starts "
              "with https://.");

    const auto sheet = StylesheetReader::parse("https://fonts.example.com/css/a.css", R"(
/* @import url("https://commented.example.com/x.css"); */
@import url("https://more.example.org/b.css");
@font-face { font-family: 'Brand Sans'; src: url(../files/brand.woff2) format("woff2"); }
@font-face { font-family: "Brand Serif"; src: url("https://cdn.example.net:8443/serif.woff2"); }
)");
    EXPECT_EQ(sheet.origins, (std::vector<std::string>{"https://fonts.example.com", "https://more.example.org",
                                                       "https://cdn.example.net:8443"}));
    EXPECT_EQ(sheet.families, (std::vector<std::string>{"Brand Sans", "Brand Serif"}));
    for (const auto* hostile : {"url(data:font/woff2;base64,AAAA)", "url('javascript:alert(1)')", "url(http://x.example/a)"})
        EXPECT_NE(failureOf([&] { StylesheetReader::parse("https://fonts.example.com/a.css",
                                                          std::string("@font-face { src: ") + hostile + "; }"); })
                      .find("is not an https address"),
                  std::string::npos)
            << hostile;
}

}  // namespace
}  // namespace vorlen
