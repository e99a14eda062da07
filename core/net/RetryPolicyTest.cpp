#include "core/net/RetryPolicy.hpp"

#include <gtest/gtest.h>

#include "core/base/VorlenError.hpp"
#include "core/net/StatusFailure.hpp"
#include "core/net/TransportError.hpp"

namespace vorlen {
namespace {

template <class E>
std::exception_ptr failure(E error) {
    return std::make_exception_ptr(std::move(error));
}

// Stands for the control-plane clients' failures, which carry a status and a Retry-After.
struct ServiceFailure : std::runtime_error, RetryDelaySuggesting {
    int status;
    std::chrono::duration<double> wait;
    ServiceFailure(int status, double seconds) : std::runtime_error("service"), status(status), wait(seconds) {}
    std::chrono::duration<double> suggestedRetryDelay() const override { return wait; }
    std::optional<int> suggestingStatus() const override { return status; }
};

TEST(RetryPolicyTest, OneTestDecidesWhichFailuresAreTransient) {
    EXPECT_TRUE(isTransient(failure(VorlenError::status(429, ""))));
    EXPECT_TRUE(isTransient(failure(VorlenError::status(500, ""))));
    EXPECT_TRUE(isTransient(failure(VorlenError::status(503, ""))));
    EXPECT_FALSE(isTransient(failure(VorlenError::status(412, ""))));
    EXPECT_FALSE(isTransient(failure(VorlenError::status(404, ""))));
    EXPECT_TRUE(isTransient(failure(VorlenError::download("h", 502))));
    EXPECT_FALSE(isTransient(failure(VorlenError::download("h", 403))));
    EXPECT_TRUE(isTransient(failure(VorlenError::integrity("k", "BadDigest"))));
    EXPECT_TRUE(isTransient(failure(VorlenError::incompleteDownload("h", 1, 2))));
    EXPECT_FALSE(isTransient(failure(VorlenError::conflict("k"))));
    EXPECT_FALSE(isTransient(failure(Cancelled())));
    EXPECT_FALSE(isTransient(failure(std::runtime_error("The file is shorter than planned."))));
    EXPECT_TRUE(isTransient(failure(TransportError(7, "refused"))));
    EXPECT_TRUE(isTransient(failure(TransportError::badServerResponse())));
    EXPECT_FALSE(isTransient(failure(TransportError(3, "malformed"))));
    // A status failure with a long Retry-After stays transient: only the services' own failures
    // give up on waits over a minute.
    EXPECT_TRUE(isTransient(failure(StatusFailure(503, "", std::chrono::seconds(120)))));
    EXPECT_TRUE(isTransient(failure(ServiceFailure(429, 60))));
    EXPECT_FALSE(isTransient(failure(ServiceFailure(429, 61))));
    EXPECT_FALSE(isTransient(failure(ServiceFailure(400, 0))));
    EXPECT_FALSE(isTransient(nullptr));
}

TEST(RetryPolicyTest, WaitsDoubleUpToSixteenTimesTheDelayAndNeverUndercutTheServer) {
    const std::chrono::duration<double> delay(0.5);
    const auto plain = failure(VorlenError::status(500, ""));
    std::vector<double> waits;
    for (int retry = 0; retry < 6; ++retry) waits.push_back(retryWait(delay, retry, plain).count());
    EXPECT_EQ(waits, (std::vector<double>{1, 2, 4, 8, 8, 8}));
    const auto suggesting = failure(StatusFailure(429, "", std::chrono::seconds(3)));
    EXPECT_DOUBLE_EQ(retryWait(delay, 0, suggesting).count(), 3);
    EXPECT_DOUBLE_EQ(retryWait(delay, 3, suggesting).count(), 8);
}

TEST(RetryPolicyTest, RunRetriesTransientFailuresUntilTheRetriesAreUsed) {
    const RetryPolicy policy{2, std::chrono::duration<double>(0)};
    int calls = 0;
    EXPECT_EQ(policy.run([&](std::int64_t attempt) {
        ++calls;
        if (attempt < 3) throw VorlenError::status(503, "");
        return 7;
    }),
              7);
    EXPECT_EQ(calls, 3);

    calls = 0;
    EXPECT_THROW(policy.run([&](std::int64_t) -> int {
        ++calls;
        throw VorlenError::status(503, "");
    }),
                 VorlenError);
    EXPECT_EQ(calls, 3);

    calls = 0;
    EXPECT_THROW(policy.run([&](std::int64_t) -> int {
        ++calls;
        throw VorlenError::conflict("k");
    }),
                 VorlenError);
    EXPECT_EQ(calls, 1);

    // A failure that the hook throws ends the loop in place of a transient one.
    calls = 0;
    int hooked = 0;
    EXPECT_THROW(policy.run(
                     [&](std::int64_t) -> int {
                         ++calls;
                         throw VorlenError::status(503, "");
                     },
                     [&] {
                         if (++hooked == 2) throw Cancelled();
                     }),
                 Cancelled);
    EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace vorlen
