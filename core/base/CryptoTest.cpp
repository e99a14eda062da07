#include "core/base/Crypto.hpp"

#include <gtest/gtest.h>
#include <vector>

using namespace vorlen;

TEST(CryptoTest, KnownVectors) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hex(hmacSha256("key", "The quick brown fox jumps over the lazy dog")),
              "f7bc83f430538424b13298e6aa6fb143ef4d59a14946175997479dbc2d1a3cd8");
    EXPECT_EQ(base64(md5("")), "1B2M2Y8AsgTpgAmY7PhCfg==");
    for (std::string sample : std::vector<std::string>{"", "f", "fo", "foo", "foob", "fooba", "foobar", std::string("\xFB\xFF\x00", 3)}) {
        EXPECT_EQ(base64Decode(base64(sample)), sample);
        EXPECT_EQ(base64UrlDecode(base64Url(sample)), sample);
    }
    EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64Url("\xFB\xFF"), "-_8");
    EXPECT_EQ(base64Decode("Zm9v!mFy"), std::nullopt);
    EXPECT_EQ(base64Decode("Zm9"), std::nullopt);
}

TEST(CryptoTest, StreamedDigestsEqualTheDigestOfTheWhole) {
    const std::string text = "The quick brown fox jumps over the lazy dog";
    Sha256Stream sha;
    Md5Stream md5Stream;
    for (std::size_t at = 0; at < text.size(); at += 7) {
        sha.update(std::string_view(text).substr(at, 7));
        md5Stream.update(std::string_view(text).substr(at, 7));
    }
    EXPECT_EQ(sha.finish(), sha256(text));
    EXPECT_EQ(md5Stream.finish(), md5(text));
}
