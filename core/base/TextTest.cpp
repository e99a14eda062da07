#include "core/base/Text.hpp"

#include <gtest/gtest.h>

using namespace vorlen;

TEST(TextTest, RepairsNormalisesTrimsAndFolds) {
    EXPECT_EQ(repairUtf8("ok\xFF\xC3("), "ok\xEF\xBF\xBD\xEF\xBF\xBD(");
    EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));  // a UTF-16 surrogate is not UTF-8
    EXPECT_EQ(nfc("e\xCC\x81"), "\xC3\xA9");
    EXPECT_EQ(trimmed("\u3000\n  Title\u00A0 \t"), "Title");
    EXPECT_TRUE(isDescriptionWhitespace(U'\uFEFF'));
    EXPECT_TRUE(isDescriptionWhitespace(U'\u2005'));
    EXPECT_FALSE(isDescriptionWhitespace(U'\u200B'));
    EXPECT_EQ(caseFolded("Straße"), "strasse");
    EXPECT_EQ(foldedForComparison("Crème BRÛLÉE \uFF21"), foldedForComparison("creme brulee A"));
}

TEST(TextTest, PercentDecodingUndoesEncodingAndKeepsStrayPercents) {
    const std::string name = "Our Page – été 100%.html";
    EXPECT_EQ(percentDecoded(percentEncoded(name)), name);
    EXPECT_EQ(percentDecoded("a%2fb%2Fc"), "a/b/c");
    EXPECT_EQ(percentDecoded("50% off%"), "50% off%");
    EXPECT_EQ(percentDecoded("%G1%4"), "%G1%4");
}

TEST(TextTest, ListsFileSizesAndClockTimesReadAsText) {
    EXPECT_EQ(joinedWithAnd({}), "");
    EXPECT_EQ(joinedWithAnd({"a"}), "a");
    EXPECT_EQ(joinedWithAnd({"a", "b"}), "a and b");
    EXPECT_EQ(joinedWithAnd({"a", "b", "c"}), "a, b and c");
    EXPECT_EQ(fileSizeText(999), "999 bytes");
    EXPECT_EQ(fileSizeText(1000), "1.00 kB");
    EXPECT_EQ(fileSizeText(262144), "262.1 kB");
    EXPECT_EQ(fileSizeText(4200000), "4.20 MB");
    EXPECT_EQ(fileSizeText(1300000000), "1.30 GB");
    EXPECT_EQ(clockText(65), "1:05");
    EXPECT_EQ(clockText(59.6), "1:00");
    EXPECT_EQ(clockText(3723), "1:02:03");
    EXPECT_EQ(clockText(-2), "0:00");
}

TEST(TextTest, LettersAndDigitsOfEveryScriptStay) {
    EXPECT_EQ(lettersAndDigits("Été 2024 — «Ωmega» ٣ 東京!"), "Été2024Ωmega٣東京");
    EXPECT_EQ(lettersAndDigits("— ?! _ —"), "");
}
