#include "core/cloudflare/SemanticVersion.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"

using namespace vorlen;

TEST(SemanticVersionTest, ParsesAndRefuses) {
    auto version = SemanticVersion::parse("1.10.0-rc.2");
    EXPECT_EQ(version.major, 1);
    EXPECT_EQ(version.minor, 10);
    EXPECT_EQ(version.prerelease, (std::vector<std::string>{"rc", "2"}));
    EXPECT_EQ(version.text(), "1.10.0-rc.2");
    EXPECT_EQ(SemanticVersion::parse("0.0.0").text(), "0.0.0");
    for (auto bad : {"1.2", "1.2.3.4", "01.2.3", "1.2.-3", "1.2.3-", "1.2.3-a..b", "v1.2.3", "", "1.2.x"}) {
        try {
            SemanticVersion::parse(bad);
            ADD_FAILURE() << bad;
        } catch (const VorlenError& error) {
            EXPECT_EQ(error.text(), std::string("\u201c") + bad + "\u201d is not a semantic version");
        }
    }
}

TEST(SemanticVersionTest, OrdersAsSemanticVersioningSays) {
    const char* ascending[] = {"1.0.0-alpha", "1.0.0-alpha.1", "1.0.0-alpha.beta", "1.0.0-beta",  "1.0.0-beta.2",
                               "1.0.0-beta.11", "1.0.0-rc.1",  "1.0.0",            "1.0.1",       "1.2.0",
                               "1.10.0",        "2.0.0"};
    for (std::size_t i = 0; i + 1 < std::size(ascending); ++i)
        EXPECT_LT(SemanticVersion::parse(ascending[i]), SemanticVersion::parse(ascending[i + 1]))
            << ascending[i] << " < " << ascending[i + 1];
    EXPECT_EQ(SemanticVersion::parse("1.2.3-x.7"), SemanticVersion::parse("1.2.3-x.7"));
}
