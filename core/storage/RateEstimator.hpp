#pragma once

#include <deque>
#include <optional>
#include <utility>

namespace vorlen {

// The recent rate of something done over time: samples older than the window drop out.
class RateEstimator {
public:
    explicit RateEstimator(double windowSeconds = 15) : window_(windowSeconds) {}

    void add(double time, double done);
    // (last done − first done) / (last time − first time); nothing with fewer
    // than two samples or no time between them.
    std::optional<double> rate() const;
    std::optional<double> lastDone() const;

private:
    double window_;
    std::deque<std::pair<double, double>> samples_;
};

}  // namespace vorlen
