#include "core/base/Json.hpp"

#include <gtest/gtest.h>

using namespace vorlen;

TEST(JsonTest, OutputHasSortedKeysAndUnescapedSlashesAndSurvivesBadUtf8) {
    Json value = {{"zeta", 1}, {"alpha", "a/b"}, {"mid", {{"y", true}, {"x", nullptr}}}};
    EXPECT_EQ(encodeJson(value), R"({"alpha":"a/b","mid":{"x":null,"y":true},"zeta":1})");
    EXPECT_EQ(encodeJson(Json("caf\xC3")), "\"caf\xEF\xBF\xBD\"");
    EXPECT_EQ(encodeJson(Json{{"b", 1}, {"a", 2}}, true), "{\n  \"a\": 2,\n  \"b\": 1\n}");
}

TEST(JsonTest, LenientFieldsFallBackOneByOne) {
    Json record = decodeJson(R"({"count": "seven", "name": "clip", "limit": 8, "list": [1, 2]})");
    EXPECT_EQ(fieldOr(record, "count", 3), 3);
    EXPECT_EQ(fieldOr<std::string>(record, "name", ""), "clip");
    EXPECT_EQ(fieldOr(record, "limit", 0), 8);
    EXPECT_EQ(fieldOr(record, "missing", 5), 5);
    EXPECT_EQ(optionalField<std::string>(record, "list"), std::nullopt);
    EXPECT_EQ(fieldOr(Json::array(), "count", 1), 1);
}
