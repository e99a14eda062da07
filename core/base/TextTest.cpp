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
