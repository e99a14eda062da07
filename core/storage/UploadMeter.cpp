#include "core/storage/UploadMeter.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace vorlen {

void RateEstimator::add(double time, double done) {
    samples_.emplace_back(time, done);
    while (samples_.size() >= 3 && samples_.front().first < time - window_) samples_.pop_front();
}

std::optional<double> RateEstimator::rate() const {
    if (samples_.size() < 2) return std::nullopt;
    auto& [firstTime, firstDone] = samples_.front();
    auto& [lastTime, lastDone] = samples_.back();
    if (lastTime - firstTime < 2 || lastDone <= firstDone) return std::nullopt;
    return (lastDone - firstDone) / (lastTime - firstTime);
}

std::optional<double> RateEstimator::lastDone() const {
    if (samples_.empty()) return std::nullopt;
    return samples_.back().second;
}

UploadProgress UploadMeter::update(std::uint64_t givenBytes, double seconds) {
    reportedBytes_ = std::max(reportedBytes_, givenBytes);
    estimator_.add(seconds, static_cast<double>(reportedBytes_));
    UploadProgress progress;
    progress.reportedBytes = reportedBytes_;
    progress.totalBytes = totalBytes_;
    progress.fraction = totalBytes_ == 0 ? 1.0 : std::min(1.0, static_cast<double>(reportedBytes_) / static_cast<double>(totalBytes_));
    progress.rate = estimator_.rate();
    if (progress.rate && *progress.rate > 0) {
        double left = static_cast<double>(totalBytes_) - static_cast<double>(reportedBytes_);
        progress.secondsLeft = std::max(0.0, left / *progress.rate);
    }
    return progress;
}

UploadProgress UploadTicks::tick(std::uint64_t givenBytes, double seconds) {
    auto progress = meter_.update(givenBytes, seconds);
    if (seconds >= nextLogTime_) {
        std::string rate = progress.rate ? fmt::format("{:.0f} bytes/s", *progress.rate) : "rate not known";
        journal_.log(fmt::format("upload progress: {} bytes given now, {} reported, of {}, {}", givenBytes,
                                 progress.reportedBytes, progress.totalBytes, rate));
        while (nextLogTime_ <= seconds) nextLogTime_ += logInterval;
    }
    return progress;
}

}  // namespace vorlen
