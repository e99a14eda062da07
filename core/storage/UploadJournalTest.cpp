#include "core/storage/UploadJournal.hpp"

#include <gtest/gtest.h>

#include <system_error>

#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

struct DrivenTime {
    BootClock::time_point now{std::chrono::hours(2)};
    std::function<BootClock::time_point()> clock() {
        return [this] { return now; };
    }
};

TEST(UploadJournal, writesItsLinesWithTheSecondsSinceTheStart) {
    DrivenTime time;
    UploadJournal journal(time.clock());
    time.now += std::chrono::milliseconds(47200);
    UploadAttemptReport report{"v_1080/001.mp4", 1, 1, 6, 33554432, 3145728, 47.2,
                               RequestTransport{"h2", false, false, "192.0.2.1:443", 2097152}};
    journal.logFailure(report, std::make_exception_ptr(VorlenError::status(503, "<Error><Code>SlowDown</Code></Error>")));
    time.now += std::chrono::seconds(1000);
    journal.logStored(UploadAttemptReport{"a_en/002.mp4", std::nullopt, 2, 6, 10, 10, 0.04, std::nullopt});
    journal.logFailedStep("finish of v_1080/001.mp4", 2, 6, std::make_exception_ptr(VorlenError::integrity("k", "BadDigest")));
    journal.logStart(3, 1000, UploadOptions{}, 125000);
    journal.logStop(std::make_exception_ptr(VorlenError::status(403, "denied")));

    EXPECT_EQ(journal.entries(),
              (std::vector<std::string>{
                  "   47.2 s  failed: v_1080/001.mp4 part 1, attempt 1 of 6: 3145728 of 33554432 bytes given in 47.2 s, "
                  "h2, new connection, 192.0.2.1:443, 2097152 body bytes sent: HTTP 503 SlowDown",
                  " 1047.2 s  stored: a_en/002.mp4, attempt 2 of 6: 10 of 10 bytes given in 0.0 s",
                  " 1047.2 s  failed: finish of v_1080/001.mp4, attempt 2 of 6: storage rejected a checksum",
                  " 1047.2 s  upload started: 3 files, 1000 bytes, 8 requests at a time, parts of 33554432 bytes, "
                  "limit 125000 bytes/s",
                  " 1047.2 s  upload stopped: 1 requests stored, 2 attempts failed: HTTP 403"}));
}

TEST(UploadJournal, keepsTheLastThreeHundredLines) {
    UploadJournal journal;
    for (int i = 0; i < 301; ++i) journal.log("event " + std::to_string(i));
    auto lines = journal.entries();
    ASSERT_EQ(lines.size(), 300u);
    EXPECT_TRUE(lines.front().ends_with("event 1"));
    EXPECT_TRUE(lines.back().ends_with("event 300"));
}

TEST(UploadJournal, digestsAreShortAndNameTheKindOfFailure) {
    EXPECT_EQ(failureDigest(std::make_exception_ptr(VorlenError::status(500, "<Error><Code></Code></Error>"))), "HTTP 500");
    EXPECT_EQ(failureDigest(std::make_exception_ptr(VorlenError::status(404, "<?xml?><Error><Code>NoSuchUpload</Code>"
                                                                             "<Message>gone</Message></Error>"))),
              "HTTP 404 NoSuchUpload");
    EXPECT_EQ(failureDigest(std::make_exception_ptr(std::system_error(ECONNRESET, std::generic_category()))),
              "generic 104");
    RequestTransport unknown;
    EXPECT_EQ(describe(unknown), "no protocol, new connection, 0 body bytes sent");
    EXPECT_EQ(describe(RequestTransport{"http/1.1", true, true, std::nullopt, 5}),
              "http/1.1, reused connection, proxy, 5 body bytes sent");
}

TEST(UploadJournal, labelsAFileByItsTwoLastPathComponents) {
    EXPECT_EQ(uploadLabel("site/videos/clip/v_1080/001.mp4"), "v_1080/001.mp4");
    EXPECT_EQ(uploadLabel("clip/master.m3u8"), "clip/master.m3u8");
    EXPECT_EQ(uploadLabel("master.m3u8"), "master.m3u8");
}

}  // namespace
}  // namespace vorlen
