#include "core/batch/BulkReferenceIndex.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

using namespace bulkDecision;

BulkReferenceIndex siteWith() {
    return BulkReferenceIndex::make({
        {"first", " ref-1 ", true, std::nullopt},
        {"second", "ref-1", true, std::nullopt},  // the first finished folder of a reference wins
        {"broken-a", "ref-2", false, std::nullopt},
        {"broken-b", "ref-2", false, std::nullopt},
        {"plain", std::nullopt, true, std::nullopt},
        {"blank", "  ", false, std::nullopt},
    });
}

TEST(BulkReferenceIndex, FindsFinishedAndInterruptedFoldersByTrimmedReference) {
    auto index = siteWith();
    EXPECT_EQ(index.publishedFolders, (std::map<std::string, std::string>{{"ref-1", "first"}}));
    EXPECT_EQ(index.decide(0, "ref-1", bulkReplacement::None{}), BulkRowDecision(Skip{"first"}));
    // Interrupted folders are handed over once, to be deleted before the video is published anew.
    EXPECT_EQ(index.decide(1, " ref-2", bulkReplacement::None{}), BulkRowDecision(Redo{{"broken-a", "broken-b"}}));
    EXPECT_EQ(index.decide(2, "", bulkReplacement::None{}), BulkRowDecision(Publish{}));
    EXPECT_EQ(index.decide(3, std::nullopt, bulkReplacement::IfPublished{}), BulkRowDecision(Publish{}));
}

TEST(BulkReferenceIndex, ASecondRowWithTheSameNewReferenceWaitsThenSkips) {
    auto index = siteWith();
    EXPECT_EQ(index.decide(0, "new", bulkReplacement::None{}), BulkRowDecision(Publish{}));
    EXPECT_EQ(index.decide(1, "new", bulkReplacement::None{}), BulkRowDecision(Wait{}));
    index.finished(0, "new", "new-folder", std::nullopt);
    EXPECT_EQ(index.decide(1, "new", bulkReplacement::None{}), BulkRowDecision(Skip{"new-folder"}));
}

TEST(BulkReferenceIndex, AFailedClaimLetsTheNextRowPublish) {
    auto index = siteWith();
    EXPECT_EQ(index.decide(0, "new", bulkReplacement::None{}), BulkRowDecision(Publish{}));
    index.finished(0, "new", std::nullopt, std::nullopt);
    EXPECT_EQ(index.decide(1, "new", bulkReplacement::None{}), BulkRowDecision(Publish{}));
}

TEST(BulkReferenceIndex, ReplacesEachFolderOnceInARun) {
    auto index = siteWith();
    EXPECT_EQ(index.decide(0, "ref-1", bulkReplacement::IfPublished{}), BulkRowDecision(Replace{"first"}));
    EXPECT_EQ(index.decide(1, "ref-1", bulkReplacement::IfPublished{}), BulkRowDecision(Wait{}));
    EXPECT_EQ(index.decide(2, std::nullopt, bulkReplacement::Required{"first"}), BulkRowDecision(Wait{}));
    index.finished(0, "ref-1", std::nullopt, "first");
    EXPECT_EQ(index.decide(1, "ref-1", bulkReplacement::IfPublished{}), BulkRowDecision(Skip{"first"}));
    EXPECT_EQ(index.decide(2, std::nullopt, bulkReplacement::Required{"first"}), BulkRowDecision(Skip{"first"}));
}

TEST(BulkReferenceIndex, ARequiredReplacementNeedsAVideoOfTheSite) {
    auto index = siteWith();
    EXPECT_EQ(index.decide(0, std::nullopt, bulkReplacement::Required{}), BulkRowDecision(NotFound{}));
    EXPECT_EQ(index.decide(0, "ref-2", bulkReplacement::Required{}), BulkRowDecision(NotFound{}));
    EXPECT_EQ(index.decide(0, "ref-1", bulkReplacement::Required{}), BulkRowDecision(Replace{"first"}));
    // A reference that another row is publishing now may exist by the time it ends.
    EXPECT_EQ(index.decide(1, "new", bulkReplacement::None{}), BulkRowDecision(Publish{}));
    EXPECT_EQ(index.decide(2, "new", bulkReplacement::Required{}), BulkRowDecision(Wait{}));
    index.finished(1, "new", "new-folder", std::nullopt);
    EXPECT_EQ(index.decide(2, "new", bulkReplacement::Required{}), BulkRowDecision(Replace{"new-folder"}));
}

}  // namespace
}  // namespace vorlen
