#include "core/base/VorlenError.hpp"

#include <gtest/gtest.h>

using namespace vorlen;

TEST(VorlenErrorTest, CasesCarryTheirOwnWords) {
    EXPECT_STREQ(VorlenError::tool("ffmpeg", "exit status: 1\nboom").what(), "ffmpeg failed: exit status: 1\nboom");
    EXPECT_STREQ(VorlenError::status(503, "Slow Down").what(), "storage returned 503: Slow Down");
    EXPECT_STREQ(VorlenError::notDeleted({{"a/b", "AccessDenied", ""}, {"c", "", "x"}}).what(),
                 "storage did not delete 2 object(s): a/b (AccessDenied), c ()");
    EXPECT_STREQ(VorlenError::conflict("_vorlen/site.json").what(),
                 "_vorlen/site.json changed after it was read, or it exists already");
    EXPECT_STREQ(VorlenError::download("", 404).what(), "the download from the server failed with HTTP 404");
    EXPECT_STREQ(VorlenError::incompleteDownload("vimeo.example", 10, 20).what(),
                 "the download from vimeo.example got 10 bytes, and the server announced 20");
    EXPECT_STREQ(VorlenError::batchRunInProgress(BatchRunKind::vimeoSync, "Studio").what(),
                 "\u201cStudio\u201d is running a Vimeo sync on this site. Start this run when that run ends. If that "
                 "computer stopped, you can start this run after about 5 minutes.");
    auto error = VorlenError::integrity("k", "BadDigest");
    ASSERT_NE(error.as<failure::Integrity>(), nullptr);
    EXPECT_EQ(error.as<failure::Integrity>()->key, "k");
    EXPECT_FALSE(error.is<failure::Status>());
}
