#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

#include "core/storage/UploadJournal.hpp"

namespace vorlen {

struct UploadProgress {
    std::uint64_t reportedBytes = 0;
    std::uint64_t totalBytes = 0;
    double fraction = 0;
    std::optional<double> rate;         // bytes a second
    std::optional<double> secondsLeft;
};

// Turns the bytes given to the transport into progress. A retry takes given
// bytes back, but the reported number never goes back. The rate is taken over
// the samples of the last `window` seconds (at least the last two), once they
// span two seconds and the count grew.
class UploadMeter {
public:
    explicit UploadMeter(std::uint64_t totalBytes, double window = 15) : totalBytes_(totalBytes), window_(window) {}

    UploadProgress update(std::uint64_t givenBytes, double seconds);

private:
    std::optional<double> rate() const;

    std::uint64_t totalBytes_;
    double window_;
    std::deque<std::pair<double, double>> samples_;  // seconds, reported bytes
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
