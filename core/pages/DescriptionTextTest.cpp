#include "core/pages/DescriptionText.hpp"

#include <gtest/gtest.h>

using namespace vorlen;
using DescriptionText::Link;
using DescriptionText::TextRange;

TEST(DescriptionTextTest, LinksBareAddressesAndLeavesTrailingPunctuationBehind) {
    EXPECT_EQ(DescriptionText::linked("See https://a.example/b."), "See [https://a.example/b](https://a.example/b).");
    EXPECT_EQ(DescriptionText::linked("Visit HTTP://A.example/x?q=1!, or “https://b.example”"),
              "Visit [HTTP://A.example/x?q=1](HTTP://A.example/x?q=1)!, or “[https://b.example](https://b.example)”");
    EXPECT_EQ(DescriptionText::linked("xhttp://a.example 1https://b.example"), "xhttp://a.example 1https://b.example");
    EXPECT_EQ(DescriptionText::linked("-https://a.example<b>"), "-[https://a.example](https://a.example)<b>");
    EXPECT_EQ(DescriptionText::linked("just http://... and ftp://a.example"), "just http://... and ftp://a.example");
    EXPECT_EQ(DescriptionText::linked("tab\thttps://a.example\u3000next"),
              "tab\t[https://a.example](https://a.example)\u3000next");
}

TEST(DescriptionTextTest, AddressesInLinksOrWithBracketsStayAsTheyAre) {
    const std::string written = "[our site](https://a.example/x) https://a.example/(b) https://c.example";
    EXPECT_EQ(DescriptionText::linked(written),
              "[our site](https://a.example/x) https://a.example/(b) [https://c.example](https://c.example)");
    EXPECT_EQ(DescriptionText::linked(DescriptionText::linked(written)), DescriptionText::linked(written));
    // A bare address ends where a link begins, since the link's range is closed to the scan.
    EXPECT_EQ(DescriptionText::linked("https://a.example[b](https://b.example)"),
              "[https://a.example](https://a.example)[b](https://b.example)");
}

TEST(DescriptionTextTest, MarkdownLinksNeedTightTextAndAKnownScheme) {
    EXPECT_EQ(DescriptionText::markdownLinks("[a b](MAILTO:me@a.example)"),
              (std::vector<Link>{{{0, 26}, {1, 3}, "MAILTO:me@a.example"}}));
    for (const char* notALink : {"[ a](https://a.example)", "[a ](https://a.example)", "[](https://a.example)",
                                 "[a\nb](https://a.example)", "[a](ftp://a.example)", "[a](https://)",
                                 "[a](https://a.example/x y)", "[a] (https://a.example)"}) {
        EXPECT_TRUE(DescriptionText::markdownLinks(notALink).empty()) << notALink;
    }
    // The innermost bracket starts the link.
    EXPECT_EQ(DescriptionText::markdownLinks("[[x](http://a.example)").at(0).range, (TextRange{1, 21}));
}

TEST(DescriptionTextTest, RangesCountUtf16Units) {
    // é is one unit, the emoji two, the private-use character ends the address.
    const std::string text = "é😀 [t😀](https://a.example) https://b.example/😀\uE000";
    const std::vector<Link> links = DescriptionText::markdownLinks(text);
    ASSERT_EQ(links.size(), 1u);
    EXPECT_EQ(links[0].range, (TextRange{4, 24}));
    EXPECT_EQ(links[0].textRange, (TextRange{5, 3}));
    EXPECT_EQ(DescriptionText::bareAddresses(text),
              (std::vector<Link>{{{29, 20}, {29, 20}, "https://b.example/😀"}}));
}
