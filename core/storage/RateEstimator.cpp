#include "core/storage/RateEstimator.hpp"

namespace vorlen {

void RateEstimator::add(double time, double done) {
    samples_.emplace_back(time, done);
    while (!samples_.empty() && time - samples_.front().first > window_) samples_.pop_front();
}

std::optional<double> RateEstimator::rate() const {
    if (samples_.size() < 2) return std::nullopt;
    double elapsed = samples_.back().first - samples_.front().first;
    if (elapsed <= 0) return std::nullopt;
    return (samples_.back().second - samples_.front().second) / elapsed;
}

std::optional<double> RateEstimator::lastDone() const {
    if (samples_.empty()) return std::nullopt;
    return samples_.back().second;
}

}  // namespace vorlen
