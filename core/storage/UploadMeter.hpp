#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

#include "core/storage/UploadJournal.hpp"

namespace vorlen {

// The rate of a growing count over the last `window` seconds.
class RateEstimator {
public:
    explicit RateEstimator(double window = 15) : window_(window) {}

    // Drops the oldest samples while they are older than the window and at least three remain.
    void add(double time, double done);
    // Bytes a second, once the samples span two seconds and the count grew.
    std::optional<double> rate() const;
    std::optional<double> lastDone() const;

private:
    double window_;
    std::deque<std::pair<double, double>> samples_;
};

struct UploadProgress {
    std::uint64_t reportedBytes = 0;
    std::uint64_t totalBytes = 0;
    double fraction = 0;
    std::optional<double> rate;         // bytes a second
    std::optional<double> secondsLeft;
};

// Turns the bytes given to the transport into progress. A retry takes given
// bytes back, but the reported number never goes back.
class UploadMeter {
public:
    explicit UploadMeter(std::uint64_t totalBytes, double window = 15) : totalBytes_(totalBytes), estimator_(window) {}

    UploadProgress update(std::uint64_t givenBytes, double seconds);

private:
    std::uint64_t totalBytes_;
    RateEstimator estimator_;
    std::uint64_t reportedBytes_ = 0;
};

// A meter that also writes a progress line to the journal every 15 seconds.
class UploadTicks {
public:
    static constexpr double logInterval = 15;

    UploadTicks(std::uint64_t totalBytes, UploadJournal& journal) : meter_(totalBytes), journal_(journal) {}

    UploadProgress tick(std::uint64_t givenBytes, double seconds);

private:
    UploadMeter meter_;
    UploadJournal& journal_;
    double nextLogTime_ = logInterval;
};

}  // namespace vorlen
