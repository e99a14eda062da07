#include "core/batch/BatchRunLease.hpp"

#include <gtest/gtest.h>

#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "testing/FailureText.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using namespace std::chrono_literals;
using testing::Fault;
using testing::failureOf;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;

const auto noon = std::chrono::sys_days{std::chrono::year{2026} / 11 / 24} + 12h;

// Two computers' runs on one bucket, one of them through a proxy that can lose answers.
class BatchRunLeaseRgwTest : public ::testing::Test {
protected:
    BatchRunLeaseRgwTest()
        : direct_(RgwServer::shared().makeBucket()),
          proxy_(RgwServer::shared().endpoint(), RgwServer::shared().credentials()),
          proxied_(RgwServer::shared().client(direct_->location().bucket, proxy_.endpoint())) {}

    void storeRecord(const std::string& id, std::chrono::system_clock::time_point updated) {
        const BatchRunRecord record{id, BatchRunKind::vimeoSync, "Studio", std::chrono::floor<std::chrono::seconds>(updated)};
        direct_->put(BatchRunRecord::key, RequestBody::bytes(record.encoded()), {});
    }
    BatchRunLease take(std::chrono::system_clock::time_point now) {
        return BatchRunLease::take(proxied_, retry_, BatchRunKind::bulkUpload, "Laptop", [now] { return now; });
    }
    std::string stored() const { return direct_->object(BatchRunRecord::key).value_or("(none)"); }
    std::vector<std::string> conditions() const {
        std::vector<std::string> seen;
        for (const auto& request : proxy_.requests()) {
            if (request.method != "PUT") continue;
            const bool ifMatch = std::any_of(request.headers.begin(), request.headers.end(),
                                             [](const auto& header) { return asciiLowercased(header.first) == "if-match"; });
            seen.push_back(ifMatch ? "if-match" : "if-none-match");
        }
        return seen;
    }

    RetryPolicy retry_{2, std::chrono::duration<double>(0.01)};
    std::shared_ptr<S3Bucket> direct_;
    FaultProxy proxy_;
    std::shared_ptr<S3Bucket> proxied_;
};

TEST_F(BatchRunLeaseRgwTest, ALivingRecordBlocksAndAStaleOneIsTakenOverWhicheverWayTheClockIsWrong) {
    const auto lease = take(noon);
    EXPECT_EQ(conditions(), std::vector<std::string>{"if-none-match"});
    EXPECT_EQ(BatchRunRecord::decoded(stored()), lease.record);
    EXPECT_EQ(failureOf([&] { take(noon + 299s); }),
              "\u201cLaptop\u201d is running a bulk upload on this site. Start this run when that run ends. If that "
              "computer stopped, you can start this run after about 5 minutes.");

    storeRecord("other", noon);
    EXPECT_NE(failureOf([&] { take(noon + 299900ms); }), "no failure");
    EXPECT_EQ(take(noon + 300s).record.computerName, "Laptop");
    EXPECT_EQ(conditions().back(), "if-match");
    storeRecord("other", noon + 4min);
    EXPECT_NE(failureOf([&] { take(noon); }), "no failure") << "four minutes ahead is alive";
    storeRecord("other", noon + 10min);
    EXPECT_EQ(failureOf([&] { take(noon); }), "no failure") << "ten minutes ahead is stale";

    EXPECT_EQ(BatchRunLease::currentRun(*direct_, retry_, noon)->computerName, "Laptop");
    EXPECT_FALSE(BatchRunLease::currentRun(*direct_, retry_, noon + 5min));
}

TEST_F(BatchRunLeaseRgwTest, ALostAnswerIsTheRunsOwnWriteAndThreeLostRacesAreAConflict) {
    bool lost = false;
    proxy_.setPolicy([&](const ProxyRequest& request) {
        if (request.method != "PUT" || lost) return Fault::none();
        lost = true;
        return Fault::loseAnswer();
    });
    const auto lease = take(noon);
    EXPECT_EQ(BatchRunRecord::decoded(stored()).id, lease.record.id);
    EXPECT_EQ(lease.etag, direct_->taggedObject(BatchRunRecord::key)->etag);

    direct_->remove(BatchRunRecord::key);
    proxy_.setPolicy([](const ProxyRequest& request) {
        return request.method == "PUT" ? Fault::respond(412, "<Error><Code>PreconditionFailed</Code></Error>") : Fault::none();
    });
    EXPECT_EQ(failureOf([&] { take(noon); }), "_vorlen/batch-run.json changed after it was read, or it exists already");
    EXPECT_EQ(conditions().size(), 5u) << "a lost answer and its retry, which met the run's own record, then three races";
}

TEST_F(BatchRunLeaseRgwTest, ARenewalKeepsTheRunAndATakenRecordStopsItButIsNeverDeleted) {
    auto lease = take(noon);
    std::atomic<int> renewals = 0;
    // Long after the stale time: a computer that slept renews a record that nobody took.
    auto keeper = Task<void>::spawn([&] {
        lease.keep(10ms, [&] {
            // Before the third renewal's write, another computer takes the site over.
            if (++renewals == 3) storeRecord("other", noon + 1h);
            return noon + 1h;
        });
    });
    EXPECT_EQ(failureOf([&] { keeper.value(); }),
              "Another run started on this site while this run could not report to the bucket, for example while this "
              "computer was asleep. So this run stopped. A later run continues with the videos that are left.");
    lease.release();
    EXPECT_EQ(BatchRunRecord::decoded(stored()).id, "other");

    auto mine = take(noon + 3h);
    mine.release();
    EXPECT_EQ(stored(), "(none)");
}

TEST(BatchRunRecordTest, ARecordThatCannotBeReadIsToldInWords) {
    const auto failure = [](std::string_view data) {
        try {
            BatchRunRecord::decoded(data);
        } catch (const VorlenError& error) {
            return error.text();
        }
        return std::string("no failure");
    };
    const std::string unreadable =
        "The bucket has a record of a batch run in _vorlen/batch-run.json that Vorlen cannot read. Update Vorlen. If "
        "this message stays, delete that file.";
    EXPECT_EQ(failure(R"({"version":2})"),
              "A different version of Vorlen has a batch run on this site. Update Vorlen, then start this run again.");
    EXPECT_EQ(failure("not json"), unreadable);
    EXPECT_EQ(failure(R"({"version":1,"id":"a","kind":"nightly","computer_name":"c","updated":"2026-01-01T00:00:00Z"})"),
              unreadable);
    EXPECT_EQ(failure(R"({"version":1,"id":"a","kind":"vimeo-sync","computer_name":"c","updated":"noon"})"), unreadable);
    const BatchRunRecord record{"id-1", BatchRunKind::vimeoSync, "Studio / 2", parseIso8601("2026-01-01T00:00:00Z").value()};
    EXPECT_EQ(BatchRunRecord::decoded(record.encoded()), record);
    EXPECT_NE(record.encoded().find("\"computer_name\": \"Studio / 2\""), std::string::npos) << "sorted, slashes as they are";
}

}  // namespace
}  // namespace vorlen
