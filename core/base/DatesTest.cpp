#include "core/base/Dates.hpp"

#include <gtest/gtest.h>

using namespace vorlen;
using namespace std::chrono;

TEST(DatesTest, Iso8601RoundTripsAndRefusesWhatIsNotUtc) {
    SystemTime time = sys_days(year(2026) / 1 / 15) + hours(9) + minutes(30);
    EXPECT_EQ(formatIso8601(time), "2026-01-15T09:30:00Z");
    EXPECT_EQ(formatIso8601Basic(time), "20260115T093000Z");
    EXPECT_EQ(parseIso8601("2026-01-15T09:30:00Z"), time);
    EXPECT_EQ(parseIso8601("2026-01-15T09:30:00.250Z"), time);
    for (auto bad : {"2026-01-15T09:30:00", "2026-01-15T09:30:00+01:00", "2026-02-30T00:00:00Z",
                     "2026-01-15 09:30:00Z", "2026-01-15T24:00:00Z", "", "2026-01-15T09:30:00.Z"})
        EXPECT_EQ(parseIso8601(bad), std::nullopt) << bad;
    SystemTime leap = sys_days(year(2024) / 2 / 29) + hours(23) + minutes(59) + seconds(59);
    EXPECT_EQ(parseIso8601(formatIso8601(leap)), leap);
}

TEST(DatesTest, HttpDatesRoundTripAndRetryAfterTakesBothForms) {
    SystemTime time = sys_days(year(1994) / 11 / 6) + hours(8) + minutes(49) + seconds(37);
    EXPECT_EQ(formatHttpDate(time), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(parseHttpDate("Sun, 06 Nov 1994 08:49:37 GMT"), time);
    for (auto bad : {"Mon, 06 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 UTC", "Sunday, 06-Nov-94 08:49:37 GMT",
                     "Sun, 06 Foo 1994 08:49:37 GMT"})
        EXPECT_EQ(parseHttpDate(bad), std::nullopt) << bad;
    EXPECT_DOUBLE_EQ(parseRetryAfter(" 7 ", time)->count(), 7.0);
    EXPECT_DOUBLE_EQ(parseRetryAfter("Sun, 06 Nov 1994 08:49:47 GMT", time)->count(), 10.0);
    EXPECT_DOUBLE_EQ(parseRetryAfter("Sun, 06 Nov 1994 08:49:00 GMT", time)->count(), 0.0);
    EXPECT_EQ(parseRetryAfter("-3", time), std::nullopt);
    EXPECT_EQ(parseRetryAfter("soon", time), std::nullopt);
}
